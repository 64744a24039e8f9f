#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Texts for people that cross a connection: UTF-8 in one line. A peer may send anything.
namespace ModelSrv::internal {

/// `text` with "?" for each control character and each byte that is not valid UTF-8, and without
/// the characters that do not fit into `maxBytes`.
[[nodiscard]] std::string toLine(std::string_view text, std::size_t maxBytes);

}  // namespace ModelSrv::internal
