#include "gateway/viewer/viewer.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "gateway/link/reason_log.h"
#include "gateway/viewer/device.h"
#include "gateway/viewer/fleet_tree.h"
#include "gateway/wire/topics.h"

namespace modelgate {

namespace {

using std::chrono::milliseconds;

/// After the subscriptions: the broker sends the retained states one after the other, and nothing
/// says which is the last.
constexpr milliseconds quietTime{200};
constexpr std::chrono::seconds maxFirstWork{3};
/// How long clients have to take what is pending for them at the end.
constexpr milliseconds drainTime{500};
constexpr std::chrono::seconds refreshPeriod{1};
constexpr std::chrono::seconds fleetRetry{5};

std::string randomId() {
  std::random_device random;
  constexpr std::string_view digits = "0123456789abcdef";
  std::string id = "ts-view-";
  for (int i = 0; i < 16; ++i) {
    id += digits[random() % digits.size()];
  }
  return id;
}

}  // namespace

struct Viewer::State {
  State(EventLoop& eventLoop, ViewerOptions viewerOptions);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void start();
  void finish(std::function<void()> done);

  [[nodiscard]] BrokerLink::Handlers handlers();
  void connected();
  void disconnected(std::string_view reason);
  void subscribed(std::string_view filter, bool granted);
  void take(const Message& message);
  void takeFrom(const ParsedTopic& topic, const Message& message);
  Device* deviceOf(std::string_view name);
  void startFleet();
  void refreshLater();
  void readyLater();
  void drain(EventLoop::Clock::time_point until);

  EventLoop& loop;
  ViewerOptions options;
  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
  ViewerContext context;
  FleetTree fleet;
  std::map<std::string, std::unique_ptr<Device>, std::less<>> devices;
  std::set<std::string, std::less<>> wanted;
  std::unique_ptr<BrokerLink> link;

  std::size_t missingSubscriptions = 0;
  bool isReady = false;
  ReasonLog reasons;
  bool saidFleetError = false;
  EventLoop::Clock::time_point readyBy;
  EventLoop::Timer readyTimer;
  EventLoop::Timer refreshTimer;
  EventLoop::Timer fleetTimer;
  EventLoop::Timer drainTimer;
  std::function<void()> done;
};

Viewer::State::State(EventLoop& eventLoop, ViewerOptions viewerOptions)
    : loop(eventLoop),
      options(std::move(viewerOptions)),
      context(loop, manager, {options.fleet, options.user, randomId()}, options.log, options.group,
              options.times, options.maxMirrors),
      fleet(manager),
      wanted(options.devices.begin(), options.devices.end()) {
  if (!isFleetName(options.fleet)) {
    throw std::runtime_error("wrong name of a fleet: " + options.fleet);
  }
  for (const std::string& device : options.devices) {
    if (!isFleetName(device)) {
      throw std::runtime_error("wrong name of a device: " + device);
    }
  }
  if (!isTopicLevel(options.user)) {
    throw std::runtime_error("wrong name of a user: " + options.user);
  }
  if (manager.pollDescriptor() < 0) {
    throw std::system_error(EMFILE, std::generic_category(), "event loop");
  }
  LinkOptions linkOptions = options.link;
  linkOptions.clientId = context.names().clientId;
  link = std::make_unique<BrokerLink>(loop, std::move(linkOptions), handlers());
  context.setLink(link.get());
}

Viewer::State::~State() {
  // Nothing calls back any more.
  context.setLink(nullptr);
  link.reset();
  context.disconnected();
  devices.clear();
  loop.unwatch(manager.pollDescriptor());
}

BrokerLink::Handlers Viewer::State::handlers() {
  BrokerLink::Handlers handlers;
  handlers.connected = [this] { connected(); };
  handlers.disconnected = [this](std::string_view reason, bool) { disconnected(reason); };
  handlers.message = [this](const Message& message) { take(message); };
  handlers.subscribed = [this](std::string_view filter, bool granted) {
    subscribed(filter, granted);
  };
  handlers.writable = [] {};
  handlers.refused = [this](std::string_view topic, std::string_view reason) {
    context.logDetail("the broker has refused " + std::string(topic) + ": " + std::string(reason));
    context.refused(topic);
  };
  return handlers;
}

void Viewer::State::start() {
  loop.watch(manager.pollDescriptor(), POLLIN,
             [this] { static_cast<void>(manager.receiveEvent(0)); });
  startFleet();
  refreshLater();
  link->start();
}

void Viewer::State::startFleet() {
  const ModelSrv::ModelRes result = fleet.start(options.group);
  if (result == ModelSrv::ModelRes_Success) {
    return;
  }
  if (!std::exchange(saidFleetError, true)) {
    context.log(result == ModelSrv::ModelRes_NameInUse
                    ? "another viewer of this machine has Model_fleet: the devices of fleet " +
                          options.fleet + " are listed there when that one has ended"
                    : std::string("Model_fleet: ") + ModelSrv::describe(result));
  }
  fleetTimer = loop.after(fleetRetry, [this] { startFleet(); });
}

void Viewer::State::refreshLater() {
  refreshTimer = loop.after(refreshPeriod, [this] {
    fleet.sort();
    context.review();
    for (const auto& [name, device] : devices) {
      device->refresh();
    }
    refreshLater();
  });
}

void Viewer::State::connected() {
  reasons.connected();
  context.logDetail("connected to the broker");
  std::vector<std::string> filters;
  for (const std::string& device : wanted) {
    filters.push_back(Topics(options.fleet, device).state());
    filters.push_back(Topics(options.fleet, device).reply(options.user, context.names().clientId));
  }
  if (wanted.empty()) {
    filters.push_back(Topics(options.fleet, "+").state());
    filters.push_back(Topics(options.fleet, "+").reply(options.user, context.names().clientId));
  }
  missingSubscriptions = filters.size();
  for (const std::string& filter : filters) {
    context.subscribe(filter, 1);
  }
  for (const auto& [name, device] : devices) {
    device->connected();
  }
}

void Viewer::State::disconnected(std::string_view reason) {
  const std::string line = "no connection to the broker: " + std::string(reason);
  reasons.isNew(reason) ? context.log(line) : context.logDetail(line);
  readyTimer = {};
  context.disconnected();
  for (const auto& [name, device] : devices) {
    device->disconnected();
  }
}

void Viewer::State::subscribed(std::string_view filter, bool granted) {
  if (!granted) {
    context.log("the broker refuses the subscription to " + std::string(filter));
  }
  if (missingSubscriptions > 0 && --missingSubscriptions == 0) {
    readyBy = EventLoop::Clock::now() + maxFirstWork;
    readyLater();
  }
}

void Viewer::State::readyLater() {
  if (isReady || missingSubscriptions != 0) {
    return;
  }
  const auto quiet = EventLoop::Clock::now() + quietTime;
  readyTimer = loop.at(std::min(quiet, readyBy), [this] {
    isReady = true;
    fleet.sort();
    if (options.ready) {
      options.ready();
    }
  });
}

void Viewer::State::take(const Message& message) {
  const auto topic = parseTopic(message.topic);
  if (!topic || topic->fleet != options.fleet ||
      (!wanted.empty() && wanted.count(topic->device) == 0)) {
    return;
  }
  try {
    takeFrom(*topic, message);
  } catch (const std::bad_alloc&) {
    context.log("out of memory: a message is lost");
  } catch (const std::runtime_error& error) {
    context.log(error.what());
  }
}

void Viewer::State::takeFrom(const ParsedTopic& topic, const Message& message) {
  const bool isState = topic.sort == "state" && topic.rest.empty();
  const auto at = devices.find(topic.device);
  Device* const device = at != devices.end()                   ? at->second.get()
                         : isState && !message.payload.empty() ? deviceOf(topic.device)
                                                               : nullptr;
  if (device == nullptr) {
    return;
  }
  device->take(topic.sort, topic.rest, message);
  if (isState) {
    readyLater();
  }
}

/// A new device; null if there are too many.
Device* Viewer::State::deviceOf(std::string_view name) {
  if (!isFleetName(name) || !fleet.hasCapacity()) {
    return nullptr;
  }
  auto device = std::make_unique<Device>(context, std::string(name));
  device->setEntry(fleet.add(std::string(name), *device));
  return devices.emplace(name, std::move(device)).first->second.get();
}

void Viewer::State::finish(std::function<void()> whenDone) {
  done = std::move(whenDone);
  refreshTimer = {};
  fleetTimer = {};
  readyTimer = {};
  // Stores that wait get their result while their clients can still take it.
  context.disconnected();
  for (const auto& [name, device] : devices) {
    device->stop();
  }
  fleet.stop(false);
  drain(EventLoop::Clock::now() + drainTime);
}

/// Until the clients have what is pending for them. What they take makes the manager's descriptor
/// readable, but nothing says when the last one is done.
void Viewer::State::drain(EventLoop::Clock::time_point until) {
  const bool isDone = manager.finishActiveTerm(0) == EvtSrv::EvtRes_Success;
  if (!isDone && EventLoop::Clock::now() < until) {
    drainTimer = loop.after(milliseconds(5), [this, until] { drain(until); });
    return;
  }
  link->finish(std::nullopt, std::chrono::seconds(1), [this] {
    if (done) {
      std::exchange(done, nullptr)();
    }
  });
}

Viewer::Viewer(EventLoop& loop, ViewerOptions options)
    : state_(std::make_unique<State>(loop, std::move(options))) {}

Viewer::~Viewer() = default;

void Viewer::start() {
  state_->start();
}

void Viewer::finish(std::function<void()> done) {
  state_->finish(std::move(done));
}

}  // namespace modelgate
