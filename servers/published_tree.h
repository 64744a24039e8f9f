#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// The nodes and parts created from a description.
///
/// Owns them; they are children of the root from `publish` to the destruction of the
/// tree. For one thread. While the root is serving, the caller holds the client mutex
/// of the root's manager.
class PublishedTree {
 public:
  /// Creates the nodes and parts, not yet added to a root.
  explicit PublishedTree(TreeDescription description);

  /// Removes the tree from the root.
  ~PublishedTree();

  PublishedTree(const PublishedTree&) = delete;
  PublishedTree& operator=(const PublishedTree&) = delete;

  /// Adds the tree to `root`, which outlives it. The error is the library's; the root
  /// then has some of the children or none.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// If `description` differs from this tree in values only, sets them, which notifies
  /// the subscribers of those that changed, and returns true. Otherwise changes nothing
  /// and returns false.
  [[nodiscard]] bool updateValues(const TreeDescription& description);

 private:
  template <typename T>
  using Values = std::deque<ModelSrv::ValuePart<T>>;
  template <typename T>
  using Arrays = std::deque<ModelSrv::ArrayPart<T>>;
  template <typename... T>
  using AllValues = std::tuple<Values<T>...>;
  template <typename... T>
  using AllArrays = std::tuple<Arrays<T>...>;

  template <typename T>
  ModelSrv::ModelPart* createTyped(Entry& entry);
  ModelSrv::ModelPart* create(Entry& entry);
  [[nodiscard]] bool hasSameStructure(const TreeDescription& description) const;
  [[nodiscard]] bool isSameEntry(std::size_t index, const Entry& entry) const;

  ModelSrv::ValueTypes::into<AllValues> values_;
  ModelSrv::ValueTypes::into<AllArrays> arrays_;
  /// Declared after the parts and so destroyed first: a part that still has a parent
  /// searches its siblings to remove itself.
  std::deque<ModelSrv::ModelNode> nodes_;

  /// What was created for an entry of the description.
  struct Created {
    ModelSrv::ModelPart* part;
    std::uint32_t parent;
    EntryType type;
    std::uint16_t elements;  ///< 0 if not an array
  };
  std::vector<Created> created_;  ///< in the order of the description
  /// Element names by entry, for comparison: a part does not return them.
  std::map<std::size_t, std::vector<std::string>> elementNames_;
  ModelSrv::ModelRoot* root_ = nullptr;
  std::optional<Error> error_;  ///< the first one
};

}  // namespace modelsrvd
