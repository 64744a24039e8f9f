#include "modelsrv/source/client_watches.h"

#include <algorithm>
#include <utility>

namespace ModelSrv::internal {

ClientWatch::ClientWatch(EvtSrv::EventPortManager& ofManager, std::vector<ModelPartId> watchedChain,
                         const WatchOptions& watchOptions, Watch::Callback eventCallback)
    : manager(ofManager),
      chain(std::move(watchedChain)),
      options(watchOptions),
      callback(std::move(eventCallback)) {}

void ClientWatches::add(const Pointer& watch, ClientSide& client) {
  watches_.emplace_hint(watches_.end(), watch->number, watch);
  watch->client = &client;
  renewed_ = watch->number;
}

void ClientWatches::erase(ClientWatch& watch) {
  watch.client = nullptr;
  watches_.erase(watch.number);
}

void ClientWatches::clear() {
  for (const auto& [number, watch] : watches_) {
    watch->client = nullptr;
  }
  watches_.clear();
  strays_.clear();
  toEnd_.clear();
}

ClientWatches::Pointer ClientWatches::find(WatchNumber number) const {
  const auto at = watches_.find(number);
  return at != watches_.end() ? at->second : nullptr;
}

bool ClientWatches::dispatch(std::uint16_t type, EvtSrv::internal::PayloadReader payload) {
  DecodedWatchEvent decoded;
  std::swap(decoded, decoded_);
  if (!decodeWatchEvent(type, payload, decoded)) {
    return false;
  }
  const Pointer watch = find(decoded.number);
  if (watch == nullptr) {
    const bool isStray = strays_.contains(decoded.number);
    if (isStray) {
      toEnd_.push_back(decoded.number);
      strays_.erase(decoded.number);
    }
    std::swap(decoded, decoded_);
    return isStray;
  }
  watch->callback(decoded.event);
  if (watch->client != nullptr && decoded.hasValue) {
    decoded.event.kind = WatchEvent::Kind::value;
    watch->callback(decoded.event);
  }
  std::swap(decoded, decoded_);
  return false;
}

std::optional<WatchNumber> ClientWatches::firstToEnd() const {
  return toEnd_.empty() ? std::nullopt : std::optional(toEnd_.front());
}

void ClientWatches::markAllLost() {
  strays_.clear();
  toEnd_.clear();
  renewed_ = 0;
  ++connection_;
}

std::optional<WatchNumber> ClientWatches::firstLost() const {
  // Called before each request, so the usual case (none is lost) must be fast.
  if (watches_.empty() || watches_.rbegin()->first <= renewed_) {
    return std::nullopt;
  }
  return watches_.upper_bound(renewed_)->first;
}

void ClientWatches::markRefused(WatchNumber number) {
  if (const auto at = watches_.find(number); at != watches_.end()) {
    at->second->refusedBy = connection_;
  }
  renewed_ = std::max(renewed_, number);
}

}  // namespace ModelSrv::internal
