#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "tests/coherence/tree_model.h"

// Parts of a program's own classes below the root that `manager` serves: what they
// answer about children, elements and names goes with what they hold.

namespace coherence {

/// Texts whose number and names change with them (`PartModel::take`).
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
    take(std::move(texts));
  }
  void setAll(std::vector<std::string> texts) {
    const std::lock_guard lock(manager_.clientMutex);
    take(std::move(texts));
  }

 protected:
  [[nodiscard]] bool isCacheable() const override { return part_.madeBy == PartClass::telling; }
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
    take(std::move(texts));
    return ModelSrv::ModelRes_Success;
  }

 private:
  void take(std::vector<std::string> texts) {
    PartModel next = part_;
    next.take(std::move(texts));
    const bool keepsShape =
        next.values.size() == part_.values.size() && next.elementNames == part_.elementNames;
    if (isCacheable() && keepsShape) {
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

/// A node that hides its children and shows them again.
class FoldingNode final : public ModelSrv::ModelNode {
 public:
  FoldingNode(ModelSrv::ModelPartId id, const PartModel& part, EvtSrv::EventPortManager& manager)
      : ModelNode(id, part.name),
        manager_(manager),
        isCacheable_(part.madeBy == PartClass::telling),
        isFolded_(part.isFolded) {}
  ~FoldingNode() override { detach(); }

  void fold(bool folded) {
    const std::lock_guard lock(manager_.clientMutex);
    invalidate();
    isFolded_ = folded;
  }

 protected:
  [[nodiscard]] bool isCacheable() const override { return isCacheable_; }
  [[nodiscard]] ModelNode* asNode() override { return isFolded_ ? nullptr : this; }

 private:
  EvtSrv::EventPortManager& manager_;
  const bool isCacheable_;
  bool isFolded_;
};

}  // namespace coherence
