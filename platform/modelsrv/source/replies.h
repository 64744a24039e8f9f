#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/model_part.h"

/// What a server answers, and what it tells on its own: values in, a payload out,
/// and back. The layout is written down in platform/PROTOCOL.md.
namespace ModelSrv::internal {

/// Writes a reply that is a count and as many entries, one at a time: the count
/// is put in front as they come.
class CountedReply {
 public:
  /// Appends to `payload`, which it does not own.
  explicit CountedReply(std::vector<std::uint8_t>& payload);
  void addId(ModelPartId id);
  /// A name has at most `ModelName_Max` bytes.
  void addName(std::string_view name);
  /// Whether all that was added fits a frame; past that nothing more is added.
  [[nodiscard]] bool fits() const { return fits_; }

 private:
  void countOne();

  std::vector<std::uint8_t>& payload_;
  std::size_t start_;
  std::uint16_t count_ = 0;
  bool fits_ = true;
};

/// The result that a reply's code stands for; `ModelRes_Protocol` for a number
/// that no server sends.
ModelRes decodeResult(std::uint16_t code);

// Each reads a whole payload; false where bytes are missing or too many, and the
// output is then left alone.

[[nodiscard]] bool decodeIds(EvtSrv::internal::PayloadReader payload,
                             std::vector<ModelPartId>& ids);
[[nodiscard]] bool decodeNames(EvtSrv::internal::PayloadReader payload,
                               std::vector<std::string>& names);
[[nodiscard]] bool decodeSum(EvtSrv::internal::PayloadReader payload, std::uint16_t& sum);

/// What an update tells.
struct Update {
  std::vector<ModelPartId> chain;
  ModelPartIndex index = ModelPartIndex_All;
};

/// Appends the payload of an update: the chain from the root to `part`, the mark
/// of its end, the index.
void encodeUpdate(const ModelPart& part, ModelPartIndex index, std::vector<std::uint8_t>& payload);

[[nodiscard]] bool decodeUpdate(EvtSrv::internal::PayloadReader payload, Update& update);

}  // namespace ModelSrv::internal
