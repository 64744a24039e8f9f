#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "servers/error.h"
#include "servers/options.h"

namespace modelsrvd {

/// A generated tree for measurements: nodes "group_000" … with int32 parts
/// "item_0000" …. The id of each is the number in its name; all values start at 0.
///
/// Owns its nodes and parts. For one thread.
class SyntheticTree {
 public:
  explicit SyntheticTree(SyntheticShape shape);

  /// Adds the tree to `root`, which outlives it. The error is the library's.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// Increments `count` values, holding the client mutex once the tree is
  /// published. Successive calls visit every part once per round, in an order that
  /// spreads the changes over the tree.
  void change(std::uint32_t count);

  [[nodiscard]] std::size_t size() const { return parts_.size(); }
  [[nodiscard]] const ModelSrv::ValuePart<std::int32_t>& part(std::size_t index) const {
    return parts_[index];
  }

 private:
  std::deque<ModelSrv::ValuePart<std::int32_t>> parts_;
  /// Declared after the parts and so destroyed first: a part that still has a parent
  /// searches its siblings to remove itself.
  std::deque<ModelSrv::ModelNode> groups_;
  ModelSrv::ModelRoot* root_ = nullptr;
  std::size_t next_ = 0;
  std::size_t stride_ = 1;
};

}  // namespace modelsrvd
