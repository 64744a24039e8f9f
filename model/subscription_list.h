#pragma once

#include <list>
#include <set>

#include "model/id_chain.h"

namespace treescope {

/// What a shell has subscribed to: id chains in the order of subscribing, one
/// subscribed twice being there twice, and a search over them, so that marking
/// every part of a large listing looks at few of many subscriptions.
///
/// A plain container: whoever owns it says which thread may change it. `Less`
/// orders chains; no rule depends on how.
template <typename Less = std::less<IdChain>>
class SubscriptionList {
 public:
  SubscriptionList() = default;
  SubscriptionList(const SubscriptionList&) = delete;
  SubscriptionList& operator=(const SubscriptionList&) = delete;

  [[nodiscard]] const std::list<IdChain>& inOrder() const { return inOrder_; }

  /// Whether one entry at least equals `chain`; in logarithmic time, like the
  /// changes.
  [[nodiscard]] bool contains(const IdChain& chain) const { return sorted_.contains(chain); }

  void add(const IdChain& chain) {
    // Subtrees are mostly subscribed in ascending order.
    sorted_.insert(sorted_.end(), inOrder_.insert(inOrder_.end(), chain));
  }

  /// Removes the first entry that equals `chain`, if there is one.
  void removeFirst(const IdChain& chain) {
    // Equal entries stand in the order in which they were inserted.
    const auto first = sorted_.lower_bound(chain);
    if (first == sorted_.end() || Less()(chain, **first)) {
      return;
    }
    const Place place = *first;
    sorted_.erase(first);
    inOrder_.erase(place);
  }

 private:
  using Place = std::list<IdChain>::const_iterator;

  struct ByChain {
    using is_transparent = void;
    bool operator()(Place a, Place b) const { return Less()(*a, *b); }
    bool operator()(Place a, const IdChain& b) const { return Less()(*a, b); }
    bool operator()(const IdChain& a, Place b) const { return Less()(a, *b); }
  };

  std::list<IdChain> inOrder_;
  std::multiset<Place, ByChain> sorted_;
};

}  // namespace treescope
