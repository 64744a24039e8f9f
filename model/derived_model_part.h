#pragma once

#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "model/id_chain.h"
#include "model/memory_budget.h"
#include "model/subscription_list.h"
#include "modelsrv/model_part.h"
#include "modelsrv/model_root.h"

namespace treescope {

/// The mirror part: the one client-side part, used for requests about any part of
/// the server's tree.
///
/// Before each request the id chain of the requested part is set as the target. To
/// build the request, the library resolves the id chain from the part up to the
/// root and calls `getId` and `getParentNode` once for each level. Each `getId`
/// removes one id from the target, so the same object stands for every part on the
/// way to the root, and the request consumes its target.
///
/// Threads: non-const operations require the client mutex of the root's manager.
/// Only the thread that runs commands changes the location and the subscriptions,
/// so that thread reads them without the mutex; other threads need it.
class DerivedModelPart : public ModelSrv::ModelPart {
 public:
  /// A proxy below `root` for the server `serverName`, at the server's root and
  /// without subscriptions. `root` is not owned and outlives the part.
  DerivedModelPart(ModelSrv::ModelRoot* root, std::string serverName);
  ~DerivedModelPart() override;

  /// Sets the part that the next request is about.
  void setTarget(const IdChain& chain) {
    assertHeld();
    targetPath_.clear();
    // Chains are short; for them a copy of the whole block is slower.
    for (const std::uint16_t id : chain) {
      targetPath_.push_back(id);
    }
  }

  /// Removes the last id of the target and returns it; 0 if the target is empty.
  ModelSrv::ModelPartId getId() override;

  /// The root if the target is empty, else this part.
  ModelSrv::ModelPart* getParentNode() override;

  /// Returns `ModelRes_DoNothing`: the root's event hook displays updates.
  ModelSrv::ModelRes update(void* context, unsigned short index) override;

  [[nodiscard]] ModelSrv::ModelRoot* root() const { return root_; }

  /// The name that the connection was opened with.
  [[nodiscard]] const std::string& serverName() const { return serverName_; }

  /// The shell's current location in the server's tree.
  [[nodiscard]] const NamedChain& location() const { return location_; }
  void setLocation(NamedChain location) {
    assertHeld();
    location_ = std::move(location);
  }

  /// The subscribed parts in the order of subscribing. A part that was subscribed
  /// twice is listed twice.
  [[nodiscard]] const std::list<IdChain>& subscriptions() const { return subscriptions_.inOrder(); }
  [[nodiscard]] bool isSubscribed(const IdChain& chain) const {
    return subscriptions_.contains(chain);
  }
  /// Whether the memory of another subscription is within the limit (`MemoryBudget`).
  [[nodiscard]] bool hasSpaceFor(const IdChain& chain);
  void addSubscription(const IdChain& chain);
  /// Removes the first entry that equals `chain`, if there is one.
  void removeSubscription(const IdChain& chain);

  // The name cache: the names along subscribed chains; used with the client mutex
  // held. An entry is valid while the chain is subscribed once, because the server sends
  // no updates of a part with other names. (Two subscriptions of a chain may be of parts
  // with different names.) A new subscription of the chain invalidates its entry; a new
  // server behind the connection invalidates all entries.

  /// The cached names along `chain`; null if there are none.
  [[nodiscard]] const std::vector<std::string>* cachedNames(const IdChain& chain) const;
  /// Caches the names along `chain` if the chain is subscribed once, and they are not long.
  void cacheNames(const IdChain& chain, const std::vector<std::string>& names);
  void invalidateNames() {
    assertHeld();
    names_.clear();
  }

 private:
  /// Checks that the calling thread holds the client mutex.
  void assertHeld() const { root_->manager()->clientMutex.assertHeld(); }

  ModelSrv::ModelRoot* root_;
  std::string serverName_;

  // Read and written with the client mutex held.
  IdChain targetPath_;
  std::map<IdChain, std::vector<std::string>> names_;

  // Written by the command thread with the client mutex held.
  NamedChain location_;
  SubscriptionList<> subscriptions_;
  MemoryBudget budget_;  ///< of the subscriptions and their cached names
};

}  // namespace treescope
