#pragma once

#include <map>
#include <memory>
#include <string>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/coherence/own_parts.h"
#include "tests/coherence/tree_model.h"

namespace coherence {

/// The parts of a `TreeModel` in the tree of a root that serves it.
class PublishedModel {
 public:
  /// The root must not serve yet, and must outlive this object.
  PublishedModel(ModelSrv::ModelRoot& root, const TreeModel& tree) : root_(root) {
    publishChildren(tree, {});
  }

  /// Adds the part that `tree` has at `chain`, together with its descendants.
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
    } else if (auto* varying = dynamic_cast<VaryingPart*>(&part)) {
      varying->set(element, text);
    } else {
      expect(dynamic_cast<ModelSrv::ArrayPart<std::string>&>(part).setValue(
          static_cast<ModelSrv::ModelPartIndex>(element), text));
    }
  }

  /// For parts of the test's classes.
  void setAll(const Chain& chain, std::vector<std::string> texts) {
    dynamic_cast<VaryingPart&>(*parts_.at(chain)).setAll(std::move(texts));
  }
  void hide(const Chain& chain, bool hiding) {
    dynamic_cast<HidingNode&>(*parts_.at(chain)).hide(hiding);
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
    const bool isTestClass = part.partClass != PartClass::library;
    if (part.isNode && isTestClass) {
      return std::make_unique<HidingNode>(id, part, manager);
    }
    if (isTestClass) {
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
  /// Children are destroyed before their parents.
  struct DeepFirst {
    bool operator()(const Chain& a, const Chain& b) const {
      return a.size() != b.size() ? a.size() > b.size() : a < b;
    }
  };
  std::map<Chain, std::unique_ptr<ModelSrv::ModelPart>, DeepFirst> parts_;
};

}  // namespace coherence
