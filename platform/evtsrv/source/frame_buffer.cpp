#include "evtsrv/source/frame_buffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace EvtSrv::internal {

namespace {

// What is moved at once.
constexpr std::size_t smallSize = std::size_t{256} * 1024;

}  // namespace

std::size_t FrameBuffer::held() const {
  return former_ == nullptr ? capacity_ : std::max(capacity_, size_ + moved_);
}

void FrameBuffer::append(std::span<const std::uint8_t> bytes, std::size_t expected) {
  if (size_ + bytes.size() > capacity_) {
    grow(capacityFor(size_ + bytes.size(), expected));
  }
  if (!bytes.empty()) {
    std::memcpy(bytes_.get() + size_, bytes.data(), bytes.size());
  }
  size_ += bytes.size();
  if (former_ != nullptr) {
    // Faster than the buffer fills.
    moveSome(expected == 0 ? formerSize_ : std::max(firstMoved, 2 * bytes.size()));
  }
}

/// The sizes of a large buffer are `expected` and halves of it, so that each is full no sooner than
/// all bytes of the one before were moved to it.
std::size_t FrameBuffer::capacityFor(std::size_t needed, std::size_t expected) const {
  if (expected <= smallSize) {
    return std::max(needed, expected == 0 ? 2 * size_ : std::min(expected, 2 * capacity_));
  }
  std::size_t capacity = std::max(needed, expected);
  while (capacity / 2 >= needed) {
    capacity -= capacity / 2;
  }
  return capacity;
}

void FrameBuffer::grow(std::size_t capacity) {
  auto bytes = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
  finishGrowth();
  std::swap(bytes_, bytes);
  capacity_ = capacity;
  if (size_ == 0) {
    return;
  }
  former_ = std::move(bytes);
  formerSize_ = size_;
  moved_ = 0;
  moveSome(size_ <= smallSize ? size_ : firstMoved);
}

void FrameBuffer::moveSome(std::size_t count) {
  count = std::min(count, formerSize_ - moved_);
  std::memcpy(bytes_.get() + moved_, former_.get() + moved_, count);
  moved_ += count;
  if (moved_ == formerSize_) {
    former_.reset();
  }
}

void FrameBuffer::finishGrowth() {
  if (former_ != nullptr) {
    moveSome(formerSize_);
  }
}

void FrameBuffer::discard(std::size_t count) {
  if (count > 0) {
    finishGrowth();
    std::memmove(bytes_.get(), bytes_.get() + count, size_ - count);
    size_ -= count;
  }
}

}  // namespace EvtSrv::internal
