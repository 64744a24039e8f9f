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

/// The nodes and parts that a description asks for.
///
/// The tree owns them; a root shows them between `publish` and the tree's end.
/// For one thread, which holds the client mutex of the root's manager where the
/// root serves.
class PublishedTree {
 public:
  /// Makes everything, still without a root.
  explicit PublishedTree(TreeDescription description);

  /// Takes everything out of the root.
  ~PublishedTree();

  PublishedTree(const PublishedTree&) = delete;
  PublishedTree& operator=(const PublishedTree&) = delete;

  /// Hangs the tree below `root`, which outlives it. The error is the
  /// library's refusal; the root then shows a part of the tree at most.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// Where `description` differs from this tree in values alone: sets them, and
  /// those that changed notify their subscribers. Otherwise changes nothing and
  /// gives false.
  [[nodiscard]] bool takeValues(const TreeDescription& description);

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
  ModelSrv::ModelPart* makeTyped(Entry& entry);
  ModelSrv::ModelPart* make(Entry& entry);
  [[nodiscard]] bool sameShape(const TreeDescription& description) const;
  [[nodiscard]] bool sameEntry(std::size_t index, const Entry& entry) const;

  ModelSrv::ValueTypes::into<AllValues> values_;
  ModelSrv::ValueTypes::into<AllArrays> arrays_;
  /// Behind the parts, so that it ends first and no part has to look for itself
  /// among its siblings.
  std::deque<ModelSrv::ModelNode> nodes_;

  /// By the description's entries.
  struct Made {
    ModelSrv::ModelPart* part;
    std::uint32_t parent;
    EntryType type;
    std::uint16_t elements;  ///< 0: no array
  };
  std::vector<Made> made_;
  /// The names of elements, which cannot be asked of a part, by entry.
  std::map<std::size_t, std::vector<std::string>> elementNames_;
  ModelSrv::ModelRoot* root_ = nullptr;
  std::optional<Error> fault_;
};

}  // namespace modelsrvd
