#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/watch.h"

/// The events of watches: encoding and decoding of their payloads. The layout is specified in
/// platform/PROTOCOL.md, section 10.
namespace ModelSrv::internal {

inline constexpr std::uint16_t watchValueEvent = 4;
inline constexpr std::uint16_t watchStructureEvent = 5;

/// The number that a client gives a watch. It is never used again on the same connection.
using WatchNumber = std::uint32_t;

/// What a structure event says.
enum class WatchStructure : std::uint16_t { begin = 1, complete = 2, added = 3, removed = 4 };

/// A value as an event carries it. The text is encoded after everything else.
struct WatchedValue {
  ModelPartIndex index = ModelPartIndex_All;
  ModelRes result = ModelRes_NoValue;
  std::int64_t timeNs = 0;
  std::uint32_t changes = 0;
  std::string_view text;
};

/// Appends the id chain of a part in the tree of a root, with its length.
void encodeChainOf(const ModelPart& part, std::vector<std::uint8_t>& payload);

void encodeWatchValue(WatchNumber number, const ModelPart& part, const WatchedValue& value,
                      std::vector<std::uint8_t>& payload);
/// Of a kind without further content.
void encodeWatchMark(WatchNumber number, WatchStructure kind, std::vector<std::uint8_t>& payload);
void encodeWatchAdded(WatchNumber number, const ModelPart& part, bool isNode,
                      const WatchedValue& value, std::vector<std::uint8_t>& payload);
void encodeWatchRemoved(WatchNumber number, const std::vector<ModelPartId>& chain,
                        std::vector<std::uint8_t>& payload);

/// A decoded event. The views of `event` point into the payload and into `chain`.
struct DecodedWatchEvent {
  WatchNumber number = 0;
  WatchEvent event;
  std::vector<ModelPartId> chain;
  /// Of `added`: whether the value of the part follows as an event of its own.
  bool hasValue = false;
};

/// Decodes a whole payload. False if it is malformed or of a kind that is not known; `decoded` is
/// undefined then. Reuses the capacity of the chain.
[[nodiscard]] bool decodeWatchEvent(std::uint16_t type, EvtSrv::internal::PayloadReader payload,
                                    DecodedWatchEvent& decoded);

}  // namespace ModelSrv::internal
