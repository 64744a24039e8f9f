#include "evtsrv/source/system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <memory>
#include <utility>

#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/signal_block.h"
#include "evtsrv/source/value_or_errno.h"

namespace EvtSrv::internal {

namespace {

template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -EINTR) {
    result = call();
  }
  return result;
}

std::int64_t nanosecondsOf(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// Supported since Linux 6.18; the headers of the C library may be older.
constexpr int rwfNoSignal = 0x100;

/// Whether `result` may mean that the kernel does not support `RWF_NOSIGNAL`, or that a
/// system call filter rejects pwritev2(2). It may also be an error of the descriptor.
bool mayBeUnsupported(ssize_t result) {
  return result == -EOPNOTSUPP || result == -EINVAL || result == -ENOSYS || result == -EPERM ||
         result == -EACCES;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

int System::open(const std::string& path, int flags) {
  return uninterrupted([&] { return openOnce(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW); });
}

ssize_t System::read(int descriptor, std::span<std::uint8_t> buffer) {
  return uninterrupted([&] { return readOnce(descriptor, buffer); });
}

ssize_t System::write(int descriptor, std::span<const std::uint8_t> head,
                      std::span<const std::uint8_t> body) {
  return uninterrupted([&] { return writeOnce(descriptor, head, body); });
}

int System::lock(int descriptor) {
  return uninterrupted([&] { return lockOnce(descriptor); });
}

int PosixSystem::openOnce(const char* path, int flags) {
  return valueOrErrno(::open(path, flags));
}

void PosixSystem::close(int descriptor) {
  // Linux frees the descriptor before any error can happen (close(2)).
  static_cast<void>(::close(descriptor));
}

ssize_t PosixSystem::readOnce(int descriptor, std::span<std::uint8_t> buffer) {
  return valueOrErrno(::read(descriptor, buffer.data(), buffer.size()));
}

ssize_t PosixSystem::writeOnce(int descriptor, std::span<const std::uint8_t> head,
                               std::span<const std::uint8_t> body) {
  const std::array<iovec, 2> both{iovec{const_cast<std::uint8_t*>(head.data()), head.size()},
                                  iovec{const_cast<std::uint8_t*>(body.data()), body.size()}};
  const auto parts = std::span(both).first(body.empty() ? 1 : 2);
  const bool tryNoSignal = triesNoSignal && supportsNoSignal_.load(std::memory_order_relaxed);
  const ssize_t first = tryNoSignal ? writeWithoutSignal(descriptor, parts) : 0;
  if (tryNoSignal && !mayBeUnsupported(first)) {
    return first;
  }
  SignalBlock block(SIGPIPE);
  const ssize_t result =
      valueOrErrno(::writev(descriptor, parts.data(), static_cast<int>(parts.size())));
  if (result == -EPIPE) {
    block.takeRaised();
  }
  if (tryNoSignal && result != first) {
    supportsNoSignal_.store(false, std::memory_order_relaxed);
  }
  return result;
}

ssize_t PosixSystem::writeWithoutSignal(int descriptor, std::span<const iovec> parts) {
  constexpr off_t nextPosition = -1;
  return valueOrErrno(::pwritev2(descriptor, parts.data(), static_cast<int>(parts.size()),
                                 nextPosition, rwfNoSignal));
}

int PosixSystem::lockOnce(int descriptor) {
  return valueOrErrno(::flock(descriptor, LOCK_EX | LOCK_NB));
}

int PosixSystem::poll(std::span<pollfd> descriptors, int milliseconds) {
  return valueOrErrno(::poll(descriptors.data(), descriptors.size(), milliseconds));
}

int PosixSystem::createEpoll() {
  return valueOrErrno(::epoll_create1(EPOLL_CLOEXEC));
}

int PosixSystem::epollCtl(int epoll, int operation, int descriptor, std::uint32_t interest,
                          std::uint64_t token) {
  epoll_event event{};
  event.events = interest;
  event.data.u64 = token;
  return valueOrErrno(::epoll_ctl(epoll, operation, descriptor, &event));
}

int PosixSystem::waitEpoll(int epoll, std::span<epoll_event> events, int milliseconds) {
  return valueOrErrno(
      ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), milliseconds));
}

int PosixSystem::createEvent() {
  return valueOrErrno(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

int PosixSystem::createTimer() {
  return valueOrErrno(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
}

int PosixSystem::setTimer(int timer, int milliseconds) {
  itimerspec time{};
  time.it_value = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
  return valueOrErrno(::timerfd_settime(timer, 0, &time, nullptr));
}

void PosixSystem::signalEvent(int descriptor) noexcept {
  const int before = errno;
  const std::uint64_t one = 1;
  // It fails only if the counter is full, and then the event is readable already, or if
  // something other than the event interferes, such as a system call filter. A lost event
  // could be a lost request to stop, so that is tried again.
  constexpr int attempts = 3;
  for (int i = 0; i < attempts && ::write(descriptor, &one, sizeof one) < 0; ++i) {
  }
  errno = before;
}

int PosixSystem::makeFifo(const std::string& path, mode_t mode) {
  const int result = valueOrErrno(::mkfifo(path.c_str(), mode));
  return result == -EACCES || result == -EPERM ? -EROFS : result;
}

int PosixSystem::unlink(const std::string& path) {
  return valueOrErrno(::unlink(path.c_str()));
}

int PosixSystem::removeDirectory(const std::string& path) {
  return valueOrErrno(::rmdir(path.c_str()));
}

int PosixSystem::fstat(int descriptor, struct stat& out) {
  return valueOrErrno(::fstat(descriptor, &out));
}

int PosixSystem::lstat(const std::string& path, struct stat& out) {
  return valueOrErrno(::lstat(path.c_str(), &out));
}

int PosixSystem::setMode(int descriptor, mode_t mode) {
  // fchmod(2) fails for O_PATH descriptors; their link in /proc leads to the file.
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  return valueOrErrno(::chmod(link.c_str(), mode));
}

int PosixSystem::setOwner(int descriptor, uid_t user, gid_t group) {
  return valueOrErrno(::fchownat(descriptor, "", user, group, AT_EMPTY_PATH));
}

int PosixSystem::list(const char* directory, const std::function<bool(std::string_view)>& visit) {
  const std::unique_ptr<DIR, CloseDirectory> opened(::opendir(directory));
  if (opened == nullptr) {
    return -errno;
  }
  errno = 0;
  for (const dirent* entry = ::readdir(opened.get()); entry != nullptr;
       entry = ::readdir(opened.get())) {
    if (!visit(entry->d_name)) {
      return 0;
    }
    errno = 0;
  }
  return -errno;
}

int PosixSystem::random(std::span<std::uint8_t> buffer) {
  // Up to 256 bytes are returned in one piece (getrandom(2)).
  const auto filled =
      uninterrupted([&] { return valueOrErrno(::getrandom(buffer.data(), buffer.size(), 0)); });
  if (filled < 0) {
    return static_cast<int>(filled);
  }
  return static_cast<std::size_t>(filled) == buffer.size() ? 0 : -EIO;
}

int PosixSystem::openDescriptorOf(std::uint32_t process, std::uint32_t descriptor) {
  // The entry is a link, so this is the only open that follows one. To open a device or a
  // pipe can have side effects, so the type of the file is checked first.
  const auto pathOf = [](const std::string& of, std::uint64_t number) {
    return "/proc/" + of + "/fd/" + std::to_string(number);
  };
  const std::string link = pathOf(std::to_string(process), descriptor);
  FileDescriptor found;
  int result =
      found.adopt(*this, uninterrupted([&] { return openOnce(link.c_str(), O_PATH | O_CLOEXEC); }));
  struct stat status {};
  if (result == 0) {
    result = this->fstat(found.number(), status);
  }
  if (result < 0) {
    return result;
  }
  if (!S_ISREG(status.st_mode)) {
    return -EPERM;
  }
  const std::string own = pathOf("self", static_cast<std::uint64_t>(found.number()));
  return uninterrupted([&] { return openOnce(own.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); });
}

int PosixSystem::descriptorLimit() {
  rlimit limit{};
  const bool isKnown = ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < INT_MAX;
  return isKnown ? static_cast<int>(limit.rlim_cur) : INT_MAX;
}

std::uint32_t PosixSystem::processId() {
  return static_cast<std::uint32_t>(::getpid());
}

std::int64_t PosixSystem::nowMs() {
  return nanosecondsOf(CLOCK_MONOTONIC) / 1'000'000;
}

std::int64_t PosixSystem::nowNs() {
  return nanosecondsOf(CLOCK_MONOTONIC);
}

std::int64_t PosixSystem::realTimeNs() {
  return nanosecondsOf(CLOCK_REALTIME);
}

std::int64_t PosixSystem::threadTimeNs() {
  return nanosecondsOf(CLOCK_THREAD_CPUTIME_ID);
}

uid_t PosixSystem::effectiveUser() {
  return ::geteuid();
}

bool PosixSystem::isPrimaryGroup(gid_t group) {
  return group == ::getegid() || group == ::getgid();
}

bool PosixSystem::isSupplementaryGroup(gid_t group) {
  const int count = ::getgroups(0, nullptr);
  if (count <= 0) {
    return false;
  }
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  const int got = ::getgroups(count, groups.data());
  return got > 0 && std::find(groups.begin(), groups.begin() + got, group) != groups.begin() + got;
}

System& posixSystem() {
  static PosixSystem system;
  return system;
}

Deadline::Deadline(System& system, int milliseconds)
    : system_(system),
      total_(milliseconds),
      end_(milliseconds > 0 ? system.nowMs() + milliseconds : 0) {}

bool Deadline::nextWait(int& wait) {
  if (total_ < 0) {
    wait = -1;
    return true;
  }
  if (expired_) {
    return false;
  }
  wait = std::exchange(started_, true)
             ? static_cast<int>(std::max<std::int64_t>(end_ - system_.nowMs(), 0))
             : total_;
  expired_ = wait == 0;
  return true;
}

}  // namespace EvtSrv::internal
