#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "modelsrv/part_description.h"
#include "modelsrv/source/linked_queue.h"
#include "modelsrv/source/subscription.h"

namespace ModelSrv::internal {

class WatchRegistry;

/// What was set with `ModelPart::setAttributes`.
struct StatedAttributes : PartAttributes {
  explicit StatedAttributes(PartAttributes&& attributes) : PartAttributes(std::move(attributes)) {}

  /// The `StoreLimits` of them, once a client has stored something: see `limitsOf`.
  mutable std::shared_ptr<const void> limits;
};

/// What few parts of a large tree have. A part makes it for the first of them, and frees it when
/// its last subscription ends and nothing else is left. Guarded by the client mutex.
struct PartExtras {
  explicit PartExtras(ModelPart& ofPart) : part(ofPart) {}
  ~PartExtras();
  PartExtras(const PartExtras&) = delete;
  PartExtras& operator=(const PartExtras&) = delete;

  ModelPart& part;
  PartSubscribers subscribers;
  std::unique_ptr<const StatedAttributes> attributes;
  std::shared_ptr<const std::function<void(bool)>> watchHandler;
  /// That of the tree while the watch handler knows that the part is watched, otherwise null.
  WatchRegistry* listedIn = nullptr;
  QueueLinks<PartExtras> links;

  [[nodiscard]] bool isEmpty() const {
    return subscribers.isEmpty() && attributes == nullptr && watchHandler == nullptr;
  }
};

}  // namespace ModelSrv::internal
