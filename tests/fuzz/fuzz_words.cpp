/// What a person types: lines into commands, commands into words, words into
/// options and paths, the program's own switches, and patterns.
///
/// Input: one line. Splitting loses and invents nothing, a resolved path is one
/// that resolves to itself, options end up nowhere else.
///
/// Corpus: `command`, `quoted`, `lone_quote`, `commands`, `options`, `switches`,
/// `path_up`, `absolute_path`, `pattern`.

#include <algorithm>
#include <string>

#include "shell/command_table.h"
#include "shell/options.h"
#include "shell/paths.h"
#include "shell/results.h"
#include "shell/word_tree.h"
#include "shell/words.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace treescope;
using fuzz::require;
using Words = std::vector<std::string>;

std::string without(std::string text, std::string_view dropped) {
  std::erase_if(text, [dropped](char c) { return dropped.find(c) != std::string_view::npos; });
  return text;
}

std::string joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) {
    text += word;
  }
  return text;
}

void checkTrim(const std::string& line) {
  std::string trimmed = line;
  trimLeft(trimmed);
  require(line.ends_with(trimmed) && !trimmed.starts_with(' '), "only leading blanks go");
  const std::string before = trimmed;
  trimRight(trimmed);
  require(before.starts_with(trimmed) && !trimmed.ends_with(' '), "only trailing blanks go");
  require(without(trimmed, " ") == without(line, " "), "nothing but blanks goes");
}

void checkPieces(const std::string& line, char separator) {
  Words pieces;
  splitAtSeparator(line.c_str(), pieces, separator);
  require(!pieces.empty(), "there is a last piece");
  require(joined(pieces) == without(line, std::string(1, separator)), "only separators go");
  require(std::find(pieces.begin(), pieces.end() - 1, "") == pieces.end() - 1,
          "only the last piece may be empty");
}

Words checkWords(const std::string& line) {
  Words words;
  splitWords(line.c_str(), words);
  require(without(joined(words), " \"") == without(line, " \""),
          "nothing but blanks and quotes goes");
  // Words in quotes come back, those that hold a quote themselves aside.
  std::string quoted;
  Words expected;
  for (const std::string& word : words) {
    if (word.find('"') == std::string::npos) {
      quoted += '"' + word + "\" ";
      expected.push_back(word);
    }
  }
  Words again;
  splitWords(quoted.c_str(), again);
  require(again == expected, "a word in quotes stays what it is");
  return words;
}

void checkOptions(const Words& words) {
  for (const CommandRow& row : commandTable) {
    Words args = words;
    unsigned options = ~0U;
    const int verdict = checkArguments(args, options, row.maxArgs, row.optionMask);
    require(std::none_of(args.begin(), args.end(),
                         [](const std::string& word) { return word.starts_with('-'); }),
            "no option stays among the arguments");
    require((verdict == result::success) ==
                (args.size() <= row.maxArgs && (options & ~row.optionMask) == 0),
            "what the table allows is accepted, and nothing else");
  }
}

void checkSwitches(Words words) {
  Words kept = words;
  words.insert(words.begin(), "treescope");
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  const auto count = static_cast<int>(argv.size());
  argv.push_back(nullptr);
  int mode = run_mode::interactive;
  std::string text;
  parseOptions(count, argv.data(), mode, text);
  forceLoadFlag = false;
  require(mode >= run_mode::interactive && mode <= run_mode::help, "the mode is one");
  require(text.empty() || std::find(kept.begin(), kept.end(), text) != kept.end(),
          "a switch's text is a word");
}

void checkPath(const std::string& typed, const std::vector<std::string>& base) {
  std::string path = typed;
  resolvePath(path, base);
  require(path.empty() || path.front() == '/', "a resolved path begins at the top");
  require(!path.ends_with('/') && path.find("//") == std::string::npos,
          "it has no empty components");
  require((path + '/').find("/../") == std::string::npos, "it goes down only");
  std::string again = path;
  resolvePath(again, path.empty() ? std::vector<std::string>{} : base);
  require(again == path, "it leads to itself from everywhere");
}

void checkPattern(const std::string& line) {
  WordNode root;
  root.add("cpu").add("load");
  WordNode& net = root.add("net");
  net.add("a.b");
  net.add("");
  const Words all{"cpu", "net", "cpu/load", "net/a.b", "net/"};
  for (const std::string& path : matchingPaths(root, line.c_str())) {
    require(std::find(all.begin(), all.end(), path) != all.end(), "what matches is there");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::Input(data, size).restAsText();
  const std::string line(bytes.substr(0, bytes.find('\0')));
  checkTrim(line);
  for (const char separator : {';', '/', '\n'}) {
    checkPieces(line, separator);
  }
  const Words words = checkWords(line);
  checkOptions(words);
  checkSwitches(words);
  checkPath(line, {});
  checkPath(line, {"cpu", "load"});
  checkPattern(line);
  return 0;
}
