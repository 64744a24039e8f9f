#include "shell/command_table.h"

#include <string_view>

#include "shell/results.h"

namespace treescope {

const std::array<CommandRow, commandRows> commandTable = {{
    {"exit", 0, 0},  {"tab", 2, 0},       {"pwd", 0, 0},     {"ls", 1, 15},     {"cd", 1, 0},
    {"set", 2, 12},  {"setport", 3, 0},   {"str", 2, 0},     {"get", 1, 0},     {"eu", 1, 7},
    {"du", 1, 1},    {"from", 2, 0},      {"to", 2, 0},      {"cat", 1, 4},     {"con", 2, 0},
    {"dis", 2, 0},   {"load", 1, 0},      {"save", 1, 0},    {"rn", 2, 0},      {"rm", 1, 0},
    {"mkdir", 1, 0}, {"cmdfrom", 1, 0},   {"convert", 2, 0}, {"quit", 0, 0},    {"q", 0, 0},
    {"end", 0, 0},   {"terminate", 0, 0}, {"bt", 0, 15},     {"history", 1, 0}, {"help", 0, 0},
    {"", 2, 0},
}};

int commandCode(const char* text) {
  const std::string_view wanted = text;
  if (!wanted.ends_with(' ')) {
    return noCommand;
  }
  const std::string_view name = wanted.substr(0, wanted.size() - 1);
  int code = 0;
  while (code < commandRows && name != commandTable[static_cast<std::size_t>(code)].name) {
    ++code;
  }
  return code;
}

namespace {

unsigned optionBit(char letter) {
  switch (letter) {
    case 'c':
      return optionCount;
    case 'l':
      return optionLong;
    case 'm':
      return optionMore;
    case 'r':
      return optionRecursive;
    default:
      return 0;
  }
}

}  // namespace

int checkArguments(std::vector<std::string>& args, unsigned& options, unsigned maxArgs,
                   unsigned optionMask) {
  options = 0;
  std::erase_if(args, [&options](const std::string& word) {
    if (!word.starts_with('-')) {
      return false;
    }
    for (const char letter : word) {
      options |= optionBit(letter);
    }
    return true;
  });
  const bool accepted = args.size() <= maxArgs && (options & ~optionMask) == 0;
  return accepted ? result::success : result::optionError;
}

}  // namespace treescope
