#include <gmock/gmock.h>

#include <memory>

#include "tests/support/leak_check.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  auto listener = std::make_unique<test_support::LeakCheckListener>();
  // The ends of tests are told in reverse, so that the printer hears of a failure
  // that this one finds.
  testing::UnitTest::GetInstance()->listeners().Append(listener.release());
  return RUN_ALL_TESTS();
}
