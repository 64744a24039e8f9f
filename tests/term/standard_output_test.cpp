#include "term/standard_output.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/captured_output.h"
#include "tests/support/process.h"

namespace {

bool devicesTakeNothing = false;

}  // namespace

#ifndef TREESCOPE_SANITIZED
// Replaces that of the C library in this program.
extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  return devicesTakeNothing ? 0 : syscall(SYS_write, descriptor, data, size);
}
#endif

namespace treescope {
namespace {

TEST(WriteAll, EndsIfTheDeviceTakesNothing) {
  if (test_support::sanitized) {
    GTEST_SKIP() << "the sanitizer has a write of its own";
  }
  devicesTakeNothing = true;
  errno = 0;
  const std::size_t written = writeAll(STDOUT_FILENO, "text", 4);
  const int error = errno;
  devicesTakeNothing = false;
  EXPECT_EQ(written, 0U);
  EXPECT_EQ(error, EIO);
  EXPECT_EQ(writeAll(STDOUT_FILENO, "", 0), 0U);
}

TEST(PrintText, KeepsTheOrderOfTextsOfEverySize) {
  test_support::CapturedOutput output;
  std::string expected;
  for (const std::size_t size : {1U, 5000U, 0U, 200'000U, 3U, 70'000U, 70'000U, 2U}) {
    const std::string text(size, static_cast<char>('a' + expected.size() % 26));
    printText(text);
    expected += text;
  }
  EXPECT_EQ(output.take(), expected);
}

}  // namespace
}  // namespace treescope
