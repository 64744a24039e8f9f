#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace treescope {

/// How a part of the connected server's tree is addressed, and how its place is
/// written for a person.
///
/// Plain values and pure functions, for any thread. Names may hold any bytes.

/// Child ids from the server's root down to a part; empty for the root itself.
using IdChain = std::vector<std::uint16_t>;

/// An id chain with the names of the same parts in the same order.
struct NamedChain {
  IdChain ids;
  std::vector<std::string> names;

  void append(std::uint16_t id, std::string name);

  /// Drops the last part; the chain must not be empty.
  void removeLast();

  bool operator==(const NamedChain&) const = default;
};

/// What an unnamed child is called begins with this; its id in decimal follows.
inline constexpr std::string_view unnamedChildPrefix = "noname-";

/// What a child is shown and addressed as: `served`, the name that the server
/// gives, or "noname-" and `id` where that is empty.
[[nodiscard]] std::string childName(const std::string& served, std::uint16_t id);

}  // namespace treescope
