#include "modelsrv/source/session_watches.h"

#include <limits>
#include <utility>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv::internal {

namespace {

// How much text is read before it is the turn of others: an array's text may take long to make.
constexpr std::size_t textAtOnce = std::size_t{256} * 1024;
constexpr std::size_t keptText = std::size_t{64} * 1024;

// A change of a part costs time for each watch of it.
constexpr std::size_t maxWatches = 1000;

}  // namespace

WatchShare::WatchShare(ModelRoot& root)
    : system(root.manager()->core().system()),
      turns(root.manager()->core().turns()),
      registry(PartAccess::watchRegistry(root)),
      timer(root.manager()->core()) {}

SessionWatches::SessionWatches(EvtSrv::internal::ServerConnection& connection, WatchShare& share)
    : connection_(connection), share_(share) {}

SessionWatches::~SessionWatches() {
  if (withPeriod_ != 0) {
    share_.timer.remove(*this);
  }
  connection_.account().removeSubscriptions(watches_.size());
  watches_.clear();
}

ModelRes SessionWatches::add(ModelPart* part, ChainView chain, const WatchTerms& terms) {
  if (watches_.contains(terms.number)) {
    return ModelRes_BadArgument;
  }
  if (watches_.size() >= maxWatches ||
      !connection_.account().allows(ServerWatch::bytesOf(terms) +
                                    chain.size() * sizeof(ModelPartId))) {
    return ModelRes_LimitReached;
  }
  const auto watch = std::make_shared<ServerWatch>(*this, terms, share_.registry);
  if (!enroll(watch)) {
    return ModelRes_LimitReached;
  }
  try {
    if (part != nullptr) {
      watch->watch(*part);
    } else {
      watch->waitAt(chain);
    }
  } catch (...) {
    static_cast<void>(remove(terms.number));
    throw;
  }
  // A watch handler may have dispatched a request that ended it.
  watch->pendingAdded();
  return ModelRes_Success;
}

/// Adds a watch that is of no part yet, so that `remove` ends it. False at a limit. If it throws
/// `std::bad_alloc`, nothing has changed.
bool SessionWatches::enroll(const std::shared_ptr<ServerWatch>& watch) {
  const auto at = watches_.emplace(watch->terms().number, watch).first;
  try {
    const bool hasPeriod = watch->terms().periodMs != 0;
    if (hasPeriod) {
      watch->wake = wakes_.extract(wakes_.emplace(0, watch->terms().number).first);
    }
    if ((!hasPeriod || withPeriod_ != 0 || share_.timer.add(*this)) && watch->accountForItself() &&
        connection_.account().addSubscription()) {
      withPeriod_ += hasPeriod ? 1 : 0;
      return true;
    }
  } catch (...) {
    watches_.erase(at);
    throw;
  }
  watches_.erase(at);
  if (withPeriod_ == 0) {
    share_.timer.remove(*this);
  }
  return false;
}

ModelRes SessionWatches::remove(WatchNumber number) {
  const auto node = watches_.extract(number);
  if (node.empty()) {
    return ModelRes_NotSubscribed;
  }
  // It may be in the middle of reading a value, and outlives this call then.
  ServerWatch& watch = *node.mapped();
  if (watch.links.isQueued) {
    ready_.remove(watch);
  }
  if (watch.wakesAtMs != 0) {
    wakes_.erase({watch.wakesAtMs, number});
  }
  if (watch.terms().periodMs != 0 && --withPeriod_ == 0) {
    share_.timer.remove(*this);
  }
  connection_.account().removeSubscriptions(1);
  watch.end();
  return ModelRes_Success;
}

bool SessionWatches::release() {
  constexpr unsigned watchesAtOnce = 100;
  released_ = true;
  bool isLast = false;
  for (unsigned i = 0; i < watchesAtOnce && !watches_.empty() && !isLast; ++i) {
    // The end of one of a subtree may call many watch handlers.
    isLast = watches_.begin()->second->terms().subtree && WatchCounts::anyHandler();
    static_cast<void>(remove(watches_.begin()->first));
  }
  return watches_.empty();
}

void SessionWatches::pendingAdded(ServerWatch& watch) {
  if (released_) {
    return;
  }
  if (!watch.links.isQueued) {
    ready_.push(watch);
  }
  connection_.eventsPending();
}

void SessionWatches::beginEvents(bool inDispatch) {
  inDispatch_ = inDispatch;
  textRead_ = 0;
  programCalled_ = false;
}

bool SessionWatches::takeNext(std::uint16_t& type, std::vector<std::uint8_t>& payload) {
  paused_ = false;
  while (ServerWatch* const first = ready_.first()) {
    if (textRead_ > textAtOnce || (programCalled_ && share_.turns.turnExpired())) {
      paused_ = true;
      return false;
    }
    // Reading a value may call the program, which may end the watch.
    const std::shared_ptr<ServerWatch> watch = watches_.at(first->terms().number);
    ready_.remove(*watch);
    const std::size_t before = payload.size();
    const ServerWatch::Taken taken = watch->takeNext(type, payload, inDispatch_);
    const auto at = watches_.find(watch->terms().number);
    if (at == watches_.end() || at->second != watch) {
      payload.resize(before);
      continue;
    }
    // Each watch sends one event in turn.
    if (watch->hasPending() && !watch->links.isQueued) {
      ready_.push(*watch);
    }
    if (taken == ServerWatch::Taken::event) {
      return true;
    }
    if (taken == ServerWatch::Taken::paused) {
      paused_ = true;
      return false;
    }
  }
  return false;
}

ModelRes SessionWatches::readValue(const ModelPart& part, ModelPartIndex index) {
  // The call may dispatch, and thereby read other values.
  std::string text = std::exchange(share_.text, {});
  text.clear();
  if (text.capacity() > keptText) {
    text.shrink_to_fit();
  }
  programCalled_ = programCalled_ || !PartAccess::isCacheable(part);
  const ModelRes result = PartAccess::appendText(part, text, index);
  const std::size_t size = text.size();
  share_.text = std::move(text);
  textRead_ += size;
  if (result == ModelRes_Success && size > ModelWatchText_Max) {
    return ModelRes_TooLarge;
  }
  return result < ModelRes_NotConnected ? result : ModelRes_Unreachable;
}

void SessionWatches::rests(ServerWatch& watch, std::int64_t untilMs) {
  if (watch.wakesAtMs == 0) {
    watch.wake.value().first = untilMs;
    wakes_.insert(std::move(watch.wake));
    watch.wakesAtMs = untilMs;
    share_.timer.callAt(untilMs);
  }
}

void SessionWatches::endPeriods() {
  periodsEnded_ = true;
  static_cast<void>(timeReached(std::numeric_limits<std::int64_t>::max()));
}

std::int64_t SessionWatches::timeReached(std::int64_t nowMs) {
  while (!wakes_.empty() && wakes_.begin()->first <= nowMs) {
    ServerWatch& watch = *watches_.at(wakes_.begin()->second);
    watch.wake = wakes_.extract(wakes_.begin());
    watch.wakesAtMs = 0;
    watch.wakeValues(nowMs);
    if (const std::int64_t next = watch.nextWake(); next != 0) {
      rests(watch, next);
    }
    if (watch.hasPending()) {
      pendingAdded(watch);
    }
  }
  return wakes_.empty() ? 0 : wakes_.begin()->first;
}

}  // namespace ModelSrv::internal
