#include "evtsrv/source/manager_core.h"

#include <array>
#include <cerrno>
#include <span>

namespace EvtSrv::internal {

namespace {

// No registration has this token: its slot index would be too large.
constexpr std::uint64_t wakeToken = ~std::uint64_t{0};
// So many that a connection which has just become ready is seen among many that stay ready
// until their turn.
constexpr std::size_t eventsAtOnce = 512;

// How long an unusable manager waits if the caller has set no limit.
constexpr int unusableWaitMs = 1000;

/// Makes an eventfd unreadable; returns whether it was readable.
bool clearEvent(System& system, int event) {
  std::array<std::uint8_t, sizeof(std::uint64_t)> count{};
  return system.read(event, count) > 0;
}

}  // namespace

ManagerCore::ManagerCore(System& system, KSTD::KThreadMutex& clientMutex, bool reconnects)
    : system_(system),
      clientMutex_(clientMutex),
      reactor_(system, clientMutex),
      reconnects_(reconnects),
      state_(openAll()),
      turns_(system),
      replies_(system) {}

EvtRes ManagerCore::openAll() {
  int result = reactor_.open();
  if (result == 0) {
    result = wakeEvent_.adopt(system_, system_.createEvent());
  }
  if (result == 0) {
    result = idleEvent_.adopt(system_, system_.createEvent());
  }
  if (result == 0) {
    result = system_.epollCtl(reactor_.descriptor(), EPOLL_CTL_ADD, wakeEvent_.number(), EPOLLIN,
                              wakeToken);
  }
  if (result < 0) {
    return resultOf(result);
  }
  system_.signalEvent(idleEvent_.number());
  return EvtRes_Success;
}

EvtRes ManagerCore::receive(int milliseconds) {
  bool woken = false;
  return receive(milliseconds, woken);
}

EvtRes ManagerCore::receive(int milliseconds, bool& woken) {
  if (state_ != EvtRes_Success) {
    return waitUnusable(milliseconds);
  }
  Deadline deadline(system_, milliseconds);
  int wait = 0;
  while (deadline.nextWait(wait)) {
    flushReplies();
    std::array<epoll_event, eventsAtOnce> events;
    const int count = reactor_.wait(events, wait);
    if (count == -EINTR || count == 0) {
      continue;
    }
    if (count < 0) {
      return resultOf(count);
    }
    if (dispatch(std::span(events).first(static_cast<std::size_t>(count)), woken)) {
      return EvtRes_Success;
    }
    if (woken) {
      return EvtRes_Timeout;
    }
  }
  return EvtRes_Timeout;
}

bool ManagerCore::dispatch(std::span<const epoll_event> events, bool& woken) {
  const KSTD::KThreadMutexLock lock(clientMutex_);
  bool dispatched = false;
  try {
    dispatched = dispatchAll(events, woken);
  } catch (...) {
    // An exception of the program.
    replies_.end();
    announceTurns();
    throw;
  }
  announceTurns();
  return dispatched;
}

bool ManagerCore::dispatchAll(std::span<const epoll_event> events, bool& woken) {
  for (const epoll_event& event : events) {
    if (event.data.u64 == wakeToken) {
      static_cast<void>(clearEvent(system_, wakeEvent_.number()));
      turnsAnnounced_ = false;
      woken = wakeRequested_.exchange(false) || woken;
    }
  }
  const TurnQueue::Dispatch dispatch(turns_, events.size());
  // First: what was deferred happened before what is reported now.
  bool dispatched = !deferred_.isEmpty() && runDeferred();
  replies_.begin(events.size());
  for (const epoll_event& event : events) {
    if (event.data.u64 != wakeToken) {
      dispatched = reactor_.dispatch(event) || dispatched;
    }
  }
  replies_.end();
  return turns_.run() || dispatched;
}

/// Writes the replies of a dispatch before a wait inside it.
void ManagerCore::flushReplies() {
  if (replies_.isPending()) {
    const KSTD::KThreadMutexLock lock(clientMutex_);
    replies_.flush();
  }
}

/// Keeps every wait from sleeping while turns are to be taken.
void ManagerCore::announceTurns() {
  if (!turns_.empty() && !turnsAnnounced_) {
    turnsAnnounced_ = true;
    system_.signalEvent(wakeEvent_.number());
  }
}

void ManagerCore::defer(DeferredWork& work) {
  clientMutex_.assertHeld();
  if (deferred_.push(work)) {
    system_.signalEvent(wakeEvent_.number());
  }
}

bool ManagerCore::runDeferred() {
  bool dispatched = false;
  try {
    // What is deferred meanwhile waits for the next dispatch.
    for (std::size_t left = deferred_.size(); left > 0 && !deferred_.isEmpty(); --left) {
      dispatched = deferred_.pop().runDeferred() || dispatched;
    }
  } catch (...) {
    // An exception of the program. The others run at the next dispatch.
    if (!deferred_.isEmpty()) {
      system_.signalEvent(wakeEvent_.number());
    }
    throw;
  }
  return dispatched;
}

EvtRes ManagerCore::waitUnusable(int milliseconds) {
  // The loop of a program must not spin because its manager is unusable.
  if (milliseconds != 0) {
    static_cast<void>(system_.poll({}, milliseconds > 0 ? milliseconds : unusableWaitMs));
  }
  return state_;
}

EvtRes ManagerCore::finishTerminations(int milliseconds) {
  if (terminations_.load() == 0) {
    return EvtRes_Success;
  }
  bool woken = false;
  const EvtRes result = awaitTerminations(milliseconds, woken);
  // The wake was meant for a receive of the program.
  if (woken) {
    wake();
  }
  return result;
}

EvtRes ManagerCore::awaitTerminations(int milliseconds, bool& woken) {
  Deadline deadline(system_, milliseconds);
  int wait = 0;
  while (deadline.nextWait(wait)) {
    flushReplies();
    std::array<pollfd, 2> waits{pollfd{idleEvent_.number(), POLLIN, 0},
                                pollfd{reactor_.descriptor(), POLLIN, 0}};
    const int ready = system_.poll(waits, wait);
    if (ready < 0 && ready != -EINTR) {
      return resultOf(ready);
    }
    if (ready > 0 && waits[0].revents == 0) {
      const EvtRes received = receive(0, woken);
      if (received != EvtRes_Success && received != EvtRes_Timeout) {
        return received;
      }
    }
    if (terminations_.load() == 0) {
      return EvtRes_Success;
    }
  }
  return EvtRes_Timeout;
}

void ManagerCore::wake() noexcept {
  if (wakeEvent_.isOpen()) {
    wakeRequested_.store(true);
    system_.signalEvent(wakeEvent_.number());
  }
}

void ManagerCore::beginTermination() {
  clientMutex_.assertHeld();
  if (terminations_.fetch_add(1) == 0) {
    static_cast<void>(clearEvent(system_, idleEvent_.number()));
  }
}

void ManagerCore::endTermination() {
  clientMutex_.assertHeld();
  if (terminations_.fetch_sub(1) == 1) {
    system_.signalEvent(idleEvent_.number());
  }
}

}  // namespace EvtSrv::internal
