#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The one thing that a mailbox carries: a client's hello. Bytes in, hellos out,
/// no descriptor. The layout is written down in platform/PROTOCOL.md.
namespace EvtSrv::internal {

/// Names a connection's private pipes; unguessable.
using Token = std::array<std::uint8_t, 16>;

struct Hello {
  Token token{};
  std::uint32_t behaviour = 0;  ///< `ConBehave` bits
};

inline constexpr std::size_t helloSize = 36;

/// What to write, in one piece, in this machine's byte order.
std::array<std::uint8_t, helloSize> encodeHello(const Hello& hello);

/// The CRC-32 of IEEE 802.3 (reflected, 0xEDB88320).
std::uint32_t crc32(std::span<const std::uint8_t> bytes);

/// Finds hellos in what comes out of a mailbox, and skips everything else.
/// Between calls it holds fewer bytes than a hello has, however much garbage came.
class HelloScanner {
 public:
  /// Takes what was read; call `next` until it gives nothing.
  void feed(std::span<const std::uint8_t> bytes);

  /// The next hello whose magic and checksum are right.
  std::optional<Hello> next();

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace EvtSrv::internal
