#include "gateway/exporter/exporter.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "gateway/exporter/exporter_state.h"
#include "gateway/wire/limits.h"

namespace modelgate {

namespace {

constexpr std::chrono::minutes stateRenewal{30};
constexpr std::chrono::seconds shortestCorrection{1};
constexpr std::chrono::seconds longestCorrection{60};
/// For the servers that run at the start.
constexpr std::chrono::seconds settleTime{3};
constexpr std::chrono::milliseconds finishTime{2000};

ExporterOptions checked(ExporterOptions options) {
  if (!isFleetName(options.fleet) || !isFleetName(options.device)) {
    throw std::runtime_error(
        "expected a fleet and a device of 1 to 64 letters, digits, \".\", \"_\" and \"-\", got \"" +
        options.fleet + "\" and \"" + options.device + "\"");
  }
  for (const std::vector<std::string>* rules : {&options.allowSet, &options.json}) {
    for (const std::string& rule : *rules) {
      if (!isPathRule(rule)) {
        throw std::runtime_error("expected a path such as \"/cpu/load\", got \"" + rule + "\"");
      }
    }
  }
  if (options.interval.count() < 0 ||
      static_cast<std::uint64_t>(options.interval.count()) > maxInterval) {
    throw std::runtime_error("expected an interval of 0 to 10000 ms, got " +
                             std::to_string(options.interval.count()));
  }
  if (options.heartbeat.count() < static_cast<std::int64_t>(minHeartbeat) ||
      options.heartbeat.count() > static_cast<std::int64_t>(maxHeartbeat)) {
    throw std::runtime_error("expected a heartbeat of 100 to 3600000 ms, got " +
                             std::to_string(options.heartbeat.count()));
  }
  return options;
}

}  // namespace

Exporter::State::State(EventLoop& loop, ExporterOptions options)
    : loop_(loop),
      options_(checked(std::move(options))),
      context_{
          loop,
          Topics(options_.fleet, options_.device),
          randomEpoch(),
          options_.interval,
          options_.heartbeat,
          PathRules(options_.allowSet),
          PathRules(options_.json),
          options_.retainValues,
          Outbox(
              {.isConnected = [this] { return canPublish(); },
               .hasCapacity = [this] { return canPublish() && link_->hasCapacity(); },
               .publish = [this](const Publication& publication) { link_->publish(publication); }}),
          [this] { serversChanged(); },
          [this](std::string_view line, bool detail) { log(line, detail); },
          [this] { post([this] { removeEnded(); }); }},
      presence_(context_.epoch),
      requests_(context_, [this](std::string_view name) { return find(name); }),
      discovery_(loop, options_.servers, [this](const std::string& port) { found(port); }) {
  makeLink();
}

/// All threads end at the same time: each can take 2 s.
Exporter::State::~State() {
  for (const auto& [port, server] : servers_) {
    server->end();
  }
}

/// Calls `action` from the loop if this object still exists then.
void Exporter::State::post(std::function<void()> action) {
  loop_.post([alive = std::weak_ptr(alive_), action = std::move(action)] {
    if (!alive.expired()) {
      action();
    }
  });
}

void Exporter::State::log(std::string_view line, bool detail) const {
  if (options_.log) {
    options_.log(line, detail);
  }
}

void Exporter::State::start() {
  discovery_.start();
  settleTimer_ = loop_.after(settleTime, [this] {
    areSettled_ = true;
    serversChanged();
  });
  stateTimer_ = loop_.after(stateRenewal, [this] { renewState(); });
  isStarted_ = true;
  serversChanged();
}

void Exporter::State::finish(std::function<void()> done) {
  isFinishing_ = true;
  stateTimer_ = {};
  correctionTimer_ = {};
  presenceTimer_ = {};
  if (link_ == nullptr) {
    return loop_.post(std::move(done));
  }
  link_->finish(hasBegun_ ? std::optional(statePublication(false)) : std::nullopt, finishTime,
                std::move(done));
}

/// Whether this exporter is at work and connected.
bool Exporter::State::canPublish() const {
  return !isFinishing_ && hasBegun_ && link_ != nullptr && link_->isConnected();
}

void Exporter::State::handle(const Message& message) {
  const std::optional<ParsedTopic> topic = parseTopic(message.topic);
  if (!topic || topic->fleet != options_.fleet || topic->device != options_.device) {
    return;
  }
  if (topic->sort == "state") {
    seenState(message);
  } else if (hasBegun_ && topic->sort == "conflict") {
    seenNote(message);
  } else if (hasBegun_ && topic->sort == "req") {
    requests_.handle(topic->rest, message);
  }
}

void Exporter::State::flush() {
  context_.outbox.pump();
  // Each time another one begins, so that none takes all of a slow connection.
  auto server = servers_.upper_bound(firstFlushed_);
  for (std::size_t i = 0; i < servers_.size(); ++i, ++server) {
    server = server == servers_.end() ? servers_.begin() : server;
    if (i == 0) {
      firstFlushed_ = server->first;
    }
    server->second->flush();
  }
}

void Exporter::State::seenNote(const Message& message) {
  constexpr std::size_t maxNote = 256;
  if (message.retained || message.payload.size() > maxNote) {
    return;
  }
  const nlohmann::json note = nlohmann::json::parse(message.payload, nullptr, false);
  if (note.is_object() && note.contains("epoch") && note["epoch"].is_number_unsigned()) {
    presence_.noted(note["epoch"].get<std::uint64_t>(), Clock::now());
    followPresence();
  }
}

void Exporter::State::seenState(const Message& message) {
  const std::optional<DeviceState> state = decodeState(message.payload);
  if (!isWorkingLink_) {
    const Presence::Role before = presence_.role();
    presence_.seen(state, Clock::now());
    if (presence_.role() == Presence::Role::passive && before != Presence::Role::passive) {
      log("another exporter of " + options_.device + " is at work; this one waits until it ends",
          false);
    }
    return followPresence();
  }
  if (mustLook_) {
    // The link's handler calls this.
    const bool isForeign = state && state->epoch != context_.epoch;
    return post([this, isForeign, number = linkNumber_] {
      if (mustLook_ && number == linkNumber_) {
        isForeign ? yield() : begin();
      }
    });
  }
  if (state && state->epoch == context_.epoch && state->online) {
    correction_ = shortestCorrection;
    return checkReady(*state);
  }
  if (message.retained) {
    if (state) {
      takeLeftovers(*state);
    }
    return;
  }
  // Someone else has written it, or removed it.
  correctionTimer_ = loop_.after(correction_, [this] { publishState(); });
  correction_ = std::min<Clock::duration>(2 * correction_, longestCorrection);
}

DeviceState Exporter::State::deviceState(bool isOnline) {
  DeviceState state;
  state.online = isOnline;
  state.epoch = context_.epoch;
  state.conflict = presence_.isConflict();
  state.heartbeat = static_cast<std::uint64_t>(options_.heartbeat.count());
  state.interval = static_cast<std::uint64_t>(options_.interval.count());
  state.time = realMilliseconds();
  state.monotonic = monotonicMilliseconds();
  state.version = "modelgate " MODELGATE_VERSION;
  for (const auto& [port, server] : servers_) {
    if (std::optional<ServerState> part = server->state()) {
      state.servers.emplace(server->name(), std::move(*part));
    }
  }
  return state;
}

Publication Exporter::State::statePublication(bool isOnline) {
  Publication publication = retained(context_.topics.state(), encodeState(deviceState(isOnline)),
                                     contentType(Format::json));
  publication.expiry = stateExpiry;
  return publication;
}

void Exporter::State::publishState() {
  if (areSettled_) {
    context_.outbox.pushRetained(&stateTimer_, [this] { return statePublication(true); });
  }
}

void Exporter::State::renewState() {
  publishState();
  stateTimer_ = loop_.after(stateRenewal, [this] { renewState(); });
}

void Exporter::State::checkReady(const DeviceState& seen) {
  if (isReady_ || !areSettled_ || seen.servers != deviceState(true).servers) {
    return;
  }
  isReady_ = true;
  removeLeftovers();
  if (options_.ready) {
    options_.ready();
  }
}

Exporter::Exporter(EventLoop& loop, ExporterOptions options)
    : state_(std::make_unique<State>(loop, std::move(options))) {}

Exporter::~Exporter() = default;

void Exporter::start() {
  state_->start();
}

void Exporter::finish(std::function<void()> done) {
  state_->finish(std::move(done));
}

}  // namespace modelgate
