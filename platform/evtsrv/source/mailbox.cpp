#include "evtsrv/source/mailbox.h"

#include <fcntl.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <new>
#include <utility>

#include "evtsrv/source/access.h"

namespace EvtSrv::internal {

namespace {

// How often another process may remove the mailbox while it is being opened.
constexpr int maxMailboxOpenAttempts = 16;

// The most bytes that one read takes from the watch.
constexpr std::size_t watchReadSize = 4096;
// How often one dispatch reads from it.
constexpr int maxWatchReads = 16;

// What happens in a directory when a name in it becomes free.
constexpr std::uint32_t removalEvents = IN_DELETE | IN_MOVED_FROM;

bool isAllowedInPortName(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x20 && byte != 0x7F && character != '/' && character != ';';
}

/// The slots that mailboxes of this process have taken.
std::atomic<int> watchSlots{0};

}  // namespace

bool WatchSlot::take() {
  isTaken_ = isTaken_ || watchSlots.fetch_add(1) < maxInProcess;
  if (!isTaken_) {
    watchSlots.fetch_sub(1);
  }
  return isTaken_;
}

void WatchSlot::release() {
  if (std::exchange(isTaken_, false)) {
    watchSlots.fetch_sub(1);
  }
}

bool isPortName(std::string_view name) {
  return !name.empty() && name.size() <= maxPortName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isAllowedInPortName);
}

std::string mailboxFileName(std::string_view name) {
  return std::string(name).append(".fifo");
}

std::string mailboxPath(std::string_view name) {
  return std::string(pipeDirectory).append("/").append(mailboxFileName(name));
}

EvtRes Mailbox::open(System& system, const std::string& name, std::optional<gid_t> group) {
  if (!isPortName(name)) {
    return EvtRes_BadName;
  }
  system_ = &system;
  path_ = mailboxPath(name);
  group_ = group;
  EvtRes result = claim_.take(system, name);
  if (result == EvtRes_Success) {
    // Without watches a mailbox that is removed stays away.
    if (watchSlot_.take()) {
      static_cast<void>(watch_.adopt(system, system.createWatch()));
    }
    result = makePipe();
  }
  isOpen_ = result == EvtRes_Success;
  if (!isOpen_) {
    watch_.reset();
    watchSlot_.release();
    claim_.release();
  }
  return result;
}

EvtRes Mailbox::makePipe() {
  EvtRes result = EvtRes_SystemError;
  awaitsName_ = false;
  try {
    for (int attempt = 0; attempt < maxMailboxOpenAttempts; ++attempt) {
      if (tryMake(result) == Attempt::done) {
        break;
      }
      result = EvtRes_SystemError;
    }
  } catch (const std::bad_alloc&) {
    result = EvtRes_SystemError;
  }
  if (result != EvtRes_Success) {
    pipe_.reset();
  }
  return result;
}

Mailbox::Attempt Mailbox::tryMake(EvtRes& result) {
  const int made = system_->makeFifo(path_, ownMode);
  const auto failed = [&](int error) {
    // A pipe that no server will serve is removed again. A server that takes it over just
    // now makes its mailbox again.
    if (made == 0) {
      static_cast<void>(system_->unlink(path_));
    }
    result = resultOf(error);
    return Attempt::done;
  };
  if (made < 0 && made != -EEXIST) {
    result = resultOfMaking(made);
    return Attempt::done;
  }
  FileDescriptor name;
  int step = name.adopt(*system_, system_->open(path_, O_PATH));
  if (step < 0) {
    return step == -ENOENT ? Attempt::again : failed(step);
  }
  struct stat named {};
  step = system_->fstat(name.number(), named);
  if (step < 0) {
    return failed(step);
  }
  if (named.st_nlink == 0) {
    return Attempt::again;
  }
  if (!mayServe(*system_, named)) {
    awaitsName_ = true;
    result = EvtRes_NotPermitted;
    return Attempt::done;
  }
  // A client that finds a reader pins its session to the group.
  if (made == 0 && group_ && *group_ != named.st_gid) {
    step = setAccess(*system_, name.number(), named, {std::nullopt, group_, named.st_mode & 07777});
    if (step < 0) {
      return failed(step);
    }
    named.st_gid = *group_;
  }
  step = openPipe(name, named);
  if (step < 0) {
    return step == -ENOENT ? Attempt::again : failed(step);
  }
  step = lockPipe(named);
  if (step == -EBUSY) {
    awaitsName_ = true;
    result = EvtRes_NameInUse;
    return Attempt::done;
  }
  if (step < 0) {
    return step == -EAGAIN ? Attempt::again : failed(step);
  }
  const PipeAccess access{std::nullopt, group_, group_ ? sharedMailboxMode : ownMode};
  step = setAccess(*system_, name.number(), named, access);
  if (step < 0) {
    static_cast<void>(system_->unlink(path_));
    result = resultOf(step);
    return Attempt::done;
  }
  watchPipe();
  result = EvtRes_Success;
  // If it was removed before it was watched.
  return pathLeadsToPipe() ? Attempt::done : Attempt::again;
}

/// Locks the pipe, which was opened by the name of the file `named`. 0; `-EBUSY` if a live
/// server has it; `-EAGAIN` if another pipe is to be tried; or another negative error number.
int Mailbox::lockPipe(const struct stat& named) {
  struct stat opened {};
  int step = system_->fstat(pipe_.number(), opened);
  if (step == 0 && !isSameFile(named, opened)) {
    return -EAGAIN;
  }
  step = step < 0 ? step : system_->lock(pipe_.number());
  // Members of a group may have opened it for writing, and lock it then.
  const bool mayBeHeldByOthers = (named.st_mode & groupAndOthersBits) != 0;
  if (step == -EWOULDBLOCK) {
    pipe_.reset();
    step = mayBeHeldByOthers ? findReader() : 0;
    if (step != -ENXIO) {
      return step == 0 ? -EBUSY : step;
    }
  } else if (step < 0) {
    return step;
  } else if (!pathLeadsToPipe()) {
    return -EAGAIN;
  }
  // A client may have found the group of an earlier server, to which it would keep its session.
  const bool hasOtherGroup = group_ && *group_ != named.st_gid;
  if (!mayBeHeldByOthers && !hasOtherGroup) {
    return 0;
  }
  // The lock or, if another user has that, the claim keeps other servers from the name.
  if (pathLeadsTo(named)) {
    static_cast<void>(system_->unlink(path_));
  }
  return -EAGAIN;
}

/// 0 if a process reads the mailbox: a live server, since only this user and root can open a
/// shared one for reading; `-ENXIO` if none does; `-EAGAIN` if the mailbox has gone; or another
/// negative error number. This process must not have it open.
int Mailbox::findReader() {
  FileDescriptor writer;
  const int result = writer.adopt(*system_, system_->open(path_, O_WRONLY | O_NONBLOCK));
  return result == -ENOENT ? -EAGAIN : result;
}

int Mailbox::openPipe(const FileDescriptor& name, const struct stat& named) {
  // A pipe that is also open for writing never reports an end of file (fifo(7)).
  constexpr int flags = O_RDWR | O_NONBLOCK;
  int result = pipe_.adopt(*system_, system_->open(path_, flags));
  // If a strict umask removed this user's access when the pipe was made.
  if (result == -EACCES && named.st_uid == system_->effectiveUser()) {
    result = system_->setMode(name.number(), ownMode);
    if (result == 0) {
      result = pipe_.adopt(*system_, system_->open(path_, flags));
    }
  }
  return result;
}

bool Mailbox::pathLeadsToPipe() {
  struct stat opened {};
  return pipe_.isOpen() && system_->fstat(pipe_.number(), opened) == 0 && pathLeadsTo(opened);
}

bool Mailbox::pathLeadsTo(const struct stat& file) {
  struct stat named {};
  return system_->lstat(path_, named) == 0 && isSameFile(named, file);
}

void Mailbox::remove() {
  if (!isOpen_) {
    return;
  }
  isOpen_ = false;
  endWatch();
  watch_.reset();
  watchSlot_.release();
  if (pathLeadsToPipe()) {
    static_cast<void>(system_->unlink(path_));
  }
  pipe_.reset();
  claim_.release();
}

EvtRes Mailbox::restore() {
  // A client whose hello was not read tries again when the former pipe closes, and is to find
  // the new one.
  FileDescriptor former = std::move(pipe_);
  pipe_.reset();
  EvtRes result = makePipe();
  if (result != EvtRes_Success && former.isOpen()) {
    // It may be in the way: its descriptor, or its lock if it has its name again.
    former.reset();
    result = makePipe();
  }
  if (result != EvtRes_Success && !watchesDirectory_) {
    watchDirectory();
    // What was in the way may have gone before it was watched.
    result = makePipe();
  }
  return result;
}

void Mailbox::watchPipe() {
  endWatch();
  if (watch_.isOpen()) {
    // While the pipe is open, its removal is a change of the number of its links.
    watchNumber_ =
        system_->addWatch(watch_.number(), path_, IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF);
  }
}

void Mailbox::watchDirectory() {
  endWatch();
  if (watch_.isOpen()) {
    watchNumber_ = system_->addWatch(watch_.number(), pipeDirectoryToWatch, removalEvents);
    watchesDirectory_ = watchNumber_ >= 0;
  }
}

void Mailbox::endWatch() {
  watchesDirectory_ = false;
  if (watchNumber_ >= 0) {
    system_->removeWatch(watch_.number(), std::exchange(watchNumber_, -1));
  }
}

bool Mailbox::takeRemoval() {
  alignas(inotify_event) std::array<std::uint8_t, watchReadSize> bytes{};
  bool mayBeFree = false;
  for (int reads = 0; reads < maxWatchReads; ++reads) {
    const ssize_t count = system_->read(watch_.number(), bytes);
    if (count <= 0) {
      break;
    }
    mayBeFree =
        mayRestoreAfter(std::span(bytes).first(static_cast<std::size_t>(count))) || mayBeFree;
  }
  return isOpen_ && !pathLeadsToPipe() && (pipe_.isOpen() || mayBeFree);
}

/// Whether the mailbox may be made again after one of the events: if another file has its
/// name, when that goes; otherwise when any other file goes, for the file system may have been
/// full. What an attempt that failed removes itself does not count, nor that a watch has ended.
bool Mailbox::mayRestoreAfter(std::span<const std::uint8_t> events) {
  const std::string_view file = std::string_view(path_).substr(path_.rfind('/') + 1);
  bool result = false;
  while (const auto event = takeWatchEvent(events)) {
    const bool isName = event->name == file;
    result = result || (event->what & IN_Q_OVERFLOW) != 0 ||
             ((event->what & removalEvents) != 0 && isName == awaitsName_);
    if ((event->what & IN_IGNORED) != 0 && event->watch == watchNumber_) {
      watchNumber_ = -1;
      watchesDirectory_ = false;
    }
  }
  return result;
}

}  // namespace EvtSrv::internal
