#include <gtest/gtest.h>

#include "tests/gateway/exporter/exporter_fixture.h"

namespace {

using gateway_test::runFor;
using modelgate::Verb;
using test_support::ModelServer;
using test_support::TreeClient;

using ExporterBatches = gateway_test::ExporterTest;

TEST_F(ExporterBatches, SendsAnEmptyBatchSoonAfterTheLastChange) {
  const ModelServer server;
  startReady({server.name()});
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  const auto empty = [&] {
    std::vector<modelgate::Batch> found;
    for (const auto& message : viewer->messages) {
      const auto batch = message.topic.ends_with("upd/" + nameOf(server.name()))
                             ? modelgate::decodeBatch(message.payload)
                             : std::nullopt;
      if (batch && batch->values.empty()) {
        found.push_back(*batch);
      }
    }
    return found;
  };
  TreeClient client(server.name());
  for (const char* const value : {"7", "8", "9"}) {
    ASSERT_EQ(client.store("/drive/speed", value), ModelSrv::ModelRes_Success);
    ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 1) == value; }));
  }
  ASSERT_TRUE(until([&] { return !empty().empty(); }));
  const modelgate::Batch last = batches(server.name()).back();
  EXPECT_EQ(empty().front().previous, last.sequence);
  // Without it the gap would be seen with the heartbeat, after 10 s.
  EXPECT_LT(empty().front().monotonic - last.monotonic, 8000U);
  runFor(loop, std::chrono::seconds(3));
  EXPECT_EQ(empty().size(), 1U);
}

TEST_F(ExporterBatches, SendsNoValuesBeforeALongIntervalIsOver) {
  const ModelServer server;
  options.interval = std::chrono::milliseconds(3000);
  startReady({server.name()});
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/drive/speed", "7"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 1) == "7"; }));
  ASSERT_EQ(client.store("/drive/label", "x"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 2) == "x"; }));
  const auto sent = batches(server.name());
  EXPECT_GE(sent.back().monotonic, sent.front().monotonic + 2999);
}

}  // namespace
