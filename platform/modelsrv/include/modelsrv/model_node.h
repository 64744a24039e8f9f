#pragma once

#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"

namespace ModelSrv {

/// A part that has children.
///
/// A node does not own its children. The program that created them owns them, and a part
/// removes itself from its parent when it is destroyed. Threads: as for `ModelPart`. Children
/// may be added to and removed from a served tree on any thread.
class KRV_EXPORT ModelNode : public ModelPart {
 public:
  explicit ModelNode(ModelPartId id = ModelPartId_Void, std::string_view name = {});

  /// Leaves the children without a parent.
  ~ModelNode() override;

  /// Adds `part` as the last child. `ModelRes_BadArgument` for null, a root, an id that is
  /// out of range, a part that already has a parent, and an ancestor of this node or the node
  /// itself; `ModelRes_DuplicateId` if a child has the same id. Nothing has changed then.
  ///
  /// A part whose id is `ModelPartId_Void` (a client's proxy) is accepted, but it is not
  /// published as a child. A node may have several of them.
  virtual ModelRes add(ModelPart* part);

  /// Removes `part`. `ModelRes_NoSuchPart` if it is not a child of this node.
  ///
  /// In a server the clients' subscriptions to `part` and its descendants sleep. Each wakes up
  /// when a part with the same id chain and name, below nodes of the same names, is in the tree
  /// again, as the same object or another one; the client receives an update then. In a client
  /// the subscriptions of `part` and its descendants end.
  virtual ModelRes remove(ModelPart* part);

  /// Makes `parts` the children of this node, in that order, in one step: removes the other
  /// children and adds the parts that are not children yet, as `remove` and `add` do. (It calls
  /// neither, also if a derived class overrides them.) `ModelRes_BadArgument` if there is a part
  /// that could not be added, is a child of another node or occurs twice;
  /// `ModelRes_DuplicateId` if two parts have the same id. Nothing has changed then.
  ModelRes setChildren(const std::vector<ModelPart*>& parts);

  /// The children in their order: that of adding, or of `setChildren`. While other threads may
  /// add or remove parts, call this and use the result with the client mutex held.
  [[nodiscard]] const std::vector<ModelPart*>& children() const { return children_; }

  /// The child with this id, or null. Logarithmic time. Locking as for `children`.
  [[nodiscard]] ModelPart* findChild(ModelPartId id) const;

 protected:
  /// True for `ModelNode` and `ModelRoot` themselves. A derived class that reports its changes
  /// overrides this.
  [[nodiscard]] bool isCacheable() const override;

  [[nodiscard]] ModelNode* asNode() override { return this; }

  /// Leaves every child without a parent. A destructor calls this after `detach`.
  void releaseChildren();

 private:
  friend class ModelPart;
  friend struct internal::PartAccess;

  /// A part that enters or leaves the tree.
  struct MovingPart {
    ModelPart* part;
    std::vector<ModelPart*> descendants;  ///< those that do so with it
  };

  /// Removes `part` even if a derived class overrides `remove`. Terminates the program if
  /// there is no memory for it, since the node must not keep a pointer to a destroyed child.
  void release(const ModelPart& part) noexcept;
  void removeAt(std::vector<ModelPart*>::const_iterator at);
  /// Must be called before the children of this node change.
  void invalidateStructure();
  /// The descendants of `part` if this node is in the tree of a root, otherwise none: the
  /// parts that enter or leave that tree together with `part`.
  [[nodiscard]] std::vector<ModelPart*> descendantsInTree(const ModelPart& part) const;
  void attach(ModelPart& part, const std::vector<ModelPart*>& descendants);
  void release(ModelPart& part, const std::vector<ModelPart*>& descendants);
  void endSubscriptions(ModelPart& part, const ModelRoot* root) const;
  [[nodiscard]] static bool mayBeChild(ModelPart& part);
  [[nodiscard]] ModelRes sortByIdAsChildren(const std::vector<ModelPart*>& parts,
                                            std::vector<ModelPart*>& byId) const;
  void addToIdIndex(ModelPart* part);

  // Guarded by the client mutex.
  std::vector<ModelPart*> children_;
  /// The children that have an id, in ascending order of it. Empty as long as `children_` is
  /// in that order itself.
  std::vector<ModelPart*> byId_;
  bool addedInOrder_ = true;
};

}  // namespace ModelSrv
