#include <sys/random.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "gateway/exporter/exporter_state.h"
#include "gateway/wire/limits.h"

namespace modelgate {

namespace {

constexpr std::chrono::milliseconds leaveTime{500};
/// For a retained state to come, after the subscriptions.
constexpr std::chrono::milliseconds lookTime{300};

std::string offlineState(std::uint64_t epoch) {
  DeviceState state;
  state.epoch = epoch;
  return encodeState(state);
}

}  // namespace

std::uint64_t randomEpoch() {
  std::uint64_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != sizeof number) {
    throw std::system_error(errno, std::generic_category(), "getrandom");
  }
  return number & maxExact;
}

void Exporter::State::makeLink() {
  leaveLink();
  isWorkingLink_ = presence_.role() == Presence::Role::working;
  mustLook_ = false;
  LinkOptions options = options_.link;
  options.will.reset();
  if (isWorkingLink_) {
    options.clientId = "ts-" + options_.fleet + "-" + options_.device;
    options.will =
        retained(context_.topics.state(), offlineState(context_.epoch), contentType(Format::json));
    options.will->expiry = stateExpiry;
  } else {
    options.clientId = "ts-look-" + std::to_string(randomEpoch());
  }
  link_ = std::make_unique<BrokerLink>(loop_, std::move(options), handlers());
}

/// Disconnects in good order, so that the broker does not publish the will.
void Exporter::State::leaveLink() {
  ++linkNumber_;
  hasBegun_ = false;
  lookTimer_ = {};
  context_.outbox.clear();
  leaving_ = std::move(link_);
  if (leaving_ != nullptr) {
    leaving_->finish(std::nullopt, leaveTime, [this, number = linkNumber_] {
      post([this, number] {
        if (number == linkNumber_) {
          leaving_.reset();
        }
      });
    });
  }
}

BrokerLink::Handlers Exporter::State::handlers() {
  BrokerLink::Handlers handlers;
  // A connection that is being left has no say.
  const auto isPresent = [this, number = linkNumber_] {
    return number == linkNumber_ && !isFinishing_;
  };
  handlers.connected = [this, isPresent] {
    if (isPresent()) {
      connected();
    }
  };
  handlers.disconnected = [this, isPresent](std::string_view reason, bool takenOver) {
    if (isPresent()) {
      disconnected(reason, takenOver);
    }
  };
  handlers.message = [this, isPresent](const Message& message) {
    if (isPresent()) {
      handle(message);
    }
  };
  handlers.subscribed = [this, isPresent](std::string_view filter, bool granted) {
    if (isPresent()) {
      subscribed(filter, granted);
    }
  };
  handlers.writable = [this, isPresent] {
    if (isPresent()) {
      flush();
    }
  };
  handlers.refused = [this](std::string_view topic, std::string_view reason) {
    log("the broker refuses " + std::string(topic) + ": " + std::string(reason), false);
  };
  return handlers;
}

void Exporter::State::connected() {
  log("connected", true);
  reasons_.connected();
  link_->subscribe(context_.topics.state(), 1);
  if (!isWorkingLink_) {
    return;
  }
  link_->subscribe(context_.topics.conflict(), 1);
  link_->subscribe(context_.topics.requests(), 1);
  if (!mustLook_) {
    begin();
  }
}

void Exporter::State::subscribed(std::string_view filter, bool granted) {
  if (!granted) {
    log("the broker refuses the subscription of " + std::string(filter), false);
  }
  if (filter == context_.topics.state()) {
    presence_.subscribed(Clock::now());
    followPresence();
  } else if (filter == context_.topics.requests() && mustLook_) {
    lookTimer_ = loop_.after(lookTime, [this] { begin(); });
  }
}

/// Publishes everything.
void Exporter::State::begin() {
  hasBegun_ = true;
  mustLook_ = false;
  lookTimer_ = {};
  for (const auto& [port, server] : servers_) {
    server->publishRetained();
  }
  publishState();
  if (isReady_) {
    removeLeftovers();
  }
}

/// Another exporter has come, which works from now on.
void Exporter::State::yield() {
  log("another exporter of " + options_.device + " has come; this one waits", false);
  presence_.takenOver(Clock::now());
  leaveLink();
  followPresence();
}

void Exporter::State::disconnected(std::string_view reason, bool takenOver) {
  context_.outbox.clear();
  // Most brokers do not say that it was another client of the same id.
  mustLook_ |= hasBegun_;
  hasBegun_ = false;
  lookTimer_ = {};
  if (takenOver && isWorkingLink_) {
    link_->backOff(std::chrono::duration_cast<std::chrono::milliseconds>(Presence::longestPause));
    return post([this, number = linkNumber_] {
      if (number == linkNumber_) {
        yield();
      }
    });
  }
  log("no connection to the broker: " + std::string(reason), !reasons_.isNew(reason));
  presence_.disconnected();
  followPresence();
}

void Exporter::State::followPresence() {
  const bool isConflict = presence_.isConflict();
  if (isConflict != std::exchange(wasConflict_, isConflict)) {
    publishState();
  }
  const auto next = presence_.deadline();
  presenceTimer_ = next ? loop_.at(*next,
                                   [this] {
                                     if (presence_.tick(Clock::now())) {
                                       sendNote();
                                     }
                                     followPresence();
                                   })
                        : EventLoop::Timer();
  // A handler of the link may have called.
  post([this] { changeLink(); });
}

/// Replaces the connection if the role needs another one.
void Exporter::State::changeLink() {
  const Presence::Role role = presence_.role();
  const bool isWorking = role == Presence::Role::working;
  if (isFinishing_ || role == Presence::Role::waiting ||
      (link_ != nullptr && isWorking == isWorkingLink_)) {
    return;
  }
  makeLink();
  link_->start();
}

void Exporter::State::sendNote() {
  // A broker that acknowledges nothing gets no more of them.
  if (link_ == nullptr || !link_->hasCapacity()) {
    return;
  }
  Publication note;
  note.topic = context_.topics.conflict();
  note.payload = nlohmann::json{{"epoch", context_.epoch}}.dump();
  note.qos = 1;
  note.contentType = contentType(Format::json);
  link_->publish(note);
}

}  // namespace modelgate
