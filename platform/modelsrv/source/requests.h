#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/id_chain.h"

/// Requests of a client: encoding and decoding of their payloads, without any transport. The
/// layout is specified in platform/PROTOCOL.md, section 10.

/// The operations that a client can request: `ENTRY(operation, number, fields)`, in ascending
/// order of the numbers in a request frame, from 1. Each request begins with the part's id
/// chain, then come the `RequestFields` of the operation. `TreeSession` has a handler of the
/// name of the operation.
///
/// To add an operation: add a line here, and the handler.
#define MODELSRV_OPERATIONS(ENTRY)                         \
  ENTRY(childIds, 1, chainOnly)                            \
  ENTRY(childNames, 2, chainOnly)                          \
  ENTRY(elementSum, 3, chainOnly)                          \
  ENTRY(elementNames, 4, chainOnly)                        \
  ENTRY(save, 5, indexField)                               \
  ENTRY(load, 6, indexField | flagField | textField)       \
  ENTRY(subscribe, 7, indexField)                          \
  ENTRY(unsubscribe, 8, indexField)                        \
  ENTRY(prefetch, 9, indexField)                           \
  ENTRY(describe, 10, chainOnly)                           \
  ENTRY(renew, 11, indexField)                             \
  ENTRY(watch, 12, numberField | indexField | watchFields) \
  ENTRY(unwatch, 13, numberField)                          \
  ENTRY(readTree, 14, positionField)

namespace ModelSrv::internal {

// The arguments of the table are single tokens.
// NOLINTBEGIN(bugprone-macro-parentheses)
enum class Operation : std::uint16_t {
#define MODELSRV_OPERATION(operation, number, fields) operation = number,
  MODELSRV_OPERATIONS(MODELSRV_OPERATION)
#undef MODELSRV_OPERATION
};

#define MODELSRV_COUNT_OPERATION(operation, number, fields) +1
inline constexpr std::size_t operationCount = 0 MODELSRV_OPERATIONS(MODELSRV_COUNT_OPERATION);
#undef MODELSRV_COUNT_OPERATION
// NOLINTEND(bugprone-macro-parentheses)

/// The position of `operation` in `MODELSRV_OPERATIONS`.
constexpr std::size_t positionOf(Operation operation) {
  return static_cast<std::size_t>(operation) - 1;
}

/// The fields of a request after its chain. They appear in this order.
enum RequestFields : std::uint8_t {
  chainOnly = 0,
  numberField = 1,     ///< 32 bits
  indexField = 2,      ///< 16 bits
  flagField = 4,       ///< 8 bits, 0 or 1
  watchFields = 8,     ///< 8 bits, a set of `WatchFlags`; 32 bits, the period in milliseconds
  positionField = 16,  ///< 8 bits, 0 or 1; if that is 1, a chain
  textField = 32,      ///< the rest of the payload
};

enum WatchFlags : std::uint8_t {
  watchSubtree = 1,
  watchMayBeAbsent = 2,  ///< if the part is absent, the watch waits for it
};

/// A request to send. The caller owns the chain and the text.
struct RequestView {
  Operation operation = Operation::childIds;
  ChainView chain;
  ModelPartIndex index = ModelPartIndex_All;  ///< for a prefetch: the number of parts
  bool flag = false;
  std::string_view text = {};
  std::uint32_t number = 0;
  std::uint8_t watchFlags = 0;
  std::uint32_t period = 0;
  bool continues = false;  ///< whether there is a position
  ChainView position = {};
};

/// A decoded request. The text points into the payload.
struct Request {
  Operation operation = Operation::childIds;
  std::vector<ModelPartId> chain;
  ModelPartIndex index = ModelPartIndex_All;  ///< for a prefetch: the number of parts
  bool flag = false;
  std::string_view text = {};
  std::uint32_t number = 0;
  std::uint8_t watchFlags = 0;
  std::uint32_t period = 0;
  bool continues = false;
  std::vector<ModelPartId> position = {};

  /// The same request. Valid as long as this object.
  [[nodiscard]] RequestView view() const {
    return {operation, chain, index, flag, text, number, watchFlags, period, continues, position};
  }
};

// Chains in payloads: a length and the ids, from the root down.

/// Reads a chain and reuses the capacity of `chain`; false if it is malformed.
[[nodiscard]] bool readChain(EvtSrv::internal::PayloadReader& payload,
                             std::vector<ModelPartId>& chain);
/// The number of ids of a part in the tree of a root.
[[nodiscard]] std::size_t chainLength(const ModelPart& part);
/// Appends these ids, without the length.
void appendChain(const ModelPart& part, std::vector<std::uint8_t>& payload);

/// Appends the payload of `request`. Its chain must have at most `ModelDepth_Max` ids.
void encodeRequest(const RequestView& request, std::vector<std::uint8_t>& payload);

/// Decodes a whole payload. False if there is no such operation, if bytes are missing or left
/// over, or if a field is out of range; the content of `request` is undefined then. Reuses the
/// capacity of the chain.
[[nodiscard]] bool decodeRequest(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                                 Request& request);

}  // namespace ModelSrv::internal
