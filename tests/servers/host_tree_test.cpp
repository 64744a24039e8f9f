#include "servers/host_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/port_name.h"
#include "tests/support/pump.h"
#include "tests/support/tree_client.h"

namespace modelsrvd {
namespace {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using testing::ElementsAre;

class HostTreeParts : public testing::Test {
 protected:
  HostTreeParts() { EXPECT_FALSE(tree_.publish(root_)); }

  ModelPart* find(std::initializer_list<const char*> names) {
    ModelPart* part = &root_;
    for (const char* name : names) {
      auto* node = dynamic_cast<ModelNode*>(part);
      part = nullptr;
      for (ModelPart* child : node ? node->children() : std::vector<ModelPart*>{}) {
        part = child->name() == name ? child : part;
      }
    }
    return part;
  }
  std::vector<std::string> names(const char* node) {
    std::vector<std::string> names;
    for (ModelPart* child : dynamic_cast<ModelNode&>(*find({node})).children()) {
      names.emplace_back(child->name());
    }
    return names;
  }
  std::string get(std::initializer_list<const char*> path) {
    ModelPart* const part = find(path);
    std::ostringstream text;
    return part && part->save(text, ModelSrv::ModelPartIndex_All) == ModelSrv::ModelRes_Success
               ? text.str()
               : "<none>";
  }
  static HostSample::Interface interface(const std::string& name, std::uint64_t bytes) {
    HostSample::Interface interface;
    interface.counts.name = name;
    interface.counts.receivedBytes = bytes;
    return interface;
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  HostTree tree_{1234};
};

TEST_F(HostTreeParts, ShowsASample) {
  HostSample sample;
  sample.name = "fixture";
  sample.uptime = 77;
  sample.load = {0.52, 1.07, 12.3};
  sample.cores = {{0, 12.5}, {1, 0}};
  sample.memory.total = 1024;
  sample.running = 3;
  tree_.update(sample);
  EXPECT_EQ(get({"host", "name"}), "fixture");
  EXPECT_EQ(get({"host", "uptime"}), "77");
  EXPECT_EQ(get({"cpu", "load"}), "0.52\n1.07\n12.3");
  EXPECT_EQ(get({"cpu", "count"}), "2");
  EXPECT_EQ(get({"cpu", "usage"}), "12.5\n0");
  EXPECT_EQ(get({"memory", "total"}), "1024");
  EXPECT_EQ(get({"processes", "running"}), "3");
  EXPECT_EQ(get({"settings", "period"}), "1234");
}

TEST_F(HostTreeParts, InterfacesAppearAndDisappearAndKeepTheirIds) {
  HostSample sample;
  sample.interfaces = {interface("lo", 1), interface("eth0", 2)};
  tree_.update(sample);
  EXPECT_THAT(names("net"), ElementsAre("lo", "eth0"));
  const auto id = find({"net", "lo"})->id();
  sample.interfaces = {interface("wlan0", 3), interface("eth0", 4)};
  tree_.update(sample);
  EXPECT_THAT(names("net"), ElementsAre("eth0", "wlan0"));
  EXPECT_EQ(get({"net", "eth0", "rx_bytes"}), "4");
  sample.interfaces.push_back(interface("lo", 5));
  tree_.update(sample);
  EXPECT_EQ(find({"net", "lo"})->id(), id);
  EXPECT_EQ(get({"net", "lo", "rx_bytes"}), "5");
}

TEST_F(HostTreeParts, ASubscriptionOutlastsAMountThatGoesAndReturns) {
  const std::string port = test_support::uniquePortName();
  ASSERT_EQ(root_.startAsServer(port), ModelSrv::ModelRes_Success);
  const test_support::Pump pump(manager_);
  HostSample sample;
  sample.disks = {{"/", {10, 4}}, {"/media/usb", {20, 5}}};
  tree_.update(sample);
  test_support::TreeClient client(port);
  ASSERT_EQ(client.subscribe("/disk/media-usb/free"), ModelSrv::ModelRes_Success);
  sample.disks = {{"/", {10, 4}}, {"/media/card", {30, 6}}};
  tree_.update(sample);
  sample.disks.push_back({"/media/usb", {20, 7}});
  tree_.update(sample);
  EXPECT_TRUE(client.waitForUpdate());
  EXPECT_EQ(client.get("/disk/media-usb/free"), "7");
  sample.disks.back().space.free = 8;
  tree_.update(sample);
  EXPECT_TRUE(client.waitForUpdate());
  ASSERT_EQ(client.subscribe("/host/uptime"), ModelSrv::ModelRes_Success);
  sample.disks[1].space.free = 9;
  tree_.update(sample);
  for (unsigned update = 3; update <= 4; ++update) {
    ++sample.uptime;
    tree_.update(sample);
    EXPECT_TRUE(client.waitForUpdate());
    EXPECT_EQ(client.updates(), update) << "the other mount is another part";
  }
}

TEST_F(HostTreeParts, MountsHaveNamesWithoutShellCharacters) {
  HostSample sample;
  sample.disks = {{"/", {10, 4}}, {"/boot/efi", {20, 5}}, {"/boot-efi", {30, 6}}};
  tree_.update(sample);
  EXPECT_THAT(names("disk"), ElementsAre("root", "boot-efi", "boot-efi-2"));
  EXPECT_EQ(get({"disk", "boot-efi-2", "size"}), "30");
  EXPECT_EQ(get({"disk", "root", "free"}), "4");
}

TEST_F(HostTreeParts, ADuplicateInterfaceAppearsOnce) {
  HostSample sample;
  sample.interfaces = {interface("lo", 1), interface("lo", 2)};
  tree_.update(sample);
  EXPECT_THAT(names("net"), ElementsAre("lo"));
}

TEST_F(HostTreeParts, TheThermalNodeExistsWhileThereAreZones) {
  HostSample sample;
  tree_.update(sample);
  EXPECT_EQ(find({"thermal"}), nullptr);
  sample.zones = {{"thermal_zone0", 48.25}};
  tree_.update(sample);
  EXPECT_EQ(get({"thermal", "thermal_zone0"}), "48.25");
  sample.zones.clear();
  tree_.update(sample);
  EXPECT_EQ(find({"thermal"}), nullptr);
}

TEST_F(HostTreeParts, UsageHasAnElementPerOnlineCore) {
  HostSample sample;
  sample.cores = {{0, 1}, {1, 2}};
  tree_.update(sample);
  sample.cores = {{0, 3}};
  tree_.update(sample);
  EXPECT_EQ(get({"cpu", "usage"}), "3");
  EXPECT_EQ(get({"cpu", "count"}), "1");
  sample.cores = {{0, 4}, {1, 5}};
  tree_.update(sample);
  EXPECT_EQ(get({"cpu", "usage"}), "4\n5");
  sample.cores.clear();
  tree_.update(sample);
  EXPECT_EQ(get({"cpu", "usage"}), "<none>");
}

}  // namespace
}  // namespace modelsrvd
