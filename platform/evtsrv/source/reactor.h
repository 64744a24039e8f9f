#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "evtsrv/source/file_descriptor.h"
#include "kstd/thread_mutex.h"

namespace EvtSrv::internal {

/// What is told that a descriptor is ready.
class ReadyHandler {
 public:
  virtual ~ReadyHandler() = default;

  /// `role` is what the handler gave with the descriptor, `events` a set of
  /// `EPOLL…` bits. Tells whether anything was dispatched. May end any
  /// registration, its own included.
  virtual bool ready(unsigned role, std::uint32_t events) = 0;
};

class Reactor;

/// Move-only: as long as it lives its descriptor is waited for. End it before the
/// descriptor is closed and before the handler goes away.
class Registration {
 public:
  Registration() = default;
  ~Registration() { end(); }
  Registration(Registration&& other) noexcept;
  Registration& operator=(Registration&& other) noexcept;

  /// Waits for `interest` from now on; errors and hang-ups are always told. Free
  /// of cost where nothing changes.
  [[nodiscard]] int setInterest(std::uint32_t interest) {
    return interest == interest_ && reactor_ != nullptr ? 0 : change(interest);
  }
  void end();

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

  /// 0, or why there is no epoll instance.
  [[nodiscard]] int open();

  /// Waits for `descriptor` on behalf of `handler`.
  [[nodiscard]] int add(int descriptor, std::uint32_t interest, ReadyHandler& handler,
                        unsigned role, Registration& registration);

  /// epoll_wait(2) into `events`.
  [[nodiscard]] int wait(std::span<epoll_event> events, int milliseconds);

  /// Hands one reported event to its handler; false where its registration has
  /// ended or nothing came of it.
  bool dispatch(const epoll_event& event);

  /// The epoll instance, which itself can be polled.
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
