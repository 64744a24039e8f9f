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
}

ClientWatches::Pointer ClientWatches::find(WatchNumber number) const {
  const auto at = watches_.find(number);
  return at != watches_.end() ? at->second : nullptr;
}

void ClientWatches::dispatch(std::uint16_t type, EvtSrv::internal::PayloadReader payload) {
  DecodedWatchEvent decoded;
  std::swap(decoded, decoded_);
  if (!decodeWatchEvent(type, payload, decoded)) {
    return;
  }
  const Pointer watch = find(decoded.number);
  if (watch == nullptr) {
    std::swap(decoded, decoded_);
    return;
  }
  watch->callback(decoded.event);
  if (watch->client != nullptr && decoded.hasValue) {
    decoded.event.kind = WatchEvent::Kind::value;
    watch->callback(decoded.event);
  }
  std::swap(decoded, decoded_);
}

void ClientWatches::markAllLost() {
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
