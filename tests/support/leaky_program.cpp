#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>

#include "tests/support/port_name.h"

// Tests that break the rules of the leak check; leak_check_test runs them and expects
// them to fail.

TEST(Leaky, LeavesADescriptorOpen) {
  EXPECT_GE(::open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
}

TEST(Leaky, LeavesAMailbox) {
  const std::string path = test_support::mailboxPath(test_support::uniquePortName());
  EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
  std::cout << "made " << path << '\n';
}

TEST(Leaky, ClosesWhatItOpened) {
  const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_GE(descriptor, 0);
  EXPECT_EQ(::close(descriptor), 0);
}
