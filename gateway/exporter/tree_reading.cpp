#include "gateway/exporter/tree_reading.h"

#include <algorithm>
#include <utility>

#include "gateway/wire/limits.h"

namespace modelgate {

using ModelSrv::ModelPartId;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using ModelSrv::PartAttributes;

namespace {

/// A part or node, as it was read; the first one is the root.
struct ReadPart {
  ShapePart part;
  Value value;
  std::size_t parent = 0;
  std::vector<std::size_t> children;
};

class Reader {
 public:
  Reader(LocalServer& server, const std::function<bool()>& between)
      : server_(server), between_(between) {}

  ModelRes read(TreeReadout& readout) {
    ModelSrv::TreeReading reading;
    const ModelRes result =
        server_.readTree([this](const ModelSrv::TreePart& part) { return add(part); }, reading);
    readout.isMirror = isMirror_;
    if (isMirror_ || result != ModelRes_Success || ended_ != ModelRes_Success) {
      return result != ModelRes_Success ? result : ended_;
    }
    readout.isOutdated = reading.structureChanged && parts_.size() > 1;
    for (std::size_t i = 0; i < parts_.size() && ended_ == ModelRes_Success; ++i) {
      completePart(i, readout.isOutdated);
    }
    if (ended_ == ModelRes_Success) {
      finish(readout);
    }
    return ended_;
  }

 private:
  bool add(const ModelSrv::TreePart& part) {
    if (parts_.size() > maxParts) {
      ended_ = ModelSrv::ModelRes_TooLarge;
    } else if (!between_()) {
      ended_ = ModelSrv::ModelRes_DoNothing;
    }
    if (ended_ != ModelRes_Success) {
      return false;
    }
    path_.resize(std::min(path_.size(), part.chain.size()));
    const std::size_t number = parts_.size();
    ReadPart& added = parts_.emplace_back();
    added.value = {part.result, std::string(part.text)};
    if (!part.chain.empty()) {
      added.parent = path_.empty() ? 0 : path_.back();
      describe(part, added.part);
      isMirror_ = part.chain.size() == 1 && part.name == linkPartName;
      count(added.part, true);
      parts_[added.parent].children.push_back(number);
    }
    path_.push_back(number);
    return !isMirror_ && ended_ == ModelRes_Success;
  }

  /// Adds the texts of a part to what the shape will have, or takes them away. A text takes at
  /// least a byte more than it has.
  void count(const ShapePart& part, bool isAdded) {
    const PartAttributes& attributes = part.attributes;
    std::size_t bytes = part.name.size() + attributes.unit.size() + attributes.minimum.size() +
                        attributes.maximum.size() + attributes.text.size();
    for (const std::vector<std::string>* texts : {&part.elementNames, &attributes.choices}) {
      for (const std::string& text : *texts) {
        bytes += text.size() + 1;
      }
    }
    const std::size_t texts = part.elementNames.size() + attributes.choices.size();
    texts_ = isAdded ? texts_ + texts : texts_ - texts;
    bytes_ = isAdded ? bytes_ + bytes : bytes_ - bytes;
    if (texts_ > maxShapeTexts || bytes_ > maxPages * maxPage) {
      ended_ = ModelSrv::ModelRes_LimitReached;
    }
  }

  static void describe(const ModelSrv::TreePart& part, ShapePart& shape) {
    shape.depth = static_cast<unsigned>(part.chain.size());
    shape.id = part.chain.back();
    shape.name = part.name;
    shape.type = part.isNode ? "node" : part.type;
    shape.access = part.access;
    shape.subscribable = part.subscribable;
    shape.elements = part.elements;
    shape.elementNames.assign(part.elementNames.begin(), part.elementNames.end());
  }

  [[nodiscard]] Chain chainOf(std::size_t number) const {
    Chain chain;
    for (; number != 0; number = parts_[number].parent) {
      chain.push_back(parts_[number].part.id);
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
  }

  /// What the reading of the tree does not give: attributes, and the order of the children.
  void completePart(std::size_t number, bool& isOutdated) {
    if (!between_()) {
      ended_ = ModelSrv::ModelRes_DoNothing;
      return;
    }
    const Chain chain = chainOf(number);
    if (number != 0) {
      ModelSrv::PartDescription description;
      const ModelRes result = server_.describe(chain, description);
      if (result == ModelRes_Success) {
        count(parts_[number].part, false);
        takeDescription(std::move(description), parts_[number]);
        count(parts_[number].part, true);
      } else {
        note(result, isOutdated);
      }
    }
    if (parts_[number].children.size() > 1 && ended_ == ModelRes_Success) {
      Chain ids;
      const ModelRes result = server_.readChildIds(chain, ids);
      if (result == ModelRes_Success) {
        sortChildren(parts_[number].children, ids);
      } else {
        note(result, isOutdated);
      }
    }
  }

  static void takeDescription(ModelSrv::PartDescription description, ReadPart& part) {
    ShapePart& shape = part.part;
    if (part.children.empty() && !description.type.empty()) {
      shape.type = std::move(description.type);
    }
    shape.access = description.access;
    shape.subscribable = description.subscribable;
    shape.elements = description.elements;
    shape.elementNames = std::move(description.elementNames);
    shape.attributes = std::move(description.attributes);
  }

  /// An error of a request about one part: that part may have left meanwhile, or it cannot be
  /// described; an error of the connection ends the reading.
  void note(ModelRes result, bool& isOutdated) {
    if (result == ModelSrv::ModelRes_NoSuchPart) {
      isOutdated = true;
    } else if (result >= ModelSrv::ModelRes_NotConnected &&
               result != ModelSrv::ModelRes_NotSupported) {
      ended_ = result;
    }
  }

  void sortChildren(std::vector<std::size_t>& children, const Chain& ids) const {
    std::vector<std::pair<ModelPartId, std::size_t>> order;
    order.reserve(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) {
      order.emplace_back(ids[i], i);
    }
    std::sort(order.begin(), order.end());
    const auto placeOf = [&](std::size_t child) {
      const auto found = std::lower_bound(order.begin(), order.end(),
                                          std::pair(parts_[child].part.id, std::size_t{0}));
      return found != order.end() && found->first == parts_[child].part.id ? found->second
                                                                           : ids.size();
    };
    std::stable_sort(children.begin(), children.end(), [&](std::size_t one, std::size_t other) {
      return placeOf(one) < placeOf(other);
    });
  }

  /// Writes the parts in pre-order.
  void finish(TreeReadout& readout) {
    std::vector<std::size_t> waiting(parts_[0].children.rbegin(), parts_[0].children.rend());
    readout.shape.reserve(parts_.size());
    readout.values.reserve(parts_.size());
    while (!waiting.empty()) {
      ReadPart& next = parts_[waiting.back()];
      waiting.pop_back();
      if (!next.children.empty()) {
        next.part.type = "node";
      }
      readout.shape.push_back(std::move(next.part));
      readout.values.push_back(std::move(next.value));
      waiting.insert(waiting.end(), next.children.rbegin(), next.children.rend());
    }
  }

  LocalServer& server_;
  const std::function<bool()>& between_;
  std::vector<ReadPart> parts_;
  std::vector<std::size_t> path_;  ///< from the root to the last part
  std::size_t texts_ = 0;          ///< names of elements, and choices
  std::size_t bytes_ = 0;          ///< of all texts
  bool isMirror_ = false;
  ModelRes ended_ = ModelRes_Success;
};

}  // namespace

ModelRes readTree(LocalServer& server, const std::function<bool()>& between, TreeReadout& readout) {
  return Reader(server, between).read(readout);
}

}  // namespace modelgate
