#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/status_page.h"

namespace ModelSrv::internal {

/// The sections that a part may have in a prefetch reply, as bits.
enum PrefetchSection : std::uint8_t {
  prefetchChildren = 1,  ///< their ids and names
  prefetchElements = 2,  ///< their number and names
  prefetchValue = 4,     ///< the texts of the elements or of the single value
};

/// The approximate maximum size of a prefetch reply in bytes: a pipe can take it in one write.
/// Text that was read but left out because of its length counts too, so that a prefetch of long
/// texts does not delay other clients.
inline constexpr std::size_t prefetchSize = std::size_t{56} * 1024;

/// Writes prefetch replies: a part and those that follow it in the order of a listing (a part,
/// its descendants, its next sibling), each with its children, elements and value. Reuses its
/// memory from call to call. Guarded by the client mutex.
class PrefetchWriter {
 public:
  /// Appends to `reply` the page's handle and epoch, then `part` and at most `parts` - 1 others
  /// of the tree of `root`. `part` must be in that tree. Each part in the reply gets the stamp
  /// of the epoch.
  void write(ModelRoot& root, ModelPart& part, unsigned parts, const StatusPage& page,
             std::vector<std::uint8_t>& reply);

 private:
  /// A position in a node: the index of the child that comes next.
  struct Position {
    const ModelNode* node;
    std::size_t next;
  };

  void findPositions(const ModelRoot& root, const ModelPart& part);
  /// The part after `part` in the order of a listing, null at the end.
  ModelPart* nextInListing(ModelPart& part);
  /// Whether a client may cache anything of the part.
  bool writePart(ModelPart& part, std::vector<std::uint8_t>& reply);
  /// Writes a part without children and elements in one piece: the same bytes as
  /// `writeAnyPart`, but faster. False, and nothing is written, if the value cannot be read.
  bool writeSimplePart(const ModelPart& part, std::vector<std::uint8_t>& reply);
  void writeAnyPart(ModelPart& part, std::vector<std::uint8_t>& reply);

  std::vector<Position> ancestors_;  ///< of the part written last, the root first
  std::string text_;
  std::size_t usedSize_ = 0;  ///< bytes written, and long texts that were left out
};

}  // namespace ModelSrv::internal
