#include "term/history.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace treescope {

namespace {

constexpr std::string_view lastWordReference = "!$";

// White space as the extraction operator of streams defines it.
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
  // If no white space precedes the word, npos + 1 is 0.
  return trimmed.substr(trimmed.find_last_of(whiteSpace) + 1);
}

/// `line` with every "!$" replaced by `word`, from the left; no value if that does not
/// end within the bound.
///
/// `done` never contains a "!$", and `pending` is the rest of the line, reversed. The
/// next "!$" is therefore always completed by the next byte of `pending`.
std::optional<std::string> replaceLastWordReferences(const std::string& line,
                                                     std::string_view word) {
  if (word.find(lastWordReference) != std::string_view::npos) {
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

Expansion expandLastWordReferences(const std::string& line,
                                   const std::vector<std::string>& history) {
  if (history.empty() || line.find(lastWordReference) == std::string::npos) {
    return {line, line};
  }
  const std::string replaced =
      replaceLastWordReferences(line, lastWordOf(history.back())).value_or(line);
  return {replaced, replaced};
}

// strtol(3) returns its largest number for all that are larger, and no history is that
// long.
std::size_t leadingNumber(const char* digits) {
  return static_cast<std::size_t>(std::strtol(digits, nullptr, 10));
}

const std::string& lineBefore(const std::vector<std::string>& history, std::size_t distance) {
  if (distance == 0 || distance > history.size()) {
    throw std::out_of_range("vector::_M_range_check");
  }
  return history[history.size() - distance];
}

/// The line that `reference`, a line without its first "!", refers to; null if there is
/// none.
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
    return expandLastWordReferences(line, history);
  }
  const std::string reference = line.substr(1);
  if (const std::string* found = referredLine(reference, history)) {
    return {*found, *found};
  }
  return {reference, line};
}

}  // namespace treescope
