#include <systemd/sd-bus.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/peers/bus_session.h"

// A service on the D-Bus that publishes GROUPS objects of VALUES properties each:
//
//   bus_service GROUPS VALUES
//
// It prints "ready" when it can be called.

namespace {

using bench::peers::busBurstInterface;
using bench::peers::busBurstPath;
using bench::peers::busInterface;
using bench::peers::busService;
using bench::peers::check;
using bench::peers::dispatchBus;
using bench::peers::openBus;

std::string numbered(const char* format, unsigned number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), format, number);
  return text.data();
}

/// Stores a property and emits its change.
int setProperty(sd_bus* bus, const char* path, const char* interface, const char* property,
                sd_bus_message* value, void* stored, sd_bus_error* /*error*/) {
  const int result = sd_bus_message_read(value, "i", stored);
  return result < 0 ? result
                    : sd_bus_emit_properties_changed(bus, path, interface, property, nullptr);
}

/// The properties of every group: 32-bit integers whose changes are emitted.
class Table {
 public:
  explicit Table(unsigned values) {
    const sd_bus_vtable start = SD_BUS_VTABLE_START(0);
    entries_.push_back(start);
    for (unsigned i = 0; i < values; ++i) {
      sd_bus_vtable entry = SD_BUS_WRITABLE_PROPERTY("", "i", nullptr, setProperty, 0,
                                                     SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE);
      entry.x.property.member = names_.emplace_back(numbered("item_%04u", i)).c_str();
      entry.x.property.offset = i * sizeof(std::int32_t);
      entries_.push_back(entry);
    }
    const sd_bus_vtable end = SD_BUS_VTABLE_END;
    entries_.push_back(end);
  }

  [[nodiscard]] const sd_bus_vtable* entries() const { return entries_.data(); }

 private:
  std::list<std::string> names_;
  std::vector<sd_bus_vtable> entries_;
};

int burst(sd_bus_message* call, void*, sd_bus_error*) {
  sd_bus* const bus = sd_bus_message_get_bus(call);
  std::uint32_t count = 0;
  int result = sd_bus_message_read(call, "u", &count);
  if (result >= 0) {
    result = sd_bus_reply_method_return(call, "");
  }
  for (std::uint32_t i = 0; i < count && result >= 0; ++i) {
    result = sd_bus_emit_signal(bus, busBurstPath, busBurstInterface, "Changed", "si",
                                "/group_000/item_0000", static_cast<std::int32_t>(i));
    // Signals are queued in this process up to a limit; this keeps the queue short.
    if (result >= 0 && i % 64 == 0) {
      result = sd_bus_flush(bus);
    }
  }
  return result;
}

const std::array<sd_bus_vtable, 4> burstTable{
    {SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Burst", "u", "", burst, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_SIGNAL("Changed", "si", 0), SD_BUS_VTABLE_END}};

void serve(unsigned groups, unsigned values) {
  sd_bus* const bus = openBus();
  const Table table(values);
  std::vector<std::vector<std::int32_t>> stored(groups, std::vector<std::int32_t>(values));
  for (unsigned group = 0; group < groups; ++group) {
    check(sd_bus_add_object_vtable(bus, nullptr, numbered("/group_%03u", group).c_str(),
                                   busInterface, table.entries(), stored[group].data()),
          "object");
  }
  check(sd_bus_add_object_manager(bus, nullptr, "/"), "object manager");
  check(sd_bus_add_object_vtable(bus, nullptr, busBurstPath, busBurstInterface, burstTable.data(),
                                 nullptr),
        "object");
  check(sd_bus_request_name(bus, busService, 0), "name");
  std::puts("ready");
  std::fflush(stdout);
  dispatchBus(bus);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 3) {
      throw std::runtime_error("usage: bus_service GROUPS VALUES");
    }
    serve(static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)),
          static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bus_service: %s\n", error.what());
  }
  return 1;
}
