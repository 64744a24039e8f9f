#include "tests/bindings/call_sequence.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/port_name.h"

namespace bindings_tests {

namespace {

TEST(CCallSequence, AnyCallsInAnyOrderAreHandled) {
  constexpr std::size_t length = 1500;
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  unsigned successes = 0;
  for (int round = 0; round < 5; ++round) {
    std::vector<std::uint8_t> bytes(length);
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(random());
    }
    CallSequence sequence(test_support::uniquePortName());
    successes += sequence.run(bytes);
  }
  EXPECT_GT(successes, 10U);
}

}  // namespace

}  // namespace bindings_tests
