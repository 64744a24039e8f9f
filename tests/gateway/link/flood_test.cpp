// A broker that sends without end, over TLS.

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <string_view>

#include "gateway/link/broker_link.h"
#include "tests/gateway/link/client.h"
#include "tests/gateway/link/flooding_broker.h"

namespace {

using gateway_test::FloodingBroker;
using gateway_test::runUntil;
using modelgate::EventLoop;
using namespace std::chrono_literals;

struct GatewayFlood : testing::Test {
  GatewayFlood() { certificates.makeServer("broker"); }

  void connect(const std::string& url) {
    modelgate::LinkOptions options = gateway_test::Client::options(url, "client");
    options.caFile = certificates.authority();
    modelgate::BrokerLink::Handlers handlers;
    handlers.connected = [this] { isConnected = true; };
    handlers.disconnected = [this](std::string_view why, bool) { reason = why; };
    handlers.message = [this](const modelgate::Message& message) {
      ++messages;
      areRight = areRight && message.topic == "a" && message.payload == "xyz";
    };
    link.emplace(loop, std::move(options), std::move(handlers));
    link->start();
    ASSERT_TRUE(runUntil(loop, [this] { return isConnected; })) << reason;
  }

  gateway_test::Certificates certificates;
  EventLoop loop;
  bool isConnected = false;
  std::size_t messages = 0;
  bool areRight = true;
  std::string reason;
  std::optional<modelgate::BrokerLink> link;
};

TEST_F(GatewayFlood, HoldsUpNeitherTimersNorTheEnd) {
  // Packets that a handler gets, and such that none does.
  for (const auto& [packet, count] : {std::pair(FloodingBroker::message, 10'000'000UL),
                                      std::pair(FloodingBroker::pong, 30'000'000UL)}) {
    const FloodingBroker broker(certificates, "broker", packet, count);
    isConnected = false;
    connect(broker.url());
    ASSERT_TRUE(runUntil(loop, [this] { return messages > 0; }));
    bool isDue = false;
    const EventLoop::Timer timer = loop.after(10ms, [&] { isDue = true; });
    ASSERT_TRUE(runUntil(loop, [&] { return isDue; }));
    EXPECT_FALSE(broker.hasSentAll());
    bool isDone = false;
    link->finish(std::nullopt, 200ms, [&] { isDone = true; });
    ASSERT_TRUE(runUntil(loop, [&] { return isDone; }));
    // What no handler gets may be taken for a packet that is too large.
    EXPECT_TRUE(reason.empty() || packet == FloodingBroker::pong) << reason;
    link.reset();
    messages = 0;
  }
}

TEST_F(GatewayFlood, LosesNoMessage) {
  constexpr std::size_t count = 200'000;
  const FloodingBroker broker(certificates, "broker", FloodingBroker::message, count);
  connect(broker.url());
  EXPECT_TRUE(runUntil(loop, [&] { return messages == count + 1; })) << messages;
  EXPECT_TRUE(areRight);
  EXPECT_EQ(reason, "");
  link.reset();
}

TEST_F(GatewayFlood, CausesNoMemoryForAcknowledgementsThatTheBrokerDoesNotRead) {
  // A message of QoS 1, and the second half of the exchange of one of QoS 2.
  for (const std::string_view packet :
       {std::string_view("\x32\7\0\1a\0\1\0x", 9), std::string_view("\x62\2\0\1", 4)}) {
    const FloodingBroker broker(certificates, "broker", packet, 4'000'000);
    isConnected = false;
    connect(broker.url());
    const long before = test_support::procNumber(::getpid(), "status", "VmRSS:");
    EXPECT_FALSE(runUntil(
        loop, [&] { return broker.hasSentAll(); }, 4s));
    if (!test_support::sanitized) {
      EXPECT_LT(test_support::procNumber(::getpid(), "status", "VmRSS:") - before, 16 * 1024);
    }
    link.reset();
  }
}

}  // namespace
