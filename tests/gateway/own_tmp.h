#pragma once

#include <gtest/gtest.h>

#include "tests/support/own_mounts.h"

namespace gateway_test {

/// A /tmp of the test's own, if the system permits that. Other programs of the machine that look at
/// every server would be clients of the mirrors, which have trees for clients alone; and an
/// exporter of every server would be a client of those of other tests.
struct OwnTmp {
  OwnTmp() : isOwn(test_support::haveOwnMounts() && test_support::mountOwnTmp()) {}
  ~OwnTmp() {
    if (isOwn) {
      EXPECT_TRUE(test_support::unmountOwnTmp());
    }
  }
  OwnTmp(const OwnTmp&) = delete;
  OwnTmp& operator=(const OwnTmp&) = delete;
  const bool isOwn;
};

}  // namespace gateway_test
