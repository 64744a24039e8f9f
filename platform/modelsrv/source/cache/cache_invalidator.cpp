#include "modelsrv/source/cache/cache_invalidator.h"

#include <algorithm>

namespace ModelSrv::internal {

namespace {

/// The lowest 12 bits of the structure version, which are all that a stamp has of it.
std::uint32_t structureOf(std::uint32_t stamp) {
  return stamp >> structureShift;
}

}  // namespace

void CacheInvalidator::open() {
  static_cast<void>(page_.open());
}

const StatusPage* CacheInvalidator::beginPrefetch() {
  if (!page_.isOpen()) {
    return nullptr;
  }
  cachedInEpoch_ = true;
  cachedInStructure_ = true;
  return &page_;
}

void CacheInvalidator::invalidateValue(std::uint32_t stamp) {
  if (!cachedInEpoch_ || stamp != stampOf(page_.epoch())) {
    return;
  }
  page_.advance();
  cachedInEpoch_ = false;
}

void CacheInvalidator::invalidate(std::uint32_t stamp) {
  if (cachedInStructure_ && structureOf(stamp) == structureOf(stampOf(page_.epoch()))) {
    invalidateAll();
  }
}

void CacheInvalidator::invalidateAll() {
  if (!cachedInStructure_) {
    return;
  }
  page_.advanceStructure();
  cachedInEpoch_ = false;
  cachedInStructure_ = false;
}

void CacheInvalidator::close() {
  page_.close();
  cachedInEpoch_ = false;
  cachedInStructure_ = false;
}

std::uint32_t CacheInvalidator::stampOf(std::uint64_t epoch) {
  return std::max<std::uint32_t>(static_cast<std::uint32_t>(epoch), 1);
}

}  // namespace ModelSrv::internal
