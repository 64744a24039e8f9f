#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

/// The handles that C programs have: numbers that never lead to a destroyed object.
namespace treescope_c {

/// What handles are of.
enum class Kind : std::uint8_t { client, watch, server, part };

/// Anything that has a handle. A call keeps the object while it uses it, so that another thread may
/// close the handle meanwhile.
class Object {
 public:
  explicit Object(Kind kind) : kind_(kind) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  [[nodiscard]] Kind kind() const { return kind_; }

 private:
  const Kind kind_;
};

/// All handles of the process. A handle is the index of a slot and the number of times that the
/// slot has been used, so a closed one is recognised after the slot is used again. Thread-safe.
class HandleTable {
 public:
  using Handle = std::uintptr_t;

  /// The one table; it is never destroyed, since threads may use it while the process ends.
  static HandleTable& instance();

  /// A handle for `object`; never 0. Throws `std::bad_alloc`, also if there are too many.
  Handle add(std::shared_ptr<Object> object);

  /// The object of a handle; null if there is none of this kind.
  [[nodiscard]] std::shared_ptr<Object> find(Handle handle, Kind kind);

  /// Closes a handle; nothing happens if it is closed.
  void remove(Handle handle);

 private:
  struct Slot {
    std::shared_ptr<Object> object;
    Handle uses = 0;
    std::size_t nextFree = 0;
  };

  Slot* slotOf(Handle handle);

  std::mutex mutex_;
  // Guarded by `mutex_`.
  std::vector<Slot> slots_{1};  ///< the first is not used: no handle is 0
  // Free slots are used again in the order in which they became free; 0: none.
  std::size_t firstFree_ = 0;
  std::size_t lastFree_ = 0;
};

/// The object of type `T` behind the pointer that a C program passed; null if there is none.
template <typename T>
std::shared_ptr<T> find(const void* handle) {
  return std::static_pointer_cast<T>(
      HandleTable::instance().find(reinterpret_cast<std::uintptr_t>(handle), T::objectKind));
}

}  // namespace treescope_c
