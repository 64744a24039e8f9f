#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "evtsrv/result.h"
#include "evtsrv/source/deferred_work.h"
#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/reactor.h"
#include "evtsrv/source/reply_batch.h"
#include "evtsrv/source/turn_queue.h"
#include "kstd/thread_mutex.h"

namespace EvtSrv::internal {

/// The maximum size of one read: the default capacity of a pipe (pipe(7)).
inline constexpr std::size_t readSize = std::size_t{64} * 1024;

/// The implementation of an `EventPortManager`. Tests make one with a system of their
/// own.
class ManagerCore {
 public:
  /// `system` and `clientMutex` outlive this.
  ManagerCore(System& system, KSTD::KThreadMutex& clientMutex, bool reconnects);
  ManagerCore(const ManagerCore&) = delete;
  ManagerCore& operator=(const ManagerCore&) = delete;

  // For any thread, with or without the client mutex; see EventPortManager.

  EvtRes receive(int milliseconds);
  EvtRes finishTerminations(int milliseconds);
  void wake() noexcept;
  [[nodiscard]] int pollDescriptor() const { return reactor_.descriptor(); }

  /// `EvtRes_Success`, or the error that makes this manager unusable.
  [[nodiscard]] EvtRes state() const { return state_; }
  [[nodiscard]] bool reconnects() const { return reconnects_; }
  [[nodiscard]] System& system() { return system_; }
  [[nodiscard]] KSTD::KThreadMutex& clientMutex() KRV_RETURN_CAPABILITY(clientMutex_) {
    return clientMutex_;
  }

  // Require the client mutex.

  [[nodiscard]] Reactor& reactor() KRV_REQUIRES(clientMutex_) { return reactor_; }
  /// The connections that wait for their turn. To be added to within a dispatch only.
  [[nodiscard]] TurnQueue& turns() KRV_REQUIRES(clientMutex_) { return turns_; }
  /// The replies that are written together.
  [[nodiscard]] ReplyBatch& replies() KRV_REQUIRES(clientMutex_) { return replies_; }
  /// A graceful shutdown has begun; each call is matched by one of `endTermination`.
  void beginTermination() KRV_REQUIRES(clientMutex_);
  void endTermination() KRV_REQUIRES(clientMutex_);
  /// Lets the next dispatch run `work`, and makes the poll descriptor readable. Does
  /// nothing if it is deferred already.
  void defer(DeferredWork& work) KRV_REQUIRES(clientMutex_);

  /// The pool slots of the buffers that one dispatch needs; see BufferLease.
  [[nodiscard]] std::vector<std::uint8_t>& readSlot() KRV_REQUIRES(clientMutex_) {
    return readSlot_;
  }
  [[nodiscard]] std::vector<std::uint8_t>& replySlot() KRV_REQUIRES(clientMutex_) {
    return replySlot_;
  }
  [[nodiscard]] std::vector<std::uint8_t>& eventSlot() KRV_REQUIRES(clientMutex_) {
    return eventSlot_;
  }

 private:
  EvtRes openAll();
  EvtRes receive(int milliseconds, bool& woken);
  EvtRes awaitTerminations(int milliseconds, bool& woken);
  EvtRes waitUnusable(int milliseconds);
  bool dispatch(std::span<const epoll_event> events, bool& woken);
  bool runDeferred() KRV_REQUIRES(clientMutex_);
  bool dispatchAll(std::span<const epoll_event> events, bool& woken) KRV_REQUIRES(clientMutex_);
  void announceTurns() KRV_REQUIRES(clientMutex_);
  void flushReplies();

  // Constant or thread-safe after construction.
  System& system_;
  KSTD::KThreadMutex& clientMutex_;
  Reactor reactor_;  // Only wait() and descriptor() without the client mutex.
  FileDescriptor
      wakeEvent_;  // Readable after wake(), while work is deferred, and while turns wait.
  FileDescriptor idleEvent_;  // Readable while no termination is under way.
  std::atomic<bool> wakeRequested_{false};
  std::atomic<int> terminations_{0};
  const bool reconnects_;
  EvtRes state_;

  DeferredQueue deferred_ KRV_GUARDED_BY(clientMutex_);
  TurnQueue turns_ KRV_GUARDED_BY(clientMutex_);
  bool turnsAnnounced_ KRV_GUARDED_BY(clientMutex_) = false;
  ReplyBatch replies_;  // Only isPending() without the client mutex.
  std::vector<std::uint8_t> readSlot_ KRV_GUARDED_BY(clientMutex_);
  std::vector<std::uint8_t> replySlot_ KRV_GUARDED_BY(clientMutex_);
  std::vector<std::uint8_t> eventSlot_ KRV_GUARDED_BY(clientMutex_);
};

}  // namespace EvtSrv::internal
