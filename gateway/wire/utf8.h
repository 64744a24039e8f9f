#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace modelgate {

/// The size in bytes of the character that `text`, which is not empty, begins with; 0 if it does
/// not begin with valid UTF-8 (RFC 3629).
[[nodiscard]] std::size_t characterSize(std::string_view text);

[[nodiscard]] bool isUtf8(std::string_view text);

/// `text` with U+FFFD for each byte that is not part of valid UTF-8.
[[nodiscard]] std::string toUtf8(std::string_view text);

}  // namespace modelgate
