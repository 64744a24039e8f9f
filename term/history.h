#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace treescope {

/// History expansion: what a typed line means if it refers to earlier lines.
///
/// Pure. The line editor expands each accepted line once, before the line is added to
/// the history. Lines may hold any bytes.

struct Expansion {
  /// The line to add to the history; may be empty.
  std::string stored;
  /// The line to run.
  std::string run;

  bool operator==(const Expansion&) const = default;
};

/// The bytes that all "!$" of a line may insert together; if they need more, none is
/// replaced. This is the size of the largest text that a server accepts as a value.
inline constexpr std::size_t maxInsertedBytes = std::size_t{16} << 20;

/// Resolves the references in `line`, which is not empty, to `history`, which is ordered
/// from the oldest line to the newest.
///
/// A line that begins with "!" is one reference: "!!" alone to the newest line, "!-N" to
/// the Nth line before this one, "!N" to line N of the history, counted from 0, and
/// "!text" to the newest line that begins with the text. Anything after a number is
/// ignored. The referenced line is stored and run. If there is none, the line is run as
/// typed and stored without its first "!"; the same holds for "!" alone and for every
/// other line that begins with "!!" or "!-".
///
/// In any other line each "!$" is replaced by the last word of the newest line, or by
/// nothing if that line has no words. Words are separated by white space. A "!$" that
/// results from a replacement is replaced too. The line stays as typed if this would
/// never end or would insert more than `maxInsertedBytes`, and if there is no history.
///
/// Throws std::out_of_range, "vector::_M_range_check", for "!-N" if the history has no
/// Nth line before this one; N = 0 is such a case.
[[nodiscard]] Expansion expandHistory(const std::string& line,
                                      const std::vector<std::string>& history);

}  // namespace treescope
