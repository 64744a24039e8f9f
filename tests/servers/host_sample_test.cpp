#include "servers/host_sample.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace modelsrvd {
namespace {

using testing::IsEmpty;

/// A machine described by recorded files.
class HostSamples : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "modelsrvd_host_XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    top_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(top_); }

  void record(const std::string& path, const std::string& text) {
    const std::filesystem::path file = top_ + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }

  std::string top_;
};

TEST_F(HostSamples, IsReadFromTheKernelsFiles) {
  record("/proc/sys/kernel/hostname", "fixture\n");
  record("/proc/sys/kernel/osrelease", "6.1.0\n");
  record("/proc/uptime", "77.1 2\n");
  record("/proc/loadavg", "0.5 0.25 0.125 1/2 3\n");
  record("/proc/meminfo", "MemTotal: 2 kB\n");
  record("/proc/1/stat", "");
  record("/proc/23/stat", "");
  record("/proc/stat", "cpu0 50 0 0 50 0 0 0 0\nprocs_running 2\n");
  HostSampler sampler{HostFiles(top_)};
  const HostSample sample = sampler.sample();
  EXPECT_EQ(sample.name, "fixture");
  EXPECT_EQ(sample.kernel, "6.1.0");
  EXPECT_EQ(sample.uptime, 77U);
  EXPECT_EQ(sample.load.fifteenMinutes, 0.125);
  EXPECT_EQ(sample.memory.total, 2048U);
  EXPECT_EQ(sample.processes, 2U);
  EXPECT_EQ(sample.running, 2U);
}

TEST_F(HostSamples, ComputesUsageSinceThePreviousSample) {
  HostSampler sampler{HostFiles(top_)};
  record("/proc/stat", "cpu0 50 0 0 50 0 0 0 0\n");
  EXPECT_EQ(sampler.sample().cores.at(0).usage, 50.0);
  record("/proc/stat", "cpu0 51 0 0 59 0 0 0 0\ncpu1 3 0 0 9 0 0 0 0\n");
  const HostSample sample = sampler.sample();
  ASSERT_EQ(sample.cores.size(), 2U);
  EXPECT_EQ(sample.cores[0].usage, 10.0);
  EXPECT_EQ(sample.cores[1].number, 1U);
  EXPECT_EQ(sample.cores[1].usage, 25.0);
}

TEST_F(HostSamples, ReportsWhichInterfacesAreUp) {
  record("/proc/self/net/dev", "h\n lo: 1 2 0 0 0 0 0 0 3 4\neth0: 5 6 0 0 0 0 0 0 7 8\n");
  record("/sys/class/net/lo/mtu", "65536\n");
  record("/sys/class/net/lo/flags", "0x9\n");
  record("/sys/class/net/eth0/mtu", "1500\n");
  record("/sys/class/net/eth0/flags", "0x1002\n");
  HostSampler sampler{HostFiles(top_)};
  const HostSample sample = sampler.sample();
  ASSERT_EQ(sample.interfaces.size(), 2U);
  EXPECT_EQ(sample.interfaces[0].mtu, 65536U);
  EXPECT_TRUE(sample.interfaces[0].up);
  EXPECT_EQ(sample.interfaces[1].counts.sentPackets, 8U);
  EXPECT_FALSE(sample.interfaces[1].up);
}

TEST_F(HostSamples, ReportsTheSpaceOfExistingMounts) {
  record("/proc/self/mounts", "/dev/a / ext4 rw 0 0\n/dev/b /gone ext4 rw 0 0\n");
  HostSampler sampler{HostFiles(top_)};
  const HostSample sample = sampler.sample();
  ASSERT_EQ(sample.disks.size(), 1U);
  EXPECT_EQ(sample.disks[0].mountPoint, "/");
  EXPECT_GT(sample.disks[0].space.size, 0U);
  EXPECT_LE(sample.disks[0].space.free, sample.disks[0].space.size);
}

TEST_F(HostSamples, ReportsZonesWhoseSensorCanBeRead) {
  record("/sys/class/thermal/thermal_zone0/temp", "48250\n");
  record("/sys/class/thermal/thermal_zone1/temp", "");
  record("/sys/class/thermal/thermal_zone2/type", "x\n");
  record("/sys/class/thermal/cooling_device0/temp", "1\n");
  HostSampler sampler{HostFiles(top_)};
  const HostSample sample = sampler.sample();
  ASSERT_EQ(sample.zones.size(), 1U);
  EXPECT_EQ(sample.zones[0].name, "thermal_zone0");
  EXPECT_EQ(sample.zones[0].celsius, 48.25);
}

TEST_F(HostSamples, IsEmptyIfNoFileCanBeRead) {
  HostSampler sampler{HostFiles(top_)};
  const HostSample sample = sampler.sample();
  EXPECT_EQ(sample.name, "");
  EXPECT_THAT(sample.cores, IsEmpty());
  EXPECT_THAT(sample.disks, IsEmpty());
  EXPECT_THAT(sample.interfaces, IsEmpty());
  EXPECT_THAT(sample.zones, IsEmpty());
}

}  // namespace
}  // namespace modelsrvd
