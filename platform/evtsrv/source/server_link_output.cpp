#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/buffer_lease.h"
#include "evtsrv/source/server_link.h"

// What a connection writes: the replies that `handle` does not write, and its events, up to the
// last one.

namespace EvtSrv::internal {

namespace {

constexpr std::uint16_t stoppedEvent = 3;

// A chunk of up to this size is written completely or not at all (pipe(7)).
constexpr std::size_t chunkSize = PIPE_BUF;

// How many chunks of events are written before it is the turn of others.
constexpr unsigned chunksPerTurn = 16;

void append(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

}  // namespace

/// Replies to a request that was skipped.
void ServerLink::refuseFrame(const FrameHeader& request) {
  if (request.kind != FrameKind::request) {
    closing_ = true;
    return;
  }
  FrameHeader header;
  header.kind = FrameKind::reply;
  header.sequence = request.sequence;
  header.code = session_->limitReached();
  std::vector<std::uint8_t> bytes(FrameHeader::size);
  encodeHeader(header, bytes.data());
  if (reply_.write(core_.system(), pipes_.reply.number(), bytes) == Progress::failed) {
    closing_ = true;
  }
}

/// Leaves a reply to the batch, unless something else of this connection depends on it.
bool ServerLink::addToBatch(std::span<const std::uint8_t> reply) {
  batched_ = !eventsDeferred_ && requests_.empty() &&
             core_.replies().add(*this, pipes_.reply.number(), reply, core_.turns().sinceBegin());
  return batched_;
}

void ServerLink::replyWritten(std::span<const std::uint8_t> bytes, ssize_t result) noexcept {
  core_.clientMutex().assertHeld();
  batched_ = false;
  if (result == static_cast<ssize_t>(bytes.size())) {
    return;
  }
  bool goesOn = false;
  if (result > 0 || result == -EAGAIN) {
    try {
      const auto rest = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(result, 0)));
      std::vector<std::uint8_t> pending(rest.begin(), rest.end());
      const Progress progress = reply_.write(core_.system(), pipes_.reply.number(), pending);
      goesOn = progress == Progress::all || (progress == Progress::blocked && setInterests());
    } catch (const std::bad_alloc&) {
      // There is not enough memory for this client.
    }
  }
  if (!goesOn) {
    closeOnNextDispatch();
  }
}

bool ServerLink::setInterests() {
  const auto interestIf = [](bool isPending) { return isPending ? writable : noInterest; };
  const bool readsRequests = awaitsNothing() && !draining_;
  return accountForMemory() && onRequest_.setInterest(readsRequests ? readable : noInterest) == 0 &&
         onReply_.setInterest(interestIf(!reply_.empty())) == 0 &&
         onEvent_.setInterest(interestIf(!events_.empty() || moreEvents_)) == 0;
}

bool ServerLink::accountForMemory() {
  const std::size_t now = requests_.held() + reply_.held() + events_.held();
  if (now > held_ && !account_.add(now - held_)) {
    return false;
  }
  if (now < held_) {
    account_.remove(held_ - now);
  }
  held_ = now;
  return true;
}

void ServerLink::eventsPending() {
  core_.clientMutex().assertHeld();
  if (owner_ == nullptr || closing_) {
    return;
  }
  // The reply to the request being served goes first.
  if (serving_ || pumping_ || session_ == nullptr) {
    eventsDeferred_ = true;
    return;
  }
  if (events_.empty() && !moreEvents_) {
    pumpOrClose();
  }
}

void ServerLink::pumpOrClose() {
  try {
    pumpEvents(false);
  } catch (const std::bad_alloc&) {
    closeOnNextDispatch();
  }
}

void ServerLink::pumpEvents(bool inDispatch) {
  if (owner_ == nullptr || closing_ || pumping_) {
    return;
  }
  BufferLease lease(core_.eventSlot());
  Progress progress = events_.resume(core_.system(), pipes_.event.number());
  moreEvents_ = false;
  eventsPaused_ = false;
  session_->beginEvents(inDispatch);
  for (unsigned chunks = 1; progress == Progress::all && fillEvents(lease.bytes()); ++chunks) {
    progress = events_.write(core_.system(), pipes_.event.number(), lease.bytes());
    if (chunks == chunksPerTurn || eventsPaused_) {
      moreEvents_ = true;
      break;
    }
  }
  moreEvents_ = moreEvents_ || eventsPaused_;
  if (owner_ == nullptr) {
    destroySession();
    return;
  }
  if (progress == Progress::failed || !setInterests()) {
    closeOnNextDispatch();
  }
}

bool ServerLink::fillEvents(std::vector<std::uint8_t>& chunk) {
  chunk.clear();
  if (stoppedSent_) {
    return false;
  }
  {
    const ScopedFlag pumping(pumping_);
    while (chunk.size() < chunkSize && owner_ != nullptr) {
      const std::size_t start = chunk.size();
      chunk.resize(start + FrameHeader::size);
      FrameHeader header;
      header.kind = FrameKind::event;
      if (!session_->takeEvent(header.code, chunk)) {
        chunk.resize(start);
        eventsPaused_ = session_->eventsPaused();
        break;
      }
      header.length = static_cast<std::uint32_t>(chunk.size() - start - FrameHeader::size);
      encodeHeader(header, chunk.data() + start);
    }
  }
  if (draining_ && !serving_ && deferred_ == nullptr && !eventsPaused_ && chunk.empty() &&
      !std::exchange(stoppedSent_, true)) {
    append(chunk, encodeEmptyFrame(FrameKind::event, stoppedEvent));
  }
  return owner_ != nullptr && !chunk.empty();
}

void ServerLink::drainAndClose() {
  core_.clientMutex().assertHeld();
  const auto keepAlive = shared_from_this();
  if (!std::exchange(draining_, true) && session_ != nullptr) {
    session_->beginDrain();
  }
  // No request is read any more.
  forgetHold();
  if (serving_) {
    // Updates of what the request still changes come before the stopped event.
    eventsDeferred_ = true;
    return;
  }
  pumpOrClose();
  if (owner_ != nullptr && !closing_ && !setInterests()) {
    closeOnNextDispatch();
  }
  endIfDrained();
}

void ServerLink::endIfDrained() {
  core_.clientMutex().assertHeld();
  if (draining_ && batched_) {
    core_.replies().flush();
  }
  if (draining_ && !serving_ && owner_ != nullptr && awaitsNothing() && events_.empty() &&
      !moreEvents_) {
    end();
  }
}

}  // namespace EvtSrv::internal
