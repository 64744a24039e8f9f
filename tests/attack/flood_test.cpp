#include <algorithm>

#include "tests/attack/attack_test.h"
#include "tests/attack/changing_server.h"
#include "tests/attack/floods.h"
#include "tests/support/model_server.h"
#include "tests/support/port_name.h"

// Whatever one client does, the exchanges of another are not delayed. The limits here have a margin
// for a loaded machine, on which every process waits; bench/flood_bench measures the figure.

namespace attack {
namespace {

constexpr std::chrono::milliseconds floodTime(1500);
constexpr double medianLimitMs = 100;
constexpr double limitMs = 1000;

class AttackFlood : public AttackTest, public testing::WithParamInterface<std::size_t> {};

void expectNoDelay(const Flood& flood, const std::string& mailbox) {
  Durations durations = exchangesUnder(&flood, mailbox, floodTime);
  ASSERT_FALSE(durations.empty()) << flood.name << ": an exchange has failed";
  std::sort(durations.begin(), durations.end());
  EXPECT_LT(durations[durations.size() / 2], medianLimitMs) << flood.name;
  EXPECT_LT(durations.back(), limitMs) << flood.name;
}

TEST_P(AttackFlood, DelaysNoOtherClient) {
  const auto server = test_support::ModelServer::ofTree(floodedTree());
  expectNoDelay(floods()[GetParam()], pathOf(server.name()));
}

using AttackFloodOfStructure = AttackTest;

TEST_F(AttackFloodOfStructure, DelaysNoOtherClient) {
  const std::string name = test_support::uniquePortName();
  const ChangingServer server(name);
  expectNoDelay(structureFlood(), pathOf(name));
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, AttackFlood, testing::Range<std::size_t>(0, floods().size()),
                         [](const testing::TestParamInfo<std::size_t>& param) {
                           std::string name = floods()[param.param].name;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

}  // namespace
}  // namespace attack
