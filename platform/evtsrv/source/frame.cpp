#include "evtsrv/source/frame.h"

#include <cstring>

namespace EvtSrv::internal {

namespace {

template <typename Number>
void put(std::uint8_t* out, Number value) {
  std::memcpy(out, &value, sizeof value);
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

std::array<std::uint8_t, FrameHeader::size> encodeEmptyFrame(FrameKind kind, std::uint16_t code) {
  FrameHeader header;
  header.kind = kind;
  header.code = code;
  std::array<std::uint8_t, FrameHeader::size> bytes{};
  encodeHeader(header, bytes.data());
  return bytes;
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
  header.code = readNumber<std::uint16_t>(bytes + 2, header.order);
  header.sequence = readNumber<std::uint32_t>(bytes + 4, header.order);
  header.length = readNumber<std::uint32_t>(bytes + 12, header.order);
  if (header.length > maxPayload) {
    return std::nullopt;
  }
  return header;
}

void PayloadWriter::bytes(std::string_view text) {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(text.data());
  out_.insert(out_.end(), begin, begin + text.size());
}

void PayloadWriter::u16s(std::span<const std::uint16_t> values) {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(values.data());
  out_.insert(out_.end(), begin, begin + values.size_bytes());
}

}  // namespace EvtSrv::internal
