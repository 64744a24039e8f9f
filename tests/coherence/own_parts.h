#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "tests/coherence/tree_model.h"

// Parts of classes of the test, in the tree of the root that `manager` serves. Their children,
// elements and names change with their state.

namespace coherence {

/// Texts whose number and names change with them (`PartModel::setTexts`).
class VaryingPart final : public ModelSrv::ModelPart {
 public:
  VaryingPart(ModelSrv::ModelPartId id, const PartModel& part, EvtSrv::EventPortManager& manager)
      : ModelPart(id, part.name, ModelSrv::ModelPartStatus_ReadWrite),
        manager_(manager),
        part_(part) {}
  ~VaryingPart() override { detach(); }

  void set(std::size_t element, const std::string& text) {
    const std::lock_guard lock(manager_.clientMutex);
    std::vector<std::string> texts = part_.values;
    texts.at(element) = text;
    replace(std::move(texts));
  }
  void setAll(std::vector<std::string> texts) {
    const std::lock_guard lock(manager_.clientMutex);
    replace(std::move(texts));
  }

 protected:
  [[nodiscard]] bool isCacheable() const override {
    return part_.partClass == PartClass::cacheable;
  }
  [[nodiscard]] unsigned elementCount() const override {
    return part_.isArray ? static_cast<unsigned>(part_.values.size()) : 0;
  }
  [[nodiscard]] const std::vector<std::string>& elementNames() const override {
    return part_.elementNames;
  }

  ModelSrv::ModelRes appendText(std::string& out, ModelSrv::ModelPartIndex index) const override {
    if (index == ModelSrv::ModelPartIndex_All) {
      out += part_.text();
    } else if (index < elementCount()) {
      out += part_.values[index];
    } else {
      return ModelSrv::ModelRes_NoSuchIndex;
    }
    return ModelSrv::ModelRes_Success;
  }

  ModelSrv::ModelRes storeText(std::string_view text, bool /*flag*/, ModelSrv::ModelPartIndex index,
                               bool /*fromClient*/) override {
    std::vector<std::string> texts = part_.values;
    if (index == ModelSrv::ModelPartIndex_All) {
      texts = linesOf(std::string(text));
    } else if (index < elementCount()) {
      texts[index] = text;
    } else {
      return ModelSrv::ModelRes_NoSuchIndex;
    }
    replace(std::move(texts));
    return ModelSrv::ModelRes_Success;
  }

 private:
  void replace(std::vector<std::string> texts) {
    PartModel next = part_;
    next.setTexts(std::move(texts));
    const bool hasSameStructure =
        next.values.size() == part_.values.size() && next.elementNames == part_.elementNames;
    if (isCacheable() && hasSameStructure) {
      invalidateValue();
    } else if (isCacheable()) {
      invalidate();
    }
    part_ = std::move(next);
    notifySubscribers(ModelSrv::ModelPartIndex_All);
  }

  EvtSrv::EventPortManager& manager_;
  PartModel part_;
};

/// A node that can hide its children.
class HidingNode final : public ModelSrv::ModelNode {
 public:
  HidingNode(ModelSrv::ModelPartId id, const PartModel& part, EvtSrv::EventPortManager& manager)
      : ModelNode(id, part.name),
        manager_(manager),
        isCacheable_(part.partClass == PartClass::cacheable),
        isHiding_(part.isHiding) {}
  ~HidingNode() override { detach(); }

  void hide(bool hiding) {
    const std::lock_guard lock(manager_.clientMutex);
    invalidate();
    isHiding_ = hiding;
  }

 protected:
  [[nodiscard]] bool isCacheable() const override { return isCacheable_; }
  [[nodiscard]] ModelNode* asNode() override { return isHiding_ ? nullptr : this; }

 private:
  EvtSrv::EventPortManager& manager_;
  const bool isCacheable_;
  bool isHiding_;
};

}  // namespace coherence
