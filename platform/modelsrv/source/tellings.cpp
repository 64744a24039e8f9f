#include "modelsrv/source/tellings.h"

#include <algorithm>

namespace ModelSrv::internal {

void Tellings::start() {
  static_cast<void>(page_.open());
}

const EvtSrv::internal::LivePage* Tellings::begin() {
  if (!page_.isOpen())
    return nullptr;
  told_ = true;
  return &page_;
}

void Tellings::takeBack(std::uint32_t mark) {
  if (told_ && mark == markOf(page_.epoch()))
    takeBackAll();
}

void Tellings::takeBackAll() {
  if (!told_)
    return;
  page_.advance();
  told_ = false;
}

void Tellings::end() {
  page_.close();
  told_ = false;
}

std::uint32_t Tellings::markOf(std::uint64_t epoch) {
  return std::max<std::uint32_t>(static_cast<std::uint32_t>(epoch), 1);
}

}  // namespace ModelSrv::internal
