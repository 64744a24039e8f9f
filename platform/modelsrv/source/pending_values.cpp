#include "modelsrv/source/pending_values.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace ModelSrv::internal {

void PendingValues::count(Entry& entry, std::uint32_t changes, std::int64_t timeNs) {
  entry.changes += std::min(changes, std::numeric_limits<std::uint32_t>::max() - entry.changes);
  entry.timeNs = timeNs;
}

bool PendingValues::add(ModelPart& part, ModelPartIndex index, std::int64_t timeNs) {
  const auto at = parts_.try_emplace(&part).first;
  OfPart& ofPart = at->second;
  ofPart.whole.part = &part;
  Entry* entry = &ofPart.whole;
  if (index == ModelPartIndex_All) {
    addElementsToWhole(ofPart);
  } else if (entry->changes == 0) {
    try {
      const std::size_t before = ofPart.elements != nullptr ? ofPart.elements->size() : 0;
      entry = &elementOf(ofPart, index);
      elements_ += ofPart.elements->size() - before;
    } catch (...) {
      eraseIfUnused(at);
      throw;
    }
  }
  count(*entry, 1, timeNs);
  if (ofPart.restsUntil != 0 || entry->links.isQueued) {
    return false;
  }
  queue_.push(*entry);
  return true;
}

PendingValues::Entry& PendingValues::elementOf(OfPart& ofPart, ModelPartIndex index) {
  if (ofPart.elements == nullptr) {
    auto elements = std::make_unique<Elements>();
    elements->try_emplace(index);
    ofPart.elements = std::move(elements);
  }
  Entry& entry = (*ofPart.elements)[index];
  entry.part = ofPart.whole.part;
  entry.index = index;
  return entry;
}

/// The value of the whole part is to be sent, and with it the elements.
void PendingValues::addElementsToWhole(OfPart& ofPart) {
  if (ofPart.elements == nullptr) {
    return;
  }
  for (auto& [index, element] : *ofPart.elements) {
    count(ofPart.whole, element.changes, std::max(ofPart.whole.timeNs, element.timeNs));
    unlink(element);
  }
  elements_ -= ofPart.elements->size();
  ofPart.elements.reset();
}

PendingValues::Change PendingValues::first() const {
  const Entry& entry = *queue_.first();
  return {entry.part, entry.index, entry.changes, entry.timeNs};
}

void PendingValues::pop(std::int64_t restsUntil) {
  Entry& entry = *queue_.first();
  const auto at = parts_.find(entry.part);
  OfPart& ofPart = at->second;
  removePending(ofPart, entry);
  if (restsUntil != 0) {
    unlinkAll(ofPart);
    ofPart.restsUntil = restsUntil;
    resting_.push(ofPart);
  }
  eraseIfUnused(at);
}

/// Removes a queued entry. It may be destroyed.
void PendingValues::removePending(OfPart& ofPart, Entry& entry) {
  queue_.remove(entry);
  entry.changes = 0;
  entry.timeNs = 0;
  if (entry.index == ModelPartIndex_All) {
    return;
  }
  ofPart.elements->erase(ofPart.elements->find(entry.index));
  --elements_;
  if (ofPart.elements->empty()) {
    ofPart.elements.reset();
  }
}

void PendingValues::wake(std::int64_t now) {
  while (!resting_.isEmpty() && resting_.first()->restsUntil <= now) {
    OfPart& ofPart = *resting_.first();
    resting_.remove(ofPart);
    ofPart.restsUntil = 0;
    if (ofPart.elements != nullptr && ofPart.elements->size() > 1) {
      addElementsToWhole(ofPart);
    }
    if (ofPart.elements != nullptr) {
      queue_.push(ofPart.elements->begin()->second);
    } else if (ofPart.whole.changes != 0) {
      queue_.push(ofPart.whole);
    } else {
      eraseIfUnused(parts_.find(ofPart.whole.part));
    }
  }
}

std::int64_t PendingValues::nextWake() const {
  return resting_.isEmpty() ? 0 : resting_.first()->restsUntil;
}

void PendingValues::unlink(Entry& entry) {
  if (entry.links.isQueued) {
    queue_.remove(entry);
  }
}

void PendingValues::unlinkAll(OfPart& ofPart) {
  unlink(ofPart.whole);
  if (ofPart.elements != nullptr) {
    for (auto& [index, element] : *ofPart.elements) {
      unlink(element);
    }
  }
}

void PendingValues::eraseIfUnused(Parts::iterator at) {
  const OfPart& ofPart = at->second;
  if (ofPart.elements != nullptr || ofPart.whole.changes != 0 || ofPart.restsUntil != 0) {
    return;
  }
  parts_.erase(at);
  // The buckets of very many entries are not kept.
  constexpr std::size_t keptBuckets = 16 * 1024;
  if (parts_.empty() && parts_.bucket_count() > keptBuckets) {
    Parts().swap(parts_);
  }
}

void PendingValues::drop(const ModelPart& part) {
  const auto at = parts_.find(&part);
  if (at == parts_.end()) {
    return;
  }
  OfPart& ofPart = at->second;
  unlinkAll(ofPart);
  if (ofPart.links.isQueued) {
    resting_.remove(ofPart);
  }
  elements_ -= ofPart.elements != nullptr ? ofPart.elements->size() : 0;
  parts_.erase(at);
}

void PendingValues::clear() {
  Parts().swap(parts_);
  elements_ = 0;
  queue_.clear();
  resting_.clear();
}

}  // namespace ModelSrv::internal
