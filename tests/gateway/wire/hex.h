#pragma once

#include <cctype>
#include <string>
#include <string_view>

namespace wire_tests {

/// The bytes that `hex` has two digits each of; what is no digit separates.
inline std::string fromHex(std::string_view hex) {
  std::string bytes;
  std::string digits;
  for (const char c : hex) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
      digits += c;
    }
    if (digits.size() == 2) {
      bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
      digits.clear();
    }
  }
  return bytes;
}

inline std::string toHex(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    hex += digits[static_cast<unsigned char>(c) >> 4U];
    hex += digits[static_cast<unsigned char>(c) & 0xFU];
  }
  return hex;
}

/// Whether `decode` refuses each beginning of `whole`, and takes that itself.
template <typename Decode>
bool refusesEachCut(std::string_view whole, const Decode& decode) {
  for (std::size_t size = 0; size < whole.size(); ++size) {
    // A copy, so that a sanitizer finds what reads beyond the end.
    if (decode(std::string(whole.substr(0, size)))) {
      return false;
    }
  }
  return decode(std::string(whole));
}

}  // namespace wire_tests
