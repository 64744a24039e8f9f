#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <random>
#include <string_view>

#include "tests/support/scratch_directory.h"
#include "tests/terminal/terminal_test.h"

// Whatever is typed, the shell keeps running, and ends on `exit`.

namespace terminal_test {
namespace {

/// A sanitized build takes several times as long for each key.
constexpr std::size_t keyCount = test_support::sanitized ? 100'000 : 1'000'000;

/// TREESCOPE_SEED, if set, repeats a run.
std::uint64_t seed() {
  const char* const given = std::getenv("TREESCOPE_SEED");
  return given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
}

/// Random keys without those that raise a signal, begin a system command ("$"), end the
/// shell or access a file. For the last two, at least one letter of each such command is
/// left out: "exit", "quit", "q", "to", "from", "cmdfrom" and "help".
class Keys {
 public:
  explicit Keys(std::uint64_t start) : random_(start) {
    constexpr std::string_view leftOut = "\003\032\034$qtfh";
    for (int byte = 0; byte < 256; ++byte) {
      if (leftOut.find(static_cast<char>(byte)) == std::string_view::npos) {
        bytes_ += static_cast<char>(byte);
      }
    }
  }

  std::string next() {
    constexpr std::uint64_t kinds = 64;
    const std::uint64_t dice = random_();
    const auto choice = static_cast<std::size_t>(dice / kinds);
    const std::uint64_t kind = dice % kinds;
    if (kind == 0) {
      return lines_[choice % lines_.size()];
    }
    // Empties the line now and then, since recalled lines grow.
    if (kind == 1) {
      return keys::end + keys::ctrl('W');
    }
    return kind < 16 ? special_[choice % special_.size()]
                     : std::string(1, bytes_[choice % bytes_.size()]);
  }

 private:
  static inline const std::array<std::string, 12> special_{
      keys::up,     keys::down,   keys::left, keys::right,    keys::home,      keys::end,
      keys::insert, keys::pageUp, keys::del,  keys::pageDown, keys::backspace, keys::tab};
  static inline const std::array<std::string, 10> lines_{
      "pwd\r", "ls\r", "cd ", "!!\r", "!-2\r", "!3\r", "!-0\r", "du;ls -m\r", "ls -r ", "\r"};

  std::mt19937_64 random_;
  std::string bytes_;
};

using RandomKeys = TerminalTest;

TEST_F(RandomKeys, NeitherEndNorBlockTheShell) {
  const std::uint64_t start = seed();
  SCOPED_TRACE("TREESCOPE_SEED=" + std::to_string(start));
  RecordProperty("seed", std::to_string(start));
  Keys keys(start);
  const test_support::ScratchDirectory empty;
  this->start({.directory = empty.path()});
  shell().discardOutput();
  for (std::size_t typed = 0; typed < keyCount;) {
    std::string some;
    for (; some.size() < 16384 && typed < keyCount; ++typed) {
      some += keys.next();
    }
    ASSERT_TRUE(type(some)) << "after " << typed << " keys";
  }
  // Leaves a listing that has stopped, or an incomplete escape sequence.
  ASSERT_TRUE(type("qqq" + keys::returnKey));
}

}  // namespace
}  // namespace terminal_test
