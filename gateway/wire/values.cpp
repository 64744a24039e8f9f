#include "gateway/wire/values.h"

#include <array>

#include "gateway/wire/cbor_reader.h"
#include "gateway/wire/cbor_writer.h"
#include "gateway/wire/limits.h"
#include "gateway/wire/results.h"

namespace modelgate {

namespace {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes_Success;

constexpr ModelPartIndex maxIndex = ModelPartIndex_All - 1;

void writeValues(CborWriter& writer, const std::vector<PositionedValue>& values) {
  writer.text("values");
  writer.array(values.size());
  for (const PositionedValue& value : values) {
    writer.array(value.index == ModelPartIndex_All ? 2 : 3);
    writer.number(value.position);
    if (value.value.result == ModelRes_Success) {
      writer.string(value.value.text);
    } else {
      writer.number(value.value.result);
    }
    if (value.index != ModelPartIndex_All) {
      writer.number(value.index);
    }
  }
}

bool readValue(CborReader& reader, Value& value) {
  if (reader.kind() == CborReader::Kind::unsignedNumber) {
    std::uint64_t number = 0;
    if (!reader.readUnsigned(number, maxExact) || number == ModelRes_Success) {
      return reader.fail();
    }
    value.result = resultOf(number);
    return true;
  }
  std::string_view text;
  if (!reader.readString(text, maxPayload)) {
    return false;
  }
  value.result = ModelRes_Success;
  value.text = text;
  return true;
}

bool readPositioned(CborReader& reader, PositionedValue& value) {
  CborItems items;
  std::uint64_t position = 0;
  if (!reader.enterArray(items) || !reader.next(items) ||
      !reader.readUnsigned(position, maxParts - 1) || !reader.next(items) ||
      !readValue(reader, value.value)) {
    return reader.fail();
  }
  value.position = static_cast<std::uint32_t>(position);
  if (reader.next(items)) {
    std::uint64_t index = 0;
    if (!reader.readUnsigned(index, maxIndex)) {
      return false;
    }
    value.index = static_cast<ModelPartIndex>(index);
  }
  return reader.skipRest(items);
}

bool readValues(CborReader& reader, std::vector<PositionedValue>& values) {
  CborItems items;
  if (!reader.enterArray(items)) {
    return false;
  }
  // A value takes at least three bytes, so the input bounds the count.
  while (reader.next(items)) {
    if (!readPositioned(reader, values.emplace_back())) {
      return false;
    }
  }
  return !reader.hasFailed();
}

/// The keys of a batch; a page of values has some of them.
constexpr std::array<std::string_view, 7> keys{"epoch", "shape", "seq",   "prev",
                                               "time",  "mono",  "values"};
constexpr unsigned keysOfBatch = 0b111'1111;
constexpr unsigned keysOfPage = 0b100'0111;

bool readEntry(CborReader& reader, std::size_t key, Batch& batch) {
  switch (key) {
    case 0:
      return reader.readUnsigned(batch.epoch, maxExact);
    case 1:
      return reader.readUnsigned(batch.shape, maxExact);
    case 2:
      return reader.readUnsigned(batch.sequence, maxExact);
    case 3:
      return reader.readUnsigned(batch.previous, maxExact);
    case 4:
      return reader.readSigned(batch.time, static_cast<std::int64_t>(maxExact));
    case 5:
      return reader.readUnsigned(batch.monotonic, maxExact);
    default:
      return readValues(reader, batch.values);
  }
}

/// Reads a map that has each key of `required`, which are bits, exactly once.
std::optional<Batch> readMap(std::string_view payload, unsigned required) {
  CborReader reader(payload);
  CborItems pairs;
  if (!reader.enterMap(pairs)) {
    return std::nullopt;
  }
  Batch batch;
  unsigned missing = required;
  while (reader.next(pairs)) {
    std::string_view name;
    if (!reader.readText(name, payload.size())) {
      return std::nullopt;
    }
    std::size_t key = 0;
    while (key < keys.size() && (keys[key] != name || (required >> key & 1U) == 0)) {
      ++key;
    }
    if (key == keys.size()) {
      reader.skip();
      continue;
    }
    if ((missing >> key & 1U) == 0 || !readEntry(reader, key, batch)) {
      return std::nullopt;
    }
    missing &= ~(1U << key);
  }
  if (missing != 0 || !reader.isAtEnd()) {
    return std::nullopt;
  }
  return batch;
}

std::size_t estimate(const std::vector<PositionedValue>& values) {
  std::size_t size = 128;
  for (const PositionedValue& value : values) {
    size += encodedSize(value);
  }
  return size;
}

}  // namespace

std::string encodeBatch(const Batch& batch) {
  std::string out;
  out.reserve(estimate(batch.values));
  CborWriter writer(out);
  writer.map(keys.size());
  writer.text("epoch");
  writer.number(batch.epoch);
  writer.text("shape");
  writer.number(batch.shape);
  writer.text("seq");
  writer.number(batch.sequence);
  writer.text("prev");
  writer.number(batch.previous);
  writer.text("time");
  writer.signedNumber(batch.time);
  writer.text("mono");
  writer.number(batch.monotonic);
  writeValues(writer, batch.values);
  return out;
}

std::optional<Batch> decodeBatch(std::string_view payload) {
  return payload.size() > maxPayload ? std::nullopt : readMap(payload, keysOfBatch);
}

std::size_t encodedSize(const PositionedValue& value) {
  const bool isText = value.value.result == ModelRes_Success;
  const std::size_t content =
      isText ? CborWriter::headSize(value.value.text.size()) + value.value.text.size()
             : CborWriter::headSize(value.value.result);
  const std::size_t index =
      value.index == ModelPartIndex_All ? 0 : CborWriter::headSize(value.index);
  return 1 + CborWriter::headSize(value.position) + content + index;
}

std::string encodeValuePage(const ValuePage& page) {
  std::string out;
  out.reserve(estimate(page.values));
  CborWriter writer(out);
  writer.map(4);
  writer.text("epoch");
  writer.number(page.epoch);
  writer.text("shape");
  writer.number(page.shape);
  writer.text("seq");
  writer.number(page.sequence);
  writeValues(writer, page.values);
  return out;
}

std::optional<ValuePage> decodeValuePage(std::string_view payload) {
  if (payload.size() > maxPage) {
    return std::nullopt;
  }
  std::optional<Batch> read = readMap(payload, keysOfPage);
  if (!read) {
    return std::nullopt;
  }
  return ValuePage{read->epoch, read->shape, read->sequence, std::move(read->values)};
}

}  // namespace modelgate
