// The requests of a client whose replies are not waited for.

#include <algorithm>
#include <cerrno>
#include <new>

#include "evtsrv/source/client_link.h"

namespace EvtSrv::internal {

EvtRes ClientLink::post(std::uint16_t operation, std::span<const std::uint8_t> payload) {
  if (error_ != EvtRes_Success) {
    return error_;
  }
  try {
    FrameHeader header;
    header.kind = FrameKind::request;
    header.code = operation;
    header.sequence = ++sequence_;
    header.length = static_cast<std::uint32_t>(payload.size());
    const std::size_t start = pendingOutput_.size();
    posted_.push_back(header.sequence);
    pendingOutput_.resize(start + FrameHeader::size);
    encodeHeader(header, pendingOutput_.data() + start);
    pendingOutput_.insert(pendingOutput_.end(), payload.begin(), payload.end());
  } catch (const std::bad_alloc&) {
    return fail(EvtRes_SystemError);
  }
  return EvtRes_Success;
}

EvtRes ClientLink::flushPosted() {
  if (error_ != EvtRes_Success) {
    return error_;
  }
  if (!pendingOutput_.empty()) {
    const ssize_t count = system_.write(pipes_.request.number(), pendingOutput_);
    if (count < 0 && count != -EAGAIN) {
      return fail(resultOf(count));
    }
    const auto written = std::max<std::ptrdiff_t>(count, 0);
    pendingOutput_.erase(pendingOutput_.begin(), pendingOutput_.begin() + written);
  }
  return listenForPosted();
}

/// Waits for what the posted requests need, and for nothing that they do not need.
EvtRes ClientLink::listenForPosted() {
  core_.clientMutex().assertHeld();
  if (error_ != EvtRes_Success) {
    return error_;
  }
  if (postedDone_ == posted_.size()) {
    posted_.clear();
    postedDone_ = 0;
    onReply_.end();
  } else if (onReply_.setInterest(EPOLLIN) == -ENOENT) {
    const int result =
        core_.reactor().add(pipes_.reply.number(), EPOLLIN, *this, replyRole, onReply_);
    if (result < 0) {
      return fail(resultOf(result));
    }
  }
  if (pendingOutput_.empty() || posted_.empty()) {
    onRequest_.end();
  } else if (onRequest_.setInterest(EPOLLOUT) == -ENOENT) {
    const int result =
        core_.reactor().add(pipes_.request.number(), EPOLLOUT, *this, requestRole, onRequest_);
    if (result < 0) {
      return fail(resultOf(result));
    }
  }
  return EvtRes_Success;
}

void ClientLink::continuePosted(bool isReadable) {
  try {
    if (isReadable && readReplies() == EvtRes_Success) {
      stalled_ = false;
      static_cast<void>(takeReplies(nullptr, nullptr));
    }
    static_cast<void>(flushPosted());
  } catch (const std::bad_alloc&) {
    static_cast<void>(fail(EvtRes_SystemError));
  }
}

EvtRes ClientLink::awaitPosted(Deadline& deadline) {
  try {
    const EvtRes result = tryAwaitPosted(deadline);
    // After a time-out the dispatches send the rest and take the late replies.
    const EvtRes listening = listenForPosted();
    return listening == EvtRes_Success ? result : listening;
  } catch (const std::bad_alloc&) {
    return fail(EvtRes_SystemError);
  }
}

EvtRes ClientLink::tryAwaitPosted(Deadline& deadline) {
  if (error_ != EvtRes_Success) {
    return error_;
  }
  EvtRes result = stalled_ ? endStall() : EvtRes_Success;
  if (result == EvtRes_Success && !pendingOutput_.empty()) {
    result = writePending(deadline);
  }
  while (result == EvtRes_Success && postedDone_ < posted_.size()) {
    result = awaitInput(deadline);
    if (result != EvtRes_Success) {
      return result == EvtRes_Timeout ? stall(false) : fail(result);
    }
    result = readReplies();
    result = result == EvtRes_Success ? takeReplies(nullptr, nullptr) : result;
    result = result == EvtRes_Timeout ? EvtRes_Success : result;
  }
  return result;
}

}  // namespace EvtSrv::internal
