#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kstd/export.h"

namespace EvtSrv {

/// The bytes of one event with a read position.
///
/// A reader asks for the offset of the next n bytes and finds them at
/// `bytes() + offset`. Asking for more than is left is safe: see
/// `getCurrentOffset`. Not thread-safe; each event has its own holder.
class KRV_EXPORT MemoryHolder {
 public:
  MemoryHolder() = default;

  /// Takes `bytes` over; reading starts at `position` (at the end where
  /// `position` lies behind it).
  explicit MemoryHolder(std::vector<std::uint8_t> bytes, std::size_t position = 0);

  /// The offset of the next `count` bytes; the position moves past them. Where
  /// fewer than `count` are left the position moves to the end and the result is
  /// `size()`, so that `offset + count > size()` tells a reader that the bytes
  /// are not there.
  std::size_t getCurrentOffset(std::size_t count);

  /// Where the next read starts: 0 to `size()`.
  [[nodiscard]] std::size_t position() const { return position_; }

  /// How many bytes are held.
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

  /// Whether everything has been read.
  [[nodiscard]] bool atEnd() const { return position_ == bytes_.size(); }

  /// The first byte, or null where none is held; valid until the holder is
  /// assigned to or destroyed.
  [[nodiscard]] const std::uint8_t* bytes() const { return bytes_.data(); }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace EvtSrv
