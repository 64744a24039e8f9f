#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "evtsrv/source/frame.h"
#include "evtsrv/source/frame_buffer.h"

namespace EvtSrv::internal {

/// One received frame. The payload belongs to the reader or to what was fed.
struct Frame {
  FrameHeader header;
  std::span<const std::uint8_t> payload;
};

/// Assembles frames from successive reads of one pipe. The payload of a frame that
/// arrived in one piece is not copied; only the beginning of an incomplete frame is.
/// Memory grows with the bytes that have arrived, never with a length that a header
/// claims.
///
/// Use: `feed` what was read, then call `next` until it returns anything but `frame`.
class FrameReader {
 public:
  enum class Status {
    frame,       ///< a frame was found
    incomplete,  ///< the bytes fed so far contain no further complete frame
    malformed,   ///< no peer of this version sends this: end the connection
    skipped,     ///< the end of a frame that was skipped; it has no payload
  };

  /// Sets the next bytes. They must stay valid until `next` has returned `incomplete`
  /// or `bufferRest` was called.
  void feed(std::span<const std::uint8_t> bytes) { fed_ = bytes; }

  /// Whether all fed bytes have been returned in frames, and none is being skipped.
  [[nodiscard]] bool empty() const {
    return fed_.empty() && buffered_.size() == start_ && toSkip_ == 0;
  }

  /// Sets `frame` to the next frame and invalidates the payload of the previous one.
  [[nodiscard]] Status next(Frame& frame);

  /// Copies the rest of the fed bytes.
  void bufferRest();

  /// Drops what has arrived of the incomplete frame at the front, and what will arrive of it:
  /// `next` returns `skipped` at its end. False if its header is not complete.
  [[nodiscard]] bool skipFrame();

  /// After `next` has returned a frame: the memory that has its payload, which stays valid as long
  /// as that. Null if the payload takes less than seven eighths of it.
  [[nodiscard]] std::unique_ptr<std::uint8_t[]> takeMemory();

  /// The bytes of memory that it holds; 0 if it is idle.
  [[nodiscard]] std::size_t held() const;

 private:
  Status nextFromFed(Frame& frame);
  Status nextFromBuffer(Frame& frame);
  Status nextSkipped(Frame& frame);
  bool fillBuffer(std::size_t size);
  void releaseBuffer();

  std::span<const std::uint8_t> fed_;
  FrameBuffer buffered_;         // The rest of earlier feeds.
  std::size_t payloadSize_ = 0;  // Of the last frame, if `buffered_` has it.
  std::size_t start_ = 0;        // Where in `buffered_` the next frame begins.
  FrameHeader skipped_;
  std::size_t toSkip_ = 0;  // How many bytes of the skipped frame are yet to come.
};

}  // namespace EvtSrv::internal
