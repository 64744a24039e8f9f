#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The device of doc/scripts.md on the D-Bus of the system:
//
//   device_service NAME
//
// It has the object /drive with the interface org.example.Drive, and /settings with
// org.example.Settings. It prints "ready" when it can be called.

namespace {

struct Device {
  std::int32_t speed = 42;
  double temperature = 61.5;
  std::int32_t setpoint = 20;
  char* mode = ::strdup("slow");
  char* label = ::strdup("bench 3");
};

/// Reads a value of `type` from `message` into `stored`.
int readValue(sd_bus_message* message, char type, void* stored) {
  if (type != 's') {
    return sd_bus_message_read_basic(message, type, stored);
  }
  const char* text = nullptr;
  const int result = sd_bus_message_read_basic(message, type, &text);
  if (result >= 0) {
    char*& place = *static_cast<char**>(stored);
    std::free(place);
    place = ::strdup(text);
  }
  return result;
}

/// Stores a property and emits its change.
template <char type>
int store(sd_bus* bus, const char* path, const char* interface, const char* property,
          sd_bus_message* value, void* stored, sd_bus_error* /*error*/) {
  const int result = readValue(value, type, stored);
  return result < 0 ? result
                    : sd_bus_emit_properties_changed(bus, path, interface, property, nullptr);
}

constexpr std::uint64_t emits = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE | SD_BUS_VTABLE_UNPRIVILEGED;

const sd_bus_vtable driveTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_WRITABLE_PROPERTY("Speed", "i", nullptr, store<'i'>, offsetof(Device, speed), emits),
    SD_BUS_WRITABLE_PROPERTY("Temperature", "d", nullptr, store<'d'>, offsetof(Device, temperature),
                             emits),
    SD_BUS_VTABLE_END};

const sd_bus_vtable settingsTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_WRITABLE_PROPERTY("Setpoint", "i", nullptr, store<'i'>, offsetof(Device, setpoint),
                             emits),
    SD_BUS_WRITABLE_PROPERTY("Mode", "s", nullptr, store<'s'>, offsetof(Device, mode), emits),
    SD_BUS_WRITABLE_PROPERTY("Label", "s", nullptr, store<'s'>, offsetof(Device, label), emits),
    SD_BUS_VTABLE_END};

int serve(const char* name) {
  static Device device;
  sd_bus* bus = nullptr;
  int result = sd_bus_open_system(&bus);
  if (result >= 0) {
    result =
        sd_bus_add_object_vtable(bus, nullptr, "/drive", "org.example.Drive", driveTable, &device);
  }
  if (result >= 0) {
    result = sd_bus_add_object_vtable(bus, nullptr, "/settings", "org.example.Settings",
                                      settingsTable, &device);
  }
  if (result >= 0) {
    result = sd_bus_request_name(bus, name, 0);
  }
  if (result >= 0) {
    std::puts("ready");
    std::fflush(stdout);
  }
  while (result >= 0) {
    result = sd_bus_process(bus, nullptr);
    if (result == 0) {
      result = sd_bus_wait(bus, UINT64_MAX);
    }
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: device_service NAME\n", stderr);
    return 2;
  }
  std::fprintf(stderr, "device_service: %s\n", std::strerror(-serve(argv[1])));
  return 1;
}
