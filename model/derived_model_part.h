#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "model/id_chain.h"
#include "model/subscription_list.h"
#include "modelsrv/model_part.h"
#include "modelsrv/model_root.h"

namespace treescope {

/// The one client-side part of the shell, the mirror of whatever part a request
/// is about.
///
/// Before each request the id chain of the wanted part is installed as the target
/// path. The library calls the part, when it resolves its id chain, for one id and one
/// parent a level; each id asked for is taken off the path, so that the object
/// stands in turn for every part between the wanted one and the root. A request
/// thus uses its target up.
///
/// Threads: everything that is not const is called with the client mutex of the
/// root's manager held. The thread that runs commands is the only one that changes
/// anything but the noted names, so it may read the rest without; others read with
/// the mutex held.
class DerivedModelPart : public ModelSrv::ModelPart {
 public:
  /// The mirror of the server of that name below `root`, which is not owned and
  /// outlives the part. It stands at the server's root, without subscriptions.
  DerivedModelPart(ModelSrv::ModelRoot* root, std::string serverName);
  ~DerivedModelPart() override;

  /// Says what the next request is about.
  void setTarget(const IdChain& chain) {
    targetPath_.clear();
    // Chains are short and many; a call that copies a block costs more.
    for (const std::uint16_t id : chain) {
      targetPath_.push_back(id);
    }
  }

  /// Takes the last id off the target path; 0 where the path is empty.
  ModelSrv::ModelPartId getId() override;

  /// The root when the target path is used up, else the part itself.
  ModelSrv::ModelPart* getParentNode() override;

  /// Does nothing: updates are shown where events arrive. `ModelRes_DoNothing`.
  ModelSrv::ModelRes update(void* context, unsigned short index) override;

  [[nodiscard]] ModelSrv::ModelRoot* root() const { return root_; }

  /// What was given to connect.
  [[nodiscard]] const std::string& serverName() const { return serverName_; }

  /// Where in the server's tree the shell stands.
  [[nodiscard]] const NamedChain& location() const { return location_; }
  void setLocation(NamedChain location) { location_ = std::move(location); }

  /// The parts that the shell has subscribed to, in the order of subscribing; one
  /// subscribed twice is there twice.
  [[nodiscard]] const std::list<IdChain>& subscriptions() const { return subscriptions_.inOrder(); }
  [[nodiscard]] bool isSubscribed(const IdChain& chain) const {
    return subscriptions_.contains(chain);
  }
  void addSubscription(const IdChain& chain);
  /// Removes the first entry that equals `chain`, if there is one.
  void removeSubscription(const IdChain& chain);

  // Names along subscribed chains. A part whose updates arrive has not moved since
  // it was subscribed: what leaves the server's tree, or hangs below what leaves
  // it, ends its subscriptions. So its names need not be asked for again until it
  // is subscribed anew or another server takes the connection.

  /// What was noted for `chain`; null where nothing was.
  [[nodiscard]] const std::vector<std::string>* cachedNames(const IdChain& chain) const;
  /// Notes the names along `chain`, if it is subscribed.
  void noteNames(const IdChain& chain, const std::vector<std::string>& names);
  /// The server may be another one.
  void forgetNames() { names_.clear(); }

 private:
  ModelSrv::ModelRoot* root_;
  std::string serverName_;
  IdChain targetPath_;
  NamedChain location_;
  SubscriptionList<> subscriptions_;
  std::map<IdChain, std::vector<std::string>> names_;
};

}  // namespace treescope
