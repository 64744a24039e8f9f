#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace modelgate {

/// The trees of mirrors that no client uses. They are kept for a while, for the next client, but
/// not for ever: someone who looks at each device of a large fleet once leaves no trace after that.
/// Knows no clock.
///
/// Threads: one.
class IdleTrees {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The memory that they take together, in bytes. What is above it is given back at once, the tree
  /// first that has not been used for the longest time.
  static constexpr std::size_t maxBytes = std::size_t{64} * 1024 * 1024;

  /// A tree as long as it is unused; destroying it says that it is used, or gone.
  class Entry {
   public:
    Entry(IdleTrees& trees, std::uint64_t number) : trees_(trees), number_(number) {}
    ~Entry() { trees_.remove(number_); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    /// The tree takes another number of bytes now.
    void resize(std::size_t bytes) { trees_.resize(number_, bytes); }

   private:
    IdleTrees& trees_;
    const std::uint64_t number_;
  };

  /// Calls `giveBack` once, by `trim`, which may destroy the entry. Without `due` only if there is
  /// too little memory. `entry` must not outlive this object.
  void add(std::optional<Entry>& entry, std::size_t bytes, std::optional<Time> due,
           std::function<void()> giveBack);
  /// Gives back what is due, and what is too much. Returns whether there was something.
  bool trim(Time now);

  [[nodiscard]] bool areTooLarge() const { return bytes_ > maxBytes; }
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  struct Tree {
    std::size_t bytes;
    std::optional<Time> due;
    std::function<void()> giveBack;
  };

  void remove(std::uint64_t number);
  void resize(std::uint64_t number, std::size_t bytes);

  std::map<std::uint64_t, Tree>
      trees_;  ///< the one that has been unused for the longest time first
  std::uint64_t last_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace modelgate
