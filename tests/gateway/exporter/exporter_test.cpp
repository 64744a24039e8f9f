#include <gtest/gtest.h>

#include <array>

#include "gateway/exporter/reply_memory.h"
#include "gateway/wire/limits.h"
#include "tests/gateway/exporter/exporter_fixture.h"

namespace {

using gateway_test::runFor;
using modelgate::Reply;
using modelgate::Request;
using modelgate::Verb;
using test_support::ModelServer;
using test_support::TreeClient;

using ExporterTest = gateway_test::ExporterTest;

// Positions of the sample tree: 0 drive, 1 speed, 2 label, 3 gains, 4 serial, 5 offset, 6 unnamed,
// 7 empty.

TEST_F(ExporterTest, PublishesTheStateAndTheShapeOfItsServers) {
  const ModelServer server;
  startReady({server.name()});
  const auto device = state();
  ASSERT_TRUE(device);
  EXPECT_TRUE(device->online);
  ASSERT_EQ(device->servers.size(), 1U);
  const modelgate::ServerState& part = device->servers.at(nameOf(server.name()));
  EXPECT_TRUE(part.up);
  EXPECT_EQ(part.parts, 8U);
  ASSERT_TRUE(until([&] { return shape(server.name()).has_value(); }));
  const modelgate::Shape parts = *shape(server.name());
  ASSERT_EQ(parts.size(), 8U);
  EXPECT_EQ(parts[0].name, "drive");
  EXPECT_EQ(parts[0].type, "node");
  EXPECT_EQ(parts[1].type, "int32");
  EXPECT_EQ(parts[3].elementNames, (std::vector<std::string>{"p", "i"}));
  EXPECT_EQ(parts[4].access, ModelSrv::ModelPartStatus_ReadOnly);
  EXPECT_EQ(parts[5].access, ModelSrv::ModelPartStatus_Protected);
  EXPECT_EQ(parts[6].id, 12);
  EXPECT_EQ(parts[7].type, "node");
}

TEST_F(ExporterTest, KeepsTheServersOrderAndAttributes) {
  const ModelServer server = ModelServer::ofTree(R"({"name": "Model_x", "children": [
    {"id": 9, "name": "z", "type": "int32", "value": 1, "unit": "mm", "minimum": 0, "maximum": 5},
    {"id": 3, "name": "a", "children": [
      {"id": 8, "name": "y", "type": "text", "value": "on", "choices": ["on", "off"]},
      {"id": 1, "name": "x", "type": "text", "value": "b", "text": "a line"}]}]})");
  startReady({server.name()});
  ASSERT_TRUE(until([&] { return shape(server.name()).has_value(); }));
  const modelgate::Shape parts = *shape(server.name());
  ASSERT_EQ(parts.size(), 4U);
  EXPECT_EQ(parts[0].name, "z");
  EXPECT_EQ(parts[0].attributes.unit, "mm");
  EXPECT_EQ(parts[0].attributes.maximum, "5");
  EXPECT_EQ(parts[2].name, "y");
  EXPECT_EQ(parts[2].attributes.choices, (std::vector<std::string>{"on", "off"}));
  EXPECT_EQ(parts[3].attributes.text, "a line");
}

TEST_F(ExporterTest, AnswersGetByPathAndByChain) {
  const ModelServer server;
  startReady({server.name()});
  Reply reply = request(Verb::get, of(server.name(), "/drive/speed"));
  EXPECT_EQ(reply.result, ModelSrv::ModelRes_Success);
  EXPECT_EQ(reply.value, "42");
  EXPECT_EQ(reply.epoch, state()->epoch);
  EXPECT_GT(reply.monotonic, 0U);
  Request byChain;
  byChain.server = nameOf(server.name());
  byChain.chain = {1, 3};
  EXPECT_EQ(request(Verb::get, byChain).value, "1.5\n0.25");
  byChain.index = 1;
  EXPECT_EQ(request(Verb::get, byChain).value, "0.25");
  byChain.index = 2;
  EXPECT_EQ(request(Verb::get, byChain).result, ModelSrv::ModelRes_NoSuchIndex);
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive")).result, ModelSrv::ModelRes_NoValue);
  EXPECT_EQ(request(Verb::get, of(server.name(), "/nothing")).result,
            ModelSrv::ModelRes_NoSuchPart);
  EXPECT_EQ(request(Verb::get, of("nobody", "/drive")).result, ModelSrv::ModelRes_NoSuchPart);
}

TEST_F(ExporterTest, AnswersAlsoForAValueThatNoMessageHolds) {
  const ModelServer server;
  options.allowSet = {"/"};
  TreeClient local(server.name());
  ASSERT_EQ(local.store("/drive/label", std::string(modelgate::maxPayload, 'x')),
            ModelSrv::ModelRes_Success);
  startReady({server.name()});
  const Reply read = request(Verb::get, of(server.name(), "/drive/label"));
  EXPECT_EQ(read.result, ModelSrv::ModelRes_TooLarge);
  EXPECT_FALSE(read.value);
  // The store is refused, and the value after it is the large one.
  Request store = storeOf(server.name(), "/drive/label", "y");
  store.index = 3;
  const Reply stored = request(Verb::set, store);
  EXPECT_EQ(stored.result, ModelSrv::ModelRes_NoSuchIndex);
}

TEST_F(ExporterTest, SendsLargeChangesInBatchesThatAreTaken) {
  const ModelServer server = ModelServer::ofTree(R"({"name": "Model_x", "children": [
    {"id": 1, "name": "a", "type": "text", "value": ""},
    {"id": 2, "name": "b", "type": "text", "value": ""}]})");
  options.interval = std::chrono::milliseconds(1000);
  startReady({server.name()});
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  TreeClient local(server.name());
  const std::string large(modelgate::maxPayload - 4096, 'x');
  // The first change is sent at once, those after it together.
  for (const char* first : {"1", "2"}) {
    ASSERT_EQ(local.store("/a", first + std::string(100'000, 'a')), ModelSrv::ModelRes_Success);
    ASSERT_EQ(local.store("/b", first + large.substr(1)), ModelSrv::ModelRes_Success);
    ASSERT_TRUE(until([&] {
      return lastInBatches(server.name(), 0).starts_with(first) &&
             lastInBatches(server.name(), 1).starts_with(first);
    }));
  }
}

TEST_F(ExporterTest, StoresWhereItsRulesAllowIt) {
  const ModelServer server;
  options.allowSet = {"/drive/speed", '/' + nameOf(server.name()) + "/drive/offset",
                      "/other/drive"};
  startReady({server.name()});
  const Reply stored = request(Verb::set, storeOf(server.name(), "/drive/speed", "43"));
  EXPECT_EQ(stored.result, ModelSrv::ModelRes_Success);
  EXPECT_EQ(stored.value, "43");
  const Reply denied = request(Verb::set, storeOf(server.name(), "/drive/label", "x"));
  EXPECT_EQ(denied.result, ModelSrv::ModelRes_Denied);
  EXPECT_FALSE(denied.reason.empty());
  const Reply refused = request(Verb::set, storeOf(server.name(), "/drive/speed", "x"));
  EXPECT_EQ(refused.result, ModelSrv::ModelRes_BadText);
  EXPECT_EQ(refused.value, "43");
  EXPECT_EQ(request(Verb::set, storeOf(server.name(), "/drive/offset", "1")).result,
            ModelSrv::ModelRes_Protected);
  EXPECT_EQ(request(Verb::load, storeOf(server.name(), "/drive/offset", "1")).value, "1");
  EXPECT_EQ(request(Verb::set, of(server.name(), "/drive/speed")).result,
            ModelSrv::ModelRes_BadRequest);
  TreeClient client(server.name());
  EXPECT_EQ(client.get("/drive/speed"), "43");
  EXPECT_EQ(client.get("/drive/label"), "two words");
  EXPECT_EQ(client.get("/drive/offset"), "1");
}

TEST_F(ExporterTest, StoresNothingUnlessItIsAllowed) {
  const ModelServer server;
  startReady({server.name()});
  EXPECT_EQ(request(Verb::set, storeOf(server.name(), "/drive/speed", "43")).result,
            ModelSrv::ModelRes_Denied);
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "42");
}

TEST_F(ExporterTest, StoresARepeatedRequestOnce) {
  const ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  send(Verb::set, storeOf(server.name(), "/drive/speed", "1"), "same");
  const Reply first = reply("same");
  EXPECT_EQ(request(Verb::set, storeOf(server.name(), "/drive/speed", "2")).value, "2");
  viewer->messages.clear();
  send(Verb::set, storeOf(server.name(), "/drive/speed", "1"), "same");
  EXPECT_EQ(reply("same"), first);
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "2");
}

TEST_F(ExporterTest, StoresARepeatedRequestOnceWhoseReplyItHasDropped) {
  const ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  const auto store = [&](const std::string& value, const std::string& correlation = {}) {
    viewer->messages.clear();
    return reply(send(Verb::set, storeOf(server.name(), "/drive/speed", value), correlation));
  };
  EXPECT_EQ(store("1", "same").result, ModelSrv::ModelRes_Success);
  for (std::size_t i = 0; i < modelgate::ReplyMemory::maxReplies; ++i) {
    ASSERT_EQ(store("2").result, ModelSrv::ModelRes_Success) << i;
  }
  EXPECT_EQ(store("1", "same").result, ModelSrv::ModelRes_OutcomeUnknown);
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "2");
}

TEST_F(ExporterTest, StoresNothingAfterTheLastMoment) {
  const ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  const Reply now = request(Verb::get, of(server.name(), "/drive/speed"));
  Request late = storeOf(server.name(), "/drive/speed", "1");
  late.epoch = now.epoch;
  late.until = now.monotonic - 1;
  EXPECT_EQ(request(Verb::set, late).result, ModelSrv::ModelRes_Timeout);
  late.until = now.monotonic + 60'000;
  late.epoch = now.epoch + 1;
  EXPECT_EQ(request(Verb::set, late).result, ModelSrv::ModelRes_Timeout);
  late.epoch.reset();
  EXPECT_EQ(request(Verb::set, late).result, ModelSrv::ModelRes_BadRequest);
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "42");
  late.epoch = now.epoch;
  EXPECT_EQ(request(Verb::set, late).value, "1");
}

TEST_F(ExporterTest, SendsNothingWithoutALease) {
  const ModelServer server;
  startReady({server.name()});
  ASSERT_TRUE(until([&] { return shape(server.name()).has_value(); }));
  viewer->messages.clear();
  TreeClient client(server.name());
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(client.store("/drive/speed", std::to_string(i)), ModelSrv::ModelRes_Success);
    runFor(loop, std::chrono::milliseconds(30));
  }
  EXPECT_TRUE(viewer->messages.empty()) << viewer->messages.front().topic;
}

TEST_F(ExporterTest, SendsBatchesWhileThereIsALease) {
  const ModelServer server;
  options.interval = std::chrono::milliseconds(0);
  startReady({server.name()});
  const Reply lease = request(Verb::watch, of(server.name(), "/"));
  EXPECT_EQ(lease.result, ModelSrv::ModelRes_Success);
  EXPECT_EQ(lease.lease, 60'000U);
  const auto values = sync(server.name());
  EXPECT_EQ(values.at(1), "42");
  EXPECT_EQ(values.at(3), "1.5\n0.25");
  EXPECT_EQ(values.count(0), 0U);
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/drive/speed", "7"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 1) == "7"; }));
  ASSERT_EQ(client.store("/drive/speed", "8"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 1) == "8"; }));
  const auto sent = batches(server.name());
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].epoch, state()->epoch);
  EXPECT_EQ(sent[1].previous, sent[0].sequence);
  EXPECT_EQ(sync(server.name(), sent[1].previous).size(), 1U);
  EXPECT_EQ(sync(server.name(), sent[1].sequence).size(), 0U);
}

TEST_F(ExporterTest, SendsWhatALeaseCovers) {
  const ModelServer server;
  options.interval = std::chrono::milliseconds(0);
  startReady({server.name()});
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/drive/label")).result,
            ModelSrv::ModelRes_Success);
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/drive/speed", "7"), ModelSrv::ModelRes_Success);
  ASSERT_EQ(client.store("/drive/label", "x"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 2) == "x"; }));
  EXPECT_EQ(lastInBatches(server.name(), 1), "");
}

TEST_F(ExporterTest, HasTheValueOfAStoreInItsReplyAndInTheNextBatch) {
  const ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  const Reply stored = request(Verb::set, storeOf(server.name(), "/drive/speed", "9"));
  EXPECT_EQ(stored.value, "9");
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 1) == "9"; }));
  EXPECT_GE(batches(server.name()).back().sequence, stored.sequence);
}

TEST_F(ExporterTest, DropsRequestsWithForeignResponseTopics) {
  const ModelServer server;
  startReady({server.name()});
  modelgate::Publication publication;
  publication.topic = "ts/1/f/d/req/get/me";
  publication.payload = encodeRequest(of(server.name(), "/drive/speed"), modelgate::Format::json);
  publication.qos = 1;
  publication.correlation = "x";
  for (const char* const topic :
       {"", "ts/1/f/d/rsp/you/view", "ts/1/f/e/rsp/me/view", "ts/1/f/d/rsp/me", "ts/1/f/d/rsp/me/",
        "ts/1/f/d/rsp/me/a/b", "ts/1/f/d/state", "ts/1/f/d/rsp/me/$x"}) {
    publication.responseTopic = topic;
    viewer->link.publish(publication);
  }
  // A later one is answered, so those before were dropped.
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "42");
  for (const auto& message : viewer->messages) {
    EXPECT_NE(message.correlation == "x" && message.topic != publication.topic, true)
        << message.topic;
  }
}

TEST_F(ExporterTest, SurvivesGarbageInRequests) {
  const ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  modelgate::Publication publication;
  publication.qos = 1;
  publication.responseTopic = "ts/1/f/d/rsp/me/view";
  unsigned random = 7;
  for (unsigned i = 0; i < 500; ++i) {
    publication.topic = std::string("ts/1/f/d/req/") +
                        std::array{"get", "set", "sync", "watch", "load", "what"}[i % 6] + "/me";
    publication.payload = i % 3 == 0 ? "{\"server\": " : i % 3 == 1 ? "\xA2" : "";
    for (unsigned j = 0; j < i % 40; ++j) {
      random = random * 1664525U + 1013904223U;
      publication.payload += static_cast<char>(random >> 24U);
    }
    publication.correlation = "g" + std::to_string(i);
    viewer->link.publish(publication);
    until([&] { return viewer->link.hasCapacity(); });
  }
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "42");
  publication.topic = "ts/1/f/d/req/get/me";
  publication.payload = "{";
  publication.correlation = "bad";
  viewer->link.publish(publication);
  EXPECT_EQ(reply("bad").result, ModelSrv::ModelRes_BadRequest);
}

TEST_F(ExporterTest, SyncsALargeTreeInSeveralReplies) {
  ModelServer server({"--synthetic", "100x100"});
  startReady({server.name()});
  const auto values = sync(server.name());
  EXPECT_GE(values.size(), 10'000U);
  ASSERT_TRUE(until([&] { return shape(server.name()).has_value(); }));
  EXPECT_GE(shape(server.name())->size(), 10'100U);
}

TEST_F(ExporterTest, PublishesJsonOfNodes) {
  const ModelServer server;
  options.json = {"/drive"};
  startReady({server.name()});
  const std::string topic = "j/" + nameOf(server.name()) + "/drive";
  ASSERT_TRUE(until([&] { return last(topic).has_value(); }));
  EXPECT_EQ(*last(topic), R"({"speed":42,"label":"two words","gains_p":1.5,"gains_i":0.25,)"
                          R"("serial":"A-17","offset":0,"#12":7})");
  TreeClient client(server.name());
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(client.store("/drive/speed", std::to_string(i)), ModelSrv::ModelRes_Success);
    runFor(loop, std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(until([&] { return last(topic)->find("\"speed\":19,") != std::string::npos; }));
  std::size_t count = 0;
  for (const auto& message : viewer->messages) {
    count += message.topic.ends_with(topic) ? 1 : 0;
  }
  EXPECT_LE(count, 3U);
}

TEST_F(ExporterTest, RetainsValuesIfItIsAsked) {
  const ModelServer server;
  options.retainValues = true;
  startReady({server.name()});
  const std::string topic = "val/" + nameOf(server.name()) + "/0";
  ASSERT_TRUE(until([&] { return last(topic).has_value(); }));
  const auto page = modelgate::decodeValuePage(*last(topic));
  ASSERT_TRUE(page);
  EXPECT_EQ(page->epoch, state()->epoch);
  EXPECT_EQ(page->values[1].value.text, "42");
}

TEST_F(ExporterTest, IsOfflineAfterACleanEnd) {
  const ModelServer server;
  startReady({server.name()});
  const std::uint64_t epoch = state()->epoch;
  finish();
  ASSERT_TRUE(until([&] { return !state()->online; }));
  EXPECT_EQ(state()->epoch, epoch);
}

}  // namespace
