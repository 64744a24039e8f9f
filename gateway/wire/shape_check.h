#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "gateway/wire/shape.h"

namespace modelgate {

/// Checks the parts of a shape one after the other, against the limits and against each other.
class ShapeCheck {
 public:
  /// Whether `part` may follow. If not, why is in `error`, and the check is over.
  [[nodiscard]] bool add(const ShapePart& part, std::string& error);
  /// Whether the shape may end here.
  [[nodiscard]] bool finish(std::string& error);

 private:
  /// The ids of the parts below one node.
  struct Level {
    std::vector<ModelSrv::ModelPartId> ids;
    bool isAscending = true;
  };

  const char* findError(const ShapePart& part);
  /// Ends the levels deeper than `depth`; false if an id was used twice in one of them.
  bool closeBelow(std::size_t depth);

  std::vector<Level> levels_;  ///< at 0 that of depth 1; kept for their memory
  std::size_t depth_ = 0;      ///< of the part before
  bool isNode_ = true;         ///< whether that may have children
  std::size_t count_ = 0;
  std::size_t texts_ = 0;  ///< the names of elements and the choices so far
};

}  // namespace modelgate
