#include "modelsrv/source/client_subscriptions.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace ModelSrv::internal {

std::size_t ClientSubscriptions::ChainHash::operator()(
    const std::vector<ModelPartId>& chain) const {
  const std::string_view bytes(reinterpret_cast<const char*>(chain.data()),
                               chain.size() * sizeof(ModelPartId));
  return std::hash<std::string_view>{}(bytes);
}

void ClientSubscriptions::add(Entry entry) {
  const Key key = last_ + 1;
  const Entry& added = entries_.emplace_hint(entries_.end(), key, std::move(entry))->second;
  try {
    byChain_[added.chain].push_back(key);
    std::set<Key>& ofPart = byPart_[added.part];
    ofPart.insert(ofPart.end(), key);
  } catch (...) {
    erase(key);
    throw;
  }
  last_ = key;
  renewed_ = key;
}

void ClientSubscriptions::erase(Key key) {
  const auto at = entries_.find(key);
  if (at == entries_.end()) {
    return;
  }
  // After a failed `add` the entry may be missing in the two indices.
  if (const auto ofChain = byChain_.find(at->second.chain); ofChain != byChain_.end()) {
    auto& keys = ofChain->second;
    const auto found = std::equal_range(keys.begin(), keys.end(), key);
    keys.erase(found.first, found.second);
    if (keys.empty()) {
      byChain_.erase(ofChain);
    }
  }
  if (const auto ofPart = byPart_.find(at->second.part); ofPart != byPart_.end()) {
    ofPart->second.erase(key);
    if (ofPart->second.empty()) {
      byPart_.erase(ofPart);
    }
  }
  entries_.erase(at);
}

void ClientSubscriptions::clear() {
  entries_.clear();
  byChain_.clear();
  byPart_.clear();
}

const ClientSubscriptions::Entry* ClientSubscriptions::find(Key key) const {
  const auto at = entries_.find(key);
  return at != entries_.end() ? &at->second : nullptr;
}

std::optional<ClientSubscriptions::Key> ClientSubscriptions::lastOf(
    const ModelPart& part, const std::vector<ModelPartId>& chain) const {
  const auto at = byChain_.find(chain);
  if (at == byChain_.end()) {
    return std::nullopt;
  }
  const std::vector<Key>& keys = at->second;
  const auto last = std::find_if(keys.rbegin(), keys.rend(),
                                 [this, &part](Key key) { return entries_.at(key).part == &part; });
  return last != keys.rend() ? std::optional(*last) : std::nullopt;
}

std::optional<ClientSubscriptions::Key> ClientSubscriptions::anyOf(const ModelPart& part) const {
  const auto at = byPart_.find(&part);
  return at != byPart_.end() ? std::optional(*at->second.rbegin()) : std::nullopt;
}

bool ClientSubscriptions::hasAny(const std::vector<ModelPartId>& chain) const {
  return byChain_.find(chain) != byChain_.end();
}

std::vector<ClientSubscriptions::Key> ClientSubscriptions::matching(
    const std::vector<ModelPartId>& chain, ModelPartIndex index) const {
  std::vector<Key> keys;
  const auto at = byChain_.find(chain);
  if (at == byChain_.end()) {
    return keys;
  }
  std::vector<const ModelPart*> parts;
  for (const Key key : at->second) {
    const Entry& entry = entries_.at(key);
    const bool matches =
        entry.index == ModelPartIndex_All || index == ModelPartIndex_All || entry.index == index;
    if (matches && std::find(parts.begin(), parts.end(), entry.part) == parts.end()) {
      parts.push_back(entry.part);
      keys.push_back(key);
    }
  }
  return keys;
}

void ClientSubscriptions::markAllLost() {
  renewed_ = 0;
  ++connection_;
}

void ClientSubscriptions::markRefused(Key key) {
  if (const auto at = entries_.find(key); at != entries_.end()) {
    at->second.refusedBy = connection_;
  }
  renewed_ = std::max(renewed_, key);
}

bool ClientSubscriptions::isLost(Key key) const {
  const Entry* entry = find(key);
  return key > renewed_ || (entry != nullptr && entry->refusedBy == connection_);
}

std::optional<ClientSubscriptions::Key> ClientSubscriptions::firstLost() const {
  // Called before each request, so the usual case (none is lost) must be fast.
  if (entries_.empty() || entries_.rbegin()->first <= renewed_) {
    return std::nullopt;
  }
  return entries_.upper_bound(renewed_)->first;
}

}  // namespace ModelSrv::internal
