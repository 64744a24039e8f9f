#include "evtsrv/source/port_server.h"

#include <fcntl.h>

#include <cerrno>
#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/access.h"
#include "evtsrv/source/buffer_lease.h"
#include "evtsrv/source/hello.h"
#include "evtsrv/source/mailbox.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/private_pipe.h"
#include "evtsrv/source/server_link.h"

namespace EvtSrv::internal {

class PortServer::Impl final : public ReadyHandler,
                               public LinkOwner,
                               public std::enable_shared_from_this<PortServer::Impl> {
 public:
  Impl(ManagerCore& core, ServedPort& port) : core_(core), port_(&port) {}

  EvtRes start(const std::string& name, std::optional<gid_t> group);
  void beginStop();
  void endAll();

  [[nodiscard]] bool stopping() const {
    core_.clientMutex().assertHeld();
    return stopping_;
  }
  [[nodiscard]] std::size_t connectionCount() const {
    core_.clientMutex().assertHeld();
    return links_.size();
  }

  bool ready(unsigned role, std::uint32_t events) override;
  void linkEnded(ServerLink& link) override;

 private:
  void readMailbox() KRV_REQUIRES(core_.clientMutex());
  void accept(const Hello& hello);
  int openEnd(const Hello& hello, PipePurpose purpose, int access, FileDescriptor& out);
  void refuseWithSpare(const Hello& hello);
  void takeSpare();
  void endService();
  void endStopIfDone() KRV_REQUIRES(core_.clientMutex());

  ManagerCore& core_;
  ServedPort* port_;  // Null from the owner's end on.
  std::optional<gid_t> group_;
  Mailbox mailbox_;
  Registration onMailbox_;
  HelloScanner hellos_;
  FileDescriptor spare_;  // Given up to tell a client that there are no others.
  std::vector<std::shared_ptr<ServerLink>> links_;
  bool stopping_ = false;
};

EvtRes PortServer::Impl::start(const std::string& name, std::optional<gid_t> group) {
  core_.clientMutex().assertHeld();
  if (core_.state() != EvtRes_Success) {
    return core_.state();
  }
  if (mailbox_.isOpen() || stopping_) {
    return EvtRes_Busy;
  }
  group_ = group;
  int result = spare_.adopt(core_.system(), core_.system().createEvent());
  if (result < 0) {
    return resultOf(result);
  }
  const EvtRes opened = mailbox_.open(core_.system(), name, group);
  if (opened != EvtRes_Success) {
    spare_.reset();
    return opened;
  }
  result = core_.reactor().add(mailbox_.descriptor(), EPOLLIN, *this, 0, onMailbox_);
  if (result < 0) {
    endService();
    return resultOf(result);
  }
  return EvtRes_Success;
}

void PortServer::Impl::endService() {
  onMailbox_.end();
  mailbox_.remove();
  spare_.reset();
  hellos_ = {};
}

void PortServer::Impl::beginStop() {
  core_.clientMutex().assertHeld();
  if (!mailbox_.isOpen()) {
    return;
  }
  endService();
  stopping_ = true;
  core_.beginTermination();
  // Each may end at once: the last one, which has been told, takes its place.
  for (std::size_t i = links_.size(); i > 0; --i) {
    const auto link = links_[i - 1];
    link->drainAndClose();
  }
  endStopIfDone();
}

void PortServer::Impl::endStopIfDone() {
  if (stopping_ && links_.empty()) {
    stopping_ = false;
    core_.endTermination();
  }
}

void PortServer::Impl::endAll() {
  core_.clientMutex().assertHeld();
  port_ = nullptr;
  endService();
  for (const auto& link : std::exchange(links_, {})) {
    link->closeSilently();
  }
  endStopIfDone();
}

void PortServer::Impl::linkEnded(ServerLink& link) {
  core_.clientMutex().assertHeld();
  const std::size_t position = link.position;
  if (position < links_.size() && links_[position].get() == &link) {
    std::swap(links_[position], links_.back());
    links_[position]->position = position;
    links_.pop_back();
  }
  endStopIfDone();
}

bool PortServer::Impl::ready(unsigned /*role*/, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  const auto keep = shared_from_this();
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
      // The client sees its pipes closed; those behind it are served.
      continue;
    }
  }
  return found;
}

void PortServer::Impl::readMailbox() {
  BufferLease scratch(core_.readSlot());
  scratch.bytes().resize(readSize);
  const ssize_t count = core_.system().read(mailbox_.descriptor(), scratch.bytes());
  if (count > 0) {
    hellos_.feed(std::span(scratch.bytes()).first(static_cast<std::size_t>(count)));
  }
}

void PortServer::Impl::accept(const Hello& hello) {
  if (port_ == nullptr || !mailbox_.isOpen()) {
    return;
  }
  ServerPipes pipes;
  int result = openEnd(hello, PipePurpose::reply, O_WRONLY, pipes.reply);
  if (result == -EMFILE || result == -ENFILE) {
    refuseWithSpare(hello);
    return;
  }
  if (result < 0) {
    return;
  }
  result = openEnd(hello, PipePurpose::event, O_WRONLY, pipes.event);
  if (result == 0) {
    result = openEnd(hello, PipePurpose::request, O_RDONLY, pipes.request);
  }
  if (result < 0) {
    ServerLink::refuse(core_.system(), pipes.reply, resultOf(result));
    return;
  }
  const auto link = std::make_shared<ServerLink>(core_, *this, std::move(pipes));
  link->position = links_.size();
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

int PortServer::Impl::openEnd(const Hello& hello, PipePurpose purpose, int access,
                              FileDescriptor& out) {
  System& system = core_.system();
  int result =
      out.adopt(system, system.open(privatePipePath(hello.token, purpose), access | O_NONBLOCK));
  struct stat status {};
  if (result == 0) {
    result = system.fstat(out.number(), status);
  }
  if (result == 0 && !isTrusted(system, status, group_)) {
    result = -EPERM;
  }
  return result;
}

void PortServer::Impl::refuseWithSpare(const Hello& hello) {
  if (!spare_.isOpen()) {
    takeSpare();
  }
  spare_.reset();
  {
    FileDescriptor reply;
    if (openEnd(hello, PipePurpose::reply, O_WRONLY, reply) == 0) {
      ServerLink::refuse(core_.system(), reply, EvtRes_NoDescriptors);
    }
  }
  takeSpare();
}

void PortServer::Impl::takeSpare() {
  // Where somebody was faster, the next refusal tries again.
  static_cast<void>(spare_.adopt(core_.system(), core_.system().createEvent()));
}

PortServer::PortServer(ManagerCore& core, ServedPort& port)
    : impl_(std::make_shared<Impl>(core, port)) {}

PortServer::~PortServer() {
  impl_->endAll();
}

EvtRes PortServer::start(const std::string& name, std::optional<gid_t> group) {
  return impl_->start(name, group);
}

void PortServer::beginStop() {
  impl_->beginStop();
}

bool PortServer::stopping() const {
  return impl_->stopping();
}

std::size_t PortServer::connectionCount() const {
  return impl_->connectionCount();
}

}  // namespace EvtSrv::internal
