// Clients that others wrote, by hand.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/gateway/exporter/exporter_fixture.h"

namespace {

using test_support::Finished;
using test_support::ModelServer;

struct IndependentClient : gateway_test::ExporterTest {
  /// mosquitto_rr: a request in JSON, and the reply.
  nlohmann::json exchange(const std::string& verb, const std::string& request) {
    const Finished ended =
        run({"mosquitto_rr", "--unix", broker->socket(), "-t", "ts/1/f/d/req/" + verb + "/me", "-e",
             "ts/1/f/d/rsp/me/rr", "-q", "1", "-W", "20", "-D", "publish",
             "message-expiry-interval", "2", "-m", request});
    EXPECT_EQ(ended.status, test_support::ExitStatus{}) << ended.errors;
    return nlohmann::json::parse(ended.output, nullptr, false);
  }
  /// mosquitto_sub: what is retained at a topic.
  std::string retainedAt(const std::string& topic) {
    return run({"mosquitto_sub", "--unix", broker->socket(), "-V", "5", "-t", "ts/1/f/d/" + topic,
                "-C", "1", "-W", "20"})
        .output;
  }
  [[nodiscard]] std::string requestOf(const std::string& rest) const {
    return R"({"server": ")" + name + R"(", )" + rest + "}";
  }

  ModelServer server;
  std::string name = nameOf(server.name());
};

TEST_F(IndependentClient, ReadsAndStoresByHand) {
  options.allowSet = {"/drive"};
  startReady({server.name()});
  nlohmann::json reply = exchange("get", requestOf(R"("path": "/drive/speed")"));
  EXPECT_EQ(reply["result"], 0);
  EXPECT_EQ(reply["value"], "42");
  reply = exchange("set", requestOf(R"("path": "/drive/speed", "value": 7)"));
  EXPECT_EQ(reply["result"], 0) << reply;
  EXPECT_EQ(reply["value"], "7");
  reply = exchange("set", requestOf(R"("id": [1, 3], "index": 1, "value": 0.75)"));
  EXPECT_EQ(reply["value"], "0.75");
  reply = exchange("set", requestOf(R"("path": "/drive/serial", "value": "x")"));
  EXPECT_EQ(reply["result"], 7);
  EXPECT_EQ(reply["value"], "A-17");
  reply = exchange("load", requestOf(R"("path": "/drive/offset", "value": "2")"));
  EXPECT_EQ(reply["result"], 0);
  reply = exchange("watch", requestOf(R"("path": "/")"));
  EXPECT_EQ(reply["lease"], 60000);
  reply = exchange("sync", requestOf(R"("since": 0)"));
  EXPECT_EQ(reply["result"], 77);
  reply = exchange("get", "{}");
  EXPECT_EQ(reply["result"], 14);
}

TEST_F(IndependentClient, ReadsTheRetainedTopics) {
  options.json = {"/" + name};
  startReady({server.name()});
  const auto device = nlohmann::json::parse(retainedAt("state"), nullptr, false);
  EXPECT_EQ(device["online"], true);
  EXPECT_EQ(device["servers"][name]["parts"], 8);
  const auto drive = nlohmann::json::parse(retainedAt("j/" + name + "/drive"), nullptr, false);
  EXPECT_EQ(drive["speed"], 42);
  EXPECT_EQ(drive["label"], "two words");
}

}  // namespace
