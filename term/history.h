#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace treescope {

/// What a typed line means when it refers to lines before it.
///
/// Pure: the line editor asks once for each line that is accepted, on the reading
/// thread, before the line joins the history. Lines may hold any bytes.

struct Expansion {
  /// What the history keeps; may be empty.
  std::string stored;
  /// What is run.
  std::string run;

  bool operator==(const Expansion&) const = default;
};

/// How many bytes "!$" may insert into one line; what wants more is not replaced.
/// It is the largest text that a server takes as a value.
inline constexpr std::size_t maxInsertedBytes = std::size_t{16} << 20;

/// Resolves the references of `line`, which is not empty, to `history`, oldest line
/// first.
///
/// A line that begins with "!" is one reference: "!!" alone to the newest line,
/// "!-N" to the Nth before this one, "!N" to the one that the history numbers N,
/// from 0, "!text" to the newest that begins with the text. What follows a number is
/// ignored. The line found is stored and run. Where none is found the line is run as
/// it stands and stored without its first "!"; so are "!" itself and whatever else
/// begins with "!!" or "!-".
///
/// In any other line each "!$" is replaced by the last word of the newest line, which
/// white space separates; nothing takes its place where that line has no words. One
/// that comes into being by the replacing is replaced too. The line stays as typed
/// where that would never end, or not before `maxInsertedBytes`, and where there is
/// no history.
///
/// Throws std::out_of_range, "vector::_M_range_check", for "!-N" where the history
/// has no Nth line, 0 included.
[[nodiscard]] Expansion expandHistory(const std::string& line,
                                      const std::vector<std::string>& history);

}  // namespace treescope
