#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace EvtSrv::internal {

/// Bytes that are needed for the length of one dispatch, borrowed from the place
/// where they wait between dispatches, so that a busy manager allocates nothing
/// and an idle connection holds nothing. A second borrower, in a dispatch inside
/// a dispatch, finds the place empty and gets bytes of its own.
class ScratchBuffer {
 public:
  explicit ScratchBuffer(std::vector<std::uint8_t>& home) : home_(home), bytes_(std::move(home)) {
    home_.clear();
  }
  ~ScratchBuffer() {
    if (bytes_.capacity() <= keptCapacity && bytes_.capacity() > home_.capacity()) {
      home_ = std::move(bytes_);
    }
  }
  ScratchBuffer(const ScratchBuffer&) = delete;
  ScratchBuffer& operator=(const ScratchBuffer&) = delete;

  [[nodiscard]] std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  static constexpr std::size_t keptCapacity = std::size_t{256} * 1024;

  std::vector<std::uint8_t>& home_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace EvtSrv::internal
