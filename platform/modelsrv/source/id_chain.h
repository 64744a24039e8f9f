#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <span>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

/// The ids from a root down to a part; empty for the root. Not owned.
using ChainView = std::span<const ModelPartId>;

/// Orders id chains by their first different id, and a part before what is below it.
///
/// To be used instead of the order of `std::vector`: that of GCC 12's library compares too few
/// bytes where the most significant byte of an id is the first, so different chains are equal.
struct ChainLess {
  [[nodiscard]] bool operator()(ChainView left, ChainView right) const {
    // Without a predicate the library makes the same mistake.
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        std::less<>());
  }
};

/// The id chain of the part that an object represents. The constructor calls `getId` and
/// `getParentNode` from the object upwards until it reaches a root, each exactly once per
/// level.
///
/// Created on the stack for one request. A chain of few levels needs no other memory.
class ResolvedChain {
 public:
  explicit ResolvedChain(ModelPart& part);
  ResolvedChain(const ResolvedChain&) = delete;
  ResolvedChain& operator=(const ResolvedChain&) = delete;

  /// `ModelRes_NoSuchPart` if the topmost part is not a root, `ModelRes_BadArgument` if there
  /// are more than `ModelDepth_Max` levels.
  [[nodiscard]] ModelRes result() const { return result_; }

  /// The root that was reached; null unless the result is success.
  [[nodiscard]] ModelRoot* root() const { return root_; }

  /// The ids from that root down. Valid as long as this object.
  [[nodiscard]] ChainView chain() const {
    return long_.empty() ? ChainView(short_).subspan(shortBegin_) : ChainView(long_);
  }

 private:
  static constexpr std::size_t shortCapacity = 16;
  static constexpr std::size_t longInitialCapacity = 256;

  ModelRes resolve(ModelPart& part);
  void addToLong(ModelPartId id);

  std::array<ModelPartId, shortCapacity> short_{};  ///< filled from its end
  std::size_t shortBegin_ = shortCapacity;          ///< where the chain begins in `short_`
  std::vector<ModelPartId> long_;                   ///< used instead if the chain is longer
  ModelRoot* root_ = nullptr;
  ModelRes result_;
};

}  // namespace ModelSrv::internal
