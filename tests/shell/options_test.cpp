#include "shell/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace treescope {
namespace {

struct OptionsCase {
  std::vector<std::string> words;
  int mode;
  const char* text;
  bool force = false;
};

TEST(ParseOptions, SetsModeTextAndFlag) {
  const std::vector<OptionsCase> cases = {
      {{}, 0, ""},
      {{"-h"}, 3, ""},
      {{"--help"}, 3, ""},
      {{"-ah"}, 3, "", true},
      {{"-ha"}, 3, ""},
      {{"-c"}, 0, ""},
      {{"-f"}, 0, ""},
      {{"-cf"}, 0, ""},
      {{"-x"}, 0, ""},
      {{"-cx", "cmd"}, 0, ""},
      {{"-ax"}, 0, ""},
      {{"--verbose"}, 0, ""},
      {{"--", "-"}, 0, ""},
      {{"plain", "c", ""}, 0, ""},
      {{"-f", "/missing"}, 2, "/missing"},
      {{"-c", "exit"}, 1, "exit"},
      {{"--command", "ls"}, 1, "ls"},
      {{"--file", "x"}, 2, "x"},
      {{"-cf", "x"}, 1, "x"},
      {{"-aaf", "x"}, 2, "x", true},
      {{"-c", "a", "-f", "b"}, 2, "b"},
      {{"-c", "-f"}, 1, "-f"},
      {{"-c", "a", "-f"}, 1, "a"},
      {{"-c", "a", "-af", "b"}, 1, "a", true},
      {{"-c", "a", "-h"}, 3, "a"},
      {{"-c", ""}, 1, ""},
  };
  for (const OptionsCase& given : cases) {
    std::vector<std::string> words = given.words;
    words.insert(words.begin(), "treescope");
    std::vector<char*> argv;
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    forceLoadFlag = false;
    int mode = 0;
    std::string text;
    parseOptions(static_cast<int>(argv.size()), argv.data(), mode, text);
    const std::string arguments = testing::PrintToString(given.words);
    EXPECT_EQ(mode, given.mode) << arguments;
    EXPECT_EQ(text, given.text) << arguments;
    EXPECT_EQ(forceLoadFlag, given.force) << arguments;
  }
  forceLoadFlag = false;
}

}  // namespace
}  // namespace treescope
