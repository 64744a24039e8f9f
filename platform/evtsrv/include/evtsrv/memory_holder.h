#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kstd/export.h"

namespace EvtSrv {

/// The payload of one event, with a read position.
///
/// A reader calls `getCurrentOffset(n)` and finds the next n bytes at
/// `bytes() + offset`. Not thread-safe; each event has its own holder.
class KRV_EXPORT MemoryHolder {
 public:
  MemoryHolder() = default;

  /// Takes ownership of `bytes`; reading starts at `position`, or at the end if
  /// `position` is beyond it.
  explicit MemoryHolder(std::vector<std::uint8_t> bytes, std::size_t position = 0);

  /// Returns the offset of the next `count` bytes and moves the position past them. If
  /// fewer than `count` are left it moves the position to the end and returns `size()`,
  /// so the bytes are there exactly if `offset + count <= size()`.
  std::size_t getCurrentOffset(std::size_t count);

  /// The offset of the next read: 0 to `size()`.
  [[nodiscard]] std::size_t position() const { return position_; }

  /// The number of bytes, read or not.
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

  /// Whether everything has been read.
  [[nodiscard]] bool atEnd() const { return position_ == bytes_.size(); }

  /// The first byte; may be null if there is none. Valid until the holder is assigned
  /// to or destroyed.
  [[nodiscard]] const std::uint8_t* bytes() const { return bytes_.data(); }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace EvtSrv
