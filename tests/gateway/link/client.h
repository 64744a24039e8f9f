#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/link/broker_link.h"
#include "tests/support/process.h"

namespace gateway_test {

/// Runs the loop until `condition()`; false if it does not come true in time.
inline bool runUntil(modelgate::EventLoop& loop, const std::function<bool()>& condition,
                     std::chrono::milliseconds limit = test_support::timeout) {
  const auto deadline = modelgate::EventLoop::Clock::now() + limit;
  while (!condition()) {
    if (modelgate::EventLoop::Clock::now() >= deadline) {
      return false;
    }
    loop.runOnce(deadline);
  }
  return true;
}

/// Runs the loop for `duration`, to see that something does not happen.
inline void runFor(modelgate::EventLoop& loop, std::chrono::milliseconds duration) {
  static_cast<void>(runUntil(
      loop, [] { return false; }, duration));
}

/// A client of a broker that keeps what happens to it.
class Client {
 public:
  struct Received {
    std::string topic;
    std::string payload;
    bool retained = false;
    std::string contentType;
    std::string responseTopic;
    std::string correlation;
  };

  /// `id` is also the client's id at the broker. Begins to connect.
  Client(modelgate::EventLoop& loop, const std::string& url, const std::string& id)
      : Client(loop, options(url, id)) {}
  Client(modelgate::EventLoop& loop, modelgate::LinkOptions options)
      : loop_(loop), link(loop, std::move(options), handlers()) {
    link.start();
  }

  [[nodiscard]] static modelgate::LinkOptions options(const std::string& url,
                                                      const std::string& id) {
    std::string error;
    modelgate::LinkOptions options;
    options.broker = modelgate::parseBroker(url, error).value();
    options.clientId = id;
    return options;
  }

  // Each runs the loop.

  bool connects() {
    return runUntil(loop_, [this] { return link.isConnected(); });
  }
  /// Waits until the broker has taken the subscription; false if it refused.
  bool subscribes(std::string_view filter, int qos = 1) {
    const std::size_t before = granted.size();
    return link.subscribe(filter, qos) &&
           runUntil(loop_, [&] { return granted.size() > before; }) && granted.back();
  }
  /// Publishes with QoS 1 and waits for the broker's answer; false if it refuses.
  bool publishes(const std::string& topic, const std::string& payload) {
    modelgate::Publication publication;
    publication.topic = topic;
    publication.payload = payload;
    publication.qos = 1;
    const std::size_t before = refusals.size();
    // Its reply to the second one comes after that to the first.
    const bool sent = link.publish(publication) && link.subscribe("$none", 0);
    const std::size_t answers = filters.size();
    return sent && runUntil(loop_, [&] { return filters.size() > answers; }) &&
           refusals.size() == before;
  }
  /// Waits until `count` messages are there.
  bool receives(std::size_t count) {
    return runUntil(loop_, [&] { return messages.size() >= count; });
  }
  /// Waits until a connection is lost or could not be made; the reason, or nothing.
  std::string failure() {
    const std::size_t before = reasons.size();
    return runUntil(loop_, [&] { return reasons.size() > before; }) ? reasons.back() : "";
  }

 private:
  modelgate::BrokerLink::Handlers handlers() {
    modelgate::BrokerLink::Handlers handlers;
    handlers.connected = [this] { ++connections; };
    handlers.disconnected = [this](std::string_view reason, bool over) {
      reasons.emplace_back(reason);
      takenOver = over;
    };
    handlers.message = [this](const modelgate::Message& message) {
      messages.push_back({std::string(message.topic), std::string(message.payload),
                          message.retained, std::string(message.contentType),
                          std::string(message.responseTopic), std::string(message.correlation)});
      if (onMessage) {
        onMessage(message);
      }
    };
    handlers.subscribed = [this](std::string_view filter, bool taken) {
      filters.emplace_back(filter);
      granted.push_back(taken);
    };
    handlers.writable = [this] { ++writable; };
    handlers.refused = [this](std::string_view topic, std::string_view reason) {
      refusals.push_back(std::string(topic) + ": " + std::string(reason));
    };
    return handlers;
  }

  modelgate::EventLoop& loop_;

 public:
  int connections = 0;
  int writable = 0;
  bool takenOver = false;
  std::vector<std::string> reasons;
  std::vector<Received> messages;
  std::vector<std::string> filters;
  std::vector<bool> granted;
  std::vector<std::string> refusals;
  std::function<void(const modelgate::Message&)> onMessage;
  modelgate::BrokerLink link;
};

}  // namespace gateway_test
