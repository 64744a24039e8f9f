#pragma once

#include <string>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv {

namespace internal {
class ClientSide;
}

/// A part that has children.
///
/// A node does not own its children: they belong to whoever made them, and take
/// themselves out when they are destroyed. Threads: as for `ModelPart`; adding and
/// removing below a served root may happen on any thread.
class KRV_EXPORT ModelNode : public ModelPart {
 public:
  explicit ModelNode(ModelPartId id = ModelPartId_Void, std::string name = {});

  /// Leaves the children behind, each without a parent.
  ~ModelNode() override;

  /// Hangs `part` below this node, behind the children that are there. Refused
  /// with `ModelRes_BadArgument` for null, for a root, for an id that is not one,
  /// for a part that hangs somewhere already and for a node above this one, with
  /// `ModelRes_DuplicateId` where a sibling has its id. A part whose id is `ModelPartId_Void` (a
  /// client's stand-in) is taken but is nobody's child in a published tree; there may be several.
  virtual ModelRes add(ModelPart* part);

  /// Takes `part` out; its subscriptions and those of all below it end.
  /// `ModelRes_NoSuchPart` where it is not a child of this node.
  virtual ModelRes remove(ModelPart* part);

  /// The children in the order of adding. To be read with the client mutex held
  /// where other threads add and remove.
  [[nodiscard]] const std::vector<ModelPart*>& children() const { return children_; }

  /// The child with that id, null where there is none; in logarithmic time, and
  /// under the same rule.
  [[nodiscard]] ModelPart* findChild(ModelPartId id) const;

 protected:
  /// A node has no value of its own; what a derived class makes of it is for that
  /// class to say. (A root counts as a plain node.)
  [[nodiscard]] bool isCacheable() const override;

  [[nodiscard]] ModelNode* asNode() override { return this; }

  /// Leaves every child without a parent: the second step of a destructor.
  void releaseChildren();

 private:
  friend class ModelPart;

  /// Takes `part` out whatever a derived class says: where there is no memory to do so,
  /// the program ends rather than go on with a child that is not there.
  void release(const ModelPart& part) noexcept;
  void take(std::vector<ModelPart*>::const_iterator at);
  [[nodiscard]] internal::ClientSide* clientSide() const;
  /// The children of this node are about to change.
  void invalidateStructure();
  /// What comes into the tree of this node, or leaves it, with `part`.
  [[nodiscard]] std::vector<ModelPart*> guardedBelow(const ModelPart& part) const;
  void release(ModelPart& part, const std::vector<ModelPart*>& below, internal::ClientSide* client);
  void noteOrder(ModelPart* part);

  std::vector<ModelPart*> children_;
  /// The children with an id in ascending order of it; kept only once the order
  /// of adding is another one.
  std::vector<ModelPart*> byId_;
  bool addedInOrder_ = true;
};

}  // namespace ModelSrv
