#pragma once

#include <functional>

/// The bytes of the keys, read from file descriptor 0.
///
/// Only the thread that reads keys calls the reading operations. Each byte is read by a
/// system call of its own, so that a program that a command starts finds the rest of the
/// input unread.

namespace treescope {

/// Returned in place of a byte at the end of the input, and if the input cannot be read.
inline constexpr int endOfKeys = -1;

/// Waits for one byte, 0 to 255, and returns it, or `endOfKeys` if there is none to come.
/// Standard output is flushed before the wait. If a repaint is requested meanwhile and
/// `repaint` is not empty, it is called and its output is flushed.
[[nodiscard]] int readKeyByte(const std::function<void()>& repaint = {});

/// Whether a byte can be read without waiting. A regular file is always readable, even
/// at its end.
[[nodiscard]] bool keyWaiting();

/// Requests a repaint from the thread that reads keys, and wakes it if it is waiting.
/// Any thread; safe in signal handlers (signal-safety(7)), and preserves errno. No effect
/// while no `RepaintRequests` exists.
void requestRepaint() noexcept;

/// Enables `requestRepaint` while it exists; one at a time. If the system has no
/// descriptor to spare, requests have no effect.
///
/// To be destroyed only when no signal handler can call `requestRepaint` any more.
class RepaintRequests {
 public:
  RepaintRequests();
  ~RepaintRequests();
  RepaintRequests(const RepaintRequests&) = delete;
  RepaintRequests& operator=(const RepaintRequests&) = delete;

 private:
  const int descriptor_;
};

}  // namespace treescope
