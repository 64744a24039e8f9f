#include "evtsrv/source/port_client.h"

#include <new>
#include <utility>

#include "evtsrv/source/client_link.h"
#include "evtsrv/source/manager_core.h"

namespace EvtSrv::internal {

PortClient::PortClient(ManagerCore& core, EventSink& sink) : core_(core), sink_(sink) {}

PortClient::~PortClient() {
  core_.clientMutex().assertHeld();
  end();
}

EvtRes PortClient::connect(const std::string& name) {
  core_.clientMutex().assertHeld();
  end();
  return endIfOutOfMemory([&] {
    name_ = name;
    owner_.reset();
    error_ = core_.state();
    return error_ == EvtRes_Success ? beginHandshake() : error_;
  });
}

EvtRes PortClient::resume(bool& renewed) {
  core_.clientMutex().assertHeld();
  renewed = false;
  return endIfOutOfMemory([&] { return tryResume(renewed); });
}

EvtRes PortClient::exchange(std::uint16_t operation, std::span<const std::uint8_t> payload,
                            Reply& reply) {
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
  return link_->exchange(operation, payload, reply);
}

bool PortClient::isOpen() const {
  core_.clientMutex().assertHeld();
  return link_ != nullptr && link_->error() == EvtRes_Success;
}

void PortClient::close() {
  core_.clientMutex().assertHeld();
  end();
  name_.clear();
  owner_.reset();
}

/// The result of `operation`. If that runs out of memory, nothing of the connection
/// stays, and it may be tried again.
template <typename Operation>
EvtRes PortClient::endIfOutOfMemory(Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    end();
    return error_ = EvtRes_SystemError;
  }
}

EvtRes PortClient::tryResume(bool& renewed) {
  if (link_ != nullptr && link_->checkPeer() == EvtRes_Success) {
    return EvtRes_Success;
  }
  EvtRes result = EvtRes_NoServer;
  if (handshake_.has_value()) {
    result = awaitWelcome(0);
    if (result == EvtRes_Timeout) {
      return EvtRes_Stalled;
    }
  }
  if (result == EvtRes_NoServer) {
    if (name_.empty() || (link_ != nullptr && !core_.reconnects())) {
      return error();
    }
    result = beginHandshake();
  }
  renewed = result == EvtRes_Success;
  return result;
}

EvtRes PortClient::error() const {
  return link_ != nullptr ? link_->error() : error_;
}

void PortClient::end() {
  handshake_.reset();
  if (link_ != nullptr) {
    std::exchange(link_, nullptr)->close();
  }
  error_ = EvtRes_Closed;
}

EvtRes PortClient::beginHandshake() {
  end();
  handshake_.emplace(core_.system());
  const EvtRes result = handshake_->begin(name_, owner_);
  if (result != EvtRes_Success) {
    handshake_.reset();
    return error_ = result;
  }
  owner_ = handshake_->owner();
  return awaitWelcome(replyTimeoutMs);
}

EvtRes PortClient::awaitWelcome(int milliseconds) {
  Deadline deadline(core_.system(), milliseconds);
  EvtRes result = handshake_->await(deadline);
  if (result == EvtRes_Timeout) {
    return result;
  }
  if (result == EvtRes_Success) {
    link_ = std::make_shared<ClientLink>(core_, sink_, handshake_->takePipes());
    result = link_->open();
  }
  handshake_.reset();
  return error_ = result;
}

}  // namespace EvtSrv::internal
