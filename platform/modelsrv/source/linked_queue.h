#pragma once

namespace ModelSrv::internal {

/// The links of an item that may be in one `LinkedQueue` at a time.
template <typename T>
struct QueueLinks {
  T* previous = nullptr;
  T* next = nullptr;
  bool isQueued = false;
};

/// A queue of items that it does not own, in the order of their arrival. `T` has a member `links`
/// of type `QueueLinks<T>`. Allocates nothing.
template <typename T>
class LinkedQueue {
 public:
  [[nodiscard]] bool isEmpty() const { return first_ == nullptr; }
  [[nodiscard]] T* first() const { return first_; }

  /// Appends `item`, which is in no queue.
  void push(T& item) {
    item.links = {last_, nullptr, true};
    (last_ != nullptr ? last_->links.next : first_) = &item;
    last_ = &item;
  }

  /// Removes `item`, which is in this queue.
  void remove(T& item) {
    QueueLinks<T>& links = item.links;
    (links.previous != nullptr ? links.previous->links.next : first_) = links.next;
    (links.next != nullptr ? links.next->links.previous : last_) = links.previous;
    links = {};
  }

  /// Forgets all items, which may have been destroyed.
  void clear() {
    first_ = nullptr;
    last_ = nullptr;
  }

 private:
  T* first_ = nullptr;
  T* last_ = nullptr;
};

}  // namespace ModelSrv::internal
