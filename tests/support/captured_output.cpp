#include "tests/support/captured_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace test_support {

CapturedOutput::CapturedOutput()
    : collected_(memfd_create("captured", MFD_CLOEXEC)),
      original_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
  std::fflush(stdout);
  EXPECT_NE(collected_, -1);
  EXPECT_NE(original_, -1);
  EXPECT_EQ(dup2(collected_, STDOUT_FILENO), STDOUT_FILENO);
}

CapturedOutput::~CapturedOutput() {
  restore();
  close(collected_);
}

std::string CapturedOutput::take() {
  restore();
  EXPECT_EQ(lseek(collected_, 0, SEEK_SET), 0);
  std::string text;
  std::array<char, 4096> bytes{};
  for (ssize_t count = read(collected_, bytes.data(), bytes.size()); count > 0;
       count = read(collected_, bytes.data(), bytes.size())) {
    text.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return text;
}

void CapturedOutput::restore() {
  if (original_ == -1) {
    return;
  }
  std::fflush(stdout);
  EXPECT_EQ(dup2(original_, STDOUT_FILENO), STDOUT_FILENO);
  close(original_);
  original_ = -1;
}

}  // namespace test_support
