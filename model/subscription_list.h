#pragma once

#include <iterator>
#include <list>
#include <set>

#include "model/id_chain.h"

namespace treescope {

/// The subscriptions of a client: id chains in the order of subscribing, with
/// duplicates, and a search index. Add, remove and search take logarithmic time, so a
/// large listing can mark every subscribed part.
///
/// A plain container without locks. `Less` orders the index; the order has no visible
/// effect.
template <typename Less = std::less<IdChain>>
class SubscriptionList {
 public:
  SubscriptionList() = default;
  SubscriptionList(const SubscriptionList&) = delete;
  SubscriptionList& operator=(const SubscriptionList&) = delete;

  [[nodiscard]] const std::list<IdChain>& inOrder() const { return inOrder_; }

  /// Whether at least one entry equals `chain`.
  [[nodiscard]] bool contains(const IdChain& chain) const { return sorted_.contains(chain); }

  /// Whether exactly one entry equals `chain`.
  [[nodiscard]] bool containsOnce(const IdChain& chain) const {
    const auto [first, last] = sorted_.equal_range(chain);
    return first != last && std::next(first) == last;
  }

  void add(const IdChain& chain) {
    // The end is a hint: subtrees are mostly subscribed in ascending order.
    sorted_.insert(sorted_.end(), inOrder_.insert(inOrder_.end(), chain));
  }

  /// Removes the first entry that equals `chain`, if there is one.
  void removeFirst(const IdChain& chain) {
    // Equal entries are in the order of insertion.
    const auto first = sorted_.lower_bound(chain);
    if (first == sorted_.end() || Less()(chain, **first)) {
      return;
    }
    const Entry entry = *first;
    sorted_.erase(first);
    inOrder_.erase(entry);
  }

 private:
  using Entry = std::list<IdChain>::const_iterator;

  struct ByChain {
    using is_transparent = void;
    bool operator()(Entry a, Entry b) const { return Less()(*a, *b); }
    bool operator()(Entry a, const IdChain& b) const { return Less()(*a, b); }
    bool operator()(const IdChain& a, Entry b) const { return Less()(a, *b); }
  };

  std::list<IdChain> inOrder_;
  std::multiset<Entry, ByChain> sorted_;
};

}  // namespace treescope
