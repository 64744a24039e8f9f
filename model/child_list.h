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

/// What is expected of a list of children.
enum class ChildSearch {
  rare,
  frequent,  ///< for many of them, one by one: worth an order to search by
};

/// The children of one node as its server listed them, and the two ways of
/// finding one among them.
///
/// A plain value for any thread, cheap to copy. Ids and names come from two answers of the
/// server; where the tree has changed between them a name may be missing, and
/// that child then counts as unnamed.
class ChildList {
 public:
  ChildList();

  /// Takes both answers over; a name too many is dropped. What a search finds does
  /// not depend on `search`, only what it costs.
  ChildList(std::vector<std::uint16_t> ids, std::vector<std::string> names,
            ChildSearch search = ChildSearch::rare);

  /// A part that lists no child is no node.
  [[nodiscard]] bool empty() const { return lists_->ids.empty(); }
  [[nodiscard]] std::size_t size() const { return lists_->ids.size(); }

  // Of the child at `position`, which must be below `size`.

  [[nodiscard]] std::uint16_t id(std::size_t position) const { return lists_->ids[position]; }
  /// As the server gives it; may be empty.
  [[nodiscard]] const std::string& servedName(std::size_t position) const;
  /// As it is shown: never empty.
  [[nodiscard]] std::string name(std::size_t position) const;

  /// The position of the first child that is shown as `name`, compared byte for
  /// byte; nothing where there is none.
  [[nodiscard]] std::optional<std::size_t> findName(const std::string& name) const;

  /// The position of the child that a path component means: one that begins with
  /// "noname-" means the child whose id is the decimal number behind that, named
  /// or not; any other the first child of exactly that name. Nothing where there
  /// is none, or no number behind "noname-".
  [[nodiscard]] std::optional<std::size_t> findComponent(const std::string& component) const;

  /// The position of the child with that id; nothing where there is none.
  [[nodiscard]] std::optional<std::size_t> findId(std::uint16_t id) const;

 private:
  struct Lists {
    std::vector<std::uint16_t> ids;
    std::vector<std::string> names;
    bool sorted = false;
    SortedPositions byId = {};
    SortedPositions byName = {};  ///< as it is shown

    void sort();
    [[nodiscard]] int compareName(std::size_t position, std::string_view wanted) const;
  };

  std::shared_ptr<const Lists> lists_;
};

}  // namespace treescope
