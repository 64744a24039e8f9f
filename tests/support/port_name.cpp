#include "tests/support/port_name.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

namespace test_support {

std::string portNameMark() {
  return "t" + std::to_string(::getpid()) + "_";
}

std::string uniquePortName(std::string_view prefix) {
  static std::atomic<unsigned> count{0};
  std::string name(prefix);
  name += portNameMark() + std::to_string(count.fetch_add(1) + 1);
  const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
  if (test != nullptr) {
    name += "_" + std::string(test->name());
  }
  for (char& letter : name) {
    // The names of parameterised tests contain a "/".
    if (letter == '/') {
      letter = '_';
    }
  }
  constexpr std::size_t longest = 150;
  return name.substr(0, longest);
}

std::string mailboxPath(std::string_view port) {
  return "/tmp/" + std::string(port) + ".fifo";
}

}  // namespace test_support
