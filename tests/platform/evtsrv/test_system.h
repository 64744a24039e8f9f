#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/source/system.h"

namespace EvtSrv::internal {

/// A system in which single calls can be made to fail, and whose time can be made to
/// advance only by waits that time out.
class TestSystem : public PosixSystem {
 public:
  /// Lets the next `skip` calls of `call` pass and the `times` calls after them return
  /// `error`.
  void failNext(const std::string& call, int error, int skip = 0, int times = 1) {
    call_ = call;
    error_ = error;
    skip_ = skip;
    times_ = times;
    hasFailed_ = false;
  }
  /// Whether a call has failed since the last `failNext`.
  [[nodiscard]] bool hasFailed() const { return hasFailed_; }

  /// From now on a wait that times out takes no time and advances the clock.
  void freezeTime() { frozen_ = true; }

  std::int64_t nowMs() override {
    ++clockReads;
    return PosixSystem::nowMs() + offset_;
  }
  std::int64_t nowNs() override { return setNs != 0 ? setNs : PosixSystem::nowNs(); }
  int poll(std::span<pollfd> ends, int milliseconds) override {
    if (const int error = takeError("poll"); error < 0) {
      offset_ += failedWaitMs;
      return error;
    }
    if (!frozen_ || milliseconds <= 0) {
      return PosixSystem::poll(ends, milliseconds);
    }
    int ready = PosixSystem::poll(ends, 0);
    if (ready == 0 && whileWaiting) {
      whileWaiting();
      ready = PosixSystem::poll(ends, 0);
    }
    if (ready == 0) {
      offset_ += milliseconds;
    }
    return ready;
  }
  int createWriteQueue(std::uint64_t& queue) override {
    return orError("createWriteQueue", [&] { return PosixSystem::createWriteQueue(queue); });
  }
  int submitWrites(std::uint64_t queue, std::span<QueuedWrite> queued) override {
    ++submissions;
    submittedWrites += queued.size();
    return orError("submitWrites", [&] {
      return PosixSystem::submitWrites(queue, queued.first(std::min(submitLimit, queued.size())));
    });
  }
  int createEvent() override {
    return orError("createEvent", [&] { return PosixSystem::createEvent(); });
  }
  int createTimer() override {
    return orError("createTimer", [&] { return PosixSystem::createTimer(); });
  }
  int setTimer(int timer, int milliseconds) override {
    return orError("setTimer", [&] {
      return PosixSystem::setTimer(timer, std::max(1, milliseconds / timerSpeed));
    });
  }
  int createWatch() override {
    ++watchesCreated;
    return orError("createWatch", [&] { return PosixSystem::createWatch(); });
  }
  int addWatch(int watch, const std::string& path, std::uint32_t events) override {
    return orError("addWatch", [&] { return PosixSystem::addWatch(watch, path, events); });
  }
  int createEpoll() override {
    return orError("createEpoll", [&] { return PosixSystem::createEpoll(); });
  }
  int epollCtl(int epoll, int operation, int descriptor, std::uint32_t interest,
               std::uint64_t token) override {
    return orError("epollCtl", [&] {
      return PosixSystem::epollCtl(epoll, operation, descriptor, interest, token);
    });
  }
  int waitEpoll(int epoll, std::span<epoll_event> events, int milliseconds) override {
    ++waits;
    --calls;
    return orError("waitEpoll",
                   [&] { return PosixSystem::waitEpoll(epoll, events, milliseconds); });
  }
  int makeFifo(const std::string& path, mode_t mode) override {
    made.push_back(path);
    return orError("makeFifo", [&] { return PosixSystem::makeFifo(path, mode); });
  }
  int fstat(int descriptor, struct stat& out) override {
    return orError("fstat", [&] {
      const int result = PosixSystem::fstat(descriptor, out);
      setOwnership(out);
      return result;
    });
  }
  int lstat(const std::string& path, struct stat& out) override {
    return orError("lstat", [&] {
      const int result = PosixSystem::lstat(path, out);
      setOwnership(out);
      return result;
    });
  }
  int setMode(int descriptor, mode_t mode) override {
    return orError("setMode", [&] { return PosixSystem::setMode(descriptor, mode); });
  }
  int list(const char* directory, const std::function<bool(std::string_view)>& visit) override {
    return orError("list", [&] { return PosixSystem::list(directory, visit); });
  }
  int random(std::span<std::uint8_t> buffer) override {
    return orError("random", [&] { return PosixSystem::random(buffer); });
  }

  int descriptorLimit() override { return limit != 0 ? limit : PosixSystem::descriptorLimit(); }
  uid_t effectiveUser() override { return user.value_or(PosixSystem::effectiveUser()); }

  /// The limit of descriptors, if it is not 0, and the user, if it is set.
  int limit = 0;
  std::optional<uid_t> user;
  /// How many times too fast timers are.
  int timerSpeed = 1;
  /// The owner and the group of all files, if they are set.
  std::optional<uid_t> owner;
  std::optional<gid_t> group;

  /// The time in nanoseconds, if it is not 0.
  std::int64_t setNs = 0;

  /// What the peer does while this side waits, if time is frozen.
  std::function<void()> whileWaiting;

  /// The paths that were passed to makeFifo.
  std::vector<std::string> made;

  /// How far a wait that is made to fail advances the clock, in milliseconds.
  int failedWaitMs = 0;

  /// How many watches were to be created.
  int watchesCreated = 0;

  /// The number of writes of two buffers.
  int writesOfTwoBuffers = 0;

  /// The number of calls that submit writes, and of these writes.
  std::atomic<int> submissions{0};
  std::atomic<std::size_t> submittedWrites{0};
  /// The number of single writes.
  std::atomic<int> writes{0};
  /// The most writes of which one call makes.
  std::size_t submitLimit = SIZE_MAX;

  /// The most bytes of one write and of one read.
  std::size_t writeLimit = SIZE_MAX;
  std::size_t readLimit = SIZE_MAX;

  std::atomic<int> clockReads{0};

  /// The number of waits for the reactor, and of all other calls.
  std::atomic<int> waits{0};
  std::atomic<int> calls{0};

 protected:
  int openOnce(const char* path, int flags) override {
    return orError("open", [&] { return PosixSystem::openOnce(path, flags); });
  }
  ssize_t readOnce(int descriptor, std::span<std::uint8_t> buffer) override {
    return orError("read", [&] {
      return PosixSystem::readOnce(descriptor, buffer.first(std::min(readLimit, buffer.size())));
    });
  }
  ssize_t writeOnce(int descriptor, std::span<const std::uint8_t> head,
                    std::span<const std::uint8_t> body) override {
    ++writes;
    writesOfTwoBuffers += body.empty() ? 0 : 1;
    return orError("write", [&] {
      return writeLimit < head.size() + body.size()
                 ? PosixSystem::writeOnce(descriptor, head.first(std::min(writeLimit, head.size())),
                                          {})
                 : PosixSystem::writeOnce(descriptor, head, body);
    });
  }
  int lockOnce(int descriptor) override {
    return orError("lock", [&] { return PosixSystem::lockOnce(descriptor); });
  }

 private:
  void setOwnership(struct stat& file) const {
    file.st_uid = owner.value_or(file.st_uid);
    file.st_gid = group.value_or(file.st_gid);
  }
  /// The error that this call is to return, or 0.
  int takeError(const char* call) {
    ++calls;
    if (times_ == 0 || call_ != call) {
      return 0;
    }
    if (skip_ > 0) {
      --skip_;
      return 0;
    }
    --times_;
    hasFailed_ = true;
    return error_;
  }
  template <typename Call>
  auto orError(const char* name, Call call) -> decltype(call()) {
    const int error = takeError(name);
    return error < 0 ? error : call();
  }

  std::string call_;
  int error_ = 0;
  int skip_ = 0;
  int times_ = 0;
  bool hasFailed_ = false;
  bool frozen_ = false;
  std::atomic<std::int64_t> offset_{0};
};

}  // namespace EvtSrv::internal
