// How a manager's dispatches make a lost connection again.

#include "evtsrv/source/client_link.h"
#include "evtsrv/source/port_client.h"

namespace EvtSrv::internal {

namespace {

enum HandshakeRole : unsigned { welcomeRole, helloRole };

}  // namespace

void PortClient::linkLost() {
  core_.clientMutex().assertHeld();
  lost_ = true;
  if (core_.reconnects()) {
    backOff_.lost(core_.system().nowMs());
    core_.defer(*this);
  }
  sink_.connectionLost();
}

bool PortClient::runDeferred() {
  attempt();
  return false;
}

void PortClient::mayConnect() {
  attempt();
}

void PortClient::attempt() {
  core_.clientMutex().assertHeld();
  if (!lost_ || handshake_.has_value()) {
    return;
  }
  // Before the attempt, so that no return of the server is missed.
  const EvtRes watched = endIfOutOfMemory([&] {
    trigger_.start(name_);
    return EvtRes_Success;
  });
  const int wait = backOff_.remaining(core_.system().nowMs());
  if (wait > 0) {
    static_cast<void>(trigger_.callAfter(wait));
    return;
  }
  EvtRes result = watched;
  foundServer_ = true;
  if (result == EvtRes_Success) {
    result = endIfOutOfMemory([&] { return startHandshake(); });
  }
  if (result == EvtRes_Success) {
    result = endIfOutOfMemory([&] { return listenForWelcome(); });
  }
  if (result != EvtRes_Success) {
    attemptFailed(result);
  }
}

/// The next dispatch begins an attempt, or to wait for one: while a handshake that a request has
/// begun was under way, neither watch nor timer may have run.
void PortClient::attemptAgain() {
  core_.clientMutex().assertHeld();
  backOff_.failed(core_.system().nowMs());
  core_.defer(*this);
}

void PortClient::attemptFailed(EvtRes reason) {
  const bool isWatching = trigger_.isWatching();
  if (!foundServer_ && isWatching) {
    // The watch reports the next server.
    return;
  }
  const std::int64_t now = core_.system().nowMs();
  backOff_.failed(now);
  // The watch also reports when another mailbox replaces a foreign one.
  if (reason != EvtRes_NotPermitted || !isWatching) {
    static_cast<void>(trigger_.callAfter(backOff_.remaining(now)));
  }
}

EvtRes PortClient::listenForWelcome() {
  core_.clientMutex().assertHeld();
  Reactor& reactor = core_.reactor();
  int result = reactor.add(handshake_->replyDescriptor(), EPOLLIN, *this, welcomeRole, onWelcome_);
  if (result == 0) {
    // Without interest only the error is reported that the server's end causes.
    const std::uint32_t interest = handshake_->isHelloSent() ? 0U : std::uint32_t{EPOLLOUT};
    result = reactor.add(handshake_->mailboxDescriptor(), interest, *this, helloRole, onMailbox_);
  }
  if (result < 0) {
    endHandshake();
    return error_ = resultOf(result);
  }
  return EvtRes_Success;
}

bool PortClient::ready(unsigned /*role*/, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  const EvtRes result = endIfOutOfMemory([&] { return takeWelcome(); });
  if (result == EvtRes_Success) {
    sink_.connectionMade();
  } else if (result != EvtRes_Timeout ||
             (handshake_->isHelloSent() && onMailbox_.setInterest(0) < 0)) {
    endHandshake();
    attemptAgain();
  }
  return false;
}

}  // namespace EvtSrv::internal
