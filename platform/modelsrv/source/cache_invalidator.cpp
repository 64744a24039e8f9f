#include "modelsrv/source/invalidator.h"

#include <algorithm>

namespace ModelSrv::internal {

namespace {

/// The lowest 12 bits of the era, all that a mark has of it.
std::uint32_t eraOf(std::uint32_t mark) {
  return mark >> EvtSrv::internal::eraShift;
}

}  // namespace

void CacheInvalidator::start() {
  static_cast<void>(page_.open());
}

const EvtSrv::internal::LivePage* CacheInvalidator::begin() {
  if (!page_.isOpen())
    return nullptr;
  told_ = true;
  cachedInStructure_ = true;
  return &page_;
}

void CacheInvalidator::invalidateValue(std::uint32_t mark) {
  if (!told_ || mark != stampOf(page_.epoch()))
    return;
  page_.advance();
  told_ = false;
}

void CacheInvalidator::invalidate(std::uint32_t mark) {
  if (cachedInStructure_ && eraOf(mark) == eraOf(stampOf(page_.epoch())))
    invalidateAll();
}

void CacheInvalidator::invalidateAll() {
  if (!cachedInStructure_)
    return;
  page_.advanceEra();
  told_ = false;
  cachedInStructure_ = false;
}

void CacheInvalidator::end() {
  page_.close();
  told_ = false;
  cachedInStructure_ = false;
}

std::uint32_t CacheInvalidator::stampOf(std::uint64_t epoch) {
  return std::max<std::uint32_t>(static_cast<std::uint32_t>(epoch), 1);
}

}  // namespace ModelSrv::internal
