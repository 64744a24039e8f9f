#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace treescope {

/// The address of a part in the connected server's tree, and the choice of one of its
/// elements.
///
/// Plain values and pure functions for any thread. Names may hold any bytes.

/// Child ids from the server's root down to a part; empty for the root itself.
using IdChain = std::vector<std::uint16_t>;

/// An id chain with the names of the same parts in the same order.
struct NamedChain {
  IdChain ids;
  std::vector<std::string> names;

  void append(std::uint16_t id, std::string name);

  /// Removes the last part. The chain must not be empty.
  void removeLast();

  bool operator==(const NamedChain&) const = default;
};

/// The prefix of an unnamed child's displayed name; the child's decimal id follows.
inline constexpr std::string_view unnamedChildPrefix = "noname-";

/// The name that a child is displayed and addressed by: `served`, the server's name
/// for it, or "noname-" and `id` if that name is empty.
[[nodiscard]] std::string childName(const std::string& served, std::uint16_t id);

// An element of an array is chosen by its name or by its index. The two choices are
// separate types, so that neither is taken for the other. An empty text chooses no
// element.

struct ElementName {
  std::string text;
};

/// The index as the user wrote it.
struct ElementIndexText {
  std::string text;
};

/// The index in `element`: the number at the beginning of its text, as a stream
/// reads it. Text after the number is ignored; text without a number gives 0. A
/// number that does not fit, or that would mean the whole value, gives
/// `ModelPartIndex_Void`, which no element has.
[[nodiscard]] std::uint16_t elementIndex(const ElementIndexText& element);

}  // namespace treescope
