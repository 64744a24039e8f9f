#include "servers/kept_ids.h"

#include <iterator>
#include <string_view>
#include <utility>

namespace modelsrvd {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using ModelSrv::ModelPartId;

namespace {

/// The ids that no further child of a node may get.
class TakenIds {
 public:
  [[nodiscard]] bool contains(ModelPartId id) const { return id < taken_.size() && taken_[id]; }

  void take(ModelPartId id) {
    if (id >= taken_.size()) {
      taken_.resize(id + std::size_t{1});
    }
    count_ += taken_[id] ? 0 : 1;
    taken_[id] = true;
  }

  /// How many ids are not taken.
  [[nodiscard]] std::size_t left() const {
    return std::size_t{ModelSrv::ModelPartId_Max} + 1 - count_;
  }

  /// Takes the next id after the largest one, and then any other. There must be one.
  ModelPartId takeNext() {
    std::size_t id = taken_.size();
    if (id > ModelSrv::ModelPartId_Max) {
      while (taken_[lowest_]) {
        ++lowest_;
      }
      id = lowest_;
    }
    take(static_cast<ModelPartId>(id));
    return static_cast<ModelPartId>(id);
  }

 private:
  std::vector<bool> taken_;  ///< up to the largest
  std::size_t count_ = 0;
  std::size_t lowest_ = 0;  ///< all below are taken, if `takeNext` had to search
};

/// Ids by name, in the order in which they were added.
class IdsByName {
 public:
  void add(std::string_view name, ModelPartId id) { ids_[name].ids.push_back(id); }

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
  struct OfName {
    std::vector<ModelPartId> ids;
    std::size_t next = 0;
  };
  std::map<std::string_view, OfName> ids_;
};

/// Gives the entries of a node's children their ids, one way after the other.
class ChildIds {
 public:
  explicit ChildIds(const std::vector<Entry*>& entries) {
    for (Entry* entry : entries) {
      if (entry->hasStatedId) {
        take(*entry);
      } else {
        others_.push_back(entry);
      }
    }
  }

  /// Each entry of one of these names takes that id if it is free.
  void takeByName(IdsByName& ids) {
    std::vector<Entry*> left;
    for (Entry* entry : others_) {
      if (const ModelPartId id = ids.next(entry->name, taken_); id != ModelSrv::ModelPartId_Void) {
        entry->id = id;
        take(*entry);
      } else {
        left.push_back(entry);
      }
    }
    others_ = std::move(left);
  }

  /// Whether an entry has taken the child's id that has its name, too. A node does not stay for
  /// the entry of a part, because its children leave the tree.
  [[nodiscard]] bool stays(const ModelPart& child) const {
    const auto at = takers_.find(child.id());
    return at != takers_.end() && at->second->name == child.name() &&
           (at->second->type == EntryType::node ||
            dynamic_cast<const ModelNode*>(&child) == nullptr);
  }

  /// The other entries take their default ids or the next ones that are free and not in
  /// `departed`. False, and they have none, if there are too few.
  [[nodiscard]] bool takeRest(const DepartedIds::Names& departed) {
    TakenIds unusable = taken_;
    for (const auto& [id, child] : departed) {
      unusable.take(id);
    }
    if (unusable.left() < others_.size()) {
      return false;
    }
    for (Entry* entry : others_) {
      if (unusable.contains(entry->id)) {
        entry->id = unusable.takeNext();
      } else {
        unusable.take(entry->id);
      }
    }
    return true;
  }

 private:
  void take(const Entry& entry) {
    taken_.take(entry.id);
    takers_.emplace(entry.id, &entry);
  }

  TakenIds taken_;
  std::map<ModelPartId, const Entry*> takers_;
  std::vector<Entry*> others_;  ///< those without an id yet
};

}  // namespace

void DepartedIds::nextReload() {
  constexpr std::size_t maxNames = 1024;
  if (count_ > maxNames) {
    for (auto node = nodes_.begin(); node != nodes_.end();) {
      count_ -= std::erase_if(node->second,
                              [this](const auto& each) { return each.second.reload != reload_; });
      node = node->second.empty() ? nodes_.erase(node) : std::next(node);
    }
  }
  ++reload_;
}

const DepartedIds::Names* DepartedIds::find(const Ids& ids) const {
  const auto at = nodes_.find(ids);
  return at != nodes_.end() ? &at->second : nullptr;
}

void DepartedIds::add(const Ids& ids, const ModelPart& child) {
  std::vector<std::pair<Ids, const ModelPart*>> parts{{ids, &child}};
  while (!parts.empty()) {
    auto [ofParent, part] = std::move(parts.back());
    parts.pop_back();
    count_ += nodes_[ofParent]
                      .insert_or_assign(part->id(), Departed{std::string(part->name()), reload_})
                      .second
                  ? 1
                  : 0;
    if (const auto* node = dynamic_cast<const ModelNode*>(part)) {
      ofParent.push_back(part->id());
      for (const ModelPart* below : node->children()) {
        parts.emplace_back(ofParent, below);
      }
    }
  }
}

void DepartedIds::erase(const Ids& ids, ModelPartId id) {
  if (const auto at = nodes_.find(ids); at != nodes_.end()) {
    count_ -= at->second.erase(id);
    if (at->second.empty()) {
      nodes_.erase(at);
    }
  }
}

void DepartedIds::forget(const Ids& ids) {
  if (const auto at = nodes_.find(ids); at != nodes_.end()) {
    count_ -= at->second.size();
    nodes_.erase(at);
  }
}

void keepIds(const std::vector<Entry*>& entries, const ModelNode* present, const Ids& ids,
             DepartedIds& departed) {
  ChildIds childIds(entries);
  if (present != nullptr) {
    IdsByName names;
    for (const ModelPart* child : present->children()) {
      names.add(child->name(), child->id());
    }
    childIds.takeByName(names);
    for (const ModelPart* child : present->children()) {
      if (!childIds.stays(*child)) {
        departed.add(ids, *child);
      }
    }
  }
  if (const DepartedIds::Names* earlier = departed.find(ids)) {
    IdsByName names;
    for (const auto& [id, child] : *earlier) {
      names.add(child.name, id);
    }
    childIds.takeByName(names);
    if (childIds.takeRest(*earlier)) {
      for (const Entry* entry : entries) {
        departed.erase(ids, entry->id);
      }
      return;
    }
    departed.forget(ids);
  }
  // A node has at most as many children as there are ids.
  static_cast<void>(childIds.takeRest({}));
}

}  // namespace modelsrvd
