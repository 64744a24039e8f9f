#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/attack/attack_test.h"
#include "tests/attack/changing_server.h"
#include "tests/attack/flooded_exchanges.h"
#include "tests/support/leak_check.h"
#include "tests/support/model_server.h"
#include "tests/support/port_name.h"

// What a flood makes a server hold is bounded, and given back: after a longer flood the server has
// no more memory than after a short one.

namespace attack {
namespace {

constexpr std::chrono::milliseconds shortFlood(1000);
constexpr std::chrono::milliseconds longFlood(2000);
// On a busy machine it may take a flood or two until everything has happened once.
constexpr int maxRounds = 4;

// In KiB. What is held for one user is at most 64 MiB; to that come a frame of each of a few
// sessions, which is not counted, and the largest value. Only that value stays.
constexpr long peakLimit = 160L * 1024;
constexpr long afterwardsLimit = 20L * 1024;
constexpr long growthLimit = 512;

/// Has the servers that are started give memory back that is freed, instead of keeping some of it
/// for later, so that what is left is what they hold.
class FreedMemoryIsGivenBack {
 public:
  FreedMemoryIsGivenBack() {
    for (const char* const name : names) {
      EXPECT_EQ(::setenv(name, "131072", 1), 0);
    }
  }
  ~FreedMemoryIsGivenBack() {
    for (const char* const name : names) {
      EXPECT_EQ(::unsetenv(name), 0);
    }
  }
  FreedMemoryIsGivenBack(const FreedMemoryIsGivenBack&) = delete;
  FreedMemoryIsGivenBack& operator=(const FreedMemoryIsGivenBack&) = delete;

 private:
  static constexpr std::array<const char*, 2> names{"MALLOC_MMAP_THRESHOLD_",
                                                    "MALLOC_TRIM_THRESHOLD_"};
};

/// The private memory of a process, in KiB.
long memoryOf(pid_t process) {
  return test_support::procNumber(process, "smaps_rollup", "Private_Dirty:");
}

void resetPeak(pid_t process) {
  std::ofstream("/proc/" + std::to_string(process) + "/clear_refs") << "5";
}

/// Lets the flood happen, and returns when the server has ended its sessions.
void flood(const Flood& flood, const Target& server, std::chrono::milliseconds time,
           std::size_t descriptors) {
  ASSERT_FALSE(exchangesUnder(&flood, server, time).served.empty()) << flood.name;
  ASSERT_TRUE(test_support::eventually([&] {
    return test_support::openDescriptorsOf(server.process).size() <= descriptors;
  })) << flood.name;
}

void expectBoundedMemory(const Flood& flooding, const Target& server) {
  if (test_support::sanitized) {
    GTEST_SKIP() << "a sanitizer keeps what is freed";
  }
  // What is allocated once for any client is not the flood's.
  ASSERT_FALSE(exchangesUnder(nullptr, server, std::chrono::milliseconds(50)).served.empty());
  const std::size_t descriptors = test_support::openDescriptorsOf(server.process).size();
  const long before = memoryOf(server.process);
  resetPeak(server.process);
  const long residentBefore = test_support::procNumber(server.process, "status", "VmHWM:");
  std::string figures = "KiB: " + std::to_string(before);
  long after = before;
  bool isFlat = false;
  for (int round = 0; round < maxRounds && !isFlat; ++round) {
    ASSERT_NO_FATAL_FAILURE(
        flood(flooding, server, round == 0 ? shortFlood : longFlood, descriptors));
    const long now = memoryOf(server.process);
    isFlat = round > 0 && now - after < growthLimit;
    after = now;
    figures += ", " + std::to_string(now);
  }
  const long peak = test_support::procNumber(server.process, "status", "VmHWM:") - residentBefore;
  figures += "; at most " + std::to_string(peak) + " more";
  testing::Test::RecordProperty("memory", figures);
  SCOPED_TRACE(figures);
  EXPECT_TRUE(isFlat);
  EXPECT_LT(peak, peakLimit);
  EXPECT_LT(after - before, afterwardsLimit);
}

class AttackFloodMemory : public AttackTest, public testing::WithParamInterface<std::size_t> {
 private:
  FreedMemoryIsGivenBack setting_;
};

TEST_P(AttackFloodMemory, IsBoundedAndGivenBack) {
  auto server = test_support::ModelServer::ofTree(floodedTree());
  expectBoundedMemory(floods()[GetParam()],
                      {"/tmp/" + server.name() + ".fifo", server.process().pid()});
}

class AttackFloodMemoryOfStructure : public AttackFloodMemory {};

TEST_P(AttackFloodMemoryOfStructure, IsBoundedAndGivenBack) {
  const std::string name = test_support::uniquePortName();
  const ChangingServer server(name);
  expectBoundedMemory(structureFloods()[GetParam()], {"/tmp/" + name + ".fifo", server.process()});
}

using AttackFloodMemoryOfMounts = AttackTest;

TEST_F(AttackFloodMemoryOfMounts, IsBoundedAndGivenBack) {
  const FreedMemoryIsGivenBack setting;
  test_support::ModelServer server({"--period", "50"});
  expectBoundedMemory(mountFlood(), liveTarget(server.name(), server.process().pid()));
}

std::string nameOfTest(const Flood& flood) {
  std::string name = flood.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, AttackFloodMemory,
                         testing::Range<std::size_t>(0, floods().size()),
                         [](const auto& param) { return nameOfTest(floods()[param.param]); });
INSTANTIATE_TEST_SUITE_P(OfEveryKind, AttackFloodMemoryOfStructure,
                         testing::Range<std::size_t>(0, structureFloods().size()),
                         [](const auto& param) {
                           return nameOfTest(structureFloods()[param.param]);
                         });

}  // namespace
}  // namespace attack
