#include "evtsrv/source/server_link.h"

#include <array>
#include <cerrno>
#include <climits>
#include <new>
#include <span>
#include <utility>

#include "evtsrv/source/buffer_lease.h"

namespace EvtSrv::internal {

namespace {

enum Role : unsigned { requestRole, replyRole, eventRole };

// Errors and hang-ups are reported with every interest.
constexpr std::uint32_t noInterest = 0;
constexpr std::uint32_t readable = EPOLLIN;
constexpr std::uint32_t writable = EPOLLOUT;

constexpr std::uint16_t startedEvent = 1;
constexpr std::uint16_t stoppedEvent = 3;

// A chunk of up to this size is written completely or not at all (pipe(7)).
constexpr std::size_t chunkSize = PIPE_BUF;

std::array<std::uint8_t, FrameHeader::size> frameWithoutPayload(FrameKind kind,
                                                                std::uint16_t code) {
  FrameHeader header;
  header.kind = kind;
  header.code = code;
  std::array<std::uint8_t, FrameHeader::size> bytes{};
  encodeHeader(header, bytes.data());
  return bytes;
}

bool writeWithoutPayload(System& system, const FileDescriptor& pipe, FrameKind kind,
                         std::uint16_t code) {
  const auto bytes = frameWithoutPayload(kind, code);
  return system.write(pipe.number(), bytes) == static_cast<ssize_t>(bytes.size());
}

void append(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

}  // namespace

ServerLink::ServerLink(ManagerCore& core, LinkOwner& owner, ServerPipes pipes)
    : core_(core), owner_(&owner), pipes_(std::move(pipes)) {}

ServerLink::~ServerLink() = default;

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
  pumpEvents();
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
  closeSilently();
  if (owner != nullptr) {
    owner->linkEnded(*this);
  }
}

void ServerLink::closeSilently() {
  core_.clientMutex().assertHeld();
  owner_ = nullptr;
  onRequest_.end();
  onReply_.end();
  onEvent_.end();
  pipes_ = {};
  releaseSession();
}

void ServerLink::releaseSession() {
  if (!serving_ && !pumping_) {
    session_.reset();
  }
}

void ServerLink::closeOnNextDispatch() {
  core_.clientMutex().assertHeld();
  closing_ = true;
  // The pipe is writable or broken, so the dispatch that ends this comes.
  static_cast<void>(onEvent_.setInterest(writable));
}

bool ServerLink::ready(unsigned role, std::uint32_t events) {
  core_.clientMutex().assertHeld();
  const auto keepAlive = shared_from_this();
  try {
    return serve(role, events);
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

bool ServerLink::serve(unsigned role, std::uint32_t events) {
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
      pumpEvents();
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
  if (!reply_.empty() || draining_) {
    // Input is of no interest now: this is a hang-up, or was reported before.
    if ((events & (EPOLLHUP | EPOLLERR)) == 0) {
      return false;
    }
    end();
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
  serveRequests();
  requests_.bufferRest();
  return true;
}

void ServerLink::writeReply() {
  switch (writeFrom(pipes_.reply, reply_.bytes, reply_.written)) {
    case Progress::all:
      reply_.clear();
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
  // In a dispatch inside a call of the session the next request waits for its end.
  while (!serving_ && owner_ != nullptr && reply_.empty() && !closing_ && !draining_) {
    Frame request;
    const FrameReader::Status status = requests_.next(request);
    if (status == FrameReader::Status::incomplete) {
      break;
    }
    if (status == FrameReader::Status::malformed || request.header.kind != FrameKind::request) {
      end();
      return;
    }
    handle(request);
  }
  if (owner_ == nullptr) {
    return;
  }
  if (closing_ || !setInterests()) {
    end();
    return;
  }
  endIfDrained();
}

void ServerLink::handle(const Frame& request) {
  BufferLease lease(core_.replySlot());
  std::vector<std::uint8_t>& bytes = lease.bytes();
  bytes.resize(FrameHeader::size);
  PayloadReader payload(request.payload, request.header.order);
  FrameHeader header;
  header.kind = FrameKind::reply;
  header.sequence = request.header.sequence;
  {
    const ScopedFlag serving(serving_);
    header.code = session_->handle(request.header.code, payload, bytes);
  }
  if (owner_ == nullptr) {
    releaseSession();
    return;
  }
  const std::size_t length = bytes.size() - FrameHeader::size;
  if (length > maxPayload) {
    closing_ = true;
    return;
  }
  header.length = static_cast<std::uint32_t>(length);
  encodeHeader(header, bytes.data());
  if (write(pipes_.reply, bytes, reply_) == Progress::failed) {
    closing_ = true;
    return;
  }
  if (std::exchange(eventsDeferred_, false)) {
    pumpEvents();
  }
}

ServerLink::Progress ServerLink::write(const FileDescriptor& pipe, std::vector<std::uint8_t>& bytes,
                                       PendingOutput& pending) {
  std::size_t written = 0;
  const Progress progress = writeFrom(pipe, bytes, written);
  if (progress == Progress::blocked) {
    pending.bytes = std::move(bytes);
    pending.written = written;
  }
  return progress;
}

ServerLink::Progress ServerLink::writeFrom(const FileDescriptor& pipe,
                                           std::span<const std::uint8_t> bytes,
                                           std::size_t& written) {
  while (written < bytes.size()) {
    const ssize_t count = core_.system().write(pipe.number(), bytes.subspan(written));
    if (count == -EAGAIN) {
      return Progress::blocked;
    }
    if (count <= 0) {
      return Progress::failed;
    }
    written += static_cast<std::size_t>(count);
  }
  return Progress::all;
}

bool ServerLink::setInterests() {
  const auto interestFor = [](const PendingOutput& pending) {
    return pending.empty() ? noInterest : writable;
  };
  const bool readsRequests = reply_.empty() && !draining_;
  return onRequest_.setInterest(readsRequests ? readable : noInterest) == 0 &&
         onReply_.setInterest(interestFor(reply_)) == 0 &&
         onEvent_.setInterest(interestFor(events_)) == 0;
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
  if (events_.empty()) {
    pumpOrClose();
  }
}

void ServerLink::pumpOrClose() {
  try {
    pumpEvents();
  } catch (const std::bad_alloc&) {
    closeOnNextDispatch();
  }
}

void ServerLink::pumpEvents() {
  if (owner_ == nullptr || closing_ || pumping_) {
    return;
  }
  BufferLease lease(core_.eventSlot());
  Progress progress = Progress::all;
  if (!events_.empty()) {
    progress = writeFrom(pipes_.event, events_.bytes, events_.written);
    if (progress == Progress::all) {
      events_.clear();
    }
  }
  while (progress == Progress::all && fillEvents(lease.bytes())) {
    progress = write(pipes_.event, lease.bytes(), events_);
  }
  if (owner_ == nullptr) {
    releaseSession();
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
        break;
      }
      header.length = static_cast<std::uint32_t>(chunk.size() - start - FrameHeader::size);
      encodeHeader(header, chunk.data() + start);
    }
  }
  if (draining_ && !serving_ && chunk.empty() && !std::exchange(stoppedSent_, true)) {
    append(chunk, frameWithoutPayload(FrameKind::event, stoppedEvent));
  }
  return owner_ != nullptr && !chunk.empty();
}

void ServerLink::drainAndClose() {
  core_.clientMutex().assertHeld();
  const auto keepAlive = shared_from_this();
  draining_ = true;
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
  if (draining_ && !serving_ && owner_ != nullptr && reply_.empty() && events_.empty()) {
    end();
  }
}

}  // namespace EvtSrv::internal
