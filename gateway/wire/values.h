#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"

namespace modelgate {

/// The value of a part as its server gives it, or why there is none.
struct Value {
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NoValue;
  std::string text;  ///< with `ModelRes_Success`: the value text, any bytes; else empty

  bool operator==(const Value&) const = default;
};

/// The value of the part at `position` of a shape.
struct PositionedValue {
  std::uint32_t position = 0;
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;  ///< an element, or all
  Value value;

  bool operator==(const PositionedValue&) const = default;
};

/// Values that an exporter sends while a client watches (topic `upd/S`), and in reply to `sync`.
///
/// `epoch` is of the exporter's process, `shape` the version of the server's shape within it, which
/// the positions belong to; both are in the device's state. All values of a batch have `sequence`,
/// which grows with each batch; `previous` is that of the batch before it. A receiver that has not
/// seen `previous` has missed a batch, and requests what has changed since the last that it has.
struct Batch {
  std::uint64_t epoch = 0;
  std::uint64_t shape = 0;
  std::uint64_t sequence = 0;
  std::uint64_t previous = 0;
  std::int64_t time = 0;        ///< milliseconds of the exporter's real time since 1970-01-01 UTC
  std::uint64_t monotonic = 0;  ///< milliseconds of the exporter's monotonic clock
  std::vector<PositionedValue> values;  ///< empty: a heartbeat

  bool operator==(const Batch&) const = default;
};

/// A CBOR map. See PROTOCOL.md. All but the values takes less than 128 bytes. Numbers above
/// `maxExact` would not be received.
[[nodiscard]] std::string encodeBatch(const Batch& batch);
/// Empty if `payload` is wrong or larger than `maxPayload`. Unknown keys are ignored.
[[nodiscard]] std::optional<Batch> decodeBatch(std::string_view payload);

/// How many bytes `value` takes in an encoded batch, to divide values among batches.
[[nodiscard]] std::size_t encodedSize(const PositionedValue& value);

/// Last values of some of the parts (topic `val/S/k`), retained.
struct ValuePage {
  std::uint64_t epoch = 0;
  std::uint64_t shape = 0;
  std::uint64_t sequence = 0;  ///< no value of the page is older than what this number had seen
  std::vector<PositionedValue> values;

  bool operator==(const ValuePage&) const = default;
};

/// A CBOR map. To be received it must have at most `maxPage` bytes; all but the values take less
/// than 64.
[[nodiscard]] std::string encodeValuePage(const ValuePage& page);
/// Empty if `payload` is wrong or larger than `maxPage`.
[[nodiscard]] std::optional<ValuePage> decodeValuePage(std::string_view payload);

}  // namespace modelgate
