#include "shell/words.h"

#include <algorithm>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_input.h"

namespace {

std::size_t lettersIn(const std::vector<std::string>& words) {
  std::size_t count = 0;
  for (const std::string& word : words) {
    count += static_cast<std::size_t>(
        std::count_if(word.begin(), word.end(), [](char c) { return c != ' ' && c != '"'; }));
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const std::string line(input.restText().substr(0, 4096));
  std::vector<std::string> pieces;
  treescope::splitAtSeparator(line.c_str(), pieces, ';');
  require(!pieces.empty());
  for (const std::string& piece : pieces) {
    require(piece.find(';') == std::string::npos);
    std::vector<std::string> words;
    treescope::splitWords(piece.c_str(), words);
    // Nothing but blanks and quotes is lost.
    require(lettersIn(words) == lettersIn({piece}));
  }
  return 0;
}
