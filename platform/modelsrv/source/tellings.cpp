#include "modelsrv/source/tellings.h"

#include <algorithm>

namespace ModelSrv::internal {

namespace {

/// The lowest 12 bits of the era, all that a mark has of it.
std::uint32_t eraOf(std::uint32_t mark) {
  return mark >> EvtSrv::internal::eraShift;
}

}  // namespace

void Tellings::start() {
  static_cast<void>(page_.open());
}

const EvtSrv::internal::LivePage* Tellings::begin() {
  if (!page_.isOpen())
    return nullptr;
  told_ = true;
  toldInEra_ = true;
  return &page_;
}

void Tellings::takeBackValue(std::uint32_t mark) {
  if (!told_ || mark != markOf(page_.epoch()))
    return;
  page_.advance();
  told_ = false;
}

void Tellings::takeBack(std::uint32_t mark) {
  if (toldInEra_ && eraOf(mark) == eraOf(markOf(page_.epoch())))
    takeBackAll();
}

void Tellings::takeBackAll() {
  if (!toldInEra_)
    return;
  page_.advanceEra();
  told_ = false;
  toldInEra_ = false;
}

void Tellings::end() {
  page_.close();
  told_ = false;
  toldInEra_ = false;
}

std::uint32_t Tellings::markOf(std::uint64_t epoch) {
  return std::max<std::uint32_t>(static_cast<std::uint32_t>(epoch), 1);
}

}  // namespace ModelSrv::internal
