#include "servers/recorded_address.h"

#include <charconv>
#include <cstddef>

namespace modelsrvd {

namespace {

/// The value of a hexadecimal digit.
std::optional<unsigned> hexDigit(char character) {
  unsigned digit = 0;
  const bool isDigit = std::from_chars(&character, &character + 1, digit, 16).ec == std::errc{};
  return isDigit ? std::optional(digit) : std::nullopt;
}

/// Reads up to one of the bytes `ends` that has no backslash before it, and removes backslashes.
std::string readEscaped(std::string_view text, std::size_t& at, std::string_view ends) {
  std::string bytes;
  for (; at < text.size() && ends.find(text[at]) == std::string_view::npos; ++at) {
    if (text[at] != '\\' || at + 1 == text.size()) {
      bytes += text[at];
      continue;
    }
    ++at;
    const auto high =
        text[at] == 'x' && at + 2 < text.size() ? hexDigit(text[at + 1]) : std::nullopt;
    const auto low = high ? hexDigit(text[at + 2]) : std::nullopt;
    bytes += low ? static_cast<char>(*high << 4U | *low) : text[at];
    at += low ? 2 : 0;
  }
  return bytes;
}

}  // namespace

Result<RecordedAddress> parseRecordedAddress(std::string_view text) {
  RecordedAddress address;
  for (std::size_t at = 0; at < text.size() && !address.element;) {
    if (text[at] == '/') {
      ++at;
      continue;
    }
    if (text[at] == '[') {
      address.element = readEscaped(text, ++at, "]");
      if (at + 1 != text.size()) {
        return Error{"expected \"]\" at the end of the address"};
      }
      break;
    }
    RecordedName& name = address.names.emplace_back();
    const std::size_t begin = at;
    name.name = readEscaped(text, at, "/[");
    if (text[begin] == '#') {
      unsigned id = 0;
      const std::string_view digits = text.substr(begin + 1, at - begin - 1);
      const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), id);
      if (read.ec != std::errc{} || read.ptr != digits.data() + digits.size() ||
          id > ModelSrv::ModelPartId_Max) {
        return Error{"expected an id after \"#\" in the address"};
      }
      name = {{}, static_cast<ModelSrv::ModelPartId>(id)};
    }
  }
  return address;
}

}  // namespace modelsrvd
