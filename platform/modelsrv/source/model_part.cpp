#include "modelsrv/model_part.h"

#include <utility>

#include "modelsrv/model_root.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/description.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/line_text.h"
#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/part_extras.h"
#include "modelsrv/source/server_side.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/watch_registry.h"

namespace ModelSrv {

using internal::PartAccess;
using internal::ResolvedChain;
using internal::TreeLock;
using internal::withMemoryResult;

namespace {

/// Reads the rest of `text`. The view is valid until the stream changes.
std::string_view takeRest(std::istringstream& text) {
  const auto position = text.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
  std::string_view rest = text.view();
  if (position > 0) {
    rest.remove_prefix(static_cast<std::size_t>(position));
  }
  text.rdbuf()->pubseekoff(0, std::ios_base::end, std::ios_base::in);
  return rest;
}

/// Whether both `part` and the part that it represents are in the tree of `root`.
bool isInTreeOf(const ModelPart& part, const ResolvedChain& resolved, const ModelRoot& root) {
  return part.findRoot() == &root && resolved.root() == &root;
}

}  // namespace

ModelPart::ModelPart(ModelPartId id, std::string_view name, ModelPartStatus status)
    : name_(name), id_(id), status_(status) {}

ModelPart::~ModelPart() {
  detach();
  if (extras_ != nullptr && extras_->watchHandler != nullptr) {
    --internal::WatchCounts::handlers;
  }
}

ModelPartId ModelPart::getId() {
  return id_;
}

ModelPart* ModelPart::getParentNode() {
  return parent_;
}

ModelRes ModelPart::update(void* /*context*/, unsigned short /*index*/) {
  return ModelRes_DoNothing;
}

ModelRes ModelPart::load(std::istringstream& text, bool flag, unsigned short index) {
  return storeAnywhere(takeRest(text), flag, index, nullptr);
}

ModelRes ModelPart::store(std::string_view text, bool flag, unsigned short index,
                          std::string& reason) {
  std::string stated;
  const ModelRes result = storeAnywhere(text, flag, index, &stated);
  if (result != ModelRes_Success) {
    setReason(result, std::move(stated), reason);
  }
  return result;
}

ModelRes ModelPart::storeAsClient(std::string_view text, bool flag, unsigned short index,
                                  std::string& reason) {
  const TreeLock lock(*this);
  std::string stated;
  const ModelRes result = withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    const bool isClient = resolved.root() != nullptr && resolved.root()->client_ != nullptr;
    if (isClient || resolved.result() == ModelRes_BadArgument) {
      return ModelRes_BadArgument;
    }
    const ModelRes stored = storeFromClient(text, flag, index, stated);
    stated = internal::toLine(stated, ModelReason_Max);
    return stored;
  });
  if (result != ModelRes_Success) {
    setReason(result, std::move(stated), reason);
  }
  return result;
}

void ModelPart::setReason(ModelRes result, std::string stated, std::string& reason) {
  reason = std::move(stated);
  if (reason.empty()) {
    static_cast<void>(withMemoryResult([&] {
      reason = ModelSrv::describe(result);
      return result;
    }));
  }
}

ModelRes ModelPart::storeAnywhere(std::string_view text, bool flag, ModelPartIndex index,
                                  std::string* reason) {
  const TreeLock lock(*this);
  return withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    if (resolved.root() != nullptr && resolved.root()->client_ != nullptr) {
      return resolved.root()->client_->load(resolved.chain(), text, flag, index, reason);
    }
    if (resolved.result() == ModelRes_BadArgument) {
      return ModelRes_BadArgument;
    }
    return storeText(text, flag, index, false);
  });
}

ModelRes ModelPart::describe(PartDescription& description) {
  const TreeLock lock(*this);
  return withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    if (resolved.root() != nullptr && resolved.root()->client_ != nullptr) {
      return resolved.root()->client_->describe(resolved.chain(), description);
    }
    if (resolved.result() == ModelRes_BadArgument) {
      return ModelRes_BadArgument;
    }
    description = internal::descriptionOf(*this);
    return ModelRes_Success;
  });
}

ModelRes ModelPart::setAttributes(PartAttributes attributes) {
  if (!internal::hasValidTexts(attributes)) {
    return ModelRes_BadArgument;
  }
  const TreeLock lock(*this);
  return withMemoryResult([&] {
    const ModelRes result = checkLimits(attributes);
    if (result == ModelRes_Success) {
      if (attributes != PartAttributes()) {
        auto stated = std::make_unique<const internal::StatedAttributes>(std::move(attributes));
        PartAccess::makeExtras(*this).attributes = std::move(stated);
      } else if (extras_ != nullptr) {
        extras_->attributes = nullptr;
      }
    }
    return result;
  });
}

PartAttributes ModelPart::attributes() const {
  const TreeLock lock(*this);
  const PartAttributes* const stated = PartAccess::attributes(*this);
  return stated != nullptr ? *stated : PartAttributes();
}

ModelRes ModelPart::save(std::ostringstream& text, unsigned short index) {
  const TreeLock lock(*this);
  const ModelRes result = withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    if (resolved.root() != nullptr && resolved.root()->client_ != nullptr) {
      return resolved.root()->client_->save(resolved.chain(), text, index);
    }
    if (resolved.result() == ModelRes_BadArgument) {
      return ModelRes_BadArgument;
    }
    std::string value;
    const ModelRes read = appendText(value, index);
    if (read == ModelRes_Success) {
      text << value;
    }
    return read;
  });
  return result == ModelRes_Success && !text ? ModelRes_SystemError : result;
}

ModelRes ModelPart::subscribeToServer(ModelRoot* root, unsigned period, void* context,
                                      unsigned short index) {
  if (root == nullptr || period != 0) {
    return ModelRes_BadArgument;
  }
  const TreeLock lock(*this);
  return withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    if (!isInTreeOf(*this, resolved, *root)) {
      return ModelRes_BadArgument;
    }
    if (root->client_ == nullptr) {
      return ModelRes_NotConnected;
    }
    return root->client_->subscribe(*this, resolved.chain(), context, index);
  });
}

ModelRes ModelPart::unsubscribeToServer(ModelRoot* root) {
  if (root == nullptr) {
    return ModelRes_BadArgument;
  }
  const TreeLock lock(*this);
  return withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    if (!isInTreeOf(*this, resolved, *root)) {
      return ModelRes_BadArgument;
    }
    if (root->client_ == nullptr) {
      return ModelRes_NotSubscribed;
    }
    return root->client_->unsubscribe(*this, resolved.chain());
  });
}

bool ModelPart::subscribable() const {
  const TreeLock lock(*this);
  return subscribable_;
}

void ModelPart::setSubscribable(bool subscribable) {
  const TreeLock lock(*this);
  const bool begins = subscribable && !subscribable_;
  subscribable_ = subscribable;
  if (begins) {
    internal::reportSubscribable(*this);
  }
}

bool ModelPart::isWatched() const {
  const TreeLock lock(*this);
  return PartAccess::subscribersOf(*this) != nullptr || internal::isInWatchedSubtree(*this);
}

void ModelPart::setWatchHandler(std::function<void(bool watched)> handler) {
  const TreeLock lock(*this);
  const bool had = PartAccess::hasWatchHandler(*this);
  if (handler) {
    auto shared = std::make_shared<const std::function<void(bool)>>(std::move(handler));
    PartAccess::makeExtras(*this).watchHandler = std::move(shared);
  } else if (had) {
    extras_->watchHandler = nullptr;
  }
  const bool has = PartAccess::hasWatchHandler(*this);
  if (has && !had) {
    ++internal::WatchCounts::handlers;
  } else if (!has && had) {
    --internal::WatchCounts::handlers;
  }
  PartAccess::setWatchReported(
      *this, PartAccess::subscribersOf(*this) != nullptr || internal::isInWatchedSubtree(*this));
}

ModelNode* ModelPart::parent() const {
  const TreeLock lock(*this);
  return parent_;
}

ModelRoot* ModelPart::findRoot() const {
  const TreeLock lock(*this);
  // `asRoot` is not const, but it changes nothing.
  ModelPart* top = const_cast<ModelPart*>(this);
  while (top->parent_ != nullptr) {
    top = top->parent_;
  }
  return top->asRoot();
}

const std::vector<std::string>& ModelPart::elementNames() const {
  static const std::vector<std::string> none;
  return none;
}

ModelRes ModelPart::appendText(std::string& /*out*/, ModelPartIndex /*index*/) const {
  return ModelRes_NoValue;
}

ModelRes ModelPart::storeText(std::string_view /*text*/, bool /*flag*/, ModelPartIndex /*index*/,
                              bool /*fromClient*/) {
  return ModelRes_NoValue;
}

ModelRes ModelPart::storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                                    std::string& /*reason*/) {
  return storeText(text, flag, index, true);
}

ModelRes ModelPart::checkLimits(const PartAttributes& attributes) const {
  const bool none =
      attributes.minimum.empty() && attributes.maximum.empty() && attributes.choices.empty();
  return isNode_ && !none ? ModelRes_BadArgument : ModelRes_Success;
}

void ModelPart::notifySubscribers(ModelPartIndex index) {
  TreeLock::assertHeld(*this);
  if (extras_ != nullptr) {
    extras_->subscribers.notify(*this, index);
  }
  if (internal::WatchCounts::anySubtree()) {
    internal::notifySubtreeWatches(*this, index);
  }
}

void ModelPart::invalidateValue() {
  TreeLock::assertHeld(*this);
  if (!valueCached_) {
    return;
  }
  // The stamp stays: the cached structure of the part is still valid.
  if (const ModelRoot* root = findRoot(); root != nullptr && root->server_ != nullptr) {
    root->server_->invalidator().invalidateValue(cacheStamp_);
  }
  valueCached_ = false;
}

void ModelPart::invalidate() {
  TreeLock::assertHeld(*this);
  // Clients may have cached descendants of a node without the node itself.
  if (cacheStamp_ == 0 && !isNode_) {
    return;
  }
  if (const ModelRoot* root = findRoot(); root != nullptr && root->server_ != nullptr) {
    if (isNode_) {
      root->watchRegistry_->nodeChanges(*this);
      root->server_->invalidator().invalidateAll();
    } else {
      root->server_->invalidator().invalidate(cacheStamp_);
    }
  }
  cacheStamp_ = 0;
  valueCached_ = false;
}

void ModelPart::detach() {
  const TreeLock lock(*this);
  // A derived node may refuse to remove a child, but a destroyed part must not stay in the tree.
  if (parent_ != nullptr) {
    static_cast<void>(parent_->remove(this));
  }
  if (parent_ != nullptr) {
    parent_->release(*this);
  }
}

}  // namespace ModelSrv
