#pragma once

#include <array>
#include <span>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// The ids from a root down to a part; not owned.
using ChainView = std::span<const ModelPartId>;

/// Finds out what a part stands for: asks it and what it names as its parents for
/// their ids, each object exactly once per level, until a root is met.
///
/// Made on the stack for one request; a chain of few levels takes no other memory.
class ResolvedChain {
 public:
  explicit ResolvedChain(ModelPart& part);
  ResolvedChain(const ResolvedChain&) = delete;
  ResolvedChain& operator=(const ResolvedChain&) = delete;

  /// `ModelRes_NoSuchPart` where the way ends before a root, `ModelRes_BadArgument`
  /// where it is longer than `ModelDepth_Max`.
  [[nodiscard]] ModelRes result() const { return result_; }

  /// The root that was met, null where the result is another than success.
  [[nodiscard]] ModelRoot* root() const { return root_; }

  /// The ids from that root down, as long as this lives.
  [[nodiscard]] ChainView chain() const {
    return many_.empty() ? ChainView(few_).subspan(first_) : ChainView(many_);
  }

 private:
  static constexpr std::size_t fewLevels = 16;
  static constexpr std::size_t manyLevels = 256;  ///< more take further room step by step

  ModelRes run(ModelPart& part);
  void addToMany(ModelPartId id);

  std::array<ModelPartId, fewLevels> few_{};  ///< filled from its end
  std::size_t first_ = fewLevels;             ///< where in `few_` the chain begins
  std::vector<ModelPartId> many_;             ///< a longer chain
  ModelRoot* root_ = nullptr;
  ModelRes result_;
};

}  // namespace ModelSrv::internal
