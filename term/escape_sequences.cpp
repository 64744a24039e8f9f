#include "term/escape_sequences.h"

#include <array>
#include <charconv>
#include <limits>

namespace treescope {

namespace {

struct AttributeSequences {
  std::uint32_t bit;
  const char* on;
  const char* off;
};

constexpr std::array<AttributeSequences, 4> attributeSequences = {{
    {attributeReverse, "\033[7m", "\033[27m"},
    {attributeBold, "\033[1m", "\033[22m"},
    {attributeBlink, "\033[5m", "\033[25m"},
    {attributeUnderline, "\033[4m", "\033[24m"},
}};

// Indexed by the colour; the first entry also ends any other colour.
constexpr std::array<const char*, 5> colourSequences = {"\033[39m", "\033[37m", "\033[31m",
                                                        "\033[32m", "\033[34m"};

}  // namespace

void appendCursorToColumn(std::string& text, int column) {
  // Enough for the sign and the digits of any int.
  std::array<char, std::numeric_limits<int>::digits10 + 2> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), column).ptr;
  text += "\033[";
  text.append(digits.data(), end);
  text += 'G';
}

void appendStyleOn(std::string& text, Style style) {
  for (const AttributeSequences& attribute : attributeSequences) {
    if ((style.attributes & attribute.bit) != 0) {
      text += attribute.on;
    }
  }
  if (style.colour < colourSequences.size()) {
    text += colourSequences[style.colour];
  }
}

void appendStyleOff(std::string& text, Style style) {
  if (style.attributes == 0 && style.colour == colourDefault) {
    return;
  }
  for (const AttributeSequences& attribute : attributeSequences) {
    if ((style.attributes & attribute.bit) != 0) {
      text += attribute.off;
    }
  }
  if (style.colour != colourDefault) {
    text += colourSequences[colourDefault];
  }
}

std::string cursorToColumn(int column) {
  std::string sequence;
  appendCursorToColumn(sequence, column);
  return sequence;
}

std::string styleOn(Style style) {
  std::string sequences;
  appendStyleOn(sequences, style);
  return sequences;
}

std::string styleOff(Style style) {
  std::string sequences;
  appendStyleOff(sequences, style);
  return sequences;
}

}  // namespace treescope
