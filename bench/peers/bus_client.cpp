#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bench/peers/bus_session.h"

// A client of the service on the D-Bus that prints values by lines, which busctl(1) does not:
//
//   bus_client list           prints every value with its path
//   bus_client watch          prints "ready", then each value that changes

namespace {

using bench::peers::busInterface;
using bench::peers::busService;
using bench::peers::check;
using bench::peers::dispatchBus;
using bench::peers::openBus;

/// Calls `body` for each entry of the array at the read position of `message`.
template <typename Body>
void each(sd_bus_message* message, const char* entry, const Body& body) {
  check(sd_bus_message_enter_container(message, 'a', (std::string("{") + entry + "}").c_str()),
        "array");
  while (check(sd_bus_message_enter_container(message, 'e', entry), "entry") > 0) {
    body();
    check(sd_bus_message_exit_container(message), "end of entry");
  }
  check(sd_bus_message_exit_container(message), "end of array");
}

/// Prints the properties at the read position of `message`.
void printValues(sd_bus_message* message, const char* path) {
  each(message, "sv", [&] {
    const char* name = nullptr;
    std::int32_t value = 0;
    check(sd_bus_message_read(message, "s", &name), "name");
    check(sd_bus_message_read(message, "v", "i", &value), "value");
    std::printf("%s/%s [%d]\n", path, name, value);
  });
}

void list(sd_bus* bus) {
  sd_bus_message* reply = nullptr;
  check(sd_bus_call_method(bus, busService, "/", "org.freedesktop.DBus.ObjectManager",
                           "GetManagedObjects", nullptr, &reply, ""),
        "GetManagedObjects");
  each(reply, "oa{sa{sv}}", [reply] {
    const char* path = nullptr;
    check(sd_bus_message_read(reply, "o", &path), "path");
    each(reply, "sa{sv}", [&] {
      const char* interface = nullptr;
      check(sd_bus_message_read(reply, "s", &interface), "interface");
      if (std::string_view(interface) == busInterface) {
        printValues(reply, path);
      } else {
        check(sd_bus_message_skip(reply, "a{sv}"), "other interface");
      }
    });
  });
  sd_bus_message_unref(reply);
}

int printChange(sd_bus_message* message, void*, sd_bus_error*) {
  const char* interface = nullptr;
  check(sd_bus_message_read(message, "s", &interface), "interface");
  printValues(message, sd_bus_message_get_path(message));
  std::fflush(stdout);
  return 0;
}

[[noreturn]] void watch(sd_bus* bus) {
  check(sd_bus_match_signal(bus, nullptr, busService, nullptr, "org.freedesktop.DBus.Properties",
                            "PropertiesChanged", printChange, nullptr),
        "match");
  std::puts("ready");
  std::fflush(stdout);
  dispatchBus(bus);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view task = argc > 1 ? argv[1] : "";
    sd_bus* const bus = openBus();
    if (task == "list") {
      list(bus);
    } else if (task == "watch") {
      watch(bus);
    } else {
      throw std::runtime_error("usage: bus_client list | watch");
    }
    sd_bus_flush_close_unref(bus);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bus_client: %s\n", error.what());
    return 1;
  }
}
