// How much a link takes, and how fast it is.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/client.h"

namespace {

using gateway_test::Broker;
using gateway_test::Client;
using gateway_test::runUntil;
using modelgate::EventLoop;
using modelgate::Publication;
using namespace std::chrono_literals;

Publication smallMessage(const std::string& topic, const std::string& payload, int qos = 1) {
  Publication result;
  result.topic = topic;
  result.payload = payload;
  result.qos = qos;
  return result;
}

TEST(GatewayBrokerLink, HasCapacityUntilTwentyMessagesWaitForTheBroker) {
  Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  EXPECT_TRUE(client.link.hasCapacity());
  broker.pause();
  for (int count = 0; count < 20; ++count) {
    EXPECT_TRUE(client.link.hasCapacity()) << count;
    EXPECT_TRUE(client.link.publish(smallMessage("a", "b")));
  }
  EXPECT_FALSE(client.link.hasCapacity());
  EXPECT_EQ(client.writable, 0);
  broker.resume();
  ASSERT_TRUE(runUntil(loop, [&] { return client.writable == 1; }));
  EXPECT_TRUE(client.link.hasCapacity());
}

TEST(GatewayBrokerLink, HasNoCapacityWhileTheSocketIsFull) {
  Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  broker.pause();
  int count = 0;
  while (client.link.hasCapacity() && count < 1000) {
    EXPECT_TRUE(client.link.publish(smallMessage("a", std::string(60000, 'x'), 0)));
    ++count;
  }
  EXPECT_LT(count, 1000);
  broker.resume();
  ASSERT_TRUE(runUntil(loop, [&] { return client.writable == 1; }));
  EXPECT_TRUE(runUntil(loop, [&] { return client.link.hasCapacity(); }));
}

/// The median of many round trips through the broker.
std::chrono::microseconds roundTrip(const std::string& url) {
  EventLoop loop;
  Client one(loop, url, "one");
  Client other(loop, url, "other");
  EXPECT_TRUE(one.connects() && other.connects());
  EXPECT_TRUE(one.subscribes("rsp", 0) && other.subscribes("req", 0));
  // Three small messages a turn: the second one would wait for the acknowledgement of the first.
  other.onMessage = [&](const modelgate::Message& message) {
    EXPECT_TRUE(other.link.publish(smallMessage("noise", "n", 0)));
    EXPECT_TRUE(other.link.publish(smallMessage("rsp", std::string(message.payload), 0)));
  };
  std::vector<std::chrono::microseconds> times;
  for (std::size_t count = 1; count <= 51; ++count) {
    const auto start = EventLoop::Clock::now();
    EXPECT_TRUE(one.link.publish(smallMessage("noise", "n", 0)));
    EXPECT_TRUE(one.link.publish(smallMessage("req", "x", 0)));
    EXPECT_TRUE(one.receives(count));
    times.push_back(
        std::chrono::duration_cast<std::chrono::microseconds>(EventLoop::Clock::now() - start));
  }
  std::nth_element(times.begin(), times.begin() + 25, times.end());
  return times[25];
}

TEST(GatewayBrokerLink, WaitsForNoAcknowledgementOverTcp) {
  const Broker broker({.tcp = true});
  EXPECT_LT(roundTrip(broker.tcpUrl()), 20ms);
}

}  // namespace
