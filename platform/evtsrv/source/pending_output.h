#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "evtsrv/source/system.h"

namespace EvtSrv::internal {

/// Output for one pipe, and what of it did not fit into the pipe.
class PendingOutput {
 public:
  enum class Progress {
    all,      ///< nothing is pending
    blocked,  ///< continue when the pipe is writable
    failed,   ///< no reader, or another error
  };

  /// Writes `bytes`; must be empty. What the pipe does not take is moved out of `bytes` and
  /// pending.
  [[nodiscard]] Progress write(System& system, int pipe, std::vector<std::uint8_t>& bytes);

  /// Writes what is pending, if anything.
  [[nodiscard]] Progress resume(System& system, int pipe);

  [[nodiscard]] bool empty() const { return bytes_.empty(); }
  /// The bytes of memory that it holds.
  [[nodiscard]] std::size_t held() const { return bytes_.capacity(); }

 private:
  static Progress writeFrom(System& system, int pipe, std::span<const std::uint8_t> bytes,
                            std::size_t& written);

  std::vector<std::uint8_t> bytes_;
  std::size_t written_ = 0;
};

}  // namespace EvtSrv::internal
