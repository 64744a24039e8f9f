#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "modelsrv/model_node.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// The ids from the root's child down to a node; none for the root.
using Ids = std::vector<ModelSrv::ModelPartId>;

/// The ids that children of nodes had before reloads and have no more, with their names.
///
/// A client that has read the names of a node's children requests their values by their ids.
/// If an id went over to another name in between, the client would show one part's value under
/// another's name. So an id is kept for the name that had it last.
class DepartedIds {
 public:
  /// The name that had an id last, and when it left.
  struct Departed {
    std::string name;
    unsigned reload;
  };
  using Names = std::map<ModelSrv::ModelPartId, Departed>;

  /// A reload begins. If the names of earlier ones have become many, only those of the last
  /// one are kept.
  void nextReload();

  /// The children that the node `ids` had; null if none has left it.
  [[nodiscard]] const Names* find(const Ids& ids) const;

  /// The children of the node `ids`, which has lost this one, and with it what is below.
  void add(const Ids& ids, const ModelSrv::ModelPart& child);

  /// `id` below the node `ids` is in use again.
  void erase(const Ids& ids, ModelSrv::ModelPartId id);

  /// Forgets the children of the node `ids`.
  void forget(const Ids& ids);

 private:
  std::map<Ids, Names> nodes_;
  std::size_t count_ = 0;  ///< of all names
  unsigned reload_ = 0;
};

/// Gives the children of the node `ids`, which is described anew, the ids of its present
/// children, so that a part which stays keeps its id when entries before it come or go.
///
/// `entries` are the entries of the children in their order, with different ids. The id of one
/// that the file does not state becomes that of the present child with the same name (if there
/// are several, in their order), unless another entry states it; else that which a departed
/// child with that name had. Otherwise the entry keeps its default id, or gets the next free one
/// if that is taken or was another name's. `present` is the node, or null if it is new. Its
/// children that do not stay under their names are added to `departed`.
void keepIds(const std::vector<Entry*>& entries, const ModelSrv::ModelNode* present, const Ids& ids,
             DepartedIds& departed);

}  // namespace modelsrvd
