/// Shapes of servers.
///
/// Input: one byte that says where the pages are cut, then the pages. A shape that is accepted is
/// encoded to pages that give the same shape, and where the pages are cut means nothing.
///
/// Corpus: `tree`, `indefinite`, `unknown_fields`, `twice`, `names`.

#include <string>
#include <vector>

#include "gateway/wire/shape.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace modelgate;
using fuzz::require;

std::vector<std::string> cut(std::string_view bytes, std::uint8_t where) {
  const std::size_t first = bytes.size() * where / 255;
  return {std::string(bytes.substr(0, first)), std::string(bytes.substr(first))};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t where = input.u8();
  const std::string_view bytes = input.restAsText();
  std::string error;
  const auto shape = decodeShape(cut(bytes, where), error);
  require(shape.has_value() == error.empty(), "an error has a reason");
  std::string ignored;
  require(decodeShape(std::vector{std::string(bytes)}, ignored) == shape,
          "where the pages are cut means nothing");
  if (!shape) {
    return 0;
  }
  const std::vector<std::string> pages = encodeShape(*shape);
  require(!pages.empty(), "what is decoded can be encoded");
  require(decodeShape(pages, error) == shape, "what is encoded is decoded to the same");
  require(encodeShape(*decodeShape(pages, error)) == pages, "a shape always has the same pages");
  return 0;
}
