#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "tests/support/model_server.h"
#include "tests/support/tree_client.h"

namespace modelsrvd {
namespace {

using testing::ElementsAre;

std::string drive(const std::string& children) {
  return R"({"children": [{"name": "drive", "children": [)" + children + "]}]}";
}

std::string speed(int value) {
  return R"({"name": "speed", "type": "int32", "value": )" + std::to_string(value) + "}";
}

class Reload : public testing::Test {
 protected:
  void reload(const std::string& text) {
    file_.write(text);
    server_.process().signal(SIGHUP);
  }
  bool becomes(const std::string& path, const std::string& value) {
    return client_.pumpUntil([&] { return client_.get(path) == value; });
  }

  test_support::TemporaryFile file_{drive(speed(42))};
  test_support::ModelServer server_{{"--tree", file_.path()}, true};
  test_support::TreeClient client_{server_.name()};
};

TEST_F(Reload, SetsValuesInPlaceAndKeepsSubscriptions) {
  ASSERT_EQ(client_.get("/drive/speed"), "42");
  ASSERT_EQ(client_.subscribe("/drive/speed"), ModelSrv::ModelRes_Success);
  reload(drive(speed(43)));
  EXPECT_TRUE(client_.waitForUpdate());
  EXPECT_EQ(client_.get("/drive/speed"), "43");
}

TEST_F(Reload, ResetsStoredValuesToTheFile) {
  ASSERT_EQ(client_.store("/drive/speed", "7"), ModelSrv::ModelRes_Success);
  server_.process().signal(SIGHUP);
  EXPECT_TRUE(becomes("/drive/speed", "42"));
}

TEST_F(Reload, KeepsSubscriptionsWhenPartsElsewhereComeAndGo) {
  ASSERT_EQ(client_.subscribe("/drive/speed"), ModelSrv::ModelRes_Success);
  reload(drive(R"({"name": "new", "type": "bool", "value": true}, )" + speed(42)));
  ASSERT_TRUE(becomes("/drive/new", "true"));
  EXPECT_THAT(client_.names("/drive"), ElementsAre("new", "speed"));
  EXPECT_THAT(client_.ids("/drive"), ElementsAre(2, 1));
  EXPECT_EQ(client_.updates(), 0U) << "the part has not changed";
  ASSERT_EQ(client_.store("/drive/speed", "7"), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(client_.waitForUpdate());
  reload(drive(speed(8)));
  EXPECT_TRUE(client_.waitForUpdate());
  EXPECT_EQ(client_.get("/drive/speed"), "8");
}

TEST_F(Reload, DeliversUpdatesAgainForAPartThatIsPutBack) {
  ASSERT_EQ(client_.subscribe("/drive/speed"), ModelSrv::ModelRes_Success);
  reload(drive(""));
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.has("/drive/speed"); }));
  reload(drive(speed(8)));
  EXPECT_TRUE(client_.waitForUpdate());
  EXPECT_EQ(client_.get("/drive/speed"), "8");
}

TEST_F(Reload, DeliversUpdatesOfAPartWhoseTypeChanges) {
  ASSERT_EQ(client_.subscribe("/drive/speed"), ModelSrv::ModelRes_Success);
  reload(drive(R"({"name": "speed", "type": "text", "value": "fast"})"));
  EXPECT_TRUE(client_.waitForUpdate());
  EXPECT_EQ(client_.get("/drive/speed"), "fast");
  ASSERT_EQ(client_.store("/drive/speed", "faster"), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(client_.waitForUpdate());
}

TEST_F(Reload, ReplacesTheTreeForConnectedClients) {
  reload(drive(speed(1) + R"(, {"name": "label", "type": "text", "value": "new"})"));
  EXPECT_TRUE(becomes("/drive/label", "new"));
  EXPECT_THAT(client_.names("/drive"), ElementsAre("speed", "label"));
  reload(R"({"children": [{"name": "other", "type": "bool", "value": true}]})");
  EXPECT_TRUE(becomes("/other", "true"));
  EXPECT_THAT(client_.names(""), ElementsAre("other"));
}

TEST_F(Reload, KeepsTheTreeIfTheFileIsInvalid) {
  ASSERT_EQ(client_.store("/drive/speed", "7"), ModelSrv::ModelRes_Success);
  reload(drive(R"({"name": "speed", "type": "int32", "value": "fast"})"));
  EXPECT_EQ(server_.process().readLine(),
            "modelsrvd: " + file_.path() +
                ": /children/0/children/0/value: expected an integer for int32, got \"fast\"");
  EXPECT_EQ(client_.get("/drive/speed"), "7");
}

TEST_F(Reload, KeepsTheTreeIfTheFileIsMissing) {
  std::filesystem::remove(file_.path());
  server_.process().signal(SIGHUP);
  EXPECT_EQ(server_.process().readLine(),
            "modelsrvd: --tree: " + file_.path() + ": No such file or directory");
  EXPECT_EQ(client_.get("/drive/speed"), "42");
  reload(drive(speed(44)));
  EXPECT_TRUE(becomes("/drive/speed", "44"));
}

TEST_F(Reload, ServesClientsWhileItReadsALargeFile) {
  std::string elements = R"({"value": 1})";
  for (int i = 1; i < 60'000; ++i) {
    elements += R"(, {"value": 1})";
  }
  const std::string large =
      drive(R"({"name": "array", "type": "double", "elements": [)" + elements + "]}");
  // Stores, since a cached value needs no server. They fail when the part has gone; one or two
  // may come before the server handles the signal. A busy machine may leave this process no time
  // for more, so it tries again.
  const auto storesDuringReload = [&] {
    reload(drive(speed(43)));
    EXPECT_TRUE(becomes("/drive/speed", "43"));
    reload(large);
    return client_.storeUntilError("/drive/speed", "7");
  };
  EXPECT_TRUE(client_.pumpUntil([&] { return HasFailure() || storesDuringReload() >= 8; }));
}

}  // namespace
}  // namespace modelsrvd
