#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

/// The codec of the frames that are sent over a connection's pipes. It works on bytes
/// and knows no descriptor. platform/PROTOCOL.md describes the layout.
namespace EvtSrv::internal {

/// Which byte of a number comes first. A frame says which order its sender uses.
enum class ByteOrder : std::uint8_t { leastFirst = 0, mostFirst = 1 };

inline constexpr ByteOrder nativeOrder =
    std::endian::native == std::endian::little ? ByteOrder::leastFirst : ByteOrder::mostFirst;

enum class FrameKind : std::uint8_t {
  request = 1,  ///< client to server; `code` is the operation
  reply = 2,    ///< server to client; `code` is the result, `sequence` the request's
  event = 3,    ///< server to client, on the event pipe; `code` is the event type
  welcome = 4,  ///< server to client, first on the reply pipe; `code` 0, or the reason of a refusal
};

struct FrameHeader {
  static constexpr std::size_t size = 16;

  ByteOrder order = nativeOrder;
  FrameKind kind = FrameKind::request;
  std::uint16_t code = 0;
  std::uint32_t sequence = 0;
  std::uint32_t length = 0;  ///< bytes of the payload, which follows the header
};

/// The maximum size of a payload: the largest value text and space for its target.
inline constexpr std::uint32_t maxPayload = 16 * 1024 * 1024 + 64 * 1024;

/// Writes `header` to `out` (16 bytes) in this machine's byte order.
void encodeHeader(const FrameHeader& header, std::uint8_t* out);

/// A frame of this machine's byte order without a payload, and with sequence 0.
std::array<std::uint8_t, FrameHeader::size> encodeEmptyFrame(FrameKind kind, std::uint16_t code);

/// Reads a header from `bytes` (16 bytes) and converts it from the sender's byte order.
/// Empty if a field has a value that no sender of this version writes, such as a length
/// above `maxPayload`.
std::optional<FrameHeader> decodeHeader(const std::uint8_t* bytes);

/// Appends bytes, and numbers in this machine's byte order, to a buffer of the caller.
class PayloadWriter {
 public:
  explicit PayloadWriter(std::vector<std::uint8_t>& out) : out_(out) {}
  void u8(std::uint8_t value) { out_.push_back(value); }
  void u16(std::uint16_t value) { number(value); }
  void u32(std::uint32_t value) { number(value); }
  void bytes(std::string_view text);
  /// `values`, one after the other.
  void u16s(std::span<const std::uint16_t> values);

 private:
  /// Inline and byte by byte: a prefetch reply contains very many small numbers.
  template <typename Number>
  void number(Number value) {
    for (const std::uint8_t byte : std::bit_cast<std::array<std::uint8_t, sizeof value>>(value)) {
      out_.push_back(byte);
    }
  }

  std::vector<std::uint8_t>& out_;
};

/// The number at `in` that was written in byte order `order`.
template <typename Number>
Number readNumber(const std::uint8_t* in, ByteOrder order) {
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

/// Reads a payload from front to back. A read beyond the end returns zero or nothing and
/// makes `ok` false for good, so a decoder may check once at its end. Check lengths and
/// counts against `left` before anything is allocated by them.
class PayloadReader {
 public:
  PayloadReader(std::span<const std::uint8_t> bytes, ByteOrder order)
      : bytes_(bytes), order_(order) {}
  std::uint8_t u8() { return number<std::uint8_t>(); }
  std::uint16_t u16() { return number<std::uint16_t>(); }
  std::uint32_t u32() { return number<std::uint32_t>(); }
  /// The next `count` bytes, not copied; empty and not ok if fewer are left.
  std::string_view bytes(std::size_t count) {
    const std::uint8_t* in = take(count);
    return in == nullptr ? std::string_view{}
                         : std::string_view(reinterpret_cast<const char*>(in), count);
  }
  /// A length of 16 bits and as many bytes, as `u16` and `bytes` read them: a listing reads very
  /// many.
  std::string_view text16() {
    const std::size_t available = left();
    const std::uint8_t* const in = bytes_.data() + position_;
    if (available >= sizeof(std::uint16_t)) {
      const std::size_t count = readNumber<std::uint16_t>(in, order_);
      if (count <= available - sizeof(std::uint16_t)) {
        position_ += sizeof(std::uint16_t) + count;
        return {reinterpret_cast<const char*>(in + sizeof(std::uint16_t)), count};
      }
    }
    ok_ = false;
    position_ = bytes_.size();
    return {};
  }
  /// All bytes that are left, not copied.
  std::string_view rest() { return bytes(left()); }
  /// The number of bytes that have been read.
  [[nodiscard]] std::size_t position() const { return position_; }
  [[nodiscard]] std::size_t left() const { return bytes_.size() - position_; }
  [[nodiscard]] bool ok() const { return ok_; }
  [[nodiscard]] ByteOrder order() const { return order_; }

 private:
  const std::uint8_t* take(std::size_t count) {
    if (count > left()) {
      ok_ = false;
      position_ = bytes_.size();
      return nullptr;
    }
    const std::uint8_t* begin = bytes_.data() + position_;
    position_ += count;
    return begin;
  }

  template <typename Number>
  Number number() {
    const std::uint8_t* in = take(sizeof(Number));
    return in == nullptr ? Number{0} : readNumber<Number>(in, order_);
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
  ByteOrder order_;
  bool ok_ = true;
};

}  // namespace EvtSrv::internal
