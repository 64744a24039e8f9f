#pragma once

#include <cstddef>
#include <set>
#include <string>

#include "gateway/link/broker_link.h"

namespace bench {

/// A client that follows the states of all devices of a fleet. Threads: that of the loop.
class FleetObserver {
 public:
  FleetObserver(modelgate::EventLoop& loop, modelgate::LinkOptions link, const std::string& fleet);

  void start() { link_.start(); }

  /// Whether the broker has taken the subscription, on the present connection.
  [[nodiscard]] bool isSubscribed() const { return isSubscribed_; }
  /// The devices that are online, as far as this connection has heard.
  [[nodiscard]] std::size_t online() const { return online_.size(); }

 private:
  modelgate::BrokerLink::Handlers handlers(const std::string& filter);
  void take(const modelgate::Message& message);

  bool isSubscribed_ = false;
  std::set<std::string, std::less<>> online_;
  modelgate::BrokerLink link_;
};

}  // namespace bench
