#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "evtsrv/source/frame.h"

namespace EvtSrv::internal {

/// One frame as it came; the payload belongs to the reader or to what was fed.
struct Frame {
  FrameHeader header;
  std::span<const std::uint8_t> payload;
};

/// Puts frames together from what successive reads of one pipe gave. Frames that
/// came whole are handed out where they lie; only what is left of one is copied,
/// and memory grows with the bytes that arrived, never with a length that a
/// header claims.
///
/// Use: `feed` what was read, then `next` until it gives anything but `frame`.
class FrameReader {
 public:
  enum class Status {
    frame,       ///< there is one
    incomplete,  ///< what has come so far holds no further whole frame
    malformed,   ///< no peer of this version sends this: end the connection
  };

  /// Takes `bytes`, which must stay where they are until `next` gave
  /// `incomplete` or `keepRest` was called.
  void feed(std::span<const std::uint8_t> bytes) { fed_ = bytes; }

  /// Whether nothing is left of what was fed.
  [[nodiscard]] bool empty() const { return fed_.empty() && kept_.size() == served_; }

  /// Moves to the next frame. The payload of the one before is gone.
  [[nodiscard]] Status next(Frame& frame);

  /// Copies what has not been handed out of the fed bytes.
  void keepRest();

 private:
  Status nextFromFed(Frame& frame);
  Status nextFromKept(Frame& frame);
  bool fillKept(std::size_t size);
  void dropServed();

  std::span<const std::uint8_t> fed_;
  std::vector<std::uint8_t> kept_;  // What is left of earlier feeds.
  std::size_t served_ = 0;          // How much of `kept_` the last frame took.
};

}  // namespace EvtSrv::internal
