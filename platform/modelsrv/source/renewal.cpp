#include "modelsrv/source/renewal.h"

#include <climits>
#include <new>
#include <optional>

#include "modelsrv/source/replies.h"
#include "modelsrv/source/requests.h"

namespace ModelSrv::internal {

using EvtSrv::EvtRes;

namespace {

// A batch bounds the work of one dispatch, of the server too.
constexpr std::size_t batchRequests = 64;
constexpr std::size_t batchBytes = PIPE_BUF;

}  // namespace

RequestView Renewal::requestFor(const ClientWatch& watch, bool mayBeAbsent) {
  RequestView request{Operation::watch, watch.chain, watch.options.index};
  request.number = watch.number;
  request.watchFlags = static_cast<std::uint8_t>((watch.options.subtree ? watchSubtree : 0) |
                                                 (mayBeAbsent ? watchMayBeAbsent : 0));
  request.period = watch.options.period;
  return request;
}

RequestView Renewal::requestToEnd(WatchNumber number) {
  RequestView request{Operation::unwatch, {}};
  request.number = number;
  return request;
}

void Renewal::begin() {
  subscriptions_->markAllLost();
  watches_->markAllLost();
  waiting_.clear();
  replied_ = 0;
  absent_.clear();
  renewSupport_ = Support::unknown;
}

EvtRes Renewal::postBatch() {
  waiting_.reserve(batchRequests);
  absent_.reserve(batchRequests);
  std::size_t bytes = 0;
  EvtRes result = EvtSrv::EvtRes_Success;
  while (result == EvtSrv::EvtRes_Success && waiting_.size() < batchRequests &&
         bytes < batchBytes) {
    if (!absent_.empty()) {
      if (renewSupport_ == Support::unknown && !waiting_.empty()) {
        // The first reply shows whether the others make sense.
        break;
      }
      // The part may appear later.
      const Key key = absent_.back();
      const ClientSubscriptions::Entry* const entry = subscriptions_->find(key);
      if (renewSupport_ == Support::no || entry == nullptr) {
        absent_.pop_back();
        subscriptions_->markRefused(key);
        continue;
      }
      result = post(key, {Operation::renew, entry->chain, entry->index});
      if (result == EvtSrv::EvtRes_Success) {
        // Not before that: if memory runs out, the next batch tries it again.
        absent_.pop_back();
      }
    } else if (const std::optional<Key> key = subscriptions_->firstLost()) {
      const ClientSubscriptions::Entry& entry = *subscriptions_->find(*key);
      result = post(*key, {Operation::subscribe, entry.chain, entry.index});
    } else if (const std::optional<WatchNumber> number = watches_->firstLost()) {
      const ClientWatches::Pointer watch = watches_->find(*number);
      result = post(*number, requestFor(*watch, true));
    } else if (const std::optional<WatchNumber> stray = watches_->firstToEnd()) {
      result = post(*stray, requestToEnd(*stray));
    } else {
      break;
    }
    bytes += EvtSrv::internal::FrameHeader::size + payload_.size();
  }
  return result;
}

EvtRes Renewal::post(Key key, const RequestView& request) {
  payload_.clear();
  encodeRequest(request, payload_);
  const EvtRes result = port_.post(static_cast<std::uint16_t>(request.operation), payload_);
  if (result == EvtSrv::EvtRes_Success) {
    waiting_.push_back({key, request.operation});
    // From now on an unsubscribe follows the request, and must be sent too.
    if (request.operation == Operation::subscribe) {
      subscriptions_->markRenewed(key);
    } else if (request.operation == Operation::watch) {
      watches_->markRenewed(static_cast<WatchNumber>(key));
    } else if (request.operation == Operation::unwatch) {
      watches_->markEnded(static_cast<WatchNumber>(key));
    }
  }
  return result;
}

void Renewal::sendBatch() {
  try {
    if (waiting_.empty() && postBatch() == EvtSrv::EvtRes_Success) {
      static_cast<void>(port_.flushPosted());
    }
  } catch (const std::bad_alloc&) {
    port_.lose(EvtSrv::EvtRes_SystemError);
  }
}

EvtRes Renewal::finish(EvtSrv::internal::Deadline& deadline) {
  while (!isComplete()) {
    EvtRes result = waiting_.empty() ? postBatch() : EvtSrv::EvtRes_Success;
    if (result == EvtSrv::EvtRes_Success) {
      result = port_.awaitPosted(deadline);
    }
    if (result != EvtSrv::EvtRes_Success) {
      return result;
    }
  }
  return EvtSrv::EvtRes_Success;
}

bool Renewal::replyReceived(std::uint16_t code) {
  if (replied_ >= waiting_.size()) {
    return false;
  }
  const Request& request = waiting_[replied_];
  const ModelRes result = decodeResult(code);
  if (request.operation == Operation::renew) {
    renewSupport_ = result == ModelRes_BadRequest ? Support::no : Support::yes;
  }
  if (request.operation == Operation::unwatch) {
    // If it was refused, there was no such watch.
  } else if (request.operation == Operation::watch) {
    if (result != ModelRes_Success) {
      watches_->markRefused(static_cast<WatchNumber>(request.key));
    }
  } else if (result == ModelRes_NoSuchPart && request.operation == Operation::subscribe &&
             renewSupport_ != Support::no) {
    absent_.push_back(request.key);
  } else if (result != ModelRes_Success) {
    subscriptions_->markRefused(request.key);
  }
  if (++replied_ < waiting_.size()) {
    return false;
  }
  waiting_.clear();
  replied_ = 0;
  return true;
}

}  // namespace ModelSrv::internal
