#pragma once

#include <poll.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/result.h"

/// The interface between this library and the operating system.
///
/// Every call that can fail returns a value or a negative error number (errno(3)); the
/// code above it never reads errno. A call that a signal has interrupted is repeated,
/// except the calls that wait: only the caller knows how much time is left. All calls are
/// thread-safe. Tests derive from `PosixSystem` to make a call fail or to control time.
namespace EvtSrv::internal {

/// The longest name of a socket in the abstract namespace.
inline constexpr std::size_t maxAddress = 106;

/// One of several writes that are made at once.
struct QueuedWrite {
  int descriptor = -1;
  std::span<const std::uint8_t> bytes;
  ssize_t result = 0;  ///< the number of bytes written, or a negative error number
};

/// The most writes at once.
inline constexpr std::size_t maxQueuedWrites = 64;

class System {
 public:
  virtual ~System() = default;

  /// open(2). `O_CLOEXEC` and `O_NOFOLLOW` are added to `flags`.
  [[nodiscard]] int open(const std::string& path, int flags);
  /// close(2). The descriptor is closed even if the system reports an error.
  virtual void close(int descriptor) = 0;
  /// read(2); 0 is the end of the file.
  [[nodiscard]] ssize_t read(int descriptor, std::span<std::uint8_t> buffer);
  /// writev(2) of `head` and then `body`. Returns `-EPIPE` for a pipe without a reader;
  /// no `SIGPIPE` reaches the program, and its disposition and mask do not change.
  [[nodiscard]] ssize_t write(int descriptor, std::span<const std::uint8_t> head,
                              std::span<const std::uint8_t> body = {});
  /// io_setup(2): makes a queue for `submitWrites`.
  [[nodiscard]] virtual int createWriteQueue(std::uint64_t& queue) = 0;
  /// io_destroy(2).
  virtual void destroyWriteQueue(std::uint64_t queue) = 0;
  /// io_submit(2): writes to pipes that do not block, in this order, before a process that is
  /// woken up by one of them takes the processor. At most `maxQueuedWrites`. Returns how many were
  /// made, from the first one on, and sets their results; no `SIGPIPE` reaches the program.
  [[nodiscard]] virtual int submitWrites(std::uint64_t queue, std::span<QueuedWrite> writes) = 0;
  /// flock(2) with `LOCK_EX | LOCK_NB`.
  [[nodiscard]] int lock(int descriptor);

  /// poll(2): waits at most `milliseconds` (below 0: no limit); 0 after a time-out.
  [[nodiscard]] virtual int poll(std::span<pollfd> descriptors, int milliseconds) = 0;
  /// epoll_create1(2).
  [[nodiscard]] virtual int createEpoll() = 0;
  /// epoll_ctl(2) with `operation` `EPOLL_CTL_ADD`, `_MOD` or `_DEL`.
  [[nodiscard]] virtual int epollCtl(int epoll, int operation, int descriptor,
                                     std::uint32_t interest, std::uint64_t token) = 0;
  /// epoll_wait(2): waits at most `milliseconds` (below 0: no limit).
  [[nodiscard]] virtual int waitEpoll(int epoll, std::span<epoll_event> events,
                                      int milliseconds) = 0;
  /// eventfd(2), nonblocking.
  [[nodiscard]] virtual int createEvent() = 0;
  /// timerfd_create(2) of the monotonic clock, nonblocking.
  [[nodiscard]] virtual int createTimer() = 0;
  /// timerfd_settime(2): lets the timer expire once, in `milliseconds` (1 or more).
  [[nodiscard]] virtual int setTimer(int timer, int milliseconds) = 0;
  /// Makes an eventfd readable. Async-signal-safe; does not change errno.
  virtual void signalEvent(int descriptor) noexcept = 0;

  /// mkfifo(3); the umask is applied to `mode`. `-EROFS` if no pipe can be made in the
  /// directory, also if it is not permitted.
  [[nodiscard]] virtual int makeFifo(const std::string& path, mode_t mode) = 0;
  /// unlink(2).
  [[nodiscard]] virtual int unlink(const std::string& path) = 0;
  /// rmdir(2).
  [[nodiscard]] virtual int removeDirectory(const std::string& path) = 0;
  /// fstat(2).
  [[nodiscard]] virtual int fstat(int descriptor, struct stat& out) = 0;
  /// lstat(2).
  [[nodiscard]] virtual int lstat(const std::string& path, struct stat& out) = 0;
  /// Sets exactly `mode`, also if `descriptor` was opened with `O_PATH`.
  [[nodiscard]] virtual int setMode(int descriptor, mode_t mode) = 0;
  /// chown(2), also if `descriptor` was opened with `O_PATH`; -1 keeps the present id.
  [[nodiscard]] virtual int setOwner(int descriptor, uid_t user, gid_t group) = 0;
  /// Calls `visit` with each name in `directory` until it returns false. It may remove the
  /// file.
  [[nodiscard]] virtual int list(const char* directory,
                                 const std::function<bool(std::string_view)>& visit) = 0;
  /// getrandom(2): fills the whole `buffer` or fails.
  [[nodiscard]] virtual int random(std::span<std::uint8_t> buffer) = 0;

  /// memfd_create(2): an unnamed file of `size` zero bytes that can be sealed. `-EFBIG`, and
  /// no `SIGXFSZ`, if this process may not make files of that size.
  [[nodiscard]] virtual int createMemory(std::size_t size) = 0;
  /// `F_ADD_SEALS` and `F_GET_SEALS` of fcntl(2).
  [[nodiscard]] virtual int addSeals(int descriptor, int seals) = 0;
  [[nodiscard]] virtual int seals(int descriptor) = 0;
  /// mmap(2), shared, for reading and, if `writable`, for writing. Sets `mapping` on
  /// success.
  [[nodiscard]] virtual int map(int descriptor, std::size_t size, bool writable,
                                void*& mapping) = 0;
  /// munmap(2) of a whole mapping.
  virtual void unmap(const void* mapping, std::size_t size) = 0;
  /// Opens the file of another process's descriptor for reading (proc(5), /proc/PID/fd).
  /// Returns `-EPERM`, without opening it, if it is not a regular file.
  [[nodiscard]] virtual int openDescriptorOf(std::uint32_t process, std::uint32_t descriptor) = 0;
  /// The present limit of this process's descriptors (getrlimit(2)).
  [[nodiscard]] virtual int descriptorLimit() = 0;
  /// Whether the kernel marks the robust mutexes that the calling thread holds when it ends
  /// (get_robust_list(2)). Not under a system call filter that rejects set_robust_list(2).
  [[nodiscard]] virtual bool reportsOwnerDeath() = 0;
  /// getpid(2).
  [[nodiscard]] virtual std::uint32_t processId() = 0;

  /// Makes a Unix socket that holds the abstract address `name` (unix(7), at most
  /// `maxAddress` bytes) as long as it is open. `-EADDRINUSE` if another one has it.
  [[nodiscard]] virtual int claimAddress(std::string_view name) = 0;
  /// Sets `user` to the effective user that has claimed `name`. `-ECONNREFUSED` if no process
  /// has, or not completely; `-EAGAIN` if its queue of connections stays full for a second.
  [[nodiscard]] virtual int holderOfAddress(std::string_view name, uid_t& user) = 0;
  /// accept4(2) at the socket of an address; `-EAGAIN` if no process has connected.
  [[nodiscard]] virtual int acceptConnection(int socket) = 0;

  /// inotify_init1(2), nonblocking.
  [[nodiscard]] virtual int createWatch() = 0;
  /// inotify_add_watch(2) for `events`; a link is not followed. The watch's number.
  [[nodiscard]] virtual int addWatch(int watch, const std::string& path, std::uint32_t events) = 0;
  /// inotify_rm_watch(2).
  virtual void removeWatch(int watch, int number) = 0;

  /// The time of the monotonic clock in milliseconds.
  [[nodiscard]] virtual std::int64_t nowMs() = 0;
  /// The time of the monotonic clock in nanoseconds.
  [[nodiscard]] virtual std::int64_t nowNs() = 0;
  /// The real time in nanoseconds since 1970-01-01 UTC.
  [[nodiscard]] virtual std::int64_t realTimeNs() = 0;
  /// The processor time that the calling thread has used, in nanoseconds.
  [[nodiscard]] virtual std::int64_t threadTimeNs() = 0;
  [[nodiscard]] virtual uid_t effectiveUser() = 0;
  /// Whether `group` is the primary group of this process: its effective or its real one.
  [[nodiscard]] virtual bool isPrimaryGroup(gid_t group) = 0;
  /// Whether `group` is a supplementary group of this process. The primary group may be
  /// one too (initgroups(3)).
  [[nodiscard]] virtual bool isSupplementaryGroup(gid_t group) = 0;

 protected:
  // One attempt each; may return `-EINTR`.
  virtual int openOnce(const char* path, int flags) = 0;
  virtual ssize_t readOnce(int descriptor, std::span<std::uint8_t> buffer) = 0;
  virtual ssize_t writeOnce(int descriptor, std::span<const std::uint8_t> head,
                            std::span<const std::uint8_t> body) = 0;
  virtual int lockOnce(int descriptor) = 0;
};

/// Whether a write is tried with `RWF_NOSIGNAL` first. Not with the thread sanitizer: it
/// does not intercept pwritev2(2), so it would not see that a write happens before the
/// read of the same bytes in another thread.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool triesNoSignal = false;
#elif defined(__has_feature)
inline constexpr bool triesNoSignal = !__has_feature(thread_sanitizer);
#else
inline constexpr bool triesNoSignal = true;
#endif

/// Whether writes are submitted. Not with the thread sanitizer, for the same reason.
inline constexpr bool submitsWrites = triesNoSignal;

/// The implementation on top of the operating system.
class PosixSystem : public System {
 public:
  void close(int descriptor) override;
  int createWriteQueue(std::uint64_t& queue) override;
  void destroyWriteQueue(std::uint64_t queue) override;
  int submitWrites(std::uint64_t queue, std::span<QueuedWrite> writes) override;
  int poll(std::span<pollfd> descriptors, int milliseconds) override;
  int createEpoll() override;
  int epollCtl(int epoll, int operation, int descriptor, std::uint32_t interest,
               std::uint64_t token) override;
  int waitEpoll(int epoll, std::span<epoll_event> events, int milliseconds) override;
  int createEvent() override;
  int createTimer() override;
  int setTimer(int timer, int milliseconds) override;
  void signalEvent(int descriptor) noexcept override;
  int makeFifo(const std::string& path, mode_t mode) override;
  int unlink(const std::string& path) override;
  int removeDirectory(const std::string& path) override;
  int fstat(int descriptor, struct stat& out) override;
  int lstat(const std::string& path, struct stat& out) override;
  int setMode(int descriptor, mode_t mode) override;
  int setOwner(int descriptor, uid_t user, gid_t group) override;
  int list(const char* directory, const std::function<bool(std::string_view)>& visit) override;
  int random(std::span<std::uint8_t> buffer) override;
  int createMemory(std::size_t size) override;
  int addSeals(int descriptor, int seals) override;
  int seals(int descriptor) override;
  int map(int descriptor, std::size_t size, bool writable, void*& mapping) override;
  void unmap(const void* mapping, std::size_t size) override;
  int openDescriptorOf(std::uint32_t process, std::uint32_t descriptor) override;
  int descriptorLimit() override;
  bool reportsOwnerDeath() override;
  std::uint32_t processId() override;
  int claimAddress(std::string_view name) override;
  int holderOfAddress(std::string_view name, uid_t& user) override;
  int acceptConnection(int socket) override;
  int createWatch() override;
  int addWatch(int watch, const std::string& path, std::uint32_t events) override;
  void removeWatch(int watch, int number) override;
  std::int64_t nowMs() override;
  std::int64_t nowNs() override;
  std::int64_t realTimeNs() override;
  std::int64_t threadTimeNs() override;
  uid_t effectiveUser() override;
  bool isPrimaryGroup(gid_t group) override;
  bool isSupplementaryGroup(gid_t group) override;

 protected:
  int openOnce(const char* path, int flags) override;
  ssize_t readOnce(int descriptor, std::span<std::uint8_t> buffer) override;
  ssize_t writeOnce(int descriptor, std::span<const std::uint8_t> head,
                    std::span<const std::uint8_t> body) override;
  int lockOnce(int descriptor) override;

  /// pwritev2(2) with `RWF_NOSIGNAL`: a write that raises no signal. `-EOPNOTSUPP`,
  /// `-EINVAL` or `-ENOSYS` if the kernel does not support it; `-EPERM` or `-EACCES` if a
  /// system call filter (seccomp(2)) rejects it.
  virtual ssize_t writeWithoutSignal(int descriptor, std::span<const iovec> parts);

 private:
  std::atomic<bool> supportsNoSignal_{true};
};

/// What a watch has reported (inotify(7)).
struct WatchEvent {
  std::uint32_t what = 0;  ///< a set of `IN_…` bits
  int watch = -1;          ///< the number of the watch
  std::string_view name;   ///< of the file in a directory; empty if it is the watched file itself
};

/// Removes the first event from `bytes`, what was read of a watch; empty if no whole one is left.
/// Its name is valid as long as the bytes that were read.
std::optional<WatchEvent> takeWatchEvent(std::span<const std::uint8_t>& bytes);

/// The instance that programs use.
System& posixSystem();

/// The result that a negative error number means for a user of event ports.
EvtRes resultOf(ssize_t error);

/// The same for an error of making a pipe.
EvtRes resultOfMaking(ssize_t error);

/// The time limit of an operation that waits several times.
class Deadline {
 public:
  /// `milliseconds` from now; below 0: no limit.
  Deadline(System& system, int milliseconds);

  /// Sets `wait` to the maximum length of the next wait in milliseconds (-1: no limit);
  /// returns false if there is to be none. The first wait, usually the only one, gets the
  /// whole time without a second look at the clock, because nothing blocks before it.
  /// After the time has run out there is one more wait of 0, so that a process that was
  /// stopped meanwhile still takes what has come.
  bool nextWait(int& wait);

 private:
  System& system_;
  int total_;  // Below 0: no limit.
  std::int64_t end_;
  bool started_ = false;
  bool expired_ = false;
};

}  // namespace EvtSrv::internal
