#pragma once

#include <map>
#include <memory>
#include <string>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/coherence/own_parts.h"
#include "tests/coherence/tree_model.h"

namespace coherence {

/// A `TreeModel` as parts below a root that serves it.
class PublishedModel {
 public:
  /// Nothing is served yet; `root` outlives this.
  PublishedModel(ModelSrv::ModelRoot& root, const TreeModel& tree) : root_(root) {
    publishChildren(tree, {});
  }

  /// Adds the part that `tree` has there, and all below it, which is hung together
  /// before.
  void publish(const TreeModel& tree, const Chain& chain) {
    parts_[chain] = make(chain.back(), tree.at(chain));
    publishChildren(tree, chain);
    expect(nodeAt(Chain(chain.begin(), chain.end() - 1)).add(parts_[chain].get()));
  }

  void remove(const Chain& chain) {
    std::erase_if(parts_, [&chain](const auto& entry) {
      return entry.first.size() > chain.size() &&
             std::equal(chain.begin(), chain.end(), entry.first.begin());
    });
    parts_.erase(chain);
  }

  void set(const Chain& chain, std::size_t element, const std::string& text) {
    ModelSrv::ModelPart& part = *parts_.at(chain);
    if (auto* single = dynamic_cast<ModelSrv::ValuePart<std::string>*>(&part)) {
      expect(single->setValue(text));
    } else if (auto* own = dynamic_cast<VaryingPart*>(&part)) {
      own->set(element, text);
    } else {
      expect(dynamic_cast<ModelSrv::ArrayPart<std::string>&>(part).setValue(
          static_cast<ModelSrv::ModelPartIndex>(element), text));
    }
  }

  /// For parts of the program's own.
  void setAll(const Chain& chain, std::vector<std::string> texts) {
    dynamic_cast<VaryingPart&>(*parts_.at(chain)).setAll(std::move(texts));
  }
  void fold(const Chain& chain, bool folded) {
    dynamic_cast<FoldingNode&>(*parts_.at(chain)).fold(folded);
  }

 private:
  static void expect(ModelSrv::ModelRes result) {
    if (result != ModelSrv::ModelRes_Success) {
      throw std::logic_error(ModelSrv::describe(result));
    }
  }

  [[nodiscard]] std::unique_ptr<ModelSrv::ModelPart> make(ModelSrv::ModelPartId id,
                                                          const PartModel& part) const {
    EvtSrv::EventPortManager& manager = *root_.manager();
    const bool isOwn = part.madeBy != PartClass::library;
    if (part.isNode && isOwn) {
      return std::make_unique<FoldingNode>(id, part, manager);
    }
    if (isOwn) {
      return std::make_unique<VaryingPart>(id, part, manager);
    }
    if (part.isNode) {
      return std::make_unique<ModelSrv::ModelNode>(id, part.name);
    }
    if (part.isArray) {
      return std::make_unique<ModelSrv::ArrayPart<std::string>>(id, part.name, part.values,
                                                                part.elementNames);
    }
    return std::make_unique<ModelSrv::ValuePart<std::string>>(id, part.name, part.values[0]);
  }

  ModelSrv::ModelNode& nodeAt(const Chain& chain) {
    return chain.empty() ? root_ : dynamic_cast<ModelSrv::ModelNode&>(*parts_.at(chain));
  }

  void publishChildren(const TreeModel& tree, const Chain& chain) {
    for (const ModelSrv::ModelPartId id : tree.at(chain).children) {
      Chain child = chain;
      child.push_back(id);
      publish(tree, child);
    }
  }

  ModelSrv::ModelRoot& root_;
  /// What is deeper is destroyed first.
  struct DeepFirst {
    bool operator()(const Chain& a, const Chain& b) const {
      return a.size() != b.size() ? a.size() > b.size() : a < b;
    }
  };
  std::map<Chain, std::unique_ptr<ModelSrv::ModelPart>, DeepFirst> parts_;
};

}  // namespace coherence
