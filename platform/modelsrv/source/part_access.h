#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_node.h"
#include "modelsrv/source/subscription.h"

namespace ModelSrv::internal {

/// The library's own way to what a part keeps from programs. Everything here
/// wants the client mutex held where the part hangs below a root.
struct PartAccess {
  static unsigned elementCount(const ModelPart& part) { return part.elementCount(); }
  static const std::vector<std::string>& elementNames(const ModelPart& part) {
    return part.elementNames();
  }
  static ModelRes appendText(const ModelPart& part, std::string& out, ModelPartIndex index) {
    return part.appendText(out, index);
  }
  static ModelRes storeFromClient(ModelPart& part, std::string_view text, bool flag,
                                  ModelPartIndex index) {
    return part.storeText(text, flag, index, true);
  }
  /// The part as a node whose children clients are told of, null where it is none now.
  static const ModelNode* asNode(ModelPart& part) {
    const ModelNode* const node = part.asNode();
    // The children of another one are not this part's, whatever it says.
    return node == &part ? node : nullptr;
  }
  /// What hangs below the part, whether clients are told of it or not.
  static const std::vector<ModelPart*>& below(const ModelPart& part) {
    static const std::vector<ModelPart*> none;
    return part.isNode_ ? static_cast<const ModelNode&>(part).children() : none;
  }
  static ModelRoot* asRoot(ModelPart& part) { return part.asRoot(); }
  static const ModelNode* parent(const ModelPart& part) { return part.parent_; }
  static bool isCacheable(const ModelPart& part) { return part.isCacheable(); }
  static void setCacheStamp(ModelPart& part, std::uint32_t stamp) {
    part.cacheStamp_ = stamp;
    part.valueCached_ = true;
  }
  static bool subscribable(const ModelPart& part) { return part.subscribable_; }
  static std::unique_ptr<PartSubscribers>& subscribers(ModelPart& part) {
    return part.subscribers_;
  }
};

}  // namespace ModelSrv::internal
