#include <gmock/gmock.h>

#include <memory>

#include "tests/support/leak_check.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  auto listener = std::make_unique<test_support::LeakCheckListener>();
  // The listeners are notified of the end of a test in reverse order, so the printer
  // reports the failed tests of this one.
  testing::UnitTest::GetInstance()->listeners().Append(listener.release());
  return RUN_ALL_TESTS();
}
