#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>

#include "bench/fleet/broker_process.h"
#include "bench/fleet/fleet_observer.h"
#include "bench/fleet/simulated_device.h"
#include "gateway/wire/limits.h"

// Simulated devices at one private broker: how long until all are online, what memory of the broker
// each costs, and how long until all are back after the broker was killed. script/fleet runs it.

namespace {

using namespace bench;
using namespace modelgate;
using namespace std::chrono_literals;
using Clock = EventLoop::Clock;
using Seconds = std::chrono::duration<double>;

struct FleetOptions {
  std::size_t devices = 1000;
  std::string url;
  std::string brokerConfig;
  std::string view;  ///< the program modelgate, or empty
  LinkOptions link;
};

constexpr const char* fleet = "bench";
constexpr auto longest = 120s;
constexpr double memoryGoal = 12;
constexpr double backGoal = 10;

std::string nameOf(std::size_t device) {
  return "sim-" + std::to_string(device);
}

/// Runs the loop until `isReached`, and returns the time since `begin`.
Seconds runUntil(EventLoop& loop, Clock::time_point begin, const char* what,
                 const std::function<bool()>& isReached) {
  while (!isReached()) {
    if (Clock::now() - begin > longest) {
      throw std::runtime_error(std::string("not within 120 s: ") + what);
    }
    loop.runOnce(Clock::now() + 20ms);
  }
  return Clock::now() - begin;
}

void runFor(EventLoop& loop, Clock::duration time) {
  const auto end = Clock::now() + time;
  while (Clock::now() < end) {
    loop.runOnce(end);
  }
}

/// How many mirrors of simulated devices `modelgate view` serves.
std::size_t countMirrors() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    const std::string name = entry.path().filename().string();
    count += name.starts_with("Model_sim-") && name.ends_with(".host.fifo") ? 1 : 0;
  }
  return count;
}

std::unique_ptr<Child> startView(const FleetOptions& options) {
  return std::make_unique<Child>([&options] {
    // What it prints, also of the lost broker, is not part of the table.
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nothing < 0 || ::dup2(nothing, STDOUT_FILENO) < 0 || ::dup2(nothing, STDERR_FILENO) < 0) {
      return;
    }
    std::vector<std::string> words{options.view, "view", "--broker", options.url, "--fleet", fleet};
    if (!options.link.certFile.empty()) {
      words.insert(words.end(), {"--cafile", options.link.caFile, "--cert", options.link.certFile,
                                 "--key", options.link.keyFile});
    }
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv(arguments[0], arguments.data());
  });
}

void printRow(const char* what, double value, const char* unit, double goal) {
  std::printf("%-40s %7.2f %-4s", what, value, unit);
  if (goal > 0) {
    std::printf("  goal %4.0f %-4s  %s", goal, unit, value <= goal ? "reached" : "MISSED");
  }
  std::printf("\n");
  std::fflush(stdout);
}

std::vector<std::unique_ptr<SimulatedDevice>> makeDevices(EventLoop& loop,
                                                          const FleetOptions& options) {
  std::vector<std::unique_ptr<SimulatedDevice>> devices;
  std::mt19937_64 random(std::random_device{}());
  for (std::size_t i = 0; i < options.devices; ++i) {
    devices.push_back(std::make_unique<SimulatedDevice>(loop, options.link, fleet, nameOf(i),
                                                        random() & maxExact));
  }
  return devices;
}

void measure(const FleetOptions& options) {
  EventLoop loop;
  BrokerProcess broker(options.brokerConfig);
  FleetObserver observer(loop, options.link, fleet);
  broker.start();
  observer.start();
  runUntil(loop, Clock::now(), "the broker listens", [&] { return observer.isSubscribed(); });
  std::unique_ptr<Child> view;
  if (!options.view.empty()) {
    view = startView(options);
    runUntil(loop, Clock::now(), "modelgate view is ready",
             [] { return std::filesystem::exists("/tmp/Model_fleet.fifo"); });
  }
  const auto areOnline = [&] { return observer.online() == options.devices; };
  const auto areShown = [&] { return countMirrors() == options.devices; };
  const double onlineGoal = options.link.broker.tls ? 15 : 5;

  runFor(loop, 1s);
  const std::size_t before = broker.memory();
  const auto devices = makeDevices(loop, options);
  auto begin = Clock::now();
  for (const auto& device : devices) {
    device->start();
  }
  Seconds time = runUntil(loop, begin, "all devices are online", areOnline);
  printRow("all devices online", time.count(), "s", onlineGoal);
  if (view) {
    time = runUntil(loop, begin, "modelgate view serves all mirrors", areShown);
    printRow("all mirrors served by modelgate view", time.count(), "s", 0);
  }
  runFor(loop, 1s);
  const double memory = static_cast<double>(broker.memory() - before);
  printRow("memory of the broker, a device", memory / static_cast<double>(options.devices), "KiB",
           memoryGoal);

  begin = Clock::now();
  broker.kill();
  broker.start();
  runUntil(loop, begin, "the devices notice", [&] { return !observer.isSubscribed(); });
  time = runUntil(loop, begin, "all devices are back", areOnline);
  printRow("all devices back after the broker's kill", time.count(), "s", backGoal);
  if (view) {
    time = runUntil(loop, begin, "all mirrors are back", areShown);
    printRow("all mirrors back", time.count(), "s", 0);
  }
}

void printLosses() {
  for (const auto& [reason, count] : SimulatedDevice::losses()) {
    std::printf("%8zu x lost or not connected: %s\n", count, reason.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  FleetOptions options;
  CLI::App app("Measures simulated devices at a private broker.");
  app.add_option("--devices", options.devices)->check(CLI::Range(1, 100'000));
  app.add_option("--broker", options.url, "its URL")->required();
  app.add_option("--broker-config", options.brokerConfig, "mosquitto's")->required();
  app.add_option("--view", options.view, "the program modelgate");
  app.add_option("--cafile", options.link.caFile);
  app.add_option("--cert", options.link.certFile);
  app.add_option("--key", options.link.keyFile);
  CLI11_PARSE(app, argc, argv);
  std::string error;
  const auto broker = parseBroker(options.url, error);
  if (!broker) {
    std::fprintf(stderr, "fleet_devices: %s\n", error.c_str());
    return 2;
  }
  options.link.broker = *broker;
  try {
    measure(options);
    printLosses();
  } catch (const std::exception& failed) {
    printLosses();
    std::fprintf(stderr, "fleet_devices: %s\n", failed.what());
    return 1;
  }
  return 0;
}
