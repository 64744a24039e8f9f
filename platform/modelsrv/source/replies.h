#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/model_part.h"

/// Replies of a server: encoding and decoding of their payloads, without any transport. The
/// layout is specified in platform/PROTOCOL.md, section 10.
namespace ModelSrv::internal {

/// Writes a list of ids or names, preceded by their number, one entry at a time.
class CountedReply {
 public:
  /// Appends to `payload`, which must outlive this object.
  explicit CountedReply(std::vector<std::uint8_t>& payload);
  void addId(ModelPartId id);
  /// `name` must have at most `ModelName_Max` bytes.
  void addName(std::string_view name);
  /// Whether all entries fit into a frame. Entries after the first that does not fit are
  /// ignored.
  [[nodiscard]] bool fits() const { return fits_; }

 private:
  void countOne();

  std::vector<std::uint8_t>& payload_;
  std::size_t start_;
  std::uint16_t count_ = 0;
  bool fits_ = true;
};

/// The code of a reply with that result. A result of the connection becomes that of
/// `ModelRes_Unreachable`, except `ModelRes_OutcomeUnknown`.
std::uint16_t encodeResult(ModelRes result);

/// The result for the code of a reply; `ModelRes_Protocol` for a code that no server sends.
ModelRes decodeResult(std::uint16_t code);

/// The same for the reply to a load, which may also say that the outcome is unknown.
ModelRes decodeStoreResult(std::uint16_t code);

/// Reads names and their number, and replaces the content of `names`. False if bytes are missing.
[[nodiscard]] bool readNames(EvtSrv::internal::PayloadReader& payload,
                             std::vector<std::string>& names);

// Each function decodes a whole payload. It returns false if bytes are missing or left over;
// the output is then unchanged.

[[nodiscard]] bool decodeIds(EvtSrv::internal::PayloadReader payload,
                             std::vector<ModelPartId>& ids);
[[nodiscard]] bool decodeNames(EvtSrv::internal::PayloadReader payload,
                               std::vector<std::string>& names);
[[nodiscard]] bool decodeSum(EvtSrv::internal::PayloadReader payload, std::uint16_t& sum);

}  // namespace ModelSrv::internal
