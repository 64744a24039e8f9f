#include "shell/options.h"

#include <array>
#include <string_view>
#include <utility>

namespace treescope {

std::atomic<bool> forceLoadFlag{false};

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 3> longForms = {
    {{"--command", "c"}, {"--file", "f"}, {"--help", "h"}}};

// The option letters of `word`; empty for a word that is to be ignored.
std::string_view lettersOf(std::string_view word) {
  if (word.size() < 2 || word.front() != '-') {
    return {};
  }
  for (const auto& [longForm, letter] : longForms) {
    if (word == longForm) {
      return letter;
    }
  }
  const std::string_view letters = word.substr(1);
  return letters.find_first_not_of("acfh") == std::string_view::npos ? letters : std::string_view{};
}

}  // namespace

void parseOptions(int argc, char* argv[], int& mode, std::string& text) {
  for (int index = 1; index < argc; ++index) {
    for (const char letter : lettersOf(argv[index])) {
      if (letter == 'a') {
        forceLoadFlag = true;
      } else if (letter == 'h') {
        mode = run_mode::help;
      } else if (index + 1 < argc) {
        mode = letter == 'c' ? run_mode::commandString : run_mode::commandFile;
        text = argv[++index];
      }
      if (mode != run_mode::interactive) {
        break;
      }
    }
  }
}

}  // namespace treescope
