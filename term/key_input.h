#pragma once

#include <functional>

/// The bytes of the keys, from file descriptor 0.
///
/// Only the thread that reads keys calls the reading operations. Each byte is
/// taken by a read of its own, so that a program that a command starts finds the
/// rest of the input where it is.

namespace treescope {

/// What stands for the end of the input, and for an input that cannot be read.
inline constexpr int endOfKeys = -1;

/// Waits for one byte, 0 to 255, and takes it; `endOfKeys` when none will come.
/// What was printed on standard output is flushed before the wait. Where a
/// repaint is asked for meanwhile, `repaint` is called, unless it is empty, and
/// what it prints is flushed.
[[nodiscard]] int readKeyByte(const std::function<void()>& repaint = {});

/// Whether a byte can be taken at once. A file, too, says so at its end.
[[nodiscard]] bool keyWaiting();

/// Asks the thread that reads keys to repaint what it shows, and wakes it where it
/// waits. For the handler of a signal as well (signal-safety(7)); leaves errno
/// alone. Has no effect while there are no `RepaintRequests`.
void requestRepaint() noexcept;

/// Lets repaints be asked for as long as it lives; one at a time. Where the system
/// has no descriptor to spare, nobody is woken and nothing is repainted.
///
/// To be destroyed when no signal handler may call `requestRepaint` any more.
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
