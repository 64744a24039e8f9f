#include "model/child_list_cache.h"

#include <algorithm>

namespace treescope {

std::size_t ChildListCache::sharedLevels(const IdChain& chain) const {
  const auto [ours, theirs] =
      std::mismatch(branch_.begin(), branch_.end(), chain.begin(), chain.end());
  return static_cast<std::size_t>(ours - branch_.begin());
}

const ChildList* ChildListCache::find(const IdChain& chain) const {
  if (chain.size() < top_ || chain.size() - top_ >= lists_.size() ||
      !std::equal(chain.begin(), chain.end(), branch_.begin())) {
    return nullptr;
  }
  return &lists_[chain.size() - top_];
}

void ChildListCache::store(const IdChain& chain, const ChildList& children) {
  const bool continues = chain.size() > top_ && chain.size() - top_ <= lists_.size() &&
                         sharedLevels(chain) + 1 >= chain.size();
  if (!continues) {
    top_ = chain.size();
  }
  lists_.resize(chain.size() - top_);
  lists_.push_back(children);
  branch_ = chain;
}

ChildListCache::Use::Use(ChildListCache*& slot) : slot_(slot), before_(slot) {
  if (before_ == nullptr) {
    slot_ = &own_;
  }
}

ChildListCache::Use::~Use() {
  slot_ = before_;
}

}  // namespace treescope
