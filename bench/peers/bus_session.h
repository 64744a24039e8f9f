#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

/// What the programs on the D-Bus share.
namespace bench::peers {

/// The service, and the interface of its objects: a group is an object, its values are the
/// properties.
inline constexpr const char* busService = "treescope.Bench";
inline constexpr const char* busInterface = "treescope.Bench.Group";
/// The object and interface that send updates without waiting: the method "Burst" takes their
/// number, and each is a signal "Changed" with a path and a value.
inline constexpr const char* busBurstPath = "/burst";
inline constexpr const char* busBurstInterface = "treescope.Bench.Burst";

/// Returns `result`, the result of a call of sd-bus. Throws `std::runtime_error` with `what`
/// and the reason if it is an error.
inline int check(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
  }
  return result;
}

/// Connects to the bus at DBUS_SESSION_BUS_ADDRESS; the caller owns the connection.
inline sd_bus* openBus() {
  sd_bus* bus = nullptr;
  check(sd_bus_open_user(&bus), "cannot connect to the bus");
  return bus;
}

/// Dispatches messages until the process is ended.
[[noreturn]] inline void dispatchBus(sd_bus* bus) {
  for (;;) {
    if (check(sd_bus_process(bus, nullptr), "process") == 0) {
      check(sd_bus_wait(bus, UINT64_MAX), "wait");
    }
  }
}

}  // namespace bench::peers
