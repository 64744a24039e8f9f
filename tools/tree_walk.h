#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/connection.h"
#include "tools/name_pattern.h"

namespace treectl {

/// The names of a node's children as addresses have them: a child without a name, or one after a
/// namesake, is "#ID".
class ChildLabels {
 public:
  explicit ChildLabels(const Children& children);

  /// Appends the label of the child at `position`.
  void append(std::string& out, const Children& children, std::size_t position) const;

 private:
  std::vector<bool> named_;  ///< whether the child is the first one with its name
};

/// The position of the child that a pattern without wildcards stands for.
[[nodiscard]] std::optional<std::size_t> findChild(const Children& children,
                                                   const NamePattern& name);

/// A child that names are matched with.
struct ChildName {
  const std::string& name;
  ModelSrv::ModelPartId id;
  bool isNamed;  ///< whether the name is not empty and the first one of its kind
};

/// Positions in a list of names, each of which may have to be matched next. The names for any
/// number of levels may stand for none: adds the positions after them.
[[nodiscard]] std::vector<std::size_t> withSkippedNames(const std::vector<NamePattern>& names,
                                                        std::vector<std::size_t> positions);

/// The positions after those whose name stands for the child. The size of `names` among them means
/// that the child itself matches.
[[nodiscard]] std::vector<std::size_t> matchChild(const std::vector<NamePattern>& names,
                                                  const std::vector<std::size_t>& positions,
                                                  const ChildName& child);

/// Finds the nodes and parts of a tree that an address stands for, depth first and in the server's
/// order. The levels are kept in a list: a recursive function would overflow the stack on a deep
/// tree.
class TreeWalk {
 public:
  /// Below the part at `start`, whose printed address is `address`. `names` outlives this object.
  TreeWalk(Connection& connection, Chain start, std::string address,
           const std::vector<NamePattern>& names);

  /// Moves to the next match; false if there is none or a request fails. A match that is below
  /// another one comes after it.
  bool next();

  /// Of the match, until the next call.
  [[nodiscard]] const Chain& chain() const { return chain_; }
  [[nodiscard]] const std::string& address() const { return address_; }
  /// The result of the first request that failed.
  [[nodiscard]] ModelSrv::ModelRes result() const { return result_; }

 private:
  using Positions = std::vector<std::size_t>;  ///< in `names_`

  struct Level {
    Children children;
    std::optional<ChildLabels> labels;
    Positions positions;  ///< what is left to match at the children
    /// For each of `positions` the child that a name without wildcards stands for.
    std::vector<std::optional<std::size_t>> found;
    std::size_t next = 0;
    std::size_t addressSize = 0;  ///< of the node
  };

  /// Notes what is left to match at the present part and below it.
  void setPending(Positions positions);
  /// Whether the present part matches.
  [[nodiscard]] bool isMatch() const;
  /// Begins with the children of the present part if any can match. False if a request fails.
  bool descend();
  /// Ends the levels whose children have all been visited; false if none is left.
  bool leaveFinishedLevels();
  /// Moves to the next child of the last level if that can match or lead to a match.
  bool visitChild();
  /// What is left to match at the child and below it; empty if nothing can.
  [[nodiscard]] Positions step(const Level& level, std::size_t child) const;
  void appendLabel(Level& level, std::size_t child);

  Connection& connection_;
  const std::vector<NamePattern>& names_;
  Chain chain_;
  std::string address_;
  std::vector<Level> levels_;
  Positions pending_;  ///< at the present part, whose children have not been visited
  bool hasBegun_ = false;
  std::size_t startDepth_;
  ModelSrv::ModelRes result_ = ModelSrv::ModelRes_Success;
};

}  // namespace treectl
