#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace EvtSrv::internal {

/// The bytes of frames that have arrived in part. It grows with what arrives, and moves its
/// bytes to a larger block little by little, so that no single read of a pipe takes long.
/// Knows no frame. May throw `std::bad_alloc`; nothing has changed then.
class FrameBuffer {
 public:
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }

  /// Valid are the first `firstMoved` bytes and, after `finishGrowth`, all.
  [[nodiscard]] const std::uint8_t* data() const { return bytes_.get(); }
  static constexpr std::size_t firstMoved = std::size_t{64} * 1024;

  /// `expected`: how many bytes the buffer is going to have in the end; 0 if that is not known, and
  /// then it does not stay growing. It takes less than twice the memory of what has arrived.
  void append(std::span<const std::uint8_t> bytes, std::size_t expected);

  /// Moves what has not been moved yet.
  void finishGrowth();

  /// Removes the first `count` bytes.
  void discard(std::size_t count);

  void clear() {
    size_ = 0;
    former_.reset();
  }
  /// Frees the memory.
  void release() { *this = FrameBuffer(); }

  /// Gives its memory away, and is empty then. After `finishGrowth`.
  [[nodiscard]] std::unique_ptr<std::uint8_t[]> take() {
    auto taken = std::move(bytes_);
    release();
    return taken;
  }

  /// The bytes of memory that it takes.
  [[nodiscard]] std::size_t held() const;

 private:
  [[nodiscard]] std::size_t capacityFor(std::size_t needed, std::size_t expected) const;
  void grow(std::size_t capacity);
  void moveSome(std::size_t count);

  std::unique_ptr<std::uint8_t[]> bytes_;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;

  // While it is growing.
  std::unique_ptr<std::uint8_t[]> former_;
  std::size_t formerSize_ = 0;
  std::size_t moved_ = 0;
};

}  // namespace EvtSrv::internal
