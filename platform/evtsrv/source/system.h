#pragma once

#include <poll.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/result.h"

/// The one seam between this library and the operating system.
///
/// Every call gives a value, or minus an error number (errno(3)); nothing above
/// this looks at errno. The public calls go on where a signal interrupted them,
/// except the ones that wait, whose time the caller knows. All calls may be made
/// from any thread. Tests derive from `PosixSystem` to let a call fail or to bring
/// time from outside.
namespace EvtSrv::internal {

class System {
 public:
  virtual ~System() = default;

  /// open(2). `O_CLOEXEC` and `O_NOFOLLOW` are added to `flags`.
  [[nodiscard]] int open(const std::string& path, int flags);
  /// close(2). The descriptor is gone whatever the system says.
  virtual void close(int descriptor) = 0;
  /// read(2); 0 is the end of the file.
  [[nodiscard]] ssize_t read(int descriptor, std::span<std::uint8_t> room);
  /// writev(2) of `head` and then `body`. A pipe without a reader gives `-EPIPE`;
  /// no `SIGPIPE` reaches the program, whose disposition and mask stay as they
  /// are.
  [[nodiscard]] ssize_t write(int descriptor, std::span<const std::uint8_t> head,
                              std::span<const std::uint8_t> body = {});
  /// flock(2) with `LOCK_EX | LOCK_NB`.
  [[nodiscard]] int lock(int descriptor);

  /// poll(2): waits at most `milliseconds`; 0 where nothing came.
  [[nodiscard]] virtual int poll(std::span<pollfd> descriptors, int milliseconds) = 0;
  /// epoll_create1(2).
  [[nodiscard]] virtual int createEpoll() = 0;
  /// epoll_ctl(2) with `operation` `EPOLL_CTL_ADD`, `_MOD` or `_DEL`.
  [[nodiscard]] virtual int epollCtl(int epoll, int operation, int descriptor,
                                     std::uint32_t interest, std::uint64_t token) = 0;
  /// epoll_wait(2); below 0 milliseconds there is no limit.
  [[nodiscard]] virtual int waitEpoll(int epoll, std::span<epoll_event> events,
                                      int milliseconds) = 0;
  /// eventfd(2), not blocking.
  [[nodiscard]] virtual int createEvent() = 0;
  /// Makes an eventfd readable. Async-signal-safe; errno is left as it was.
  virtual void signalEvent(int descriptor) noexcept = 0;

  /// mkfifo(3); the umask takes its part of `mode`.
  [[nodiscard]] virtual int makeFifo(const std::string& path, mode_t mode) = 0;
  /// unlink(2).
  [[nodiscard]] virtual int unlink(const std::string& path) = 0;
  /// fstat(2).
  [[nodiscard]] virtual int fstat(int descriptor, struct stat& out) = 0;
  /// lstat(2).
  [[nodiscard]] virtual int lstat(const std::string& path, struct stat& out) = 0;
  /// Sets exactly `mode`, also of a descriptor that was opened with `O_PATH`.
  [[nodiscard]] virtual int setMode(int descriptor, mode_t mode) = 0;
  /// chown(2), also of a descriptor that was opened with `O_PATH`; -1 keeps.
  [[nodiscard]] virtual int setOwner(int descriptor, uid_t user, gid_t group) = 0;
  /// The names in `directory` that begin with `prefix` replace `names`.
  [[nodiscard]] virtual int list(const char* directory, std::string_view prefix,
                                 std::vector<std::string>& names) = 0;
  /// getrandom(2): fills `room` or fails.
  [[nodiscard]] virtual int random(std::span<std::uint8_t> room) = 0;

  /// memfd_create(2): a nameless file of `size` zero bytes that can be sealed.
  [[nodiscard]] virtual int createMemory(std::size_t size) = 0;
  /// `F_ADD_SEALS` and `F_GET_SEALS` of fcntl(2).
  [[nodiscard]] virtual int addSeals(int descriptor, int seals) = 0;
  [[nodiscard]] virtual int seals(int descriptor) = 0;
  /// mmap(2), shared, for reading and where `writable` for writing too; sets
  /// `mapping` where it succeeds.
  [[nodiscard]] virtual int map(int descriptor, std::size_t size, bool writable,
                                void*& mapping) = 0;
  /// munmap(2) of a whole mapping.
  virtual void unmap(const void* mapping, std::size_t size) = 0;
  /// Opens a regular file that another process has open, for reading (proc(5),
  /// /proc/PID/fd); `-EPERM` for what is none, which is then not touched.
  [[nodiscard]] virtual int openDescriptorOf(std::uint32_t process, std::uint32_t descriptor) = 0;
  /// getpid(2).
  [[nodiscard]] virtual std::uint32_t processId() = 0;

  /// A clock that never goes back, in milliseconds.
  [[nodiscard]] virtual std::int64_t nowMs() = 0;
  [[nodiscard]] virtual uid_t effectiveUser() = 0;
  /// Whether this process has `group`, as its effective or a supplementary one.
  [[nodiscard]] virtual bool isMember(gid_t group) = 0;

 protected:
  // One attempt each; may give `-EINTR`.
  virtual int openOnce(const char* path, int flags) = 0;
  virtual ssize_t readOnce(int descriptor, std::span<std::uint8_t> room) = 0;
  virtual ssize_t writeOnce(int descriptor, std::span<const std::uint8_t> head,
                            std::span<const std::uint8_t> body) = 0;
  virtual int lockOnce(int descriptor) = 0;
};

/// Whether a write is tried with `RWF_NOSIGNAL` first. The thread sanitizer does not
/// know pwritev2(2), and so would not see that what one thread did before a write comes
/// before what another does after it has read that.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool asksForNoSignal = false;
#elif defined(__has_feature)
inline constexpr bool asksForNoSignal = !__has_feature(thread_sanitizer);
#else
inline constexpr bool asksForNoSignal = true;
#endif

/// The system itself.
class PosixSystem : public System {
 public:
  void close(int descriptor) override;
  int poll(std::span<pollfd> descriptors, int milliseconds) override;
  int createEpoll() override;
  int epollCtl(int epoll, int operation, int descriptor, std::uint32_t interest,
               std::uint64_t token) override;
  int waitEpoll(int epoll, std::span<epoll_event> events, int milliseconds) override;
  int createEvent() override;
  void signalEvent(int descriptor) noexcept override;
  int makeFifo(const std::string& path, mode_t mode) override;
  int unlink(const std::string& path) override;
  int fstat(int descriptor, struct stat& out) override;
  int lstat(const std::string& path, struct stat& out) override;
  int setMode(int descriptor, mode_t mode) override;
  int setOwner(int descriptor, uid_t user, gid_t group) override;
  int list(const char* directory, std::string_view prefix,
           std::vector<std::string>& names) override;
  int random(std::span<std::uint8_t> room) override;
  int createMemory(std::size_t size) override;
  int addSeals(int descriptor, int seals) override;
  int seals(int descriptor) override;
  int map(int descriptor, std::size_t size, bool writable, void*& mapping) override;
  void unmap(const void* mapping, std::size_t size) override;
  int openDescriptorOf(std::uint32_t process, std::uint32_t descriptor) override;
  std::uint32_t processId() override;
  std::int64_t nowMs() override;
  uid_t effectiveUser() override;
  bool isMember(gid_t group) override;

 protected:
  int openOnce(const char* path, int flags) override;
  ssize_t readOnce(int descriptor, std::span<std::uint8_t> room) override;
  ssize_t writeOnce(int descriptor, std::span<const std::uint8_t> head,
                    std::span<const std::uint8_t> body) override;
  int lockOnce(int descriptor) override;

  /// pwritev2(2) with `RWF_NOSIGNAL`: in one call a write that raises no signal.
  /// `-EOPNOTSUPP`, `-EINVAL` or `-ENOSYS` where this kernel does not know it,
  /// `-EPERM` or `-EACCES` where a filter of system calls (seccomp(2)) does not.
  virtual ssize_t writeWithoutSignal(int descriptor, std::span<const iovec> parts);

 private:
  std::atomic<bool> knowsNoSignal_{true};
};

/// The system that programs run on.
System& posixSystem();

/// What a refusal (minus an error number) means to a user of event ports.
EvtRes resultOf(ssize_t refusal);

/// The time by which something must have come.
class Deadline {
 public:
  /// `milliseconds` from now; below 0 there is no limit.
  Deadline(System& system, int milliseconds);

  /// Moves `wait` to how long the next wait may take (-1: without limit). The first
  /// one, nearly always the only one, may take the whole time without another look at
  /// the clock: nothing blocks before it. When the time has run out there is still one
  /// last look (0) and then false, so that a process that slept through the time takes
  /// what came meanwhile.
  bool nextWait(int& wait);

 private:
  System& system_;
  int first_;  // Below 0: no limit.
  std::int64_t end_;
  bool begun_ = false;
  bool over_ = false;
};

}  // namespace EvtSrv::internal
