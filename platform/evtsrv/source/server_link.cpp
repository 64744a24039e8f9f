#include "evtsrv/source/server_link.h"

#include <cerrno>
#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/buffer_lease.h"

namespace EvtSrv::internal {

namespace {

enum LinkRole : unsigned { requestRole, replyRole, eventRole };

// How long the rest of a frame is awaited, besides the second that is in progress.
constexpr unsigned frameSeconds = 5;

constexpr std::uint16_t startedEvent = 1;

bool writeWithoutPayload(System& system, const FileDescriptor& pipe, FrameKind kind,
                         std::uint16_t code) {
  const auto bytes = encodeEmptyFrame(kind, code);
  return system.write(pipe.number(), bytes) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

ServerLink::ServerLink(ManagerCore& core, LinkOwner& owner, ServerPipes pipes,
                       std::shared_ptr<Accounts> accounts, uid_t user)
    : core_(core),
      owner_(&owner),
      pipes_(std::move(pipes)),
      account_(std::move(accounts), user),
      turn_(core.turns(), account_.turns(), *this) {}

ServerLink::~ServerLink() {
  forgetDeferred();
  forgetHold();
}

EvtRes ServerLink::open(ServedPort& port) {
  core_.clientMutex().assertHeld();
  Reactor& reactor = core_.reactor();
  int result = reactor.add(pipes_.request.number(), readable, *this, requestRole, onRequest_);
  if (result == 0) {
    result = reactor.add(pipes_.reply.number(), noInterest, *this, replyRole, onReply_);
  }
  if (result == 0) {
    result = reactor.add(pipes_.event.number(), noInterest, *this, eventRole, onEvent_);
  }
  if (result == 0) {
    const ScopedFlag pumping(pumping_);
    session_ = port.openSession(*this);
  }
  if (owner_ == nullptr) {
    return EvtRes_Closed;
  }
  if (session_ == nullptr) {
    const EvtRes reason = result < 0 ? resultOf(result) : EvtRes_Refused;
    refuse(core_.system(), pipes_.reply, reason);
    return reason;
  }
  if (!writeWithoutPayload(core_.system(), pipes_.reply, FrameKind::welcome, EvtRes_Success) ||
      !writeWithoutPayload(core_.system(), pipes_.event, FrameKind::event, startedEvent)) {
    return EvtRes_Closed;
  }
  {
    const ScopedFlag serving(serving_);
    session_->opened();
  }
  if (owner_ == nullptr) {
    return EvtRes_Closed;
  }
  eventsDeferred_ = false;
  pumpEvents(true);
  endIfDrained();
  return EvtRes_Success;
}

void ServerLink::refuse(System& system, const FileDescriptor& reply, EvtRes reason) {
  const EvtRes code = reason == EvtRes_NoDescriptors ? EvtRes_NoDescriptors : EvtRes_Refused;
  // A client that has disconnected meanwhile needs no refusal.
  static_cast<void>(
      writeWithoutPayload(system, reply, FrameKind::welcome, static_cast<std::uint16_t>(code)));
}

void ServerLink::end() {
  LinkOwner* owner = std::exchange(owner_, nullptr);
  closePipes();
  if (owner != nullptr) {
    owner->linkEnded(*this);
  }
}

void ServerLink::closeSilently() {
  core_.clientMutex().assertHeld();
  owner_ = nullptr;
  closePipes();
  destroySession();
}

/// Destroys the session, unless a call of it is in progress, which does that at its end.
void ServerLink::destroySession() {
  if (!serving_ && !pumping_) {
    session_.reset();
  }
}

void ServerLink::closePipes() {
  core_.clientMutex().assertHeld();
  if (batched_) {
    core_.replies().flush();
  }
  leaveQueue();
  forgetDeferred();
  forgetHold();
  onRequest_.end();
  onReply_.end();
  onEvent_.end();
  pipes_ = {};
}

bool ServerLink::releaseSession() {
  const bool isBusy = serving_ || pumping_;
  if (session_ != nullptr && !isBusy && !session_->release()) {
    return false;
  }
  destroySession();
  return true;
}

void ServerLink::closeOnNextDispatch() {
  core_.clientMutex().assertHeld();
  closing_ = true;
  if (owner_ != nullptr) {
    core_.defer(*this);
  }
}

bool ServerLink::ready(unsigned role, std::uint32_t events) {
  core_.clientMutex().assertHeld();
  TurnQueue& turns = core_.turns();
  if (!turns.mayServeNow()) {
    due_[role] |= events;
    turns.add(turn_);
    return false;
  }
  core_.replies().flushOld(turns.sinceBegin());
  Due due{};
  due[role] = events;
  return serveOrEnd(due);
}

bool ServerLink::takeTurn() {
  core_.clientMutex().assertHeld();
  return serveOrEnd(std::exchange(due_, {}));
}

bool ServerLink::serveOrEnd(const Due& due) {
  const auto keepAlive = shared_from_this();
  const TurnQueue::Charge charge(core_.turns(), turn_);
  try {
    return serve(due);
  } catch (const std::bad_alloc&) {
    // There is not enough memory for this client.
    end();
    return true;
  } catch (...) {
    // An exception of the program: the request cannot be replied to any more.
    end();
    throw;
  }
}

bool ServerLink::serve(const Due& due) {
  if (closing_) {
    end();
    return true;
  }
  bool dispatched = false;
  for (const unsigned role : {eventRole, replyRole, requestRole}) {
    const bool isDue = due[role] != 0 || (role == requestRole && moreRequests_);
    if (isDue && owner_ != nullptr) {
      dispatched = serveRole(role, due[role]) || dispatched;
    }
  }
  return dispatched;
}

bool ServerLink::serveRole(unsigned role, std::uint32_t events) {
  if (closing_ || (role != requestRole && (events & EPOLLERR) != 0)) {
    end();
    return true;
  }
  switch (role) {
    case requestRole:
      return readRequests(events);
    case replyRole:
      writeReply();
      return true;
    default:
      pumpEvents(true);
      if (closing_) {
        end();
      } else {
        endIfDrained();
      }
      return true;
  }
}

bool ServerLink::readRequests(std::uint32_t events) {
  if (serving_) {
    // A dispatch inside a call of the session: the input is read after that call.
    if ((events & (EPOLLHUP | EPOLLERR)) != 0 || onRequest_.setInterest(noInterest) < 0) {
      end();
      return true;
    }
    return false;
  }
  if (!awaitsNothing() || draining_) {
    // Input is of no interest now: this is a hang-up, or was reported before.
    if ((events & (EPOLLHUP | EPOLLERR)) == 0) {
      return false;
    }
    end();
    return true;
  }
  if (moreRequests_) {
    serveRequests();
    return true;
  }
  BufferLease lease(core_.readSlot());
  lease.bytes().resize(readSize);
  const ssize_t count = core_.system().read(pipes_.request.number(), lease.bytes());
  if (count == -EAGAIN) {
    return false;
  }
  if (count <= 0) {
    end();
    return true;
  }
  requests_.feed(std::span(lease.bytes()).first(static_cast<std::size_t>(count)));
  frameBegun_ = false;
  serveRequests();
  return true;
}

void ServerLink::writeReply() {
  switch (reply_.resume(core_.system(), pipes_.reply.number())) {
    case Progress::all:
      serveRequests();
      break;
    case Progress::blocked:
      break;
    case Progress::failed:
      end();
      break;
  }
}

void ServerLink::serveRequests() {
  moreRequests_ = false;
  std::size_t replied = 0;
  for (unsigned served = 1; serveNext(replied); ++served) {
    if (!requests_.empty() && (served == TurnQueue::requestsPerTurn ||
                               replied >= TurnQueue::bytesPerTurn || core_.turns().turnExpired())) {
      moreRequests_ = true;
      core_.turns().add(turn_);
      break;
    }
  }
  if (owner_ == nullptr) {
    return;
  }
  keepInput();
  if (closing_ || !setInterests()) {
    end();
    return;
  }
  endIfDrained();
}

/// Serves the next request that has arrived; false if there is none, or not now.
bool ServerLink::serveNext(std::size_t& replied) {
  if (batched_ && !requests_.empty()) {
    core_.replies().flush();
  }
  // In a dispatch inside a call of the session the next request waits for its end.
  if (serving_ || owner_ == nullptr || !awaitsNothing() || closing_ || draining_) {
    return false;
  }
  Frame request;
  switch (requests_.next(request)) {
    case FrameReader::Status::incomplete:
      return false;
    case FrameReader::Status::skipped:
      refuseFrame(request.header);
      return true;
    case FrameReader::Status::frame:
      if (request.header.kind == FrameKind::request) {
        replied += handle(request);
        return true;
      }
      break;
    case FrameReader::Status::malformed:
      break;
  }
  end();
  return false;
}

/// Keeps what has arrived and was not served, as far as the account allows it.
void ServerLink::keepInput() {
  requests_.bufferRest();
  if (requests_.held() != 0 && !accountForMemory() && !requests_.skipFrame()) {
    closing_ = true;
  }
  if (!requests_.empty() && !moreRequests_ && awaitsNothing() && !frameBegun_) {
    frameBegun_ = true;
    frameBegunAt_ = owner_->frameBegun();
  }
}

bool ServerLink::secondPassed(unsigned now) {
  core_.clientMutex().assertHeld();
  if (frameBegun_ && !moreRequests_ && now - frameBegunAt_ > frameSeconds) {
    closeOnNextDispatch();
  }
  return frameBegun_;
}

/// Returns the bytes of the reply.
std::size_t ServerLink::handle(const Frame& request) {
  BufferLease lease(core_.replySlot());
  std::vector<std::uint8_t>& bytes = lease.bytes();
  bytes.resize(FrameHeader::size);
  PayloadReader payload(request.payload, request.header.order);
  FrameHeader header;
  header.kind = FrameKind::reply;
  header.sequence = request.header.sequence;
  sequence_ = request.header.sequence;
  replyDeferred_ = false;
  const bool isCollected = core_.replies().collects() && session_->isShort(request.header.code);
  if (!isCollected) {
    core_.replies().flush();
  }
  {
    const ScopedFlag serving(serving_);
    header.code = session_->handle(request.header.code, payload, bytes);
  }
  if (owner_ == nullptr) {
    destroySession();
    return 0;
  }
  if (replyDeferred_) {
    if (std::exchange(eventsDeferred_, false)) {
      pumpEvents(true);
    }
    return 0;
  }
  if (bytes.size() > FrameHeader::size + maxPayload) {
    closing_ = true;
    return 0;
  }
  // What the pipe takes at once is not held.
  if (bytes.size() > TurnQueue::bytesPerTurn && !account_.allows(bytes.size())) {
    bytes.resize(FrameHeader::size);
    header.code = session_->limitReached();
  }
  const std::size_t size = bytes.size();
  header.length = static_cast<std::uint32_t>(size - FrameHeader::size);
  encodeHeader(header, bytes.data());
  if (isCollected && addToBatch(bytes)) {
    return size;
  }
  if (reply_.write(core_.system(), pipes_.reply.number(), bytes) == Progress::failed) {
    closing_ = true;
    return size;
  }
  if (std::exchange(eventsDeferred_, false)) {
    pumpEvents(true);
  }
  return size;
}

}  // namespace EvtSrv::internal
