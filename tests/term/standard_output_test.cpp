#include "term/standard_output.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>

#include "tests/support/captured_output.h"
#include "tests/support/system_call_filter.h"

namespace treescope {
namespace {

TEST(WriteAll, EndsIfTheDeviceTakesNothing) {
  std::size_t written = 1;
  int error = 0;
  // A thread of its own, since the filter stays.
  std::thread([&] {
    constexpr std::uint32_t device = 1000;
    test_support::SystemCallFilter filter;
    filter.failIfEqual(SYS_write, 0, device, 0);
    if (filter.install()) {
      errno = 0;
      written = writeAll(device, "text", 4);
      error = errno;
    }
  }).join();
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
