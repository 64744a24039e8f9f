#include "tools/name_pattern.h"

#include <algorithm>
#include <charconv>

#include "tools/utf8.h"

namespace treectl {

namespace {

/// Whether a byte is a letter, a digit or "_": a table, since a listing asks for very many bytes.
struct WordBytes {
  constexpr WordBytes() {
    for (unsigned byte = 0; byte < 256; ++byte) {
      isOne[byte] = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                    (byte >= '0' && byte <= '9') || byte == '_';
    }
  }
  bool isOne[256]{};
};

bool isWordByte(char byte) {
  static constexpr WordBytes bytes;
  return bytes.isOne[static_cast<unsigned char>(byte)];
}

/// A decimal number of at most five digits, as ids and indices are.
std::optional<unsigned> decimal(std::string_view text) {
  constexpr std::size_t maxDigits = 5;
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, number);
  if (text.empty() || text.size() > maxDigits || code != std::errc{} || stop != end) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

std::optional<unsigned> hexDigit(char byte) {
  constexpr std::string_view lower = "0123456789abcdef";
  constexpr std::string_view upper = "0123456789ABCDEF";
  std::size_t digit = lower.find(byte);
  if (digit == std::string_view::npos) {
    digit = upper.find(byte);
  }
  if (digit == std::string_view::npos) {
    return std::nullopt;
  }
  return static_cast<unsigned>(digit);
}

void appendHexEscape(std::string& out, char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  out += "\\x";
  out += digits[value >> 4U];
  out += digits[value & 0xFU];
}

NamePattern::NamePattern(std::string_view text) : isAnyDepth_(text == "**") {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '*' || text[i] == '?') {
      add(text[i], text[i] == '*' ? Kind::any : Kind::one);
      continue;
    }
    if (text[i] != '\\' || i + 1 == text.size()) {
      add(text[i], Kind::byte);
      continue;
    }
    ++i;
    const auto high = text[i] == 'x' && i + 2 < text.size() ? hexDigit(text[i + 1]) : std::nullopt;
    const auto low = high ? hexDigit(text[i + 2]) : std::nullopt;
    if (low) {
      add(static_cast<char>(*high << 4U | *low), Kind::byte);
      i += 2;
    } else {
      add(text[i], Kind::byte);
    }
  }
  findNumbers(text);
}

void NamePattern::add(char byte, Kind kind) {
  bytes_ += byte;
  kinds_.push_back(kind);
  hasWildcards_ = hasWildcards_ || kind != Kind::byte;
}

void NamePattern::findNumbers(std::string_view text) {
  number_ = decimal(text);
  if (text.starts_with('#')) {
    childId_ = decimal(text.substr(1));
  }
}

bool NamePattern::matchesAt(std::size_t at, char byte) const {
  return kinds_[at] == Kind::one || (kinds_[at] == Kind::byte && bytes_[at] == byte);
}

bool NamePattern::matches(std::string_view name) const {
  if (!hasWildcards_) {
    return name == bytes_;
  }
  // After a mismatch the last `*` takes one byte more. That takes at most the product of both
  // lengths, however many there are.
  std::size_t at = 0;
  std::size_t read = 0;
  std::size_t afterAny = std::string_view::npos;
  std::size_t resume = 0;
  while (read < name.size()) {
    if (at < bytes_.size() && kinds_[at] == Kind::any) {
      afterAny = ++at;
      resume = read;
    } else if (at < bytes_.size() && matchesAt(at, name[read])) {
      ++at;
      ++read;
    } else if (afterAny != std::string_view::npos) {
      at = afterAny;
      read = ++resume;
    } else {
      return false;
    }
  }
  while (at < bytes_.size() && kinds_[at] == Kind::any) {
    ++at;
  }
  return at == bytes_.size();
}

void appendEscapedName(std::string& out, std::string_view name) {
  constexpr std::string_view meaningful = "\\/[]*?";
  if (name.starts_with('#')) {
    out += '\\';
  }
  // Most names are letters, digits and "_".
  if (std::all_of(name.begin(), name.end(), isWordByte)) {
    out += name;
    return;
  }
  for (std::size_t i = 0; i < name.size();) {
    const std::size_t length = utf8Length(name.substr(i));
    if (length == 0 || isControlByte(name[i])) {
      appendHexEscape(out, name[i]);
      ++i;
      continue;
    }
    if (meaningful.find(name[i]) != std::string_view::npos) {
      out += '\\';
    }
    out += name.substr(i, length);
    i += length;
  }
}

}  // namespace treectl
