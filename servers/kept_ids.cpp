#include "servers/kept_ids.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>
#include <vector>

namespace modelsrvd {

namespace {

using ModelSrv::ModelPart;
using ModelSrv::ModelPartId;

/// The ids of a node's children.
class TakenIds {
 public:
  [[nodiscard]] bool contains(ModelPartId id) const { return taken_[id]; }

  void take(ModelPartId id) {
    taken_[id] = true;
    largest_ = std::max(largest_, id);
  }

  /// Takes the next id after the largest one, and then any other. There is one: a node has at
  /// most as many children as there are ids.
  ModelPartId takeNext() {
    if (largest_ < ModelSrv::ModelPartId_Max) {
      take(static_cast<ModelPartId>(largest_ + 1));
      return largest_;
    }
    while (taken_[lowest_]) {
      ++lowest_;
    }
    taken_[lowest_] = true;
    return lowest_;
  }

 private:
  std::vector<bool> taken_ = std::vector<bool>(std::size_t{ModelSrv::ModelPartId_Max} + 1);
  ModelPartId largest_ = 0;
  ModelPartId lowest_ = 0;  ///< all below are taken, if `takeNext` had to search
};

/// The ids of the present children by name, in their order.
class IdsByName {
 public:
  void add(const ModelPart& child) { ids_[child.name()].ids.push_back(child.id()); }

  /// The next id of the name that is not in `taken`; the reserved id if there is none.
  ModelPartId next(std::string_view name, const TakenIds& taken) {
    const auto at = ids_.find(name);
    if (at != ids_.end()) {
      while (at->second.next < at->second.ids.size()) {
        const ModelPartId id = at->second.ids[at->second.next++];
        if (!taken.contains(id)) {
          return id;
        }
      }
    }
    return ModelSrv::ModelPartId_Void;
  }

 private:
  struct Ids {
    std::vector<ModelPartId> ids;
    std::size_t next = 0;
  };
  std::map<std::string_view, Ids> ids_;
};

}  // namespace

void keepIds(const std::vector<Entry*>& entries, const ModelSrv::ModelNode& present) {
  // With this the memory for all ids is not cleared for nothing, once for each node.
  if (std::all_of(entries.begin(), entries.end(),
                  [](const Entry* entry) { return entry->hasStatedId; })) {
    return;
  }
  IdsByName ofName;
  for (const ModelPart* child : present.children()) {
    ofName.add(*child);
  }
  TakenIds taken;
  for (const Entry* entry : entries) {
    if (entry->hasStatedId) {
      taken.take(entry->id);
    }
  }
  std::vector<Entry*> others;
  for (Entry* entry : entries) {
    if (entry->hasStatedId) {
      continue;
    }
    if (const ModelPartId id = ofName.next(entry->name, taken); id != ModelSrv::ModelPartId_Void) {
      entry->id = id;
      taken.take(id);
    } else {
      others.push_back(entry);
    }
  }
  for (Entry* entry : others) {
    if (taken.contains(entry->id)) {
      entry->id = taken.takeNext();
    } else {
      taken.take(entry->id);
    }
  }
}

}  // namespace modelsrvd
