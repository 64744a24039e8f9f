#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "modelsrv/tree_part.h"
#include "tools/connection.h"
#include "tools/name_pattern.h"

namespace treectl {

/// A whole subtree, as `Connection::readSubtree` reads it in few exchanges.

/// A part or node. Views are into the subtree. Compact: a tree may have a million of them.
struct SubtreeEntry {
  /// No entry.
  static constexpr std::uint32_t none = 0;

  std::string_view name;
  std::string_view text;  ///< the whole value
  std::string_view type;  ///< empty if the server does not say
  std::uint32_t parent = none;
  std::uint32_t firstChild = none;   ///< in the server's order
  std::uint32_t nextSibling = none;  ///< in the server's order
  ModelSrv::ModelPartId id = 0;
  std::uint16_t elements = 0;
  ModelSrv::ModelPartStatus access = ModelSrv::ModelPartStatus_Void;
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NoValue;  ///< of reading the value
  bool isNode = false;
  bool childrenSorted = false;  ///< whether the server's order is known to be that of the ids

  /// False for a node, and for a part that has no value at present.
  [[nodiscard]] bool hasValue() const;

  /// Whether the text is not enough: of an array of texts with line feeds of their own; or because
  /// the server could not read the value.
  [[nodiscard]] bool needsReading() const;
};

struct Subtree {
  /// Copies texts into blocks, which stay where they are.
  class Texts {
   public:
    std::string_view add(std::string_view text);

   private:
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::size_t left_ = 0;  ///< of the last block
    char* next_ = nullptr;
  };

  std::deque<SubtreeEntry> entries;  ///< the first one is the top
  Texts texts;
  std::set<std::string, std::less<>> types;
};

/// Puts together what a reading reports. For one thread.
class SubtreeBuilder {
 public:
  /// `startDepth` is the length of the top's chain. Clears `subtree`, which outlives this object.
  SubtreeBuilder(Subtree& subtree, std::size_t startDepth);

  /// A node comes before what is below it.
  void add(const ModelSrv::TreePart& part);

  /// The chain of an entry, below the top's.
  [[nodiscard]] Chain chainOf(std::size_t entry) const;

  /// The children of an entry, as they were reported; nothing if no other order is possible.
  [[nodiscard]] std::vector<std::uint32_t> childrenToSort(std::size_t entry) const;

  /// Puts the children of an entry, which are in the order of their ids, into the order of `ids`.
  /// Those that are not among them have left meanwhile.
  void sortChildren(std::size_t entry, const std::vector<std::uint32_t>& children,
                    const std::vector<ModelSrv::ModelPartId>& ids);

 private:
  Subtree& subtree_;
  std::size_t startDepth_;
  std::string_view lastType_;        ///< of `types` of the subtree
  std::vector<std::uint32_t> path_;  ///< from the top to the last entry
  std::vector<std::uint32_t> last_;  ///< the last child of each of these
};

/// Visits the entries below the top, depth first. The levels are kept in a list, as in `TreeWalk`.
class SubtreeWalk {
 public:
  /// The top is at `chain` and has the printed address `address`. `subtree` outlives this object.
  SubtreeWalk(const Subtree& subtree, Chain chain, std::string address);

  /// Moves to the next entry; false if there is none.
  bool next();

  // Of the entry, until the next call.
  [[nodiscard]] const SubtreeEntry& entry() const { return subtree_.entries[at_]; }
  [[nodiscard]] const Chain& chain() const { return chain_; }
  [[nodiscard]] const std::string& address() const { return address_; }

  /// Its value. With further exchanges only if the entry `needsReading`.
  ModelSrv::ModelRes readValue(Connection& connection, Value& value) const;
  /// The number of the entry.
  [[nodiscard]] std::uint32_t number() const { return at_; }

 private:
  struct Level {
    std::size_t addressSize;
    std::uint32_t first;  ///< the first child
    std::uint32_t next;   ///< the child to visit
    /// As long as each name is greater than the one before, none can repeat and the last one is
    /// enough; then those of all children that have been visited.
    bool isAscending = true;
    std::string_view last = {};
    std::unordered_set<std::string_view> names = {};
  };

  void enter(std::uint32_t entry);
  /// Whether the entry has a name, and is the first one on its level with that.
  bool isFirstOfItsName(Level& level);

  const Subtree& subtree_;
  Chain chain_;
  std::string address_;
  std::size_t startDepth_;
  std::uint32_t at_ = 0;
  std::vector<Level> levels_;
};

}  // namespace treectl
