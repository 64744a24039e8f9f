#pragma once

#include <string>
#include <vector>

/// Splits a line into commands and a command into words.
///
/// Texts are bytes: no encoding is assumed, the space (0x20) is the only white
/// space, and there is no escape character. Pure functions; any thread may call
/// them. They fail only when out of memory. Texts are zero-terminated and not null.

namespace treescope {

/// Removes the leading spaces.
void trimLeft(std::string& s);

/// Removes the trailing spaces.
void trimRight(std::string& s);

/// Appends the pieces of `text` between separators to `out`. Empty pieces are
/// omitted except the last one: "a;;b" becomes "a", "b"; "a;" becomes "a", "";
/// "" becomes "". A separator inside quotes separates, too.
void splitAtSeparator(const char* text, std::vector<std::string>& out, char separator);

/// Appends the words of `command` to `words`. A word that begins with a double
/// quote extends to the next double quote, and may contain spaces or be empty; the
/// next word begins after that quote, with or without a space. A quote inside a
/// word, or an opening quote that is not closed, is an ordinary character.
void splitWords(const char* command, std::vector<std::string>& words);

/// The commands of one line of a script, which ";" separates, without the spaces
/// before each and at the end of the line. With `unquote`, one double quote at the
/// beginning of the line is removed first; two double quotes there make the line empty.
[[nodiscard]] std::vector<std::string> scriptCommands(const char* text, bool unquote);

}  // namespace treescope
