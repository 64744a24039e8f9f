#include "term/escape_sequences.h"

#include <array>

#include "term/styled_text.h"

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

// Indexed by the colour; the first entry is what leaves any other colour.
constexpr std::array<const char*, 5> colourSequences = {"\033[39m", "\033[37m", "\033[31m",
                                                        "\033[32m", "\033[34m"};

}  // namespace

std::string cursorToColumn(int column) {
  return "\033[" + std::to_string(column) + "G";
}

std::string styleOn(std::uint32_t attributes, std::uint32_t colour) {
  std::string sequences;
  for (const AttributeSequences& attribute : attributeSequences) {
    if ((attributes & attribute.bit) != 0) {
      sequences += attribute.on;
    }
  }
  if (colour < colourSequences.size()) {
    sequences += colourSequences[colour];
  }
  return sequences;
}

std::string styleOff(std::uint32_t attributes, std::uint32_t colour) {
  std::string sequences;
  for (const AttributeSequences& attribute : attributeSequences) {
    if ((attributes & attribute.bit) != 0) {
      sequences += attribute.off;
    }
  }
  if (colour != colourDefault) {
    sequences += colourSequences[colourDefault];
  }
  return sequences;
}

}  // namespace treescope
