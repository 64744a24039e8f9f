#include "bench/fleet/fleet_observer.h"

#include "gateway/wire/device_state.h"
#include "gateway/wire/topics.h"

namespace bench {

using namespace modelgate;

namespace {

LinkOptions withClientId(LinkOptions link, const std::string& fleet) {
  link.clientId = "observer-" + fleet;
  return link;
}

}  // namespace

FleetObserver::FleetObserver(EventLoop& loop, LinkOptions link, const std::string& fleet)
    : link_(loop, withClientId(std::move(link), fleet), handlers(Topics(fleet, "+").state())) {}

BrokerLink::Handlers FleetObserver::handlers(const std::string& filter) {
  BrokerLink::Handlers handlers;
  handlers.connected = [this, filter] { static_cast<void>(link_.subscribe(filter, 1)); };
  handlers.disconnected = [this](std::string_view /*reason*/, bool /*takenOver*/) {
    isSubscribed_ = false;
    online_.clear();
  };
  handlers.message = [this](const Message& message) { take(message); };
  handlers.subscribed = [this](std::string_view /*filter*/, bool granted) {
    isSubscribed_ = granted;
  };
  handlers.writable = [] {};
  return handlers;
}

void FleetObserver::take(const Message& message) {
  const auto topic = parseTopic(message.topic);
  const auto state = decodeState(message.payload);
  if (!topic || !state) {
    return;
  }
  if (state->online) {
    online_.emplace(topic->device);
  } else {
    online_.erase(std::string(topic->device));
  }
}

}  // namespace bench
