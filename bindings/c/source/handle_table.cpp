#include "bindings/c/source/handle_table.h"

#include <limits>
#include <new>
#include <utility>

namespace treescope_c {

namespace {

using Handle = HandleTable::Handle;

/// 32 bits each, or 20 and 12 where a pointer has 32.
constexpr unsigned indexBits = std::numeric_limits<Handle>::digits == 64 ? 32 : 20;
constexpr Handle indexMask = (Handle{1} << indexBits) - 1;

}  // namespace

HandleTable& HandleTable::instance() {
  static auto* const table = new HandleTable;
  return *table;
}

Handle HandleTable::add(std::shared_ptr<Object> object) {
  const std::lock_guard lock(mutex_);
  std::size_t index = firstFree_;
  if (index == 0) {
    if (slots_.size() > indexMask) {
      throw std::bad_alloc();
    }
    index = slots_.size();
    slots_.emplace_back();
  } else {
    firstFree_ = slots_[index].nextFree;
  }
  Slot& slot = slots_[index];
  slot.object = std::move(object);
  return slot.uses << indexBits | index;
}

HandleTable::Slot* HandleTable::slotOf(Handle handle) {
  const std::size_t index = handle & indexMask;
  if (index == 0 || index >= slots_.size()) {
    return nullptr;
  }
  Slot& slot = slots_[index];
  const bool isOpen = slot.object != nullptr && (slot.uses << indexBits | index) == handle;
  return isOpen ? &slot : nullptr;
}

std::shared_ptr<Object> HandleTable::find(Handle handle, Kind kind) {
  const std::lock_guard lock(mutex_);
  const Slot* const slot = slotOf(handle);
  return slot != nullptr && slot->object->kind() == kind ? slot->object : nullptr;
}

void HandleTable::remove(Handle handle) {
  // Destroyed after the mutex is free again: a destructor may close further handles.
  std::shared_ptr<Object> object;
  const std::lock_guard lock(mutex_);
  Slot* const slot = slotOf(handle);
  if (slot == nullptr) {
    return;
  }
  object = std::move(slot->object);
  slot->object = nullptr;
  ++slot->uses;
  slot->nextFree = 0;
  const auto index = static_cast<std::size_t>(slot - slots_.data());
  if (firstFree_ == 0) {
    firstFree_ = index;
  } else {
    slots_[lastFree_].nextFree = index;
  }
  lastFree_ = index;
}

}  // namespace treescope_c
