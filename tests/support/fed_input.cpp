#include "tests/support/fed_input.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace test_support {

FedInput::FedInput() : original_(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  EXPECT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  close(ends[0]);
  writer_ = ends[1];
  __fpurge(stdin);
  std::clearerr(stdin);
}

FedInput::~FedInput() {
  end();
  EXPECT_EQ(dup2(original_, STDIN_FILENO), STDIN_FILENO);
  close(original_);
  __fpurge(stdin);
  std::clearerr(stdin);
}

void FedInput::feed(const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(writer_, bytes.data() + done, bytes.size() - done);
    ASSERT_GT(count, 0);
    done += static_cast<std::size_t>(count);
  }
}

void FedInput::end() {
  if (writer_ != -1) {
    close(writer_);
    writer_ = -1;
  }
}

}  // namespace test_support
