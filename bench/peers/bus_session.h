#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

/// What the programs on the D-Bus share.
namespace bench::peers {

/// `result`, which a call of sd-bus gave; throws `std::runtime_error` with `what` and
/// the reason where that is an error.
inline int check(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
  }
  return result;
}

/// Says "ready" on standard output and dispatches what comes until the process is ended.
[[noreturn]] inline void serveBus(sd_bus* bus) {
  std::puts("ready");
  std::fflush(stdout);
  for (;;) {
    if (check(sd_bus_process(bus, nullptr), "process") == 0) {
      check(sd_bus_wait(bus, UINT64_MAX), "wait");
    }
  }
}

}  // namespace bench::peers
