#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/id_chain.h"

/// What a client asks a server: values in, a request's payload out, and back.
/// The layout is written down in platform/PROTOCOL.md.
namespace ModelSrv::internal {

/// The operations' numbers in a request frame.
enum class Operation : std::uint16_t {
  childIds = 1,      ///< chain
  childNames = 2,    ///< chain
  elementSum = 3,    ///< chain
  elementNames = 4,  ///< chain
  save = 5,          ///< chain, index
  load = 6,          ///< chain, index, flag, text
  subscribe = 7,     ///< chain, index
  unsubscribe = 8,   ///< chain, index
  prefetch = 9,      ///< chain, how many parts (in the index's place)
};

/// A request that is to be sent; chain and text are the caller's.
struct RequestView {
  Operation operation = Operation::childIds;
  ChainView chain;
  ModelPartIndex index = ModelPartIndex_All;  ///< or a prefetch's number of parts
  bool flag = false;
  std::string_view text = {};
};

/// A request that was read; the text is the reader's.
struct Request {
  Operation operation = Operation::childIds;
  std::vector<ModelPartId> chain;
  ModelPartIndex index = ModelPartIndex_All;  ///< or a prefetch's number of parts
  bool flag = false;
  std::string_view text = {};

  /// The same, as long as this lives.
  [[nodiscard]] RequestView view() const { return {operation, chain, index, flag, text}; }
};

/// Appends the payload of `request`; a chain above `ModelDepth_Max` must not come
/// here.
void encodeRequest(const RequestView& request, std::vector<std::uint8_t>& payload);

/// Reads a whole payload. False for an operation that does not exist, for bytes
/// that are missing or too many and for fields out of their range; `request` then
/// holds anything. Its chain keeps its room from call to call.
[[nodiscard]] bool decodeRequest(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                                 Request& request);

}  // namespace ModelSrv::internal
