#include "term/history.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace treescope {

namespace {

constexpr std::string_view lastWordMark = "!$";

// White space as formatted extraction knows it.
constexpr std::string_view whiteSpace = " \t\n\v\f\r";

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

std::string_view lastWordOf(std::string_view line) {
  const std::size_t last = line.find_last_not_of(whiteSpace);
  if (last == std::string_view::npos) {
    return {};
  }
  const std::string_view trimmed = line.substr(0, last + 1);
  // Without white space in front, npos + 1 is the beginning.
  return trimmed.substr(trimmed.find_last_of(whiteSpace) + 1);
}

/// `line` with every mark replaced by `word`, the first one first; nothing where
/// that does not come to an end within the bound.
///
/// `done` never holds a mark and `pending`, which is reversed, is what follows it:
/// the next mark to be replaced is always the one that the next byte completes.
std::optional<std::string> replaceMarks(const std::string& line, std::string_view word) {
  if (word.find(lastWordMark) != std::string_view::npos) {
    return std::nullopt;
  }
  std::string done;
  std::string pending(line.rbegin(), line.rend());
  std::size_t inserted = 0;
  while (!pending.empty()) {
    const char next = pending.back();
    pending.pop_back();
    if (next != '$' || !done.ends_with('!')) {
      done.push_back(next);
      continue;
    }
    done.pop_back();
    inserted += word.size();
    if (inserted > maxInsertedBytes) {
      return std::nullopt;
    }
    pending.append(word.rbegin(), word.rend());
  }
  return done;
}

Expansion expandMarks(const std::string& line, const std::vector<std::string>& history) {
  if (history.empty() || line.find(lastWordMark) == std::string::npos) {
    return {line, line};
  }
  const std::string replaced = replaceMarks(line, lastWordOf(history.back())).value_or(line);
  return {replaced, replaced};
}

// The largest number stands for all that are larger (strtol(3)), and no history is
// as long as that.
std::size_t leadingNumber(const char* digits) {
  return static_cast<std::size_t>(std::strtol(digits, nullptr, 10));
}

const std::string& lineBefore(const std::vector<std::string>& history, std::size_t distance) {
  if (distance == 0 || distance > history.size()) {
    throw std::out_of_range("vector::_M_range_check");
  }
  return history[history.size() - distance];
}

/// The line that `reference`, a line without its first "!", is about; null where
/// there is none.
const std::string* referredLine(const std::string& reference,
                                const std::vector<std::string>& history) {
  if (reference.empty()) {
    return nullptr;
  }
  switch (reference[0]) {
    case '!':
      return reference.size() == 1 && !history.empty() ? &history.back() : nullptr;
    case '-':
      if (reference.size() == 1 || !isDigit(reference[1])) {
        return nullptr;
      }
      return &lineBefore(history, leadingNumber(&reference[1]));
    default:
      break;
  }
  if (isDigit(reference[0])) {
    const std::size_t index = leadingNumber(reference.c_str());
    return index < history.size() ? &history[index] : nullptr;
  }
  const auto found = std::find_if(
      history.rbegin(), history.rend(),
      [&reference](const std::string& candidate) { return candidate.starts_with(reference); });
  return found == history.rend() ? nullptr : &*found;
}

}  // namespace

Expansion expandHistory(const std::string& line, const std::vector<std::string>& history) {
  if (!line.starts_with('!')) {
    return expandMarks(line, history);
  }
  const std::string reference = line.substr(1);
  if (const std::string* found = referredLine(reference, history)) {
    return {*found, *found};
  }
  return {reference, line};
}

}  // namespace treescope
