// How a port server opens sessions for the hellos in its mailbox.

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "evtsrv/source/access.h"
#include "evtsrv/source/port_server.h"

namespace EvtSrv::internal {

namespace {

constexpr int pipesOfSession = 3;

/// How many of `sessions` `user` must leave for others: for root, and, unless it is its owner, for
/// the owner of the server. A server with few descriptors keeps fewer.
int sessionsKeptFrom(System& system, uid_t user, int sessions) {
  constexpr int maxKept = 16;
  constexpr int share = 16;
  const int kept = std::min(maxKept, sessions / share);
  const uid_t owner = system.effectiveUser();
  if (user == 0) {
    return 0;
  }
  return user == owner ? kept : 2 * kept;
}

}  // namespace

void PortServer::accept(const Hello& hello) {
  if (port_ == nullptr || !mailbox_.isOpen()) {
    return;
  }
  // Another client may repeat the hello of a session whose pipes still have names.
  if (std::any_of(links_.begin(), links_.end(),
                  [&](const auto& link) { return link->token == hello.token; })) {
    return;
  }
  ServerPipes pipes;
  uid_t user = 0;
  int result = openPipe(hello, PipePurpose::reply, O_WRONLY, pipes.reply, user);
  if (result == -EMFILE || result == -ENFILE) {
    refuseUsingReserve(hello);
    return;
  }
  if (result < 0) {
    return;
  }
  const auto openOfSameUser = [&](PipePurpose purpose, int access, FileDescriptor& out) {
    uid_t owner = 0;
    const int opened = openPipe(hello, purpose, access, out, owner);
    return opened == 0 && owner != user ? -EPERM : opened;
  };
  result = openOfSameUser(PipePurpose::event, O_WRONLY, pipes.event);
  if (result == 0) {
    result = openOfSameUser(PipePurpose::request, O_RDONLY, pipes.request);
  }
  const EvtRes admitted = result < 0 ? resultOf(result) : admit(user, pipes);
  if (admitted != EvtRes_Success) {
    ServerLink::refuse(core_.system(), pipes.reply, admitted);
    return;
  }
  openLink(std::move(pipes), hello.token, user);
}

/// Whether `user` may have another session.
EvtRes PortServer::admit(uid_t user, const ServerPipes& pipes) const {
  if (!accounts_->mayOpenSession(user)) {
    return EvtRes_Refused;
  }
  // A descriptor is the lowest that was free: those below it are in use.
  const int limit = core_.system().descriptorLimit();
  const int used =
      std::max({pipes.request.number(), pipes.reply.number(), pipes.event.number()}) + 1;
  const int left = (limit - used) / pipesOfSession;
  const int kept = sessionsKeptFrom(core_.system(), user, limit / pipesOfSession);
  return left < kept ? EvtRes_NoDescriptors : EvtRes_Success;
}

void PortServer::openLink(ServerPipes pipes, const Token& token, uid_t user) {
  // So that linkEnded() allocates nothing.
  ended_.reserve(ended_.size() + links_.size() + 1);
  const auto link = std::make_shared<ServerLink>(core_, *this, std::move(pipes), accounts_, user);
  link->index = links_.size();
  link->token = token;
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
  uid_t user = 0;
  return openPipe(hello, purpose, access, out, user);
}

int PortServer::openPipe(const Hello& hello, PipePurpose purpose, int access, FileDescriptor& out,
                         uid_t& user) {
  System& system = core_.system();
  const std::string path = privatePipePath(hello.token, purpose);
  // A pipe of somebody else is not even opened: its reader would see a writer come and go. It
  // cannot take the name in between, since its own has a token that is as random.
  struct stat named {};
  int result = system.lstat(path, named);
  if (result == 0 && !mayServeClient(system, named, group_)) {
    result = -EPERM;
  }
  if (result == 0) {
    result = access == O_RDONLY ? openForReading(system, path, out)
                                : out.adopt(system, system.open(path, access | O_NONBLOCK));
  }
  struct stat status {};
  if (result == 0) {
    result = system.fstat(out.number(), status);
  }
  if (result == 0 && (!isSameFile(named, status) || !mayServeClient(system, status, group_))) {
    result = -EPERM;
  }
  user = userOfClient(system, status);
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
