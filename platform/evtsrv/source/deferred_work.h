#pragma once

#include <cstddef>

namespace EvtSrv::internal {

class DeferredQueue;

/// Work that is left for the next dispatch, because the code that finds it must not call
/// the program or must not take longer. Ends its wait in the queue on destruction.
class DeferredWork {
 public:
  DeferredWork() = default;
  virtual ~DeferredWork() { leaveQueue(); }
  DeferredWork(const DeferredWork&) = delete;
  DeferredWork& operator=(const DeferredWork&) = delete;

  /// Does a bounded part of the work; may defer itself again. May call the program as its
  /// last action, which may destroy this. Returns whether the program was called.
  virtual bool runDeferred() = 0;

 protected:
  /// Leaves the queue; does nothing if this does not wait.
  void leaveQueue();

 private:
  friend class DeferredQueue;

  DeferredQueue* queue_ = nullptr;  // Null while this does not wait.
  DeferredWork* previous_ = nullptr;
  DeferredWork* next_ = nullptr;
};

/// The deferred work of a manager, in the order in which it was deferred. Allocates
/// nothing. Guarded by the client mutex.
class DeferredQueue {
 public:
  DeferredQueue() = default;
  DeferredQueue(const DeferredQueue&) = delete;
  DeferredQueue& operator=(const DeferredQueue&) = delete;

  [[nodiscard]] bool isEmpty() const { return first_ == nullptr; }

  /// Appends `work`; false if it waits already.
  bool push(DeferredWork& work) {
    if (work.queue_ != nullptr) {
      return false;
    }
    work.queue_ = this;
    work.previous_ = last_;
    (last_ != nullptr ? last_->next_ : first_) = &work;
    last_ = &work;
    ++size_;
    return true;
  }

  [[nodiscard]] std::size_t size() const { return size_; }

  /// Removes and returns the first work. The queue is not empty.
  DeferredWork& pop() {
    DeferredWork& work = *first_;
    remove(work);
    return work;
  }

 private:
  friend class DeferredWork;

  void remove(DeferredWork& work) {
    (work.previous_ != nullptr ? work.previous_->next_ : first_) = work.next_;
    (work.next_ != nullptr ? work.next_->previous_ : last_) = work.previous_;
    work.queue_ = nullptr;
    work.previous_ = nullptr;
    work.next_ = nullptr;
    --size_;
  }

  DeferredWork* first_ = nullptr;
  DeferredWork* last_ = nullptr;
  std::size_t size_ = 0;
};

inline void DeferredWork::leaveQueue() {
  if (queue_ != nullptr) {
    queue_->remove(*this);
  }
}

}  // namespace EvtSrv::internal
