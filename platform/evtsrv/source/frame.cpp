#include "evtsrv/source/frame.h"

#include <cstring>

namespace EvtSrv::internal {

namespace {

template <typename Number>
void put(std::uint8_t* out, Number value) {
  std::memcpy(out, &value, sizeof value);
}

template <typename Number>
Number get(const std::uint8_t* in, ByteOrder order) {
  Number value = 0;
  if (order == nativeOrder) {
    std::memcpy(&value, in, sizeof value);
    return value;
  }
  auto* bytes = reinterpret_cast<std::uint8_t*>(&value);
  for (std::size_t i = 0; i < sizeof value; ++i) {
    bytes[i] = in[sizeof value - 1 - i];
  }
  return value;
}

template <typename Number>
void append(std::vector<std::uint8_t>& out, Number value) {
  const std::size_t end = out.size();
  out.resize(end + sizeof value);
  put(out.data() + end, value);
}

}  // namespace

void encodeHeader(const FrameHeader& header, std::uint8_t* out) {
  out[0] = static_cast<std::uint8_t>(nativeOrder);
  out[1] = static_cast<std::uint8_t>(header.kind);
  put(out + 2, header.code);
  put(out + 4, header.sequence);
  put(out + 8, std::uint32_t{0});
  put(out + 12, header.length);
}

std::optional<FrameHeader> decodeHeader(const std::uint8_t* bytes) {
  if (bytes[0] > static_cast<std::uint8_t>(ByteOrder::mostFirst) ||
      bytes[1] < static_cast<std::uint8_t>(FrameKind::request) ||
      bytes[1] > static_cast<std::uint8_t>(FrameKind::welcome)) {
    return std::nullopt;
  }
  FrameHeader header;
  header.order = static_cast<ByteOrder>(bytes[0]);
  header.kind = static_cast<FrameKind>(bytes[1]);
  header.code = get<std::uint16_t>(bytes + 2, header.order);
  header.sequence = get<std::uint32_t>(bytes + 4, header.order);
  header.length = get<std::uint32_t>(bytes + 12, header.order);
  if (header.length > maxPayload) {
    return std::nullopt;
  }
  return header;
}

void PayloadWriter::u8(std::uint8_t value) {
  out_.push_back(value);
}

void PayloadWriter::u16(std::uint16_t value) {
  append(out_, value);
}

void PayloadWriter::u32(std::uint32_t value) {
  append(out_, value);
}

void PayloadWriter::bytes(std::string_view text) {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(text.data());
  out_.insert(out_.end(), begin, begin + text.size());
}

void PayloadWriter::u16s(std::span<const std::uint16_t> values) {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(values.data());
  out_.insert(out_.end(), begin, begin + values.size_bytes());
}

const std::uint8_t* PayloadReader::take(std::size_t count) {
  if (!ok_ || count > left()) {
    ok_ = false;
    position_ = bytes_.size();
    return nullptr;
  }
  const std::uint8_t* begin = bytes_.data() + position_;
  position_ += count;
  return begin;
}

std::uint8_t PayloadReader::u8() {
  const std::uint8_t* in = take(1);
  return in == nullptr ? std::uint8_t{0} : *in;
}

std::uint16_t PayloadReader::u16() {
  const std::uint8_t* in = take(sizeof(std::uint16_t));
  return in == nullptr ? std::uint16_t{0} : get<std::uint16_t>(in, order_);
}

std::uint32_t PayloadReader::u32() {
  const std::uint8_t* in = take(sizeof(std::uint32_t));
  return in == nullptr ? std::uint32_t{0} : get<std::uint32_t>(in, order_);
}

std::string_view PayloadReader::bytes(std::size_t count) {
  // Nothing from an empty payload is no failure though it has no address.
  if (count == 0) {
    return {};
  }
  const std::uint8_t* in = take(count);
  return in == nullptr ? std::string_view{}
                       : std::string_view(reinterpret_cast<const char*>(in), count);
}

std::string_view PayloadReader::rest() {
  return bytes(left());
}

}  // namespace EvtSrv::internal
