#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/status_page.h"

namespace ModelSrv::internal {

/// What a prefetch tells of a part.
enum PrefetchSection : std::uint8_t {
  prefetchChildren = 1,  ///< their ids and names; none for what has none
  prefetchElements = 2,  ///< how many, and their names
  prefetchValue = 4,     ///< its text or its elements' texts; with prefetchElements only
};

/// How many bytes a prefetch has, more or less: what a pipe holds, so that it goes
/// out in one write. What is read and then left out for its length counts as well,
/// so that a prefetch of long texts keeps nobody waiting.
inline constexpr std::size_t prefetchSize = std::size_t{56} * 1024;

/// Writes prefetch of a tree: all there is to know of a part and of those that
/// follow it in the order in which a listing meets them (a part, what is below it,
/// its next sibling). What has been written counts as told in the page's present
/// epoch. With the client mutex held; keeps its room from call to call.
class PrefetchWriter {
 public:
  /// Appends to `reply` where the page lies and its epoch, then `part` and up to
  /// `parts` - 1 others below `root`. `part` hangs below `root` or is it.
  void write(ModelRoot& root, ModelPart& part, unsigned parts, const StatusPage& page,
             std::vector<std::uint8_t>& reply);

 private:
  /// A node and which of its children comes next.
  struct Position {
    const ModelNode* node;
    std::size_t next;
  };

  void findPositions(const ModelRoot& root, const ModelPart& part);
  /// The part that a listing meets after `part`, null at the end.
  ModelPart* following(ModelPart& part);
  void writePart(ModelPart& part, std::vector<std::uint8_t>& reply);
  /// The same bytes as the other, made in one piece; false, and nothing is written,
  /// where the value has no text.
  bool writePlainPart(const ModelPart& part, std::vector<std::uint8_t>& reply);
  void writeAnyPart(ModelPart& part, std::vector<std::uint8_t>& reply);

  /// The nodes above the part that was written last, outermost first.
  std::vector<Position> above_;
  std::string text_;
  std::size_t spent_ = 0;  ///< bytes that were written, or read in vain
};

}  // namespace ModelSrv::internal
