#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "modelsrv/part_description.h"
#include "modelsrv/source/subscription.h"

namespace ModelSrv::internal {

/// What was set with `ModelPart::setAttributes`.
struct StatedAttributes : PartAttributes {
  explicit StatedAttributes(PartAttributes&& attributes) : PartAttributes(std::move(attributes)) {}

  /// The `StoreLimits` of them, once a client has stored something: see `limitsOf`.
  mutable std::shared_ptr<const void> limits;
};

/// What few parts of a large tree have. A part makes it for the first of them, and frees it when
/// its last subscription ends and nothing else is left. Guarded by the client mutex.
struct PartExtras {
  PartSubscribers subscribers;
  std::unique_ptr<const StatedAttributes> attributes;
  std::shared_ptr<const std::function<void(bool)>> watchHandler;

  [[nodiscard]] bool isEmpty() const {
    return subscribers.isEmpty() && attributes == nullptr && watchHandler == nullptr;
  }
};

}  // namespace ModelSrv::internal
