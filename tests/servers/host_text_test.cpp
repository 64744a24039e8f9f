#include "servers/host_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace modelsrvd {
namespace {

using testing::IsEmpty;

TEST(HostText, ReadsTheLoadAverages) {
  const LoadAverages load = parseLoad("0.52 1.07 12.30 3/412 5089\n");
  EXPECT_EQ(load.oneMinute, 0.52);
  EXPECT_EQ(load.fiveMinutes, 1.07);
  EXPECT_EQ(load.fifteenMinutes, 12.3);
}

TEST(HostText, ReadsWholeSecondsOfUptime) {
  EXPECT_EQ(parseUptime("1380.97 2734.95\n"), 1380U);
}

TEST(HostText, ReadsCoresAndRunningThreads) {
  const CpuStatus status = parseCpuStatus(
      "cpu  300 0 100 600 0 0 0 0 0 0\n"
      "cpu0 100 1 50 700 20 3 4 5 60 7\n"
      "cpu2 200 0 50 400 0 0 0 0 0 0\n"
      "intr 5 0 0\n"
      "procs_running 3\n");
  ASSERT_EQ(status.cores.size(), 2U);
  EXPECT_EQ(status.cores.at(0).total, 883U);
  EXPECT_EQ(status.cores.at(0).busy, 163U);
  EXPECT_EQ(status.cores.at(2).busy, 250U);
  EXPECT_EQ(status.running, 3U);
}

TEST(HostText, RoundsUsageToATenthOfAPercent) {
  EXPECT_EQ(usagePercent({100, 1000}, {200, 1300}), 33.3);
  EXPECT_EQ(usagePercent({0, 0}, {1, 1}), 100.0);
}

TEST(HostText, UsageIsZeroIfNoTimePassedOrACountDecreased) {
  EXPECT_EQ(usagePercent({5, 10}, {5, 10}), 0.0);
  EXPECT_EQ(usagePercent({5, 10}, {4, 20}), 0.0);
  EXPECT_EQ(usagePercent({5, 10}, {6, 9}), 0.0);
}

TEST(HostText, ReadsMemoryInBytes) {
  const MemorySizes sizes = parseMemory(
      "MemTotal:       24684096 kB\nMemFree:        100 kB\nMemAvailable:   200 kB\n"
      "Buffers:  3 kB\nCached:  262708 kB\nSwapCached:  9 kB\n");
  EXPECT_EQ(sizes.total, 24684096ULL * 1024);
  EXPECT_EQ(sizes.free, 102400U);
  EXPECT_EQ(sizes.available, 204800U);
  EXPECT_EQ(sizes.cached, 262708ULL * 1024);
}

TEST(HostText, ReadsInterfacesAfterTheHeadings) {
  const auto interfaces = parseInterfaces(
      "Inter-|   Receive                        |  Transmit\n"
      " face |bytes    packets errs drop fifo frame compressed multicast|bytes packets errs\n"
      "    lo:    3267      29    0    0    0     0          0         0     3268      30    0\n"
      "eth0:1:18906191 608 0 0 0 0 0 0 27193 334 0 0 0 0 0 0\n");
  ASSERT_EQ(interfaces.size(), 2U);
  EXPECT_EQ(interfaces[0].name, "lo");
  EXPECT_EQ(interfaces[0].receivedBytes, 3267U);
  EXPECT_EQ(interfaces[0].receivedPackets, 29U);
  EXPECT_EQ(interfaces[0].sentBytes, 3268U);
  EXPECT_EQ(interfaces[0].sentPackets, 30U);
  EXPECT_EQ(interfaces[1].name, "eth0:1");
  EXPECT_EQ(interfaces[1].receivedBytes, 18906191U);
  EXPECT_EQ(interfaces[1].sentPackets, 334U);
}

struct MountsCase {
  const char* what;
  const char* text;
  std::vector<std::string> local;
};

class LocalMounts : public testing::TestWithParam<MountsCase> {};

TEST_P(LocalMounts, AreThoseThatNeverBlock) {
  EXPECT_EQ(parseLocalMounts(GetParam().text), GetParam().local);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LocalMounts,
    testing::Values(
        MountsCase{"Plain",
                   "/dev/vda / ext4 rw 0 0\n/dev/sda1 /boot/efi vfat rw 0 0\n",
                   {"/", "/boot/efi"}},
        MountsCase{
            "KernelFileSystems",
            "proc /proc proc rw 0 0\ntmpfs /dev/shm tmpfs rw 0 0\ntmpfs /sys/fs/x tmpfs rw 0 0\n"
            "tmpfs /device tmpfs rw 0 0\n",
            {"/device"}},
        MountsCase{"Network", "/dev/vda / ext4 rw 0 0\nsrv:/a /mnt/a nfs4 rw 0 0\n", {"/"}},
        MountsCase{
            "BelowANetworkMount",
            "/dev/vda / ext4 rw 0 0\nsrv:/a /mnt nfs4 rw 0 0\n/dev/loop0 /mnt/image ext4 rw 0 0\n"
            "/dev/sdb /mnt2 ext4 rw 0 0\n",
            {"/", "/mnt2"}},
        MountsCase{"NetworkRoot", "srv:/r / nfs rw 0 0\n/dev/sda /data ext4 rw 0 0\n", {}},
        MountsCase{
            "UserSpace", "x /a fuse.sshfs rw 0 0\ny /b fuseblk rw 0 0\nz /c autofs rw 0 0\n", {}},
        MountsCase{"HiddenTwice", "/dev/a /m ext4 rw 0 0\n/dev/b /m xfs rw 0 0\n", {"/m"}},
        MountsCase{"HiddenByNetwork", "/dev/a /m ext4 rw 0 0\nsrv:/m /m nfs rw 0 0\n", {}},
        MountsCase{"Escapes", "/dev/a /my\\040disk\\134 ext4 rw 0 0\n", {"/my disk\\"}},
        MountsCase{"BrokenEscapes", "/dev/a /a\\9x\\77 ext4 rw 0 0\n", {"/a\\9x\\77"}},
        MountsCase{"Rubbish", "\n \nx\nx y\nx relative ext4\n", {}}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(HostText, ReturnsZerosForInvalidText) {
  for (const std::string_view text :
       {std::string_view(""), std::string_view("\n\n\n"), std::string_view("\0\xff\x1b", 3),
        std::string_view("cpu cpu cpu"), std::string_view("MemTotal: lots"),
        std::string_view("99999999999999999999999999999")}) {
    EXPECT_EQ(parseLoad(text).fifteenMinutes, 0.0);
    EXPECT_EQ(parseUptime(text), 0U);
    EXPECT_THAT(parseCpuStatus(text).cores, IsEmpty());
    EXPECT_EQ(parseMemory(text).total, 0U);
    EXPECT_THAT(parseLocalMounts(text), IsEmpty());
  }
}

TEST(HostText, ReadsNumbersInBothBases) {
  EXPECT_EQ(parseNumberText("1500\n"), 1500);
  EXPECT_EQ(parseNumberText("0x1003\n"), 0x1003);
  EXPECT_EQ(parseNumberText("-4000"), -4000);
  EXPECT_EQ(parseNumberText("none"), 0);
}

TEST(HostText, ReturnsTheFirstLine) {
  EXPECT_EQ(firstLine("vm\nrest"), "vm");
  EXPECT_EQ(firstLine(""), "");
}

}  // namespace
}  // namespace modelsrvd
