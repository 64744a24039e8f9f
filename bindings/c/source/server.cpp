#include "bindings/c/source/server.h"

#include <utility>

#include "bindings/c/source/call.h"
#include "bindings/c/source/number_text.h"
#include "modelsrv/part_description.h"

namespace treescope_c {

using KSTD::KThreadMutexLock;
using ModelSrv::ModelRes;

namespace {

/// A store as a check sees it, with the reason that it may give.
struct ReasonedRequest : treescope_store_request {
  std::string reason;
};

/// Marks that a getter runs, also if it throws.
class ReadingScope {
 public:
  explicit ReadingScope(bool& flag) : flag_(flag) { flag_ = true; }
  ~ReadingScope() { flag_ = false; }
  ReadingScope(const ReadingScope&) = delete;
  ReadingScope& operator=(const ReadingScope&) = delete;

 private:
  bool& flag_;
};

std::string textOrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

/// False if a choice is missing.
bool takeAttributes(const treescope_part_options& options, ModelSrv::PartAttributes& attributes) {
  attributes.unit = textOrEmpty(options.unit);
  attributes.minimum = textOrEmpty(options.minimum);
  attributes.maximum = textOrEmpty(options.maximum);
  attributes.text = textOrEmpty(options.text);
  if (options.choices == nullptr) {
    return options.choice_count == 0;
  }
  for (std::size_t i = 0; i < options.choice_count; ++i) {
    if (options.choices[i] == nullptr) {
      return false;
    }
    attributes.choices.emplace_back(options.choices[i]);
  }
  return true;
}

/// Gives a part that is not in a tree yet its value and attributes.
treescope_result prepare(ModelSrv::ModelPart& part, const treescope_part_options& options) {
  ModelSrv::PartAttributes attributes;
  if (!takeAttributes(options, attributes)) {
    return fail(TREESCOPE_BAD_ARGUMENT, textOrEmpty(options.name), "a choice is NULL");
  }
  ModelRes result = ModelSrv::ModelRes_Success;
  if (attributes != ModelSrv::PartAttributes{}) {
    result = part.setAttributes(std::move(attributes));
    if (result == ModelSrv::ModelRes_BadArgument) {
      return finish(result, textOrEmpty(options.name),
                    "a limit, a choice or a text that the part cannot have");
    }
  }
  if (result == ModelSrv::ModelRes_Success && options.value != nullptr) {
    const std::string_view value = options.value;
    const bool isCounted = options.elements < 2 && hasCountedForm(value);
    std::string reason;
    result = part.store(isCounted ? countedForm(value) : std::string(value), true,
                        ModelSrv::ModelPartIndex_All, reason);
  }
  part.setSubscribable(!options.not_watchable);
  return finish(result, textOrEmpty(options.name));
}

}  // namespace

Part::Part(std::shared_ptr<Server> server, std::unique_ptr<ServedPart> served, Part* parent)
    : Object(objectKind),
      server_(std::move(server)),
      served_(std::move(served)),
      parent_(parent),
      depth_(parent == nullptr ? 1 : parent->depth_ + 1) {}

treescope_result Part::setStoreCheck(treescope_store_check check, void* context) {
  const treescope_result result = served_->setChecked(*this, check != nullptr);
  if (result == TREESCOPE_SUCCESS) {
    check_ = check;
    checkContext_ = context;
  }
  return result;
}

treescope_result Part::setGetter(treescope_getter getter, void* context) {
  const treescope_result result = served_->setComputed(*this, getter != nullptr);
  if (result == TREESCOPE_SUCCESS) {
    getter_ = getter;
    getterContext_ = context;
  }
  return result;
}

treescope_result Part::setWatchHandler(WatchHandler handler, void* context) {
  std::function<void(bool)> call;
  if (handler != nullptr) {
    call = [this](bool watched) {
      if (!removed_ && watchHandler_ != nullptr) {
        const CallbackScope scope(server_->loop);
        watchHandler_(watchContext_, watched);
      }
    };
  }
  served_->part().setWatchHandler(std::move(call));
  watchHandler_ = handler;
  watchContext_ = context;
  return TREESCOPE_SUCCESS;
}

ModelRes Part::checkStore(treescope_store_request& request, std::string& reason) {
  if (check_ == nullptr) {
    // The check has removed itself for an earlier element of the same store.
    return ModelSrv::ModelRes_Success;
  }
  ReasonedRequest reasoned{request, {}};
  reasoned.part = handle();
  const treescope_store_request* const given = &reasoned;
  const CallbackScope scope(server_->loop, given);
  const treescope_result result = check_(checkContext_, given);
  reason = std::move(reasoned.reason);
  return toModelResult(result, ModelSrv::ModelRes_Vetoed);
}

treescope_result Part::readValue(treescope_reply& reply) {
  if (reading_ || getter_ == nullptr) {
    return TREESCOPE_BUSY;
  }
  const CallbackScope scope(server_->loop, &reply);
  const ReadingScope reading(reading_);
  return getter_(getterContext_, handle(), &reply);
}

treescope_result Server::add(Part* parent, const treescope_part_options& options,
                             treescope_part*& handle) {
  const KThreadMutexLock lock(loop.manager.clientMutex);
  const std::string name = textOrEmpty(options.name);
  if (loop.isInCallback()) {
    return fail(TREESCOPE_BUSY, name, "a callback cannot add parts");
  }
  if (closed_ || (parent != nullptr && parent->isRemoved())) {
    return fail(TREESCOPE_CLOSED, name);
  }
  ModelSrv::ModelNode* const node = parent == nullptr ? &root_ : parent->served().node();
  if (node == nullptr) {
    return fail(TREESCOPE_BAD_ARGUMENT, name, "the parent is not a node");
  }
  auto served = makeServedPart(options);
  if (served == nullptr) {
    return fail(TREESCOPE_BAD_ARGUMENT, name, "the options describe no part");
  }
  treescope_result result = prepare(served->part(), options);
  if (result != TREESCOPE_SUCCESS) {
    return result;
  }
  const auto part = std::make_shared<Part>(shared_from_this(), std::move(served), parent);
  if (part->depth_ > ModelSrv::ModelDepth_Max) {
    return fail(TREESCOPE_BAD_ARGUMENT, name, "too many levels");
  }
  Parts& siblings = childrenOf(parent);
  part->position_ = siblings.size();
  siblings.push_back(part);
  const ModelRes added = node->add(&part->served().part());
  if (added != ModelSrv::ModelRes_Success) {
    siblings.pop_back();
    return finish(added, name);
  }
  try {
    part->handle_ = HandleTable::instance().add(part);
  } catch (const std::bad_alloc&) {
    static_cast<void>(remove(*part));
    throw;
  }
  handle = part->handle();
  return TREESCOPE_SUCCESS;
}

Server::Parts Server::takeApart(Parts parts) {
  for (std::size_t i = 0; i < parts.size(); ++i) {
    // The list grows while it is gone through: no recursion, however deep the tree is.
    Part& part = *parts[i];
    part.removed_ = true;
    for (auto& child : part.children_) {
      parts.push_back(child);
    }
    part.children_.clear();
    if (ModelSrv::ModelNode* const node = part.served().node()) {
      static_cast<void>(node->setChildren({}));
    }
  }
  return parts;
}

void Server::closeHandles(const Parts& parts) {
  for (const auto& part : parts) {
    HandleTable::instance().remove(part->handle_);
  }
}

treescope_result Server::remove(Part& part) {
  // Destroyed without the mutex.
  Parts removed;
  const KThreadMutexLock lock(loop.manager.clientMutex);
  if (loop.isInCallback()) {
    return fail(TREESCOPE_BUSY, part.served().part().name(), "a callback cannot remove parts");
  }
  if (part.removed_) {
    return fail(TREESCOPE_CLOSED);
  }
  Parts& siblings = childrenOf(part.parent_);
  ModelSrv::ModelNode& node = part.parent_ == nullptr ? static_cast<ModelSrv::ModelNode&>(root_)
                                                      : *part.parent_->served().node();
  const ModelRes result = node.remove(&part.served().part());
  if (result != ModelSrv::ModelRes_Success) {
    return finish(result, part.served().part().name());
  }
  removed.push_back(siblings[part.position_]);
  siblings[part.position_] = siblings.back();
  siblings[part.position_]->position_ = part.position_;
  siblings.pop_back();
  removed = takeApart(std::move(removed));
  closeHandles(removed);
  return TREESCOPE_SUCCESS;
}

treescope_result Server::close() {
  Parts removed;
  {
    const KThreadMutexLock lock(loop.manager.clientMutex);
    if (loop.isInCallback()) {
      return fail(TREESCOPE_BUSY, {}, "a callback cannot close the server that called it");
    }
    closed_ = true;
    root_.stop(true);
    static_cast<void>(root_.setChildren({}));
    removed = takeApart(std::move(children_));
    children_.clear();
    closeHandles(removed);
  }
  loop.close();
  return TREESCOPE_SUCCESS;
}

ModelRes Server::publish(const std::string& name, const ModelSrv::ServerOptions& options) {
  const KThreadMutexLock lock(loop.manager.clientMutex);
  return closed_ ? closedResult : root_.startAsServer(name, options);
}

treescope_result Server::unpublish(int milliseconds) {
  if (loop.isInCallback()) {
    return fail(TREESCOPE_BUSY, {}, "a callback cannot end the service that called it");
  }
  root_.stop(false);
  return finish(root_.finishActiveTerm(milliseconds));
}

}  // namespace treescope_c

treescope_result treescope_refuse(const treescope_store_request* request, const char* reason) {
  return treescope_c::guarded([&] {
    if (!treescope_c::CallbackScope::isGiven(request) || reason == nullptr) {
      return treescope_c::fail(TREESCOPE_BAD_ARGUMENT);
    }
    auto* const reasoned = const_cast<treescope_store_request*>(request);
    static_cast<treescope_c::ReasonedRequest*>(reasoned)->reason = reason;
    return TREESCOPE_VETOED;
  });
}
