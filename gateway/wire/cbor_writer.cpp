#include "gateway/wire/cbor_writer.h"

#include <cbor.h>

#include <array>

#include "gateway/wire/utf8.h"

namespace modelgate {

namespace {

/// Appends what one of libcbor's functions encodes: at most 9 bytes.
template <typename Number>
void append(std::string& out, std::size_t (*encode)(Number, unsigned char*, std::size_t),
            Number number) {
  std::array<unsigned char, 9> bytes{};
  const std::size_t size = encode(number, bytes.data(), bytes.size());
  out.append(reinterpret_cast<const char*>(bytes.data()), size);
}

}  // namespace

void CborWriter::number(std::uint64_t value) {
  append(out_, cbor_encode_uint, value);
}

void CborWriter::signedNumber(std::int64_t value) {
  if (value >= 0) {
    number(static_cast<std::uint64_t>(value));
  } else {
    append(out_, cbor_encode_negint, static_cast<std::uint64_t>(-1 - value));
  }
}

void CborWriter::boolean(bool value) {
  append(out_, cbor_encode_bool, value);
}

void CborWriter::text(std::string_view text) {
  append(out_, cbor_encode_string_start, text.size());
  out_ += text;
}

void CborWriter::bytes(std::string_view text) {
  append(out_, cbor_encode_bytestring_start, text.size());
  out_ += text;
}

void CborWriter::string(std::string_view text) {
  if (isUtf8(text)) {
    this->text(text);
  } else {
    bytes(text);
  }
}

void CborWriter::array(std::size_t items) {
  append(out_, cbor_encode_array_start, items);
}

void CborWriter::map(std::size_t pairs) {
  append(out_, cbor_encode_map_start, pairs);
}

std::size_t CborWriter::headSize(std::uint64_t value) {
  return value < 24 ? 1 : value <= 0xFF ? 2 : value <= 0xFFFF ? 3 : value <= 0xFFFFFFFF ? 5 : 9;
}

}  // namespace modelgate
