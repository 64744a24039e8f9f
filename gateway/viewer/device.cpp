#include "gateway/viewer/device.h"

#include <algorithm>
#include <utility>

#include "gateway/wire/limits.h"
#include "gateway/wire/topics.h"

namespace modelgate {

namespace {

/// How long ago a device has published a state. The broker says what is left until it expires; else
/// both clocks must be right.
std::optional<std::chrono::milliseconds> ageOf(const Message& message, const DeviceState& state) {
  using std::chrono::milliseconds;
  constexpr milliseconds none{0};
  if (message.expiry) {
    return std::max<milliseconds>(stateExpiry - *message.expiry, none);
  }
  if (state.time == 0) {
    return std::nullopt;
  }
  constexpr milliseconds longest = std::chrono::hours(24 * 365);
  const auto now =
      std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
  const milliseconds age = std::max(now - milliseconds(state.time), none);
  return age <= longest ? std::optional(age) : std::nullopt;
}

}  // namespace

Device::Device(ViewerContext& context, const std::string& name)
    : link_(context, name, [this] { updateAll(); }) {}

Device::~Device() = default;

std::string_view Device::stateText() const {
  switch (link_.presence().state()) {
    case DevicePresence::State::unknown:
    case DevicePresence::State::offline:
      return "offline";
    case DevicePresence::State::silent:
      return "silent";
    case DevicePresence::State::online:
      break;
  }
  if (!link_.presence().isReachable()) {
    return "unreachable";
  }
  return isConflict_ ? "conflict" : "online";
}

std::uint64_t Device::gaps() const {
  std::uint64_t sum = 0;
  for (const auto& [server, mirror] : mirrors_) {
    sum += mirror->gaps();
  }
  return sum;
}

void Device::connected() {
  static_cast<void>(link_.connected());
  updateAll();
}

void Device::disconnected() {
  link_.disconnected();
  for (const auto& [server, mirror] : mirrors_) {
    mirror->disconnected();
  }
  updateAll();
}

void Device::refresh() {
  if (entry_ != nullptr) {
    entry_->refresh();
  }
  for (const auto& [server, mirror] : mirrors_) {
    mirror->refresh();
  }
}

void Device::stop() {
  for (const auto& [server, mirror] : mirrors_) {
    mirror->stop();
  }
}

Mirror* Device::findMirror(std::string_view server) {
  const auto at = mirrors_.find(server);
  return at != mirrors_.end() ? at->second.get() : nullptr;
}

void Device::take(std::string_view sort, std::string_view rest, const Message& message) {
  if (sort == "state" && rest.empty()) {
    takeState(message);
  } else if (sort == "shape") {
    const auto page = parsePage(rest);
    Mirror* const mirror = page ? findMirror(page->server) : nullptr;
    if (mirror != nullptr) {
      mirror->takePage(page->page, message.payload);
    }
  } else if (sort == "val") {
    const auto page = parsePage(rest);
    Mirror* const mirror = page ? findMirror(page->server) : nullptr;
    if (mirror != nullptr) {
      mirror->takeValues(message.payload);
    }
  } else if (sort == "upd" && !message.retained) {
    if (Mirror* const mirror = findMirror(rest)) {
      mirror->takeBatch(message.payload);
    }
  } else if (sort == "rsp" && !message.retained) {
    takeReply(message);
  }
}

void Device::takeState(const Message& message) {
  if (message.payload.empty()) {
    static_cast<void>(link_.cleared());
    for (const auto& [server, mirror] : mirrors_) {
      mirror->setState(nullptr);
    }
    return updateAll();
  }
  auto state = decodeState(message.payload);
  if (!state) {
    if (!std::exchange(saidWrong_, true)) {
      link_.context().log(link_.name() + ": the state is wrong");
    }
    return;
  }
  saidWrong_ = false;
  DevicePresence::Statement statement;
  statement.online = state->online;
  statement.retained = message.retained;
  statement.epoch = state->epoch;
  statement.monotonic = state->monotonic;
  statement.heartbeat = std::chrono::milliseconds(
      static_cast<std::int64_t>(std::min<std::uint64_t>(state->heartbeat, maxExact)));
  statement.age = ageOf(message, *state);
  static_cast<void>(link_.stated(statement));
  if (state->online) {
    isConflict_ = state->conflict;
    addMirrors(*state);
  }
  updateAll();
}

void Device::addMirrors(const DeviceState& state) {
  for (const auto& [server, listed] : state.servers) {
    // Names of old states stay as mirrors that are offline; the device may not make ever more.
    if (!isTopicLevel(server) || mirrors_.count(server) != 0 || mirrors_.size() >= maxServers ||
        !link_.context().addMirror()) {
      continue;
    }
    const auto at = mirrors_.emplace(server, std::make_unique<Mirror>(link_, *this, server)).first;
    if (entry_ != nullptr) {
      const Mirror& mirror = *at->second;
      entry_->addServer(server, [this, &mirror](std::string& out) {
        out += mirror.isUp() && link_.presence().isOnline() ? "up" : "down";
        if (const std::string problem = mirror.problem(); !problem.empty()) {
          out += ", without a port: " + problem;
        }
        return true;
      });
    }
  }
  for (const auto& [server, mirror] : mirrors_) {
    link_.setProbedServer(server);
    const auto at = state.servers.find(server);
    mirror->setState(at != state.servers.end() ? &at->second : nullptr);
  }
}

void Device::takeReply(const Message& message) {
  std::string error;
  const auto reply = decodeReply(message.payload, message.contentType, error);
  if (reply) {
    link_.context().takeReply(link_.name(), message, *reply);
  } else {
    link_.context().logDetail(link_.name() + ": a reply is wrong: " + error);
  }
}

void Device::updateAll() {
  for (const auto& [server, mirror] : mirrors_) {
    mirror->update();
  }
  if (entry_ != nullptr) {
    entry_->refresh();
  }
}

}  // namespace modelgate
