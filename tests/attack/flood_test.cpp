#include <algorithm>

#include "tests/attack/attack_test.h"
#include "tests/attack/changing_server.h"
#include "tests/attack/flooded_exchanges.h"
#include "tests/support/model_server.h"
#include "tests/support/port_name.h"

// Whatever one client does, the exchanges of another are not delayed. The time for which a process
// waits for a processor does not count. The limits here have a margin for slow builds and machines;
// bench/flood_bench measures the figure.

namespace attack {
namespace {

constexpr std::chrono::milliseconds floodTime(1500);
constexpr double medianLimitMs = test_support::sanitized ? 100 : 5;
constexpr double limitMs = test_support::sanitized ? 1000 : 50;

class AttackFlood : public AttackTest, public testing::WithParamInterface<std::size_t> {};

void expectNoDelay(const Flood& flood, const Target& server) {
  auto durations = exchangesUnder(&flood, server, floodTime).served;
  ASSERT_FALSE(durations.empty()) << flood.name << ": an exchange has failed";
  std::sort(durations.begin(), durations.end());
  EXPECT_LT(durations[durations.size() / 2], medianLimitMs) << flood.name;
  EXPECT_LT(durations.back(), limitMs) << flood.name;
}

TEST_P(AttackFlood, DelaysNoOtherClient) {
  auto server = test_support::ModelServer::ofTree(floodedTree());
  expectNoDelay(floods()[GetParam()], {pathOf(server.name()), server.process().pid()});
}

class AttackFloodOfStructure : public AttackFlood {};

TEST_P(AttackFloodOfStructure, DelaysNoOtherClient) {
  const std::string name = test_support::uniquePortName();
  const ChangingServer server(name);
  expectNoDelay(structureFloods()[GetParam()], {pathOf(name), server.process()});
}

using AttackFloodOfMounts = AttackTest;

TEST_F(AttackFloodOfMounts, DelaysNoOtherClient) {
  test_support::ModelServer server({"--period", "50"});
  expectNoDelay(mountFlood(), liveTarget(server.name(), server.process().pid()));
}

std::string testNameOf(const Flood& flood) {
  std::string name = flood.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, AttackFlood, testing::Range<std::size_t>(0, floods().size()),
                         [](const auto& param) { return testNameOf(floods()[param.param]); });
INSTANTIATE_TEST_SUITE_P(OfEveryKind, AttackFloodOfStructure,
                         testing::Range<std::size_t>(0, structureFloods().size()),
                         [](const auto& param) {
                           return testNameOf(structureFloods()[param.param]);
                         });

}  // namespace
}  // namespace attack
