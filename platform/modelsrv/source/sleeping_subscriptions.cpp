#include "modelsrv/source/sleeping_subscriptions.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/session_subscriptions.h"

namespace ModelSrv::internal {

namespace {

void appendName(std::string& names, std::string_view name) {
  static_assert(ModelName_Max <= 0xFFFF);
  names += static_cast<char>(name.size() >> 8U);
  names += static_cast<char>(name.size() & 0xFFU);
  names += name;
}

}  // namespace

void chainOf(const ModelPart& part, std::vector<ModelPartId>& chain) {
  chain.clear();
  for (const ModelPart* at = &part; PartAccess::parent(*at) != nullptr;
       at = PartAccess::parent(*at)) {
    chain.push_back(at->id());
  }
  std::reverse(chain.begin(), chain.end());
}

PartPath PartPath::of(const ModelPart& part, const ModelPart* formerParent) {
  std::vector<const ModelPart*> upwards;
  for (const ModelPart* at = &part; at != nullptr;) {
    upwards.push_back(at);
    at = PartAccess::parent(*at);
    if (at == nullptr) {
      at = std::exchange(formerParent, nullptr);
    }
  }
  upwards.pop_back();  // the root
  PartPath path;
  path.chain.reserve(upwards.size());
  for (auto at = upwards.rbegin(); at != upwards.rend(); ++at) {
    path.chain.push_back((*at)->id());
    appendName(path.names, (*at)->name());
  }
  return path;
}

bool SleepingSubscriptions::add(PartPath path, SubscribedIndices indices, ModelPart& part) {
  const bool added = add(std::move(path.chain), {std::move(path.names), std::move(indices), &part});
  PartAccess::setHasSleeping(part);
  return added;
}

bool SleepingSubscriptions::add(ChainView chain, ModelPartIndex index) {
  SubscribedIndices indices;
  indices.add(index);
  return add(Chain(chain.begin(), chain.end()), {std::nullopt, std::move(indices), nullptr});
}

bool SleepingSubscriptions::add(Chain chain, Entry entry) {
  const std::size_t bytes = bytesOf(chain, entry);
  if (bytes > maxBytes - bytes_) {
    return false;
  }
  const auto [at, isNew] = entries_.try_emplace(std::move(chain));
  std::vector<Entry>& ofChain = at->second;
  const auto same = std::find_if(ofChain.begin(), ofChain.end(), [&](const Entry& other) {
    return other.part == entry.part && other.names == entry.names;
  });
  try {
    if (same == ofChain.end()) {
      ofChain.push_back(std::move(entry));
      bytes_ += bytes;
    } else {
      bytes_ -= bytesOf(at->first, *same);
      same->indices.add(entry.indices);
      bytes_ += bytesOf(at->first, *same);
    }
  } catch (const std::bad_alloc&) {
    if (isNew) {
      entries_.erase(at);
    } else if (same != ofChain.end()) {
      bytes_ += bytesOf(at->first, *same);
    }
    throw;
  }
  return true;
}

bool SleepingSubscriptions::cancel(ChainView chain, ModelPartIndex index) {
  const auto at = entries_.find(Chain(chain.begin(), chain.end()));
  if (at == entries_.end()) {
    return false;
  }
  for (auto entry = at->second.begin(); entry != at->second.end(); ++entry) {
    const std::size_t before = bytesOf(at->first, *entry);
    if (!entry->indices.cancel(index)) {
      continue;
    }
    bytes_ = bytes_ - before + bytesOf(at->first, *entry);
    if (entry->indices.isEmpty()) {
      erase(at, entry);
    }
    return true;
  }
  return false;
}

SubscribedIndices SleepingSubscriptions::take(const PartPath& path, const ModelPart& part) {
  SubscribedIndices taken;
  const auto at = entries_.find(path.chain);
  if (at == entries_.end()) {
    return taken;
  }
  const auto waits = [&](const Entry& entry) {
    const bool isSamePart = entry.part == &part && PartAccess::hasSleeping(part);
    return (!entry.names.has_value() || *entry.names == path.names) &&
           (isSamePart || PartAccess::subscribable(part));
  };
  for (const Entry& entry : at->second) {
    if (waits(entry)) {
      taken.add(entry.indices);
    }
  }
  // From the end, since the last one takes the chain with it.
  for (std::size_t entry = at->second.size(); entry-- > 0;) {
    if (waits(at->second[entry])) {
      erase(at, at->second.begin() + static_cast<std::ptrdiff_t>(entry));
    }
  }
  return taken;
}

std::size_t SleepingSubscriptions::removeOne() {
  const auto at = entries_.begin();
  const auto last = std::prev(at->second.end());
  const std::size_t count = last->indices.count();
  erase(at, last);
  return count;
}

std::size_t SleepingSubscriptions::bytesFor(ChainView chain) {
  return bytesOfChain(chain) + SubscribedIndices::bytesOfOne;
}

std::size_t SleepingSubscriptions::bytesOfChain(ChainView chain) {
  constexpr std::size_t ofContainers = 240;
  return ofContainers + chain.size() * sizeof(ModelPartId);
}

std::size_t SleepingSubscriptions::bytesOf(const Chain& chain, const Entry& entry) {
  return bytesOfChain(chain) + (entry.names.has_value() ? entry.names->size() : 0) +
         entry.indices.bytes();
}

void SleepingSubscriptions::erase(Entries::iterator at, std::vector<Entry>::iterator entry) {
  bytes_ -= bytesOf(at->first, *entry);
  at->second.erase(entry);
  if (at->second.empty()) {
    entries_.erase(at);
  }
}

void SleepingSessions::remove(const SessionSubscriptions& session) {
  const auto at = std::find(sessions_.begin(), sessions_.end(), &session);
  if (at != sessions_.end()) {
    *at = sessions_.back();
    sessions_.pop_back();
  }
}

void SleepingSessions::partEntered(ModelPart& part, std::span<ModelPart* const> descendants) {
  if (sessions_.empty()) {
    return;
  }
  wakeUp(part);
  for (ModelPart* const descendant : descendants) {
    wakeUp(*descendant);
  }
}

void SleepingSessions::wakeUp(ModelPart& part) {
  try {
    chainOf(part, chain_);
    PartPath path;
    // From the end, since a session that has nothing left is removed.
    for (std::size_t at = sessions_.size(); at-- > 0;) {
      if (!sessions_[at]->sleepsAt(chain_)) {
        continue;
      }
      if (path.chain.empty()) {
        path = PartPath::of(part);
      }
      sessions_[at]->partEntered(part, path);
    }
  } catch (const std::bad_alloc&) {
    for (SessionSubscriptions* session : sessions_) {
      session->closeConnection();
    }
  }
}

}  // namespace ModelSrv::internal
