#pragma once

#include <cstdint>
#include <string_view>

namespace modelgate {

/// A number for the name of a type, so that a part needs a byte for it: the same for the same name.
/// Of unknown names 200 have a number; further ones have that of the empty name. Any thread. Throws
/// std::bad_alloc.
[[nodiscard]] std::uint8_t typeNumber(std::string_view name);
/// The name. Valid for good.
[[nodiscard]] std::string_view typeText(std::uint8_t number) noexcept;

}  // namespace modelgate
