#include "modelsrv/source/pending_values.h"

#include <algorithm>
#include <limits>

namespace ModelSrv::internal {

void PendingValues::count(Entry& entry, std::uint32_t changes, std::int64_t timeNs) {
  entry.changes += std::min(changes, std::numeric_limits<std::uint32_t>::max() - entry.changes);
  entry.timeNs = timeNs;
}

bool PendingValues::add(ModelPart& part, ModelPartIndex index, std::int64_t timeNs) {
  Entry& entry = entryFor(part, index);
  count(entry, 1, timeNs);
  if (entry.restsUntil != 0 || entry.links.isQueued) {
    return false;
  }
  queue_.push(entry);
  return true;
}

/// The entry to count a change of `index` in. A queued entry of the whole value stands for the
/// elements too.
PendingValues::Entry& PendingValues::entryFor(ModelPart& part, ModelPartIndex index) {
  OfPart& ofPart = parts_.try_emplace(&part).first->second;
  ofPart.whole.part = &part;
  if (index == ModelPartIndex_All) {
    addElementsToWhole(ofPart);
    return ofPart.whole;
  }
  if (ofPart.whole.links.isQueued && ofPart.whole.restsUntil == 0) {
    return ofPart.whole;
  }
  try {
    if (ofPart.elements == nullptr) {
      ofPart.elements = std::make_unique<Elements>();
    }
    const auto [at, isNew] = ofPart.elements->try_emplace(index);
    elements_ += isNew ? 1 : 0;
    at->second.part = &part;
    at->second.index = index;
    return at->second;
  } catch (...) {
    if (!ofPart.whole.links.isQueued && (ofPart.elements == nullptr || ofPart.elements->empty())) {
      parts_.erase(&part);
    }
    throw;
  }
}

/// The value of the whole part is to be sent, and with it the elements.
void PendingValues::addElementsToWhole(OfPart& ofPart) {
  if (ofPart.elements == nullptr) {
    return;
  }
  for (auto& [index, element] : *ofPart.elements) {
    if (element.changes != 0) {
      count(ofPart.whole, element.changes, element.timeNs);
    }
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
  queue_.remove(entry);
  if (restsUntil == 0) {
    erase(entry);
    return;
  }
  entry.changes = 0;
  entry.restsUntil = restsUntil;
  resting_.push(entry);
}

void PendingValues::wake(std::int64_t now) {
  while (!resting_.isEmpty() && resting_.first()->restsUntil <= now) {
    Entry& entry = *resting_.first();
    resting_.remove(entry);
    entry.restsUntil = 0;
    if (entry.changes != 0) {
      queue_.push(entry);
    } else {
      erase(entry);
    }
  }
}

std::int64_t PendingValues::nextWake() const {
  return resting_.isEmpty() ? 0 : resting_.first()->restsUntil;
}

void PendingValues::unlink(Entry& entry) {
  if (entry.links.isQueued) {
    (entry.restsUntil != 0 ? resting_ : queue_).remove(entry);
  }
}

/// Erases an entry that is in no queue.
void PendingValues::erase(Entry& entry) {
  const auto at = parts_.find(entry.part);
  OfPart& ofPart = at->second;
  if (const ModelPartIndex index = entry.index; index != ModelPartIndex_All) {
    ofPart.elements->erase(index);
    --elements_;
    if (ofPart.elements->empty()) {
      ofPart.elements.reset();
    }
  } else {
    entry.changes = 0;
  }
  if (ofPart.elements == nullptr && !ofPart.whole.links.isQueued) {
    parts_.erase(at);
    shrink();
  }
}

/// The buckets of very many entries are not kept.
void PendingValues::shrink() {
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
  unlink(at->second.whole);
  if (at->second.elements != nullptr) {
    for (auto& [index, element] : *at->second.elements) {
      unlink(element);
    }
    elements_ -= at->second.elements->size();
  }
  parts_.erase(at);
}

void PendingValues::clear() {
  Parts().swap(parts_);
  elements_ = 0;
  queue_.clear();
  resting_.clear();
}

}  // namespace ModelSrv::internal
