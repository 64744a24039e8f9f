#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace EvtSrv::internal {

/// A buffer for the length of one dispatch, taken from a pool slot of the manager and
/// returned to it. So a busy manager allocates nothing, and an idle connection holds no
/// buffer. A second lease of the same slot, in a nested dispatch, finds it empty and
/// allocates a buffer of its own.
class BufferLease {
 public:
  explicit BufferLease(std::vector<std::uint8_t>& slot) : slot_(slot), bytes_(std::move(slot)) {
    slot_.clear();
  }
  ~BufferLease() {
    if (bytes_.capacity() <= keptCapacity && bytes_.capacity() > slot_.capacity()) {
      slot_ = std::move(bytes_);
    }
  }
  BufferLease(const BufferLease&) = delete;
  BufferLease& operator=(const BufferLease&) = delete;

  [[nodiscard]] std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  static constexpr std::size_t keptCapacity = std::size_t{256} * 1024;

  std::vector<std::uint8_t>& slot_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace EvtSrv::internal
