#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/sorted_positions.h"

namespace treescope {

/// How often a list of children will be searched.
enum class ChildSearch {
  rare,      ///< linear search
  frequent,  ///< binary search: the list is indexed when it is constructed
};

/// The children of a node in the server's order, with lookup by name and by id.
///
/// An immutable value for any thread, cheap to copy. Ids and names come from two
/// replies of the server. If the tree changed between them a name may be missing;
/// that child counts as unnamed.
class ChildList {
 public:
  ChildList();

  /// Names without an id are dropped. `search` affects only the cost of lookups, not
  /// their results.
  ChildList(std::vector<std::uint16_t> ids, std::vector<std::string> names,
            ChildSearch search = ChildSearch::rare);

  /// Whether there are no children: the owner is a part, not a node.
  [[nodiscard]] bool empty() const { return lists_->ids.empty(); }
  [[nodiscard]] std::size_t size() const { return lists_->ids.size(); }

  /// How much memory the list takes, about.
  [[nodiscard]] std::size_t memory() const;

  // The child at `position`, which must be less than `size`.

  [[nodiscard]] std::uint16_t id(std::size_t position) const { return lists_->ids[position]; }
  /// The name in the server's reply; may be empty.
  [[nodiscard]] const std::string& servedName(std::size_t position) const;
  /// The displayed name (`childName`); never empty.
  [[nodiscard]] std::string name(std::size_t position) const;

  // Lookups return the position of the first match, nothing without one.

  /// The child that is displayed as `name`, compared byte for byte.
  [[nodiscard]] std::optional<std::size_t> findName(const std::string& name) const;

  /// The child that a path component means. After "noname-" the component is the
  /// decimal id of a child, which may have a name. Any other component is a child's
  /// name. A component without a number after "noname-" matches no child.
  [[nodiscard]] std::optional<std::size_t> findComponent(const std::string& component) const;

  [[nodiscard]] std::optional<std::size_t> findId(std::uint16_t id) const;

 private:
  struct Lists {
    std::vector<std::uint16_t> ids;
    std::vector<std::string> names;
    bool sorted = false;
    SortedPositions byId = {};
    SortedPositions byName = {};  ///< by displayed name

    void sort();
    /// Compares the displayed name at `position` with `wanted`, like
    /// `std::string::compare`.
    [[nodiscard]] int compareName(std::size_t position, std::string_view wanted) const;
  };

  std::shared_ptr<const Lists> lists_;
};

}  // namespace treescope
