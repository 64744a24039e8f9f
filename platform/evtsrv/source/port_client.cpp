#include "evtsrv/source/port_client.h"

#include <utility>

#include "evtsrv/source/client_link.h"

namespace EvtSrv::internal {

namespace {

// How often a mailbox may be made again while a client tries to connect.
constexpr int maxHandshakes = 16;

}  // namespace

PortClient::PortClient(ManagerCore& core, EventSink& sink)
    : core_(core), sink_(sink), trigger_(core, *this) {}

PortClient::~PortClient() {
  core_.clientMutex().assertHeld();
  forget();
}

EvtRes PortClient::connect(const std::string& name) {
  core_.clientMutex().assertHeld();
  forget();
  return endIfOutOfMemory([&] {
    name_ = name;
    owner_.reset();
    error_ = core_.state();
    if (error_ == EvtRes_Success) {
      Deadline deadline(core_.system(), replyTimeoutMs);
      return beginHandshake(deadline);
    }
    return error_;
  });
}

EvtRes PortClient::resume(bool& renewed, Deadline& deadline) {
  core_.clientMutex().assertHeld();
  renewed = false;
  return endIfOutOfMemory([&] { return tryResume(renewed, deadline); });
}

EvtRes PortClient::exchange(std::uint16_t operation, std::span<const std::uint8_t> payload,
                            Reply& reply, Deadline& deadline) {
  core_.clientMutex().assertHeld();
  reply = {};
  if (handshake_.has_value()) {
    return EvtRes_Stalled;
  }
  if (link_ == nullptr) {
    return error();
  }
  // The link needs no second owner here: only an event handler may end the connection,
  // and none runs during an exchange.
  return link_->exchange(operation, payload, reply, deadline);
}

EvtRes PortClient::post(std::uint16_t operation, std::span<const std::uint8_t> payload) {
  core_.clientMutex().assertHeld();
  return link_ != nullptr ? link_->post(operation, payload) : error();
}

EvtRes PortClient::flushPosted() {
  core_.clientMutex().assertHeld();
  return link_ != nullptr ? link_->flushPosted() : error();
}

EvtRes PortClient::awaitPosted(Deadline& deadline) {
  core_.clientMutex().assertHeld();
  return link_ != nullptr ? link_->awaitPosted(deadline) : error();
}

void PortClient::lose(EvtRes error) {
  core_.clientMutex().assertHeld();
  if (link_ != nullptr) {
    link_->lose(error);
  }
}

bool PortClient::isOpen() const {
  core_.clientMutex().assertHeld();
  return link_ != nullptr && link_->error() == EvtRes_Success;
}

void PortClient::close() {
  core_.clientMutex().assertHeld();
  forget();
  name_.clear();
  owner_.reset();
}

EvtRes PortClient::tryResume(bool& renewed, Deadline& deadline) {
  if (link_ != nullptr && link_->checkPeer() == EvtRes_Success) {
    return EvtRes_Success;
  }
  EvtRes result = EvtRes_NoServer;
  if (handshake_.has_value()) {
    result = resumeHandshake(deadline);
    if (result == EvtRes_Timeout) {
      return EvtRes_Stalled;
    }
  }
  if (result == EvtRes_NoServer) {
    if (name_.empty() || (link_ != nullptr && !core_.reconnects())) {
      return error();
    }
    result = beginHandshake(deadline);
    if (result == EvtRes_Timeout && lost_ && core_.reconnects() &&
        endIfOutOfMemory([&] { return listenForWelcome(); }) != EvtRes_Success) {
      attemptAgain();
    }
  }
  renewed = result == EvtRes_Success;
  return result;
}

/// Waits for the welcome of a handshake that a dispatch has begun, or looks for one that
/// was waited for in vain.
EvtRes PortClient::resumeHandshake(Deadline& deadline) {
  core_.clientMutex().assertHeld();
  const EvtRes result =
      endIfOutOfMemory([&] { return welcomeAwaited_ ? takeWelcome() : awaitWelcome(deadline); });
  if (result != EvtRes_Success && result != EvtRes_Timeout && lost_ && core_.reconnects()) {
    // The dispatches go on with this failed attempt.
    attemptAgain();
  }
  return result;
}

EvtRes PortClient::error() const {
  return link_ != nullptr ? link_->error() : error_;
}

void PortClient::endHandshake() {
  onWelcome_.end();
  onMailbox_.end();
  handshake_.reset();
  welcomeAwaited_ = false;
}

void PortClient::end() {
  endHandshake();
  if (link_ != nullptr) {
    std::exchange(link_, nullptr)->close();
  }
  error_ = EvtRes_Closed;
}

void PortClient::forget() {
  end();
  leaveQueue();
  trigger_.stop();
  backOff_ = {};
  lost_ = false;
}

EvtRes PortClient::beginHandshake(Deadline& deadline) {
  for (int attempts = maxHandshakes;; --attempts) {
    EvtRes result = startHandshake();
    if (result == EvtRes_Success) {
      foundServer_ = true;
      result = awaitWelcome(deadline);
    }
    // A mailbox that was found and lost has been made again, or its server has ended.
    if (result != EvtRes_NoServer || !foundServer_ || attempts == 1) {
      return result;
    }
  }
}

EvtRes PortClient::startHandshake() {
  end();
  handshake_.emplace(core_.system());
  const EvtRes result = handshake_->begin(name_, owner_);
  if (result != EvtRes_Success) {
    foundServer_ = result != EvtRes_NoServer || handshake_->mailboxDescriptor() >= 0;
    endHandshake();
    return error_ = result;
  }
  owner_ = handshake_->owner();
  return result;
}

EvtRes PortClient::takeWelcome() {
  const bool wasAwaited = welcomeAwaited_;
  Deadline immediately(core_.system(), 0);
  const EvtRes result = awaitWelcome(immediately);
  welcomeAwaited_ = wasAwaited && handshake_.has_value();
  return result;
}

EvtRes PortClient::awaitWelcome(Deadline& deadline) {
  EvtRes result = handshake_->await(deadline);
  if (result == EvtRes_Timeout) {
    welcomeAwaited_ = true;
    return result;
  }
  if (result == EvtRes_Success) {
    result = openLink();
  }
  endHandshake();
  return error_ = result;
}

EvtRes PortClient::openLink() {
  onWelcome_.end();
  onMailbox_.end();
  link_ = std::make_shared<ClientLink>(core_, sink_, handshake_->takePipes());
  const EvtRes result = link_->open(*this);
  if (result == EvtRes_Success) {
    lost_ = false;
    trigger_.stop();
    backOff_.connected(core_.system().nowMs());
  }
  return result;
}

}  // namespace EvtSrv::internal
