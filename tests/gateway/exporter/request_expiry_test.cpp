// Requests that waited: at the broker, in the network, and for an exporter that did not run.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/gateway/exporter/exporter_fixture.h"

namespace {

using modelgate::Reply;
using modelgate::Request;
using modelgate::Verb;
using std::chrono::seconds;
using test_support::ModelServer;
using test_support::Process;

struct RequestExpiry : gateway_test::ExporterTest {
  /// Publishes `count` requests in JSON without running the exporter, and returns when the broker
  /// has them.
  void publish(const std::string& verb, const std::string& fields, const std::string& correlation,
               int count = 1) const {
    std::string lines;
    for (int i = 0; i < count; ++i) {
      lines += R"({"server": ")" + name + R"(", "path": "/drive/speed")" + fields + "}\n";
    }
    const auto ended = test_support::run({"mosquitto_pub",
                                          "--unix",
                                          broker->socket(),
                                          "-V",
                                          "5",
                                          "-q",
                                          "1",
                                          "-l",
                                          "-t",
                                          "ts/1/f/d/req/" + verb + "/me",
                                          "-D",
                                          "publish",
                                          "response-topic",
                                          "ts/1/f/d/rsp/me/view",
                                          "-D",
                                          "publish",
                                          "correlation-data",
                                          correlation,
                                          "-D",
                                          "publish",
                                          "message-expiry-interval",
                                          "2"},
                                         lines);
    ASSERT_EQ(ended.status, test_support::ExitStatus{}) << ended.errors;
  }
  /// Lets time pass for the broker and not for the exporter: nothing says that a message has
  /// expired.
  static void stall() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(3500);
    ASSERT_TRUE(test_support::eventually([&] { return std::chrono::steady_clock::now() >= end; }));
  }
  [[nodiscard]] bool isReplied(const std::string& correlation) const {
    return std::any_of(viewer->messages.begin(), viewer->messages.end(), [&](const auto& message) {
      return message.correlation == correlation && message.topic == "ts/1/f/d/rsp/me/view";
    });
  }
  std::string speed() {
    return request(Verb::get, of(server.name(), "/drive/speed")).value.value();
  }

  ModelServer server;
  std::string name = nameOf(server.name());
};

TEST_F(RequestExpiry, IsNeededForAStoreThatStatesNoTime) {
  options.allowSet = {"/"};
  startReady({server.name()});
  Request store = storeOf(server.name(), "/drive/speed", "1");
  for (const auto& wrong : {std::optional<seconds>(), std::optional(seconds(3))}) {
    expiry = wrong;
    const Reply refused = request(Verb::set, store);
    EXPECT_EQ(refused.result, ModelSrv::ModelRes_BadRequest);
    EXPECT_EQ(refused.reason, "expected a message expiry of at most 2 s, or \"until\"");
    EXPECT_EQ(request(Verb::load, store).result, ModelSrv::ModelRes_BadRequest);
    EXPECT_EQ(speed(), "42") << "nothing else needs it";
  }
  const Reply now = request(Verb::get, of(server.name(), "/drive/speed"));
  store.epoch = now.epoch;
  store.until = now.monotonic + 60'000;
  EXPECT_EQ(request(Verb::set, store).value, "1");
  expiry = seconds(1);
  EXPECT_EQ(request(Verb::set, storeOf(server.name(), "/drive/speed", "2")).value, "2");
}

TEST_F(RequestExpiry, EndsAStoreThatWaitsInTheQueueOfTheBroker) {
  options.allowSet = {"/"};
  startReady({server.name()});
  // The broker sends no more than 20 messages that are not acknowledged.
  publish("get", "", "gets", 20);
  publish("set", R"(, "value": 1)", "first");
  EXPECT_EQ(reply("first").value, "1");
  publish("get", "", "gets", 20);
  publish("set", R"(, "value": 2)", "second");
  stall();
  EXPECT_EQ(speed(), "1");
  EXPECT_FALSE(isReplied("second")) << "it has come";
  EXPECT_EQ(request(Verb::set, storeOf(server.name(), "/drive/speed", "3")).value, "3");
  EXPECT_EQ(speed(), "3");
}

TEST_F(RequestExpiry, EndsAStoreThatWaitsForAnExporterThatDoesNotRun) {
  options.allowSet = {"/"};
  startReady({server.name()});
  publish("get", "", "gets", 15);
  publish("set", R"(, "value": 1)", "late");
  stall();
  const Reply late = reply("late");
  EXPECT_EQ(late.result, ModelSrv::ModelRes_Timeout);
  EXPECT_EQ(late.reason, "the request came too late, nothing was stored");
  EXPECT_EQ(speed(), "42");
  publish("set", R"(, "value": 2)", "next");
  EXPECT_EQ(reply("next").value, "2");
}

TEST_F(RequestExpiry, IsNotNeededForWhatTheBrokerHasKeptForAnExporterThatWasAway) {
  broker.emplace();
  const std::vector<std::string> command{test_support::buildDirectory() + "/tests/export_device",
                                         broker->url(), "d", server.name()};
  viewer.emplace(loop, broker->url(), "view");
  ASSERT_TRUE(viewer->connects());
  ASSERT_TRUE(viewer->subscribes("ts/1/f/d/#"));
  auto first = std::make_unique<Process>(command);
  ASSERT_TRUE(first->waitForLine("ready"));
  EXPECT_EQ(speed(), "42");
  first->signal(SIGKILL);
  first.reset();
  // Its session lasts as long as the delay of its will.
  publish("set", R"(, "value": 1)", "kept");
  Process second(command);
  ASSERT_TRUE(second.waitForLine("ready"));
  ASSERT_TRUE(until([this] { return state() && state()->online; }));
  EXPECT_EQ(speed(), "42");
  EXPECT_FALSE(isReplied("kept"));
}

}  // namespace
