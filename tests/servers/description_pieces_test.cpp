#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "servers/description_parser.h"

// A description that is read in pieces, wherever it is cut.

namespace modelsrvd {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr std::string_view sampleDescription = R"({"name": "Model_device", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 2, "name": "label", "type": "text", "value": "two words"}]}]})";

std::string parseError(std::string_view text) {
  const auto result = parseTreeDescription(text);
  const auto* error = std::get_if<Error>(&result);
  return error == nullptr ? "parsed" : error->text;
}

/// Returns `text` in pieces of `size` bytes, each in memory of its own.
NextPiece inPieces(std::string_view text, std::size_t size) {
  return [text, size, piece = std::string()]() mutable -> std::string_view {
    piece = text.substr(0, size);
    text.remove_prefix(piece.size());
    return piece;
  };
}

TEST(DescriptionPieces, ParsesPiecesOfAnySize) {
  for (const std::size_t size : {1U, 2U, 7U, 64U, 4096U}) {
    const auto result = parseTreeDescription(inPieces(sampleDescription, size));
    const auto* tree = std::get_if<TreeDescription>(&result);
    ASSERT_NE(tree, nullptr) << size;
    ASSERT_EQ(tree->entries.size(), 2U) << size;
    EXPECT_EQ(tree->entries[1].name, "label");
    EXPECT_THAT(tree->entries[1].values, ElementsAre(EntryValue(std::string("two words"))));
  }
}

TEST(DescriptionPieces, ReportsTheSamePositionForAnyPieces) {
  for (const std::string_view text :
       {std::string_view(""), std::string_view("\n\n"), std::string_view("{\n \"children\": [}\n"),
        std::string_view("{\"children\":\n12\n,]"), std::string_view("{\n\n\n\"a"),
        std::string_view("{\"children\": []}\n\0{", 19),
        std::string_view("{\"children\": []}\0\0", 18),
        std::string_view("{\"children\": [\n\n1.\n"), std::string_view("{\n\"id\n\n")}) {
    const std::string whole = parseError(text);
    for (std::size_t size = 1; size <= text.size(); ++size) {
      const auto result = parseTreeDescription(inPieces(text, size));
      const auto* error = std::get_if<Error>(&result);
      ASSERT_NE(error, nullptr);
      EXPECT_EQ(error->text, whole) << size;
    }
  }
  EXPECT_THAT(parseError("{\n\n\n\"a"), StartsWith("line 4, column 3: "));
  EXPECT_THAT(parseError("{\n\"id\n\n"), StartsWith("line 2, column 4: "));
  EXPECT_THAT(parseError("\n\n"), StartsWith("line 3, column 1: "));
}

}  // namespace
}  // namespace modelsrvd
