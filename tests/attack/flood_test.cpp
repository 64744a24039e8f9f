#include <algorithm>

#include "tests/attack/attack_test.h"
#include "tests/attack/floods.h"
#include "tests/support/model_server.h"

// Whatever one client does, the exchanges of another are not delayed. The limits here have a margin
// for a loaded machine, on which every process waits; bench/flood_bench measures the figure.

namespace attack {
namespace {

constexpr std::chrono::milliseconds floodTime(1500);
constexpr double medianLimitMs = 100;
constexpr double limitMs = 1000;

class AttackFlood : public AttackTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(AttackFlood, DelaysNoOtherClient) {
  const Flood& flood = floods()[GetParam()];
  const auto server = test_support::ModelServer::ofTree(floodedTree());
  Durations durations = exchangesUnder(&flood, pathOf(server.name()), floodTime);
  ASSERT_FALSE(durations.empty()) << flood.name << ": an exchange has failed";
  std::sort(durations.begin(), durations.end());
  EXPECT_LT(durations[durations.size() / 2], medianLimitMs) << flood.name;
  EXPECT_LT(durations.back(), limitMs) << flood.name;
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, AttackFlood, testing::Range<std::size_t>(0, floods().size()),
                         [](const testing::TestParamInfo<std::size_t>& param) {
                           std::string name = floods()[param.param].name;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

}  // namespace
}  // namespace attack
