#include "evtsrv/source/client_link.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <utility>

#include "evtsrv/source/buffer_lease.h"

namespace EvtSrv::internal {

namespace {

// The most bytes that one dispatch reads.
constexpr std::size_t eventReadSize = 512;

// A request of up to this size is copied into one buffer: a write of two buffers costs
// more than the copy.
constexpr std::size_t smallRequest = 128;

}  // namespace

ClientLink::ClientLink(ManagerCore& core, EventSink& sink, ConnectionPipes pipes)
    : core_(core),
      system_(core.system()),
      sink_(sink),
      pipes_(std::move(pipes)),
      replyBytes_(std::make_unique_for_overwrite<std::uint8_t[]>(readSize)) {}

EvtRes ClientLink::open(ClientLinkOwner& owner) {
  core_.clientMutex().assertHeld();
  const EvtRes result = listen();
  if (result == EvtRes_Success) {
    owner_ = &owner;
  }
  return result;
}

EvtRes ClientLink::listen() {
  core_.clientMutex().assertHeld();
  const int result =
      core_.reactor().add(pipes_.event.number(), EPOLLIN, *this, eventRole, onEvent_);
  return result < 0 ? fail(resultOf(result)) : EvtRes_Success;
}

EvtRes ClientLink::fail(EvtRes error) {
  if (error_ == EvtRes_Success) {
    error_ = error;
    onEvent_.end();
    onReply_.end();
    onRequest_.end();
    pipes_ = {};
    std::vector<std::uint8_t>().swap(pendingOutput_);
    if (ClientLinkOwner* owner = std::exchange(owner_, nullptr)) {
      owner->linkLost();
    }
  }
  return error_;
}

EvtRes ClientLink::stall(bool untilWritable) {
  stalled_ = true;
  awaitsWritable_ = untilWritable;
  return EvtRes_Timeout;
}

EvtRes ClientLink::exchange(std::uint16_t operation, std::span<const std::uint8_t> payload,
                            Reply& reply, Deadline& deadline) {
  try {
    return tryExchange(operation, payload, reply, deadline);
  } catch (const std::bad_alloc&) {
    return fail(EvtRes_SystemError);
  }
}

EvtRes ClientLink::tryExchange(std::uint16_t operation, std::span<const std::uint8_t> payload,
                               Reply& reply, Deadline& deadline) {
  if (error_ != EvtRes_Success) {
    return error_;
  }
  if (payload.size() > maxPayload) {
    return EvtRes_TooLarge;
  }
  // A server that makes requests may have written no reply to those that its own clients made.
  core_.clientMutex().assertHeld();
  core_.replies().flush();
  EvtRes result = stalled_ ? endStall() : EvtRes_Success;
  if (result != EvtRes_Success) {
    return result;
  }
  if (!replies_.empty() && takeReplies(nullptr, nullptr) != EvtRes_Timeout) {
    return error_;
  }
  FrameHeader header;
  header.kind = FrameKind::request;
  header.code = operation;
  header.sequence = ++sequence_;
  header.length = static_cast<std::uint32_t>(payload.size());
  result = send(header, payload, reply.written, deadline);
  return result == EvtRes_Success ? awaitReply(header.sequence, deadline, reply) : result;
}

EvtRes ClientLink::send(const FrameHeader& header, std::span<const std::uint8_t> payload,
                        std::size_t& written, Deadline& deadline) {
  if (!pendingOutput_.empty()) {
    const EvtRes result = writePending(deadline);
    if (result != EvtRes_Success) {
      return result;
    }
  }
  std::array<std::uint8_t, smallRequest> bytes{};
  encodeHeader(header, bytes.data());
  std::size_t headSize = FrameHeader::size;
  if (payload.size() <= bytes.size() - headSize) {
    std::copy(payload.begin(), payload.end(), bytes.data() + headSize);
    headSize += payload.size();
  }
  const auto head = std::span<const std::uint8_t>(bytes).first(headSize);
  const auto body = payload.subspan(headSize - FrameHeader::size);
  const EvtRes result = writeAll(head, body, written, deadline);
  if (result == EvtRes_Timeout && written > 0) {
    const std::size_t ofHead = std::min(written, head.size());
    pendingOutput_.assign(head.begin() + static_cast<std::ptrdiff_t>(ofHead), head.end());
    const auto rest = body.subspan(written - ofHead);
    pendingOutput_.insert(pendingOutput_.end(), rest.begin(), rest.end());
  }
  return result;
}

EvtRes ClientLink::writePending(Deadline& deadline) {
  std::size_t written = 0;
  const EvtRes result = writeAll(pendingOutput_, {}, written, deadline);
  if (error_ != EvtRes_Success) {
    return error_;
  }
  pendingOutput_.erase(pendingOutput_.begin(),
                       pendingOutput_.begin() + static_cast<std::ptrdiff_t>(written));
  if (result == EvtRes_Success) {
    std::vector<std::uint8_t>().swap(pendingOutput_);
  }
  return result;
}

EvtRes ClientLink::writeAll(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body,
                            std::size_t& written, Deadline& deadline) {
  const std::size_t total = head.size() + body.size();
  written = 0;
  while (written < total) {
    const std::size_t ofHead = std::min(written, head.size());
    const auto restOfBody = body.subspan(written - ofHead);
    const auto restOfHead = head.subspan(ofHead);
    const ssize_t count = restOfHead.empty()
                              ? system_.write(pipes_.request.number(), restOfBody)
                              : system_.write(pipes_.request.number(), restOfHead, restOfBody);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
      continue;
    }
    if (count != -EAGAIN) {
      return fail(resultOf(count));
    }
    const EvtRes result = awaitWritable(deadline);
    if (result != EvtRes_Success) {
      return result == EvtRes_Timeout ? stall(true) : fail(result);
    }
  }
  return EvtRes_Success;
}

EvtRes ClientLink::awaitInput(Deadline& deadline) {
  int wait = 0;
  while (deadline.nextWait(wait)) {
    pollfd pipe{pipes_.reply.number(), POLLIN, 0};
    const int ready = system_.poll(std::span(&pipe, 1), wait);
    if (ready > 0) {
      return EvtRes_Success;
    }
    if (ready < 0 && ready != -EINTR) {
      return resultOf(ready);
    }
  }
  return EvtRes_Timeout;
}

EvtRes ClientLink::awaitWritable(Deadline& deadline) {
  int wait = 0;
  while (deadline.nextWait(wait)) {
    std::array<pollfd, 2> pipes{pollfd{pipes_.request.number(), POLLOUT, 0},
                                pollfd{pipes_.reply.number(), POLLIN, 0}};
    const int ready = system_.poll(pipes, wait);
    if (ready < 0 && ready != -EINTR) {
      return resultOf(ready);
    }
    if (ready > 0 && pipes[1].revents != 0) {
      EvtRes result = readReplies();
      result = result == EvtRes_Success ? takeReplies(nullptr, nullptr) : result;
      if (result != EvtRes_Timeout) {
        return result;
      }
    }
    if (ready > 0 && pipes[0].revents != 0) {
      return EvtRes_Success;
    }
  }
  return EvtRes_Timeout;
}

EvtRes ClientLink::awaitReply(std::uint32_t sequence, Deadline& deadline, Reply& reply) {
  for (;;) {
    EvtRes result = awaitInput(deadline);
    if (result != EvtRes_Success) {
      return result == EvtRes_Timeout ? stall(false) : fail(result);
    }
    result = readReplies();
    if (result == EvtRes_Success) {
      result = takeReplies(&sequence, &reply);
    }
    if (result != EvtRes_Timeout) {
      return result;
    }
  }
}

EvtRes ClientLink::readReplies() {
  const ssize_t count = system_.read(pipes_.reply.number(), std::span(replyBytes_.get(), readSize));
  if (count == -EAGAIN) {
    return EvtRes_Timeout;
  }
  if (count <= 0) {
    return fail(count == 0 ? EvtRes_Closed : resultOf(count));
  }
  replies_.feed(std::span(replyBytes_.get(), static_cast<std::size_t>(count)));
  return EvtRes_Success;
}

EvtRes ClientLink::takeReplies(const std::uint32_t* wanted, Reply* reply) {
  for (;;) {
    Frame frame;
    const FrameReader::Status status = replies_.next(frame);
    if (status == FrameReader::Status::incomplete) {
      return EvtRes_Timeout;
    }
    if (status == FrameReader::Status::malformed || frame.header.kind != FrameKind::reply) {
      return fail(EvtRes_Protocol);
    }
    if (postedDone_ < posted_.size() && frame.header.sequence == posted_[postedDone_]) {
      ++postedDone_;
      sink_.replyReceived(frame.header.code);
      continue;
    }
    if (wanted != nullptr && frame.header.sequence == *wanted) {
      *reply = {frame.header.code, frame.header.order, frame.payload, reply->written};
      return EvtRes_Success;
    }
  }
}

EvtRes ClientLink::endStall() {
  std::array<pollfd, 2> pipes{
      pollfd{pipes_.reply.number(), POLLIN, 0},
      pollfd{pipes_.request.number(), static_cast<short>(awaitsWritable_ ? POLLOUT : 0), 0}};
  const int ready = system_.poll(pipes, 0);
  if (ready < 0 && ready != -EINTR) {
    return fail(resultOf(ready));
  }
  bool active = ready > 0 && (pipes[1].revents & POLLOUT) != 0;
  if (ready > 0 && pipes[0].revents != 0) {
    EvtRes result = readReplies();
    if (result == EvtRes_Success) {
      active = true;
      result = takeReplies(nullptr, nullptr);
    }
    if (result != EvtRes_Timeout) {
      return result;
    }
  } else if (ready > 0 && (pipes[1].revents & POLLERR) != 0) {
    return fail(EvtRes_Closed);
  }
  if (!active) {
    return EvtRes_Stalled;
  }
  stalled_ = false;
  return EvtRes_Success;
}

EvtRes ClientLink::checkPeer() {
  if (error_ != EvtRes_Success) {
    return error_;
  }
  std::array<pollfd, 2> pipes{pollfd{pipes_.reply.number(), 0, 0},
                              pollfd{pipes_.request.number(), 0, 0}};
  const int ready = system_.poll(pipes, 0);
  return ready > 0 ? fail(EvtRes_Closed) : EvtRes_Success;
}

bool ClientLink::ready(unsigned role, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  const auto keepAlive = shared_from_this();
  if (role == eventRole) {
    return readEvents();
  }
  continuePosted(role == replyRole);
  return false;
}

bool ClientLink::readEvents() {
  core_.clientMutex().assertHeld();
  if (dispatching_) {
    // The outer dispatch still has events to deliver; it resumes listening afterwards.
    paused_ = true;
    onEvent_.end();
    return false;
  }
  BufferLease lease(core_.readSlot());
  lease.bytes().resize(eventReadSize);
  const ssize_t count = system_.read(pipes_.event.number(), lease.bytes());
  if (count == -EAGAIN) {
    return false;
  }
  if (count <= 0) {
    static_cast<void>(fail(count == 0 ? EvtRes_Closed : resultOf(count)));
    return true;
  }
  stalled_ = false;
  events_.feed(std::span(lease.bytes()).first(static_cast<std::size_t>(count)));
  try {
    const ScopedFlag dispatching(dispatching_);
    dispatchEvents();
  } catch (const std::bad_alloc&) {
    static_cast<void>(fail(EvtRes_SystemError));
  } catch (...) {
    // An exception of the program: what was read after this event is lost.
    static_cast<void>(fail(EvtRes_SystemError));
    throw;
  }
  if (std::exchange(paused_, false) && error_ == EvtRes_Success) {
    static_cast<void>(listen());
  }
  return true;
}

void ClientLink::dispatchEvents() {
  while (error_ == EvtRes_Success) {
    Frame frame;
    const FrameReader::Status status = events_.next(frame);
    if (status == FrameReader::Status::incomplete) {
      return;
    }
    if (status == FrameReader::Status::malformed || frame.header.kind != FrameKind::event) {
      static_cast<void>(fail(EvtRes_Protocol));
      return;
    }
    sink_.eventReceived(frame.header.code, frame.payload, frame.header.order);
    // A flood of events, each of which may take long to handle, must not keep other
    // threads from making requests. They may also close this connection.
    core_.clientMutex().yield();
  }
}

}  // namespace EvtSrv::internal
