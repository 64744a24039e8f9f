#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "evtsrv/source/file_descriptor.h"
#include "kstd/thread_mutex.h"

namespace EvtSrv::internal {

/// The receiver of the readiness of descriptors.
class ReadyHandler {
 public:
  virtual ~ReadyHandler() = default;

  /// Called when a descriptor is ready. `role` is the number that the handler gave when
  /// it added the descriptor, `events` a set of `EPOLL…` bits. Returns whether anything
  /// was dispatched. May end any registration, its own included. Is called again inside
  /// itself if what it calls dispatches.
  virtual bool ready(unsigned role, std::uint32_t events) = 0;
};

/// Sets a flag for the length of a block. A handler marks its calls with it, so that a
/// nested dispatch can see that one is in progress.
class ScopedFlag {
 public:
  explicit ScopedFlag(bool& flag) : flag_(flag) { flag_ = true; }
  ~ScopedFlag() { flag_ = false; }
  ScopedFlag(const ScopedFlag&) = delete;
  ScopedFlag& operator=(const ScopedFlag&) = delete;

 private:
  bool& flag_;
};

class Reactor;

/// A descriptor that a reactor waits for, until this is destroyed. Move-only. To be
/// ended before the descriptor is closed and before the handler is destroyed.
class Registration {
 public:
  Registration() = default;
  ~Registration() { end(); }
  Registration(Registration&& other) noexcept;
  Registration& operator=(Registration&& other) noexcept;

  /// Replaces the set of `EPOLL…` bits that are waited for; errors and hang-ups are
  /// always reported. Makes no system call if nothing changes. `-ENOENT` if this has
  /// ended, or another negative error number.
  [[nodiscard]] int setInterest(std::uint32_t interest) {
    return interest == interest_ && reactor_ != nullptr ? 0 : change(interest);
  }

  /// Stops waiting; does nothing if it has ended already.
  void end();

  /// Whether it has begun and not ended.
  [[nodiscard]] bool isActive() const { return reactor_ != nullptr; }

 private:
  friend class Reactor;
  Registration(Reactor& reactor, std::uint64_t token, std::uint32_t interest)
      : reactor_(&reactor), token_(token), interest_(interest) {}

  int change(std::uint32_t interest);

  Reactor* reactor_ = nullptr;
  std::uint64_t token_ = 0;
  std::uint32_t interest_ = 0;
};

/// The descriptors that a manager waits for. Any thread may call `wait` and
/// `descriptor` at any time; everything else, the registrations included, requires the
/// client mutex. An event that was reported before its registration ended is not
/// dispatched: tokens are never reused, even if a descriptor number is.
class Reactor {
 public:
  /// `system` and `clientMutex` outlive this.
  Reactor(System& system, const KSTD::KThreadMutex& clientMutex)
      : system_(system), clientMutex_(clientMutex) {}

  /// Makes the epoll instance; 0 or a negative error number.
  [[nodiscard]] int open();

  /// Begins to wait for `interest` of `descriptor` and sets `registration`. `handler`
  /// will be called with `role`. 0 or a negative error number.
  [[nodiscard]] int add(int descriptor, std::uint32_t interest, ReadyHandler& handler,
                        unsigned role, Registration& registration);

  /// epoll_wait(2) into `events`: their number, or a negative error number.
  [[nodiscard]] int wait(std::span<epoll_event> events, int milliseconds);

  /// Passes one reported event to its handler and returns what that returns; false if
  /// the registration has ended.
  bool dispatch(const epoll_event& event);

  /// The epoll instance, which can be polled itself.
  [[nodiscard]] int descriptor() const { return epoll_.number(); }

 private:
  friend class Registration;

  struct Slot {
    ReadyHandler* handler = nullptr;
    unsigned role = 0;
    int descriptor = -1;
    std::uint32_t generation = 0;
  };

  Slot* find(std::uint64_t token) KRV_REQUIRES(clientMutex_);
  void remove(std::uint64_t token);
  int setInterest(std::uint64_t token, std::uint32_t interest);

  System& system_;
  const KSTD::KThreadMutex& clientMutex_;
  FileDescriptor epoll_;
  std::vector<Slot> slots_ KRV_GUARDED_BY(clientMutex_);
  std::vector<std::uint32_t> free_ KRV_GUARDED_BY(clientMutex_);
};

}  // namespace EvtSrv::internal
