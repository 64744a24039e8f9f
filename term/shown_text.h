#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text that comes from a server or from a file name, as it is printed.
///
/// Such text may hold any bytes, and a terminal would act on some of them. So on a
/// terminal each control character is shown as "?": the bytes 1 to 8, 11 to 31 and 127,
/// the characters U+0080 to U+009F, and the bytes 0x80 to 0x9F where they are not part of
/// valid UTF-8. Zero bytes, tabs and line feeds are left to the caller. In a pipe or file
/// the text is unchanged.
///
/// Every printed text of that kind passes through here, and widths are those of the
/// result. Any thread. May throw std::bad_alloc; text without a control character costs
/// no allocation of its own.

namespace treescope {

/// Appends `text` to `line` as standard output shows it.
void appendShown(std::string& line, std::string_view text);

/// The number of bytes that `appendShown` appends.
[[nodiscard]] std::size_t shownSize(std::string_view text);

/// `text` as standard output shows it.
[[nodiscard]] std::string shownText(std::string text);

// The same for a terminal, whatever standard output is.

void appendPrintable(std::string& line, std::string_view text);
[[nodiscard]] std::size_t printableSize(std::string_view text);

/// The offset of the first control character in `text`; its size if there is none.
[[nodiscard]] std::size_t findControl(std::string_view text);

}  // namespace treescope
