#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/buffer_lease.h"
#include "evtsrv/source/server_link.h"

// Replies that are sent after the call of the session, holds, and what waits for them.

namespace EvtSrv::internal {

/// The reply to the request at which its connection has stopped reading.
class ServerLink::LaterReply final : public DeferredReply {
 public:
  explicit LaterReply(ServerLink& link) : link_(&link) {}

  void send(std::uint16_t code, std::span<const std::uint8_t> payload) override {
    if (ServerLink* const link = std::exchange(link_, nullptr)) {
      link->sendDeferred(code, payload);
    }
  }
  [[nodiscard]] bool isAwaited() const override { return link_ != nullptr; }

  void forget() { link_ = nullptr; }

 private:
  ServerLink* link_;  // Null after the reply or the connection's end.
};

std::shared_ptr<DeferredReply> ServerLink::deferReply() {
  core_.clientMutex().assertHeld();
  deferred_ = std::make_shared<LaterReply>(*this);
  replyDeferred_ = true;
  return deferred_;
}

/// No client awaits the reply any more.
void ServerLink::forgetDeferred() {
  if (const auto deferred = std::exchange(deferred_, nullptr)) {
    deferred->forget();
  }
}

/// The reply may come in the middle of `handle`, too, from a program that knows it at once.
void ServerLink::sendDeferred(std::uint16_t code, std::span<const std::uint8_t> payload) {
  core_.clientMutex().assertHeld();
  const auto keepAlive = shared_from_this();
  forgetDeferred();
  if (closing_) {
    return;
  }
  try {
    writeDeferred(code, payload);
  } catch (const std::bad_alloc&) {
    closeOnNextDispatch();
  }
  if (!serving_ && !closing_) {
    resumeRequests();
  }
}

void ServerLink::writeDeferred(std::uint16_t code, std::span<const std::uint8_t> payload) {
  BufferLease lease(core_.replySlot());
  std::vector<std::uint8_t>& bytes = lease.bytes();
  bytes.resize(FrameHeader::size);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  FrameHeader header;
  header.kind = FrameKind::reply;
  header.code = code;
  header.sequence = sequence_;
  header.length = static_cast<std::uint32_t>(payload.size());
  encodeHeader(header, bytes.data());
  if (reply_.write(core_.system(), pipes_.reply.number(), bytes) == Progress::failed) {
    closeOnNextDispatch();
  }
}

/// The holder's side of a hold.
class ServerLink::Hold final : public RequestHold {
 public:
  explicit Hold(ServerLink& link) : link_(&link) {}

  void release() override {
    if (ServerLink* const link = std::exchange(link_, nullptr)) {
      link->releaseHold();
    }
  }
  [[nodiscard]] bool isInEffect() const override { return link_ != nullptr; }

  void forget() { link_ = nullptr; }

 private:
  ServerLink* link_;  // Null after the release or the connection's end.
};

std::shared_ptr<RequestHold> ServerLink::holdRequests() {
  core_.clientMutex().assertHeld();
  hold_ = std::make_shared<Hold>(*this);
  return hold_;
}

/// Nothing is held back any more.
void ServerLink::forgetHold() {
  if (const auto hold = std::exchange(hold_, nullptr)) {
    hold->forget();
  }
}

/// The release may come in the middle of `opened`, too.
void ServerLink::releaseHold() {
  core_.clientMutex().assertHeld();
  const auto keepAlive = shared_from_this();
  forgetHold();
  if (!serving_ && !closing_) {
    resumeRequests();
  }
}

/// Goes on where a deferred reply or a hold stopped the connection, on any thread.
void ServerLink::resumeRequests() {
  if (draining_) {
    // What `drainAndClose` left to this reply.
    if (events_.empty() && !moreEvents_) {
      pumpOrClose();
    }
  } else if (!requests_.empty()) {
    // The turns are taken by dispatches.
    core_.defer(*this);
  }
  if (!closing_ && !setInterests()) {
    closeOnNextDispatch();
  }
  if (!closing_) {
    endIfDrained();
  }
}

bool ServerLink::runDeferred() {
  core_.clientMutex().assertHeld();
  // To end takes time too, for the memory that the connection has held.
  moreRequests_ = moreRequests_ || !closing_;
  core_.turns().add(turn_);
  return false;
}

}  // namespace EvtSrv::internal
