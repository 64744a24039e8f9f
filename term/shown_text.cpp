#include "term/shown_text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "term/standard_output.h"

namespace treescope {

namespace {

constexpr char replacement = '?';

constexpr std::size_t wordSize = sizeof(std::uint64_t);

/// A word of eight equal bytes.
constexpr std::uint64_t everyByte(std::uint8_t byte) {
  return byte * (~std::uint64_t{0} / 0xFFU);
}

/// Whether the eight bytes at `text` are all printable ASCII.
bool arePrintable(const char* text) {
  std::uint64_t word = 0;
  std::memcpy(&word, text, sizeof word);
  // In the highest bit of each byte: it is not ASCII, is 127, or is below 32. A carry or
  // borrow into another byte comes only from a byte that is found itself.
  const std::uint64_t found = word | (word + everyByte(1)) | ((word - everyByte(0x20)) & ~word);
  return (found & everyByte(0x80)) == 0;
}

bool isAsciiControl(unsigned char byte) {
  return (byte != 0 && byte < 0x20 && byte != '\t' && byte != '\n') || byte == 0x7F;
}

bool isBetween(unsigned char byte, unsigned low, unsigned high) {
  return byte >= low && byte <= high;
}

/// The length of the valid UTF-8 sequence of several bytes with which `text` begins, 0 if
/// there is none.
std::size_t sequenceLength(std::string_view text) {
  const auto byteAt = [text](std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  const unsigned first = byteAt(0);
  std::size_t length = 0;
  // The limits of the second byte exclude overlong forms, surrogates and characters above
  // U+10FFFF.
  unsigned low = 0x80;
  unsigned high = 0xBF;
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    low = first == 0xE0 ? 0xA0 : low;
    high = first == 0xED ? 0x9F : high;
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    low = first == 0xF0 ? 0x90 : low;
    high = first == 0xF4 ? 0x8F : high;
  } else {
    return 0;
  }
  bool valid = isBetween(static_cast<unsigned char>(byteAt(1)), low, high);
  for (std::size_t index = 2; index < length; ++index) {
    valid = valid && isBetween(static_cast<unsigned char>(byteAt(index)), 0x80, 0xBF);
  }
  return valid ? length : 0;
}

/// A control character in a text.
struct Control {
  std::size_t offset;  ///< the size of the text if there is none
  std::size_t length;
};

Control nextControl(std::string_view text, std::size_t offset) {
  while (offset < text.size()) {
    if (text.size() - offset >= wordSize && arePrintable(text.data() + offset)) {
      offset += wordSize;
      continue;
    }
    const auto byte = static_cast<unsigned char>(text[offset]);
    if (byte < 0x80) {
      if (isAsciiControl(byte)) {
        return {offset, 1};
      }
      ++offset;
      continue;
    }
    const std::size_t length = sequenceLength(text.substr(offset));
    const auto second = length == 2 ? static_cast<unsigned char>(text[offset + 1]) : 0xFFU;
    if ((length == 0 && byte < 0xA0) || (byte == 0xC2 && second < 0xA0)) {
      return {offset, std::max<std::size_t>(length, 1)};
    }
    offset += std::max<std::size_t>(length, 1);
  }
  return {text.size(), 0};
}

}  // namespace

std::size_t findControl(std::string_view text) {
  return nextControl(text, 0).offset;
}

void appendPrintable(std::string& line, std::string_view text) {
  std::size_t begin = 0;
  for (;;) {
    const Control control = nextControl(text, begin);
    line.append(text, begin, control.offset - begin);
    if (control.offset == text.size()) {
      return;
    }
    line += replacement;
    begin = control.offset + control.length;
  }
}

std::size_t printableSize(std::string_view text) {
  std::size_t size = text.size();
  Control control = nextControl(text, 0);
  while (control.offset != text.size()) {
    size -= control.length - 1;
    control = nextControl(text, control.offset + control.length);
  }
  return size;
}

void appendShown(std::string& line, std::string_view text) {
  if (outputIsTerminal()) {
    appendPrintable(line, text);
  } else {
    line += text;
  }
}

std::size_t shownSize(std::string_view text) {
  return outputIsTerminal() ? printableSize(text) : text.size();
}

std::string shownText(std::string text) {
  if (!outputIsTerminal() || findControl(text) == text.size()) {
    return text;
  }
  std::string shown;
  appendPrintable(shown, text);
  return shown;
}

}  // namespace treescope
