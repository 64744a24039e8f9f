#include "gateway/link/broker_link.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/client.h"

namespace {

using gateway_test::Broker;
using gateway_test::Client;
using gateway_test::runFor;
using gateway_test::runUntil;
using modelgate::BrokerLink;
using modelgate::EventLoop;
using modelgate::LinkOptions;
using modelgate::Publication;
using namespace std::chrono_literals;

Publication publication(const std::string& topic, const std::string& payload, int qos = 1) {
  Publication result;
  result.topic = topic;
  result.payload = payload;
  result.qos = qos;
  return result;
}

TEST(GatewayBrokerLink, DeliversMessagesWithAllTheirProperties) {
  const Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  ASSERT_TRUE(client.subscribes("a/#"));
  Publication sent = publication("a/b", std::string("pay\0load", 8));
  sent.retain = true;
  sent.expiry = 100s;
  sent.contentType = "application/cbor";
  sent.responseTopic = "r/1";
  sent.correlation = std::string("\0\xff", 2);
  EXPECT_TRUE(client.link.publish(sent));
  EXPECT_TRUE(client.link.publish(publication("a/c", "", 0)));
  ASSERT_TRUE(client.receives(2));
  const auto& first = client.messages[0];
  EXPECT_EQ(first.topic, "a/b");
  EXPECT_EQ(first.payload, sent.payload);
  EXPECT_FALSE(first.retained);
  EXPECT_EQ(first.contentType, sent.contentType);
  EXPECT_EQ(first.responseTopic, sent.responseTopic);
  EXPECT_EQ(first.correlation, sent.correlation);
  const auto& second = client.messages[1];
  EXPECT_EQ(second.payload + second.contentType + second.responseTopic + second.correlation, "");

  Client late(loop, broker.url(), "late");
  ASSERT_TRUE(late.connects());
  ASSERT_TRUE(late.subscribes("a/b"));
  ASSERT_TRUE(late.receives(1));
  EXPECT_TRUE(late.messages[0].retained);
}

TEST(GatewayBrokerLink, LetsHandlersPublishAndSubscribe) {
  const Broker broker({.tcp = true});
  EventLoop loop;
  Client server(loop, broker.tcpUrl(), "server");
  Client client(loop, broker.tcpUrl(), "client");
  ASSERT_TRUE(server.connects());
  ASSERT_TRUE(client.connects());
  ASSERT_TRUE(server.subscribes("req"));
  server.onMessage = [&](const modelgate::Message& message) {
    EXPECT_TRUE(server.link.subscribe("other", 0));
    EXPECT_TRUE(server.link.publish(publication(std::string(message.responseTopic), "reply")));
  };
  ASSERT_TRUE(client.subscribes("rsp"));
  Publication request = publication("req", "request");
  request.responseTopic = "rsp";
  EXPECT_TRUE(client.link.publish(request));
  ASSERT_TRUE(client.receives(1));
  EXPECT_EQ(client.messages[0].payload, "reply");
  ASSERT_TRUE(runUntil(loop, [&] { return server.filters.size() == 2; }));
  EXPECT_EQ(server.filters[1], "other");
  EXPECT_TRUE(client.link.unsubscribe("rsp"));
  EXPECT_TRUE(client.link.publish(request));
  EXPECT_TRUE(client.subscribes("last"));
  EXPECT_EQ(client.messages.size(), 1U);
}

TEST(GatewayBrokerLink, CarriesLargeMessagesBothWays) {
  const Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  ASSERT_TRUE(client.subscribes("large"));
  const std::string payload(std::size_t{4} << 20, 'x');
  EXPECT_TRUE(client.link.publish(publication("large", payload, 0)));
  ASSERT_TRUE(client.receives(1));
  EXPECT_EQ(client.messages[0].payload, payload);
}

TEST(GatewayBrokerLink, QueuesNothingWithoutAConnection) {
  EventLoop loop;
  Client client(loop, "unix:/tmp/no-such-directory/broker", "client");
  EXPECT_FALSE(client.link.publish(publication("a", "b")));
  EXPECT_FALSE(client.link.subscribe("a", 0));
  EXPECT_FALSE(client.link.unsubscribe("a"));
  EXPECT_FALSE(client.link.hasCapacity());
  EXPECT_FALSE(client.link.isConnected());
}

TEST(GatewayBrokerLink, SaysWhyItCannotConnect) {
  EventLoop loop;
  const auto reason = [&](const std::string& url) {
    Client client(loop, url, "client");
    return client.reasons.empty() ? client.failure() : client.reasons[0];
  };
  EXPECT_EQ(reason("unix:/tmp/no-such-directory/broker"), "No such file or directory");
  EXPECT_EQ(reason("mqtt://127.0.0.1:1"), "Connection refused");
  EXPECT_EQ(reason("mqtts://127.0.0.1:1"), "Connection refused");
  EXPECT_EQ(reason("mqtt://localhost:1"), "Connection refused");
  EXPECT_NE(reason("mqtt://no-such-host.invalid").find("no-such-host.invalid: "),
            std::string::npos);
}

TEST(GatewayBrokerLink, FindsTheAddressAtWhichTheBrokerListens) {
  // "localhost" may be ::1 first, where this one does not listen.
  const Broker broker({.tcp = true});
  EventLoop loop;
  Client client(loop, "mqtt://localhost:" + std::to_string(broker.port()), "client");
  ASSERT_TRUE(client.connects());
  EXPECT_TRUE(client.reasons.empty());
}

TEST(GatewayBrokerLink, RefusesOptionsThatCannotWork) {
  EventLoop loop;
  const auto error = [&](const LinkOptions& options) -> std::string {
    try {
      const BrokerLink link(loop, options, {});
      return "";
    } catch (const std::runtime_error& caught) {
      return caught.what();
    }
  };
  LinkOptions options = Client::options("unix:/tmp/broker", "");
  EXPECT_EQ(error(options), "no client id");
  options.clientId = "client";
  EXPECT_EQ(error(options), "");
  options.keepAlive = 4s;
  EXPECT_EQ(error(options), "keep-alive: expected 5 to 65535 s");
  options.keepAlive = 5s;
  options.will = publication("a/+", "");
  EXPECT_EQ(error(options), "the will cannot be a message");
  options.will = publication("a", std::string(65536, 'x'));
  EXPECT_EQ(error(options), "the will cannot be a message");
}

TEST(GatewayBrokerLink, LeavesAWillWhenItIsLostButNotWhenItFinishes) {
  const Broker broker;
  EventLoop loop;
  Client watcher(loop, broker.url(), "watcher");
  ASSERT_TRUE(watcher.connects());
  ASSERT_TRUE(watcher.subscribes("will/#"));
  LinkOptions options = Client::options(broker.url(), "client");
  options.will = publication("will/1", "lost");
  options.willDelay = 1s;
  const auto start = EventLoop::Clock::now();
  {
    Client client(loop, options);
    ASSERT_TRUE(client.connects());
  }
  ASSERT_TRUE(watcher.receives(1));
  EXPECT_EQ(watcher.messages[0].payload, "lost");
  EXPECT_GE(EventLoop::Clock::now() - start, 900ms) << "the delay was not kept";

  options.willDelay = 0s;
  {
    Client client(loop, options);
    ASSERT_TRUE(client.connects());
    bool done = false;
    client.link.finish(publication("will/1", "finished"), 10s, [&] { done = true; });
    ASSERT_TRUE(runUntil(loop, [&] { return done; }));
    EXPECT_FALSE(client.link.isConnected());
    EXPECT_TRUE(client.reasons.empty());
    EXPECT_FALSE(client.link.publish(publication("a", "b")));
    client.link.start();
    runFor(loop, 300ms);
    EXPECT_EQ(client.connections, 1);
  }
  ASSERT_TRUE(watcher.receives(2));
  runFor(loop, 300ms);
  ASSERT_EQ(watcher.messages.size(), 2U);
  EXPECT_EQ(watcher.messages[1].payload, "finished");
}

TEST(GatewayBrokerLink, FinishesThoughMuchThatItHasNotReadHasArrived) {
  const Broker broker({.tcp = true});
  EventLoop loop;
  Client watcher(loop, broker.url(), "watcher");
  Client sender(loop, broker.url(), "sender");
  ASSERT_TRUE(watcher.connects());
  ASSERT_TRUE(sender.connects());
  ASSERT_TRUE(watcher.subscribes("will"));
  for (int round = 0; round < 20; ++round) {
    LinkOptions options = Client::options(broker.tcpUrl(), "client");
    options.will = publication("will", "lost");
    options.willDelay = 0s;
    Client client(loop, options);
    ASSERT_TRUE(client.connects());
    ASSERT_TRUE(client.subscribes("flood"));
    bool done = false;
    client.onMessage = [&](const modelgate::Message&) {
      if (!done) {
        client.link.finish(std::nullopt, 10s, [&] { done = true; });
      }
      done = true;
    };
    for (int count = 0; count < 50; ++count) {
      EXPECT_TRUE(sender.link.publish(publication("flood", std::string(5000, 'x'), 0)));
    }
    ASSERT_TRUE(runUntil(loop, [&] { return done && !client.link.isConnected(); }));
    runFor(loop, 10ms);
  }
  runFor(loop, 200ms);
  EXPECT_TRUE(watcher.messages.empty());
}

TEST(GatewayBrokerLink, FinishesWithinItsLimitAndAtOnceWithoutAConnection) {
  Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  broker.pause();
  bool done = false;
  client.link.finish(publication("a", "b"), 50ms, [&] { done = true; });
  EXPECT_TRUE(runUntil(loop, [&] { return done; }));
  broker.resume();

  Client unconnected(loop, "unix:/tmp/no-such-directory/broker", "client");
  done = false;
  unconnected.link.finish(publication("a", "b"), 1h, [&] { done = true; });
  EXPECT_FALSE(done);
  loop.runOnce(EventLoop::Clock::now() + 1h);
  EXPECT_TRUE(done);
}

TEST(GatewayBrokerLink, ConnectsAnewAndCleanAfterTheBrokerWasKilled) {
  Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  ASSERT_TRUE(client.subscribes("#"));
  broker.kill();
  // Written to a socket whose reader has gone, or into the system's buffer.
  static_cast<void>(client.link.publish(publication("a", "before")));
  ASSERT_TRUE(runUntil(loop, [&] { return !client.reasons.empty(); }));
  EXPECT_FALSE(client.takenOver);
  EXPECT_FALSE(client.link.publish(publication("a", "without a connection")));
  broker.start();
  ASSERT_TRUE(client.connects());
  EXPECT_EQ(client.connections, 2);
  ASSERT_TRUE(client.subscribes("#"));
  EXPECT_TRUE(client.link.publish(publication("a", "after")));
  ASSERT_TRUE(client.receives(1));
  EXPECT_EQ(client.messages[0].payload, "after");
}

TEST(GatewayBrokerLink, LosesASilentBroker) {
  Broker broker;
  EventLoop loop;
  LinkOptions options = Client::options(broker.url(), "client");
  options.keepAlive = 5s;
  Client client(loop, options);
  ASSERT_TRUE(client.connects());
  runFor(loop, 8s);
  EXPECT_TRUE(client.reasons.empty()) << client.reasons[0];
  broker.pause();
  const auto start = EventLoop::Clock::now();
  ASSERT_EQ(client.failure(), "no sign of life from the broker");
  EXPECT_LE(EventLoop::Clock::now() - start, 15s);
  broker.resume();
}

TEST(GatewayBrokerLink, BacksOffWhenAnotherClientOfItsIdHasCome) {
  const Broker broker;
  EventLoop loop;
  Client first(loop, broker.url(), "same");
  ASSERT_TRUE(first.connects());
  const Client second(loop, broker.url(), "same");
  ASSERT_NE(first.failure(), "");
  first.link.backOff(1h);
  runFor(loop, 300ms);
  EXPECT_EQ(first.connections, 1);
  EXPECT_TRUE(second.link.isConnected());
  EXPECT_EQ(second.connections, 1);
}

TEST(GatewayBrokerLink, BreaksOffInAHandlerAndComesBackAfterTheDelay) {
  const Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  ASSERT_TRUE(client.subscribes("a"));
  client.onMessage = [&](const modelgate::Message&) { client.link.backOff(200ms); };
  const auto start = EventLoop::Clock::now();
  EXPECT_TRUE(client.link.publish(publication("a", "b")));
  ASSERT_TRUE(runUntil(loop, [&] { return client.connections == 2; }));
  EXPECT_GE(EventLoop::Clock::now() - start, 200ms);
  EXPECT_TRUE(client.reasons.empty());
}

TEST(GatewayBrokerLink, ReportsWhatTheBrokerRefuses) {
  const test_support::TemporaryFile rules("topic readwrite allowed/#\n");
  const Broker broker({.tcp = true, .listener = "acl_file " + rules.path() + "\n"});
  EventLoop loop;
  Client client(loop, broker.tcpUrl(), "client");
  ASSERT_TRUE(client.connects());
  EXPECT_TRUE(client.subscribes("allowed/#"));
  EXPECT_FALSE(client.subscribes("forbidden/#") && false);
  EXPECT_TRUE(client.link.publish(publication("forbidden/a", "b")));
  ASSERT_TRUE(runUntil(loop, [&] { return !client.refusals.empty(); }));
  EXPECT_EQ(client.refusals[0], "forbidden/a: Not authorized");
  EXPECT_TRUE(client.link.hasCapacity());
}

TEST(GatewayBrokerLink, SaysThatTheBrokerLetsNoStrangerIn) {
  const Broker broker({.tcp = true, .anonymous = false});
  EventLoop loop;
  Client client(loop, broker.tcpUrl(), "client");
  EXPECT_EQ(client.failure(), "the broker refuses: Not authorized");
}

TEST(GatewayBrokerLink, RefusesATopicThatCannotBeWritten) {
  const Broker broker;
  EventLoop loop;
  Client client(loop, broker.url(), "client");
  ASSERT_TRUE(client.connects());
  EXPECT_FALSE(client.link.publish(publication("a/#", "b")));
  EXPECT_FALSE(client.link.publish(publication("", "b")));
  EXPECT_TRUE(client.link.publish(publication("a", "b")));
}

}  // namespace
