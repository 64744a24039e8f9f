#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The codec of the hello, the only message that is written to a mailbox. It works on
/// bytes and knows no descriptor. platform/PROTOCOL.md describes the layout.
namespace EvtSrv::internal {

/// The unguessable part of the names of a connection's private pipes.
using Token = std::array<std::uint8_t, 16>;

struct Hello {
  Token token{};
  std::uint32_t behaviour = 0;  ///< `ConBehave` bits
};

inline constexpr std::size_t helloSize = 36;

/// The bytes of `hello` in this machine's byte order, to be written in one write.
std::array<std::uint8_t, helloSize> encodeHello(const Hello& hello);

/// The CRC-32 of IEEE 802.3 (reflected, 0xEDB88320).
std::uint32_t crc32(std::span<const std::uint8_t> bytes);

/// Finds the hellos in the bytes that were read from a mailbox and skips everything
/// else. When `next` has returned nothing it holds fewer bytes than a hello has, however
/// much garbage was fed.
class HelloScanner {
 public:
  /// Adds bytes that were read. Call `next` afterwards until it returns nothing.
  void feed(std::span<const std::uint8_t> bytes);

  /// The next hello whose magic, version, size and checksum are right.
  std::optional<Hello> next();

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace EvtSrv::internal
