/// Fuzzes what a user types: the splitting of lines into commands and of commands
/// into words, options, paths, the program's own options, and patterns.
///
/// Input: one line. Splitting loses and adds no bytes, a resolved path resolves to
/// itself, and no option remains among the arguments.
///
/// Corpus: `command`, `quoted`, `lone_quote`, `commands`, `options`,
/// `program_options`, `path_up`, `absolute_path`, `pattern`.

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
  require(line.ends_with(trimmed) && !trimmed.starts_with(' '), "removes only leading spaces");
  const std::string before = trimmed;
  trimRight(trimmed);
  require(before.starts_with(trimmed) && !trimmed.ends_with(' '), "removes only trailing spaces");
  require(without(trimmed, " ") == without(line, " "), "removes nothing but spaces");
}

void checkPieces(const std::string& line, char separator) {
  Words pieces;
  splitAtSeparator(line.c_str(), pieces, separator);
  require(!pieces.empty(), "there is a last piece");
  require(joined(pieces) == without(line, std::string(1, separator)), "removes only separators");
  require(std::find(pieces.begin(), pieces.end() - 1, "") == pieces.end() - 1,
          "only the last piece may be empty");
}

Words checkWords(const std::string& line) {
  Words words;
  splitWords(line.c_str(), words);
  require(without(joined(words), " \"") == without(line, " \""),
          "removes nothing but spaces and quotes");
  // A quoted word is read back as it is, unless it contains a quote.
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
  require(again == expected, "a quoted word is unchanged");
  return words;
}

void checkOptions(const Words& words) {
  for (const CommandRow& row : commandTable) {
    Words args = words;
    unsigned options = ~0U;
    const int code = checkArguments(args, options, row.maxArgs, row.optionMask);
    require(std::none_of(args.begin(), args.end(),
                         [](const std::string& word) { return word.starts_with('-'); }),
            "no option remains among the arguments");
    require((code == result::success) ==
                (args.size() <= row.maxArgs && (options & ~row.optionMask) == 0),
            "accepts exactly what the row allows");
  }
}

void checkProgramOptions(Words words) {
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
  require(mode >= run_mode::interactive && mode <= run_mode::help, "the mode is valid");
  require(text.empty() || std::find(kept.begin(), kept.end(), text) != kept.end(),
          "the text of an option is one of the words");
}

void checkPath(const std::string& typed, const std::vector<std::string>& base) {
  std::string path = typed;
  resolvePath(path, base);
  require(path.empty() || path.front() == '/', "a resolved path begins with a slash");
  require(!path.ends_with('/') && path.find("//") == std::string::npos,
          "it has no empty components");
  require((path + '/').find("/../") == std::string::npos, "it contains no parent component");
  std::string again = path;
  resolvePath(again, path.empty() ? std::vector<std::string>{} : base);
  require(again == path, "it resolves to itself from any location");
}

void checkPattern(const std::string& line) {
  WordNode root;
  root.add("cpu").add("load");
  WordNode& net = root.add("net");
  net.add("a.b");
  net.add("");
  const Words all{"cpu", "net", "cpu/load", "net/a.b", "net/"};
  for (const std::string& path : matchingPaths(root, line.c_str())) {
    require(std::find(all.begin(), all.end(), path) != all.end(), "every match is a known path");
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
  checkProgramOptions(words);
  checkPath(line, {});
  checkPath(line, {"cpu", "load"});
  checkPattern(line);
  return 0;
}
