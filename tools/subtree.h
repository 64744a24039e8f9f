#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "modelsrv/tree_part.h"
#include "tools/connection.h"
#include "tools/tree_walk.h"

namespace treectl {

/// A whole subtree, as `Connection::readSubtree` reads it in few exchanges.

struct SubtreeEntry {
  ModelSrv::ModelPartId id = 0;
  std::size_t parent = 0;  ///< its position among the entries
  std::string name;
  bool isNode = false;  ///< also a part without a value
  std::string type;     ///< empty if the server does not say
  ModelSrv::ModelPartStatus access = ModelSrv::ModelPartStatus_Void;
  unsigned elements = 0;
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NoValue;  ///< of reading the value
  std::string text;                                        ///< the whole value
  std::vector<std::size_t> children;  ///< their positions among the entries, in the server's order
};

struct Subtree {
  std::vector<SubtreeEntry> entries;  ///< the first one is the top
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

  /// Puts the children of an entry, which are in the order of their ids, into the order of `ids`.
  /// Those that are not among them have left meanwhile.
  void sortChildren(std::size_t entry, const std::vector<ModelSrv::ModelPartId>& ids);

  /// Whether another order than that of the ids is possible.
  [[nodiscard]] bool canSort(std::size_t entry) const;

 private:
  [[nodiscard]] ModelSrv::ModelPartId idOf(std::size_t entry) const {
    return subtree_.entries[entry].id;
  }

  Subtree& subtree_;
  std::size_t startDepth_;
  std::vector<std::size_t> path_;  ///< from the top to the last entry
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

  /// Its value, with further exchanges only if the text is not enough.
  ModelSrv::ModelRes readValue(Connection& connection, Value& value) const;

 private:
  struct Level {
    std::size_t entry;
    std::size_t addressSize;
    Children children;
    ChildLabels labels;
    std::size_t next = 0;
  };

  void enter(std::size_t entry);

  const Subtree& subtree_;
  Chain chain_;
  std::string address_;
  std::size_t startDepth_;
  std::size_t at_ = 0;
  std::vector<Level> levels_;
};

}  // namespace treectl
