#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/part_description.h"

namespace modelgate {

/// A part of a server's tree, without its value.
struct ShapePart {
  unsigned depth = 1;  ///< 1 for a child of the root; at most one more than the part before it
  ModelSrv::ModelPartId id = 0;
  std::string name;  ///< any bytes
  /// As in `ModelSrv::PartDescription`: "node", the name of a type of value, or empty.
  std::string type;
  ModelSrv::ModelPartStatus access = ModelSrv::ModelPartStatus_Void;
  bool subscribable = true;
  unsigned elements = 0;                  ///< of an array; 0 for a single value or a node
  std::vector<std::string> elementNames;  ///< none, or one for each element
  ModelSrv::PartAttributes attributes;

  bool operator==(const ShapePart&) const = default;
};

/// What a server's tree looks like: its parts below the root, a node before its children, in the
/// server's order. The index of a part here is its position, which stands for it in values.
using Shape = std::vector<ShapePart>;

/// The shape as a sequence of CBOR items, one a part, cut into pages of at most `maxPage` bytes.
/// The same shape always has the same pages. Empty if the limits (`wire/limits.h`) do not allow the
/// shape. One empty page for an empty shape.
[[nodiscard]] std::vector<std::string> encodeShape(const Shape& shape);

/// The shape that has these pages; empty, with a line about the reason in `error`, if they are
/// wrong: malformed, too large or too many, ids out of range or used twice below one node, depths
/// that skip a level, children of a part that is no node, more than `ModelSrv::ModelDepth_Max`
/// levels. Unknown trailing fields of a part are ignored. The memory that it takes is
/// bounded by the size of the pages (a part of 4 bytes becomes a `ShapePart`); no recursion.
[[nodiscard]] std::optional<Shape> decodeShape(std::span<const std::string> pages,
                                               std::string& error);

/// The same part by part, for a reader that keeps less of each. Each part is checked before the
/// visitor gets it, which may take it. False, with the reason, if the pages are wrong; the visitor
/// may have got parts by then. `error` is empty if the visitor returned false, which ends it too.
[[nodiscard]] bool visitShape(std::span<const std::string> pages,
                              const std::function<bool(ShapePart& part)>& visitor,
                              std::string& error);

/// The hash of a page: the first 16 bytes of its SHA-256, in 32 lower-case hexadecimal digits.
[[nodiscard]] std::string pageHash(std::string_view page);

}  // namespace modelgate
