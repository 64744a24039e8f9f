#include "evtsrv/source/port_server.h"

#include <fcntl.h>

#include <cerrno>
#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/access.h"
#include "evtsrv/source/buffer_lease.h"

namespace EvtSrv::internal {

namespace {

// The roles of the descriptors.
constexpr unsigned mailboxRole = 0;
constexpr unsigned watchRole = 1;

}  // namespace

EvtRes PortServer::start(const std::string& name, std::optional<gid_t> group) {
  core_.clientMutex().assertHeld();
  if (core_.state() != EvtRes_Success) {
    return core_.state();
  }
  if (mailbox_.isOpen() || stopping_) {
    return EvtRes_Busy;
  }
  group_ = group;
  int result = reserve_.adopt(core_.system(), core_.system().createEvent());
  if (result < 0) {
    return resultOf(result);
  }
  const EvtRes opened = mailbox_.open(core_.system(), name, group);
  if (opened != EvtRes_Success) {
    reserve_.reset();
    return opened;
  }
  result = listen();
  if (result == 0 && mailbox_.watchDescriptor() >= 0) {
    result = core_.reactor().add(mailbox_.watchDescriptor(), EPOLLIN, *this, watchRole, onWatch_);
  }
  if (result < 0) {
    closeMailbox();
    return resultOf(result);
  }
  return EvtRes_Success;
}

int PortServer::listen() {
  return core_.reactor().add(mailbox_.descriptor(), EPOLLIN, *this, mailboxRole, onMailbox_);
}

void PortServer::closeMailbox() {
  onMailbox_.end();
  onWatch_.end();
  mailbox_.remove();
  reserve_.reset();
  hellos_ = {};
}

void PortServer::beginStop() {
  core_.clientMutex().assertHeld();
  if (!mailbox_.isOpen()) {
    return;
  }
  closeMailbox();
  stopping_ = true;
  core_.beginTermination();
  // Backwards: if a link ends immediately, the last link, which is done already, takes its
  // index.
  for (std::size_t i = links_.size(); i > 0; --i) {
    const auto link = links_[i - 1];
    link->drainAndClose();
  }
  endStopIfDone();
}

bool PortServer::stopping() const {
  core_.clientMutex().assertHeld();
  return stopping_;
}

std::size_t PortServer::connectionCount() const {
  core_.clientMutex().assertHeld();
  return links_.size();
}

void PortServer::endStopIfDone() {
  if (stopping_ && links_.empty()) {
    stopping_ = false;
    core_.endTermination();
  }
}

void PortServer::close() {
  core_.clientMutex().assertHeld();
  port_ = nullptr;
  closeMailbox();
  for (const auto& link : std::exchange(links_, {})) {
    link->closeSilently();
  }
  endStopIfDone();
}

void PortServer::linkEnded(ServerLink& link) {
  core_.clientMutex().assertHeld();
  const std::size_t index = link.index;
  if (index < links_.size() && links_[index].get() == &link) {
    std::swap(links_[index], links_.back());
    links_[index]->index = index;
    links_.pop_back();
  }
  endStopIfDone();
}

bool PortServer::ready(unsigned role, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  // openSession() may make the owner release this.
  const auto keepAlive = shared_from_this();
  if (role == mailboxRole) {
    return serveMailbox();
  }
  if (!mailbox_.takeRemoval()) {
    return false;
  }
  // Clients that have found the mailbox before it was removed are served.
  const bool served = mailbox_.descriptor() >= 0 && serveMailbox();
  restoreMailbox();
  return served;
}

void PortServer::restoreMailbox() {
  if (!mailbox_.isOpen()) {
    return;
  }
  onMailbox_.end();
  hellos_ = {};
  const EvtRes result = mailbox_.restore();
  if (result == EvtRes_Success) {
    // It fails only without memory; connections go on, and new ones find no server.
    static_cast<void>(listen());
  } else if (result == EvtRes_NameInUse && port_ != nullptr) {
    port_->nameLost();
    for (const auto& link : std::exchange(links_, {})) {
      link->closeSilently();
    }
  }
}

bool PortServer::serveMailbox() {
  try {
    readMailbox();
  } catch (const std::bad_alloc&) {
    return false;
  }
  bool found = false;
  while (const auto hello = hellos_.next()) {
    found = true;
    try {
      accept(*hello);
    } catch (const std::bad_alloc&) {
      // This client sees its pipes closed; the next ones are served.
      continue;
    }
  }
  return found;
}

void PortServer::readMailbox() {
  BufferLease lease(core_.readSlot());
  lease.bytes().resize(readSize);
  const ssize_t count = core_.system().read(mailbox_.descriptor(), lease.bytes());
  if (count > 0) {
    hellos_.feed(std::span(lease.bytes()).first(static_cast<std::size_t>(count)));
  }
}

void PortServer::accept(const Hello& hello) {
  if (port_ == nullptr || !mailbox_.isOpen()) {
    return;
  }
  ServerPipes pipes;
  int result = openPipe(hello, PipePurpose::reply, O_WRONLY, pipes.reply);
  if (result == -EMFILE || result == -ENFILE) {
    refuseUsingReserve(hello);
    return;
  }
  if (result < 0) {
    return;
  }
  result = openPipe(hello, PipePurpose::event, O_WRONLY, pipes.event);
  if (result == 0) {
    result = openPipe(hello, PipePurpose::request, O_RDONLY, pipes.request);
  }
  if (result < 0) {
    ServerLink::refuse(core_.system(), pipes.reply, resultOf(result));
    return;
  }
  openLink(std::move(pipes));
}

void PortServer::openLink(ServerPipes pipes) {
  const auto link = std::make_shared<ServerLink>(core_, *this, std::move(pipes));
  link->index = links_.size();
  links_.push_back(link);
  const auto drop = [&] {
    link->closeSilently();
    linkEnded(*link);
  };
  try {
    if (link->open(*port_) != EvtRes_Success) {
      drop();
    }
  } catch (...) {
    drop();
    throw;
  }
}

int PortServer::openPipe(const Hello& hello, PipePurpose purpose, int access, FileDescriptor& out) {
  System& system = core_.system();
  int result =
      out.adopt(system, system.open(privatePipePath(hello.token, purpose), access | O_NONBLOCK));
  struct stat status {};
  if (result == 0) {
    result = system.fstat(out.number(), status);
  }
  if (result == 0 && !mayServeClient(system, status, group_)) {
    result = -EPERM;
  }
  return result;
}

void PortServer::refuseUsingReserve(const Hello& hello) {
  if (!reserve_.isOpen()) {
    takeReserve();
  }
  reserve_.reset();
  {
    FileDescriptor reply;
    if (openPipe(hello, PipePurpose::reply, O_WRONLY, reply) == 0) {
      ServerLink::refuse(core_.system(), reply, EvtRes_NoDescriptors);
    }
  }
  takeReserve();
}

void PortServer::takeReserve() {
  // If another thread has taken the descriptor, the next refusal tries again.
  static_cast<void>(reserve_.adopt(core_.system(), core_.system().createEvent()));
}

}  // namespace EvtSrv::internal
