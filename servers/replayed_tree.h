#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "modelsrv/model_node.h"
#include "servers/error.h"
#include "servers/recorded_address.h"
#include "servers/recording.h"

namespace modelsrvd {

/// The tree that a recording is of, at one moment.
///
/// The nodes and parts of the header are there from the beginning, another part from its first
/// value on. A part that has another type later, or becomes a node, is replaced then. For one
/// thread. While the tree is served, the caller holds the client mutex.
class ReplayedTree {
 public:
  /// The tree is below `top`, which has no other children and outlives this object, as does
  /// `header`: of each server in a node with its name, or with `isOfOneServer` without that node.
  ReplayedTree(ModelSrv::ModelNode& top, const RecordingHeader& header, bool isOfOneServer);
  ~ReplayedTree();
  ReplayedTree(const ReplayedTree&) = delete;
  ReplayedTree& operator=(const ReplayedTree&) = delete;

  /// Adds the parts of the header, and removes what is in the tree without being the same.
  [[nodiscard]] std::optional<Error> begin();

  /// Sets a value, adds a node, removes a node or part, or takes the parts of a server that was
  /// lost out of the tree until it is restored or something else happens to it. Of an error the
  /// tree shows nothing or a part without the value.
  [[nodiscard]] std::optional<Error> apply(const RecordedChange& change);

  /// The names of the servers of which there is something.
  [[nodiscard]] std::set<std::string> servers() const;

 private:
  /// A node or part of the recording.
  struct Item {
    std::map<RecordedName, std::unique_ptr<Item>> children;
    std::set<ModelSrv::ModelPartId> ids;  ///< those of the children
    std::string name;
    ModelSrv::ModelPartId id = 0;
    RecordedPart shape;  ///< of the part in the tree, if that has a value
    /// The children of a server that was lost.
    std::optional<std::vector<ModelSrv::ModelPart*>> lost;
    /// The last member: a part leaves the tree before its children are destroyed. Null for the
    /// server in a tree of one.
    std::unique_ptr<ModelSrv::ModelPart> part;
  };
  /// What an address stands for.
  struct Target {
    Item* server = nullptr;
    Item* item = nullptr;
    ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  };

  [[nodiscard]] ModelSrv::ModelNode& nodeOf(Item& item) const;
  [[nodiscard]] Result<RecordedAddress> parse(const std::string& text) const;
  Item& serverItem(const std::string& name);
  /// `recordedId` is the one that it had; the reserved one if that is not known. `recordedName` is
  /// for a child that is known by its id.
  [[nodiscard]] static Result<Item*> childItem(Item& parent, const RecordedName& name,
                                               ModelSrv::ModelPartId recordedId,
                                               const std::string& recordedName);
  [[nodiscard]] std::optional<Error> replace(Item& parent, Item& item,
                                             std::unique_ptr<ModelSrv::ModelPart> part);
  [[nodiscard]] std::optional<Error> provide(const RecordedAddress& address,
                                             const RecordedPart& part, Target& target);
  [[nodiscard]] std::optional<Error> provideNode(Item& parent, Item& item);
  [[nodiscard]] std::optional<Error> providePart(Item& parent, Item& item,
                                                 const RecordedPart& part);
  [[nodiscard]] std::optional<Error> provideOf(const RecordedPart& part);
  [[nodiscard]] const RecordedPart* descriptionOf(const std::string& address) const;
  [[nodiscard]] std::optional<Error> find(const RecordedChange& change, Target& target);
  [[nodiscard]] std::optional<Error> remove(const std::string& address);
  [[nodiscard]] std::optional<Error> setLost(const std::string& address, bool isLost);
  [[nodiscard]] std::optional<Error> restore(Item& server);

  ModelSrv::ModelNode& top_;
  const RecordingHeader& header_;
  bool isOfOneServer_;
  bool hasChanged_ = true;  ///< whether there is not just what the header describes
  std::unordered_map<std::string, Target> targets_;                      ///< by address
  std::unordered_map<std::string_view, const RecordedPart*> described_;  ///< in the header
  std::map<std::string, std::unique_ptr<Item>> servers_;
};

}  // namespace modelsrvd
