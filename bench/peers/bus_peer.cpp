#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "bench/peers/bus_names.h"
#include "bench/peers/counting_child.h"
#include "bench/peers/peer.h"

namespace bench::peers {

namespace {

/// A bus of its own, without a limit that the updates of a test would meet.
std::string configuration(const std::string& socket) {
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=)" +
         socket + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">100000000</limit>
</busconfig>
)";
}

class Bus : public Peer {
 public:
  Bus(const Directory& directory, const Shape& shape)
      : shape_(shape),
        daemon_({"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + prepare(directory)}) {
    awaitSocket(socketIn(directory));
    service_ = std::make_unique<Running>(
        Words{BUS_SERVICE, std::to_string(shape.groups), std::to_string(Shape::valuesPerGroup)});
    service_->await("ready");
  }

  [[nodiscard]] std::string name() const override { return "D-Bus"; }

  [[nodiscard]] Task read() const override {
    return {"busctl get-property", property("get-property", {}), 1};
  }

  [[nodiscard]] Task write(int value) const override {
    return {"busctl set-property", property("set-property", {"i", std::to_string(value)}), 0};
  }

  [[nodiscard]] std::vector<Task> list() const override {
    return {{"a client of sd-bus, GetManagedObjects", {BUS_CLIENT, "list"}, shape_.total(), true},
            {"busctl call GetManagedObjects, in one line",
             {"busctl", "--user", "call", busService, "/", "org.freedesktop.DBus.ObjectManager",
              "GetManagedObjects"},
             1}};
  }

  [[nodiscard]] Servers servers() const override {
    return {"dbus-daemon and a service of sd-bus", {daemon_.pid(), service_->pid()}};
  }

  [[nodiscard]] std::unique_ptr<Watcher> watch() override;
  [[nodiscard]] std::vector<Rate> answeredStores() override;
  [[nodiscard]] std::vector<Rate> streams() override;

 private:
  static std::string socketIn(const Directory& directory) { return directory.path("bus"); }

  /// Leads this process and its children to the bus; the path of its configuration.
  static std::string prepare(const Directory& directory) {
    const std::string socket = socketIn(directory);
    if (::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + socket).c_str(), 1) != 0) {
      throw std::runtime_error("setenv");
    }
    return directory.write("bus.conf", configuration(socket));
  }

  [[nodiscard]] Words property(const std::string& verb, const Words& rest) const {
    const std::string path = pathOf(shape_, 0);
    const std::size_t end = path.rfind('/');
    Words words{"busctl",
                "--user",
                verb,
                busService,
                path.substr(0, end),
                busInterface,
                path.substr(end + 1)};
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
  }

  Shape shape_;
  Running daemon_;
  std::unique_ptr<Running> service_;
};

/// A connection with the bus.
using Connection = std::shared_ptr<sd_bus>;

int check(int result) {
  if (result < 0) {
    throw std::runtime_error("the bus or its service does not answer");
  }
  return result;
}

Connection connect() {
  sd_bus* bus = nullptr;
  check(sd_bus_open_user(&bus));
  return {bus, sd_bus_flush_close_unref};
}

void set(const Connection& bus, int value) {
  check(sd_bus_set_property(bus.get(), busService, "/group_000", busInterface, "item_0000", nullptr,
                            "i", value));
}

int countOne(sd_bus_message* /*message*/, void* count, sd_bus_error* /*error*/) {
  static_cast<CountingChild::Count*>(count)->fetch_add(1);
  return 0;
}

/// Counts signals without looking into them.
std::shared_ptr<CountingChild> subscribe(const char* path, const char* interface,
                                         const char* signal) {
  return std::make_shared<CountingChild>(
      [=](CountingChild::Count& count, const std::function<void()>& ready) {
        const Connection bus = connect();
        check(sd_bus_match_signal(bus.get(), nullptr, busService, path, interface, signal, countOne,
                                  &count));
        ready();
        for (;;) {
          if (check(sd_bus_process(bus.get(), nullptr)) == 0) {
            check(sd_bus_wait(bus.get(), UINT64_MAX));
          }
        }
      });
}

std::unique_ptr<Watcher> Bus::watch() {
  auto tool = std::make_unique<Running>(Words{BUS_CLIENT, "watch"});
  tool->await("ready");
  return std::make_unique<Watcher>(
      Watcher{"property set, shown by a client of sd-bus", std::move(tool),
              [bus = connect()](int value) { set(bus, value); },
              [](int value) { return '[' + std::to_string(value) + ']'; }});
}

std::vector<Rate> Bus::answeredStores() {
  auto subscriber = subscribe("/group_000", "org.freedesktop.DBus.Properties", "PropertiesChanged");
  return {{"properties set, a client of sd-bus that counts signals",
           [subscriber, bus = connect(), value = 0]() mutable {
             const unsigned long before = subscriber->count();
             const double rate = repetitionRate(2000, [&](unsigned long) { set(bus, ++value); });
             subscriber->await(before + 2000);
             return rate;
           }}};
}

std::vector<Rate> Bus::streams() {
  auto subscriber = subscribe(busFloodPath, busFloodInterface, "Moved");
  return {{"signals, a client of sd-bus that counts them", [subscriber, bus = connect()] {
             constexpr std::uint32_t number = 20'000;
             return arrivalRate(*subscriber, number, [&] {
               check(sd_bus_call_method(bus.get(), busService, busFloodPath, busFloodInterface,
                                        "Flood", nullptr, nullptr, "u", number));
             });
           }}};
}

}  // namespace

std::unique_ptr<Peer> serveBus(const Directory& directory, const Shape& shape) {
  return std::make_unique<Bus>(directory, shape);
}

}  // namespace bench::peers
