#include "gateway/viewer/live_part.h"

#include <mutex>
#include <utility>

#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"

namespace modelgate {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelRes;

LivePart::LivePart(ModelSrv::ModelPartId id, std::string_view name, std::string_view type,
                   Read read, std::string unit, std::string text)
    : ModelPart(id, name, ModelSrv::ModelPartStatus_ReadOnly), type_(type), read_(std::move(read)) {
  ModelSrv::PartAttributes attributes;
  attributes.unit = std::move(unit);
  attributes.text = std::move(text);
  // Only texts that are wrong would be refused.
  static_cast<void>(setAttributes(std::move(attributes)));
}

void LivePart::refresh() {
  ModelSrv::ModelRoot* const root = isWatched() ? findRoot() : nullptr;
  if (root == nullptr) {
    return;
  }
  const std::lock_guard lock(root->manager()->clientMutex);
  std::string text;
  static_cast<void>(appendText(text, ModelSrv::ModelPartIndex_All));
  if (text != last_) {
    last_ = std::move(text);
    notifySubscribers(ModelSrv::ModelPartIndex_All);
  }
}

ModelRes LivePart::appendText(std::string& out, ModelPartIndex index) const {
  if (index != ModelSrv::ModelPartIndex_All) {
    return ModelSrv::ModelRes_NoSuchIndex;
  }
  return read_(out) ? ModelSrv::ModelRes_Success : ModelSrv::ModelRes_NoValue;
}

ModelRes LivePart::storeText(std::string_view /*text*/, bool /*flag*/, ModelPartIndex /*index*/,
                             bool /*fromClient*/) {
  return ModelSrv::ModelRes_ReadOnly;
}

}  // namespace modelgate
