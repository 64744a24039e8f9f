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

/// A tree for measurements: nodes "group_000" … with int32 parts "item_0000" …,
/// each id the number in the name, all values 0 at first.
///
/// It owns the parts. For one thread; setting takes the client mutex itself.
class SyntheticTree {
 public:
  explicit SyntheticTree(SyntheticShape shape);

  /// Hangs the tree below `root`, which outlives it; the error is the library's
  /// refusal.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// Changes `count` values, each another one than before, going on where the
  /// last call ended in an order that spreads them over the tree and meets every
  /// part once a round.
  void change(std::uint32_t count);

  [[nodiscard]] std::size_t size() const { return parts_.size(); }
  [[nodiscard]] const ModelSrv::ValuePart<std::int32_t>& part(std::size_t index) const {
    return parts_[index];
  }

 private:
  std::deque<ModelSrv::ValuePart<std::int32_t>> parts_;
  /// Behind the parts, so that it ends first and no part has to look for itself
  /// among its siblings.
  std::deque<ModelSrv::ModelNode> groups_;
  ModelSrv::ModelRoot* root_ = nullptr;
  std::size_t next_ = 0;
  std::size_t stride_ = 1;
};

}  // namespace modelsrvd
