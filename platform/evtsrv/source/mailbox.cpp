#include "evtsrv/source/mailbox.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "evtsrv/source/access.h"

namespace EvtSrv::internal {

namespace {

// How often another process may remove the mailbox while it is being opened.
constexpr int maxOpenAttempts = 16;

bool isAllowedInPortName(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x20 && byte != 0x7F && character != '/' && character != ';';
}

}  // namespace

bool isPortName(std::string_view name) {
  return !name.empty() && name.size() <= maxPortName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isAllowedInPortName);
}

std::string mailboxPath(std::string_view name) {
  return std::string(pipeDirectory).append("/").append(name).append(".fifo");
}

EvtRes Mailbox::open(System& system, const std::string& name, std::optional<gid_t> group) {
  if (!isPortName(name)) {
    return EvtRes_BadName;
  }
  system_ = &system;
  path_ = mailboxPath(name);
  for (int attempt = 0; attempt < maxOpenAttempts; ++attempt) {
    EvtRes result = EvtRes_SystemError;
    if (tryOpen(group, result) == Attempt::done) {
      if (result != EvtRes_Success) {
        pipe_.reset();
      }
      return result;
    }
  }
  pipe_.reset();
  return EvtRes_SystemError;
}

Mailbox::Attempt Mailbox::tryOpen(std::optional<gid_t> group, EvtRes& result) {
  const int made = system_->makeFifo(path_, ownMode);
  const auto failed = [&](int error) {
    // A pipe that nobody will serve is not left behind. A server that takes it over just
    // now makes its mailbox again.
    if (made == 0) {
      static_cast<void>(system_->unlink(path_));
    }
    result = resultOf(error);
    return Attempt::done;
  };
  if (made < 0 && made != -EEXIST) {
    return failed(made);
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
    result = EvtRes_NotPermitted;
    return Attempt::done;
  }
  step = openPipe(name, named);
  if (step < 0) {
    return step == -ENOENT ? Attempt::again : failed(step);
  }
  struct stat opened {};
  step = system_->fstat(pipe_.number(), opened);
  if (step < 0) {
    return failed(step);
  }
  if (!isSameFile(named, opened)) {
    return Attempt::again;
  }
  step = system_->lock(pipe_.number());
  if (step == -EWOULDBLOCK) {
    result = EvtRes_NameInUse;
    return Attempt::done;
  }
  if (step < 0) {
    return failed(step);
  }
  if (!pathLeadsToPipe()) {
    return Attempt::again;
  }
  const PipeAccess access{std::nullopt, group, group ? sharedMailboxMode : ownMode};
  step = setAccess(*system_, name.number(), opened, access);
  if (step < 0) {
    remove();
    result = resultOf(step);
    return Attempt::done;
  }
  result = EvtRes_Success;
  return Attempt::done;
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
  struct stat named {};
  struct stat opened {};
  return system_->lstat(path_, named) == 0 && system_->fstat(pipe_.number(), opened) == 0 &&
         isSameFile(named, opened);
}

void Mailbox::remove() {
  if (!pipe_.isOpen()) {
    return;
  }
  if (pathLeadsToPipe()) {
    static_cast<void>(system_->unlink(path_));
  }
  pipe_.reset();
}

}  // namespace EvtSrv::internal
