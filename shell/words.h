#pragma once

#include <string>
#include <vector>

/// How a line becomes commands and a command becomes words.
///
/// Bytes in, bytes out: no encoding is assumed, the blank (0x20) is the only
/// white space, nothing is escaped. Any thread may call; nothing can fail but for
/// want of memory. Texts are zero-terminated and not null.

namespace treescope {

/// Removes the leading blanks.
void trimLeft(std::string& s);

/// Removes the trailing blanks.
void trimRight(std::string& s);

/// Appends the pieces of `text` between separators to `out`. Empty pieces are
/// left out except the last one, which is always there: "a;;b" gives "a", "b";
/// "a;" gives "a", ""; "" gives "". Quotes do not protect a separator.
void splitAtSeparator(const char* text, std::vector<std::string>& out, char separator);

/// Appends the words of `command` to `words`. A word that begins with a double
/// quote reaches to the next double quote and may hold blanks or be empty; what
/// follows that quote without a blank is the next word. A quote elsewhere, or
/// without a partner, is part of its word.
void splitWords(const char* command, std::vector<std::string>& words);

}  // namespace treescope
