#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace modelgate {

/// The event loop of a thread: descriptors, timers, and calls from other threads. Handlers run one
/// at a time on the thread that calls `run`. Only `post` and `stop` may be called on another one.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;

  /// Throws std::system_error if the system gives it no descriptor.
  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Calls `handler` while `descriptor` has one of `events` (of poll(2)) or an error. Replaces an
  /// earlier handler of the same descriptor. Remove it before the descriptor is closed. Throws
  /// std::system_error for a descriptor that cannot be awaited, such as a file's.
  void watch(int descriptor, short events, Handler handler);
  void unwatch(int descriptor);

  /// A timer; destroying it ends it. It may be destroyed in its own handler.
  class Timer {
   public:
    struct Entry;
    Timer() noexcept;
    ~Timer();
    Timer(Timer&&) noexcept;
    Timer& operator=(Timer&&) noexcept;

   private:
    friend class EventLoop;
    explicit Timer(std::shared_ptr<Entry> entry) noexcept;
    std::shared_ptr<Entry> entry_;
  };

  /// Calls `handler` once.
  [[nodiscard]] Timer at(Clock::time_point when, Handler handler);
  [[nodiscard]] Timer after(Clock::duration delay, Handler handler);

  /// Calls `handler` on the loop's thread, soon. Any thread.
  void post(Handler handler);

  /// Until `stop`.
  void run();
  /// Handles what is due now, waiting at most until `deadline` for the first; for tests.
  void runOnce(Clock::time_point deadline);
  /// Any thread; not in a signal handler.
  void stop();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace modelgate
