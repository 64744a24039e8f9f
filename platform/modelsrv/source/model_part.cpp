#include "modelsrv/model_part.h"

#include <utility>

#include "modelsrv/model_root.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/memory_result.h"
#include "modelsrv/source/server_side.h"
#include "modelsrv/source/subscription.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv {

using internal::ResolvedChain;
using internal::TreeLock;
using internal::withMemoryResult;

namespace {

/// Takes what is left in `text`; the view lives as long as the stream is not
/// touched.
std::string_view takeRest(std::istringstream& text) {
  const auto position = text.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
  std::string_view rest = text.view();
  if (position > 0) {
    rest.remove_prefix(static_cast<std::size_t>(position));
  }
  text.rdbuf()->pubseekoff(0, std::ios_base::end, std::ios_base::in);
  return rest;
}

/// Whether `part`, whose chain was resolved, is below `root`, and the chain leads
/// there too.
bool leadsTo(const ModelPart& part, const ResolvedChain& resolved, const ModelRoot& root) {
  return part.findRoot() == &root && resolved.root() == &root;
}

}  // namespace

ModelPart::ModelPart(ModelPartId id, std::string name, ModelPartStatus status)
    : name_(std::move(name)), id_(id), status_(status) {
  if (name_.size() > ModelName_Max) {
    name_.resize(ModelName_Max);
  }
}

ModelPart::~ModelPart() {
  detach();
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
  const std::string_view value = takeRest(text);
  const TreeLock lock(*this);
  return withMemoryResult([&] {
    const ResolvedChain resolved(*this);
    if (resolved.root() != nullptr && resolved.root()->client_ != nullptr) {
      return resolved.root()->client_->load(resolved.chain(), value, flag, index);
    }
    if (resolved.result() == ModelRes_BadArgument) {
      return ModelRes_BadArgument;
    }
    return storeText(value, flag, index, false);
  });
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
    if (!leadsTo(*this, resolved, *root)) {
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
    if (!leadsTo(*this, resolved, *root)) {
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
  subscribable_ = subscribable;
}

ModelNode* ModelPart::parent() const {
  const TreeLock lock(*this);
  return parent_;
}

ModelRoot* ModelPart::findRoot() const {
  const TreeLock lock(*this);
  // The top answers for what it is without being changed by that.
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

void ModelPart::notifySubscribers(ModelPartIndex index) {
  if (subscribers_ != nullptr) {
    subscribers_->changed(index);
  }
}

void ModelPart::invalidateValue() {
  if (!valueCached_) {
    return;
  }
  // The mark stays: what was told of the part's shape holds on.
  if (const ModelRoot* root = findRoot(); root != nullptr && root->server_ != nullptr) {
    root->server_->invalidateValue(cacheStamp_);
  }
  valueCached_ = false;
}

void ModelPart::invalidate() {
  // Of what hangs below a node clients may have been told without the node.
  if (cacheStamp_ == 0 && !isNode_) {
    return;
  }
  if (const ModelRoot* root = findRoot(); root != nullptr && root->server_ != nullptr) {
    if (isNode_) {
      root->server_->invalidateAll();
    } else {
      root->server_->invalidate(cacheStamp_);
    }
  }
  cacheStamp_ = 0;
  valueCached_ = false;
}

void ModelPart::detach() {
  const TreeLock lock(*this);
  // A node that a program derived may refuse; a part that goes has to be let go.
  if (parent_ != nullptr) {
    static_cast<void>(parent_->remove(this));
  }
  if (parent_ != nullptr) {
    parent_->release(*this);
  }
}

}  // namespace ModelSrv
