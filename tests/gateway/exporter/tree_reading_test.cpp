#include "gateway/exporter/tree_reading.h"

#include <gtest/gtest.h>

#include "tests/gateway/exporter/tree_of_choices.h"
#include "tests/support/model_server.h"

namespace {

using test_support::ModelServer;

TEST(TreeReading, EndsAsSoonAsAttributesAreMoreThanAShapeMayHave) {
  constexpr unsigned parts = 1500;
  const ModelServer server = ModelServer::ofTree(gateway_test::treeOfChoices(parts));
  modelgate::LocalServer local({[] {}, [] {}});
  ASSERT_EQ(local.connect(server.name()), ModelSrv::ModelRes_Success);
  unsigned calls = 0;
  modelgate::TreeReadout readout;
  const ModelSrv::ModelRes result = readTree(
      local,
      [&calls] {
        ++calls;
        return true;
      },
      readout);
  EXPECT_EQ(result, ModelSrv::ModelRes_LimitReached);
  // For each part once, and then before the description of the root and of 1,001 parts.
  EXPECT_EQ(calls, parts + 1 + 1002);
}

TEST(TreeReading, ReadsNothingOfAMirrorButThatItIsOne) {
  const ModelServer server = ModelServer::ofTree(R"({"name": "Model_x", "children": [
    {"id": 1, "name": "_link", "children": []},
    {"id": 2, "name": "x", "type": "int32", "value": 1}]})");
  modelgate::LocalServer local({[] {}, [] {}});
  ASSERT_EQ(local.connect(server.name()), ModelSrv::ModelRes_Success);
  modelgate::TreeReadout readout;
  EXPECT_EQ(readTree(
                local, [] { return true; }, readout),
            ModelSrv::ModelRes_Success);
  EXPECT_TRUE(readout.isMirror);
  EXPECT_TRUE(readout.shape.empty());
}

}  // namespace
