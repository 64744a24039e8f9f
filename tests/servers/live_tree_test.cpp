#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/model_server.h"
#include "tests/support/tree_client.h"

namespace modelsrvd {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

class LiveTrees : public testing::Test {
 protected:
  test_support::ModelServer server_{{"--period", "50"}};
  test_support::TreeClient client_{server_.name()};
};

TEST_F(LiveTrees, HasAValueAtEveryPath) {
  for (const char* path :
       {"/host/name",       "/host/kernel",       "/host/uptime",       "/cpu/count",
        "/cpu/load",        "/cpu/usage",         "/memory/total",      "/memory/available",
        "/memory/free",     "/memory/cached",     "/processes/count",   "/processes/running",
        "/settings/period", "/settings/label",    "/settings/alarms",   "/net/lo/rx_bytes",
        "/net/lo/tx_bytes", "/net/lo/rx_packets", "/net/lo/tx_packets", "/net/lo/mtu",
        "/net/lo/up"}) {
    EXPECT_THAT(client_.get(path), Not(StartsWith("<"))) << path;
  }
  for (const std::string& mount : client_.names("/disk")) {
    EXPECT_THAT(client_.names("/disk/" + mount), ElementsAre("size", "free"));
    EXPECT_NE(client_.get("/disk/" + mount + "/size"), "0");
  }
}

TEST_F(LiveTrees, HasAThermalNodeIfTheMachineHasZones) {
  bool zones = false;
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/thermal", none)) {
    zones = zones || entry.path().filename().string().rfind("thermal_zone", 0) == 0;
  }
  if (zones) {
    EXPECT_TRUE(client_.has("/thermal"));
    EXPECT_THAT(client_.names("/thermal"), Each(StartsWith("thermal_zone")));
  } else {
    EXPECT_FALSE(client_.has("/thermal"));
  }
}

TEST_F(LiveTrees, NamesItsElements) {
  EXPECT_THAT(client_.elementNames("/cpu/load"), ElementsAre("1min", "5min", "15min"));
  EXPECT_THAT(client_.elementNames("/cpu/usage"), Contains("cpu0"));
  EXPECT_EQ(std::to_string(client_.elementNames("/cpu/usage").size()), client_.get("/cpu/count"));
  EXPECT_THAT(client_.elementNames("/settings/alarms"),
              ElementsAre("cpu", "memory", "disk", "temperature"));
}

TEST_F(LiveTrees, ShowsThisMachine) {
  EXPECT_EQ(client_.get("/net/lo/up"), "true");
  EXPECT_EQ(std::stoul(client_.get("/cpu/count")), std::thread::hardware_concurrency());
  const auto total = std::stoull(client_.get("/memory/total"));
  EXPECT_GT(total, std::stoull(client_.get("/memory/free")));
  EXPECT_GE(std::stoul(client_.get("/processes/count")), 1U);
}

TEST_F(LiveTrees, NotifiesAboutAChangedValue) {
  ASSERT_EQ(client_.subscribe("/host/uptime"), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(client_.waitForUpdate());
}

TEST_F(LiveTrees, RejectsStoresToMeasuredValues) {
  for (const char* path : {"/host/name", "/cpu/count", "/memory/total", "/net/lo/mtu"}) {
    EXPECT_EQ(client_.store(path, "1"), ModelSrv::ModelRes_ReadOnly) << path;
  }
}

TEST_F(LiveTrees, KeepsStoredSettings) {
  EXPECT_EQ(client_.get("/settings/period"), "50");
  EXPECT_EQ(client_.store("/settings/label", "fixture 7"), ModelSrv::ModelRes_Success);
  EXPECT_EQ(client_.store("/settings/alarms", "1\n2.5\n3\n4"), ModelSrv::ModelRes_Success);
  EXPECT_EQ(client_.get("/settings/label"), "fixture 7");
  EXPECT_EQ(client_.get("/settings/alarms"), "1\n2.5\n3\n4");
}

TEST_F(LiveTrees, RejectsAPeriodOutOfRange) {
  for (const char* period : {"49", "60001", "0"}) {
    EXPECT_EQ(client_.store("/settings/period", period), ModelSrv::ModelRes_OutOfRange) << period;
  }
  EXPECT_EQ(client_.store("/settings/period", "soon"), ModelSrv::ModelRes_BadText);
  EXPECT_EQ(client_.get("/settings/period"), "50");
  EXPECT_EQ(client_.store("/settings/period", "60000"), ModelSrv::ModelRes_Success);
}

TEST(LiveTree, AppliesANewPeriodImmediately) {
  test_support::ModelServer server({"--period", "60000"});
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.subscribe("/host/uptime"), ModelSrv::ModelRes_Success);
  ASSERT_EQ(client.store("/settings/period", "50"), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(client.waitForUpdate());
}

TEST(LiveTree, IgnoresAReload) {
  test_support::ModelServer server({"--period", "50"});
  server.process().signal(SIGHUP);
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.subscribe("/host/uptime"), ModelSrv::ModelRes_Success);
  EXPECT_TRUE(client.waitForUpdate());
  EXPECT_TRUE(server.stops(SIGTERM)) << server.process().errors();
}

}  // namespace
}  // namespace modelsrvd
