#include "gateway/exporter/server_export.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <map>

#include "gateway/exporter/request_handler.h"
#include "tests/gateway/link/client.h"
#include "tests/support/model_server.h"

namespace {

using gateway_test::runUntil;
using modelgate::ServerExport;
using test_support::ModelServer;

/// A tree whose shape has several pages, with the name of its last part.
std::string treeOfPages(const std::string& last) {
  std::string tree = R"({"name": "Model_x", "children": [)";
  for (int i = 1; i <= 800; ++i) {
    tree += R"({"id": )" + std::to_string(i) + R"(, "name": ")" + std::string(200, 'n') +
            std::to_string(i) + R"(", "type": "int32", "value": 1},)";
  }
  return tree + R"({"id": 801, "name": ")" + last + R"(", "type": "int32", "value": 1}]})";
}

/// A tree with one node for dashboards, below "/json".
std::string treeOfNode(const std::string& name) {
  return R"({"name": "Model_x", "children": [{"name": "json", "children": [{"name": ")" + name +
         R"(", "children": [{"name": "x", "type": "int32", "value": 1}]}]}]})";
}

/// A server at a broker that takes messages when the test says so.
struct ServerExportTest : testing::Test {
  /// The shape that the broker has; empty if it lacks a page of the present one.
  [[nodiscard]] std::optional<modelgate::Shape> publishedShape(const ServerExport& server) const {
    std::vector<std::string> pages;
    const std::vector<std::string> hashes = server.state()->pages;
    for (const std::string& hash : hashes) {
      const auto page = broker.find(context.topics.shape(server.name(), pages.size()));
      if (page == broker.end() || modelgate::pageHash(page->second) != hash) {
        return std::nullopt;
      }
      pages.push_back(page->second);
    }
    std::string error;
    return modelgate::decodeShape(pages, error);
  }

  modelgate::EventLoop loop;
  const std::vector<std::string> everywhere{"/"};
  const std::vector<std::string> dashboards{"/json"};
  bool hasCapacity = false;
  std::map<std::string, std::string> broker;  ///< the last message of each topic
  modelgate::ExportContext context{
      loop,
      modelgate::Topics("f", "d"),
      1,
      std::chrono::milliseconds(50),
      std::chrono::seconds(10),
      modelgate::PathRules(everywhere),
      modelgate::PathRules(dashboards),
      false,
      modelgate::Outbox({.isConnected = [] { return true; },
                         .hasCapacity = [this] { return hasCapacity; },
                         .publish =
                             [this](const modelgate::Publication& publication) {
                               broker[publication.topic] = publication.payload;
                             }}),
      [] {},
      [](std::string_view, bool) {}};
};

TEST_F(ServerExportTest, HoldsEachMessageOnceForABrokerThatTakesNone) {
  const ModelServer server;
  ServerExport exported(context, server.name());
  ASSERT_TRUE(runUntil(loop, [&] { return exported.state().has_value(); }));
  const long before = test_support::procNumber(::getpid(), "status", "VmRSS:");
  for (int i = 0; i < 300; ++i) {
    exported.removePages(1024);
  }
  if (!test_support::sanitized) {
    EXPECT_LT(test_support::procNumber(::getpid(), "status", "VmRSS:") - before, 8 * 1024);
  }
  hasCapacity = true;
  EXPECT_TRUE(context.outbox.pump());
  EXPECT_EQ(broker.size(), 1024U);
  EXPECT_EQ(broker.at(context.topics.shape(exported.name(), 1023)), "");
  EXPECT_NE(broker.at(context.topics.shape(exported.name(), 0)), "");
}

TEST_F(ServerExportTest, RefusesMoreLargeValuesThanMayWait) {
  ModelServer server;
  ServerExport exported(context, server.name());
  ASSERT_TRUE(runUntil(loop, [&] { return exported.state().has_value(); }));
  server.hang();
  modelgate::RequestHandler requests(context, [&](std::string_view) { return &exported; });
  modelgate::Request store;
  store.server = exported.name();
  store.path = "/drive/label";
  store.value = std::string(3'000'000, 'x');
  const std::string payload = encodeRequest(store, modelgate::Format::cbor);
  modelgate::Message message;
  message.payload = payload;
  message.contentType = contentType(modelgate::Format::cbor);
  message.responseTopic = "ts/1/f/d/rsp/me/view";
  message.expiry = std::chrono::seconds(2);
  hasCapacity = true;
  // 16 MiB; the server keeps its thread for 2 s.
  for (int i = 0; i < 5; ++i) {
    requests.handle("set/me", message);
    EXPECT_EQ(broker.count(std::string(message.responseTopic)), 0U);
  }
  requests.handle("set/me", message);
  std::string error;
  const auto reply = modelgate::decodeReply(broker[std::string(message.responseTopic)],
                                            message.contentType, error);
  ASSERT_TRUE(reply) << error;
  EXPECT_EQ(reply->result, ModelSrv::ModelRes_LimitReached);
  server.resume();
}

TEST_F(ServerExportTest, PublishesEachPageAlsoIfTheShapeChangesMeanwhile) {
  test_support::TemporaryFile file(treeOfPages("before"));
  ModelServer server({"--tree", file.path()}, true);
  ServerExport exported(context, server.name());
  ASSERT_TRUE(runUntil(loop, [&] { return exported.state().has_value(); }));
  ASSERT_GT(exported.state()->pages.size(), 2U);
  file.write(treeOfPages("after"));
  server.process().signal(SIGHUP);
  ASSERT_TRUE(runUntil(loop, [&] { return exported.state()->shape > 1; }));
  hasCapacity = true;
  EXPECT_TRUE(context.outbox.pump());
  const auto shape = publishedShape(exported);
  ASSERT_TRUE(shape);
  EXPECT_EQ(shape->back().name, "after");
}

TEST_F(ServerExportTest, RemovesTheNodesThatWerePublishedAndNoOthers) {
  test_support::TemporaryFile file(treeOfNode("first"));
  ModelServer server({"--tree", file.path()}, true);
  ServerExport exported(context, server.name());
  const auto topicOf = [&](std::string_view node) {
    return context.topics.json(exported.name(), "/json/" + std::string(node));
  };
  hasCapacity = true;
  ASSERT_TRUE(runUntil(loop, [&] { return broker.count(topicOf("first")) > 0; }));
  EXPECT_EQ(broker.at(topicOf("first")), R"({"x":1})");
  // The broker takes nothing while the node changes its name, and has the first one meanwhile.
  hasCapacity = false;
  std::uint64_t shape = exported.state()->shape;
  for (const char* const name : {"second", "first", "third", "last"}) {
    file.write(treeOfNode(name));
    server.process().signal(SIGHUP);
    ASSERT_TRUE(runUntil(loop, [&] { return exported.state()->shape > shape; }));
    shape = exported.state()->shape;
  }
  hasCapacity = true;
  EXPECT_TRUE(context.outbox.pump());
  exported.flush();
  EXPECT_EQ(broker.at(topicOf("first")), "");
  EXPECT_EQ(broker.count(topicOf("second")), 0U);
  EXPECT_EQ(broker.count(topicOf("third")), 0U);
  EXPECT_EQ(broker.at(topicOf("last")), R"({"x":1})");
}

}  // namespace
