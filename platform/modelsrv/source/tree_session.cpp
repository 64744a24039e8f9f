#include "modelsrv/source/tree_session.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/description.h"
#include "modelsrv/source/line_text.h"
#include "modelsrv/source/offered_text.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/source/value_text.h"

namespace ModelSrv::internal {

namespace {

/// Moves a shared object out of its slot for one use, so that its capacity is reused. A nested
/// dispatch, which finds the slot in use, gets a new object.
template <typename T>
class ObjectLease {
 public:
  /// `slot` must outlive this object.
  explicit ObjectLease(T& slot) : slot_(slot), used_(std::exchange(slot, T{})) {}
  ~ObjectLease() { slot_ = std::move(used_); }
  ObjectLease(const ObjectLease&) = delete;
  ObjectLease& operator=(const ObjectLease&) = delete;

  T& operator*() { return used_; }
  T* operator->() { return &used_; }

 private:
  T& slot_;
  T used_;
};

/// The part with that chain below `root`, or null. `nodeOf(part)` is the node that `part` is, or
/// null.
template <typename NodeOf>
ModelPart* findPart(ModelRoot& root, const std::vector<ModelPartId>& chain, NodeOf nodeOf) {
  ModelPart* part = &root;
  for (const ModelPartId id : chain) {
    const ModelNode* node = nodeOf(*part);
    part = node != nullptr ? node->findChild(id) : nullptr;
    if (part == nullptr) {
      return nullptr;
    }
  }
  return part;
}

template <typename Visit>
void forEachPublishedChild(ModelPart& part, Visit visit) {
  const ModelNode* node = PartAccess::asNode(part);
  if (node == nullptr) {
    return;
  }
  for (const ModelPart* child : node->children()) {
    if (child->id() != ModelPartId_Void) {
      visit(*child);
    }
  }
}

/// While it exists `session` has the program decide about a store. The call may dispatch, so that
/// another session does so meanwhile.
class Decision {
 public:
  Decision(SessionShare& share, TreeSession& session)
      : share_(share), outer_(std::exchange(share.deciding, &session)) {}
  ~Decision() { share_.deciding = outer_; }
  Decision(const Decision&) = delete;
  Decision& operator=(const Decision&) = delete;

 private:
  SessionShare& share_;
  TreeSession* const outer_;
};

WatchTerms termsOf(const Request& request) {
  return {request.number, request.index, (request.watchFlags & watchSubtree) != 0, request.period};
}

/// Clears the text and frees its memory if it is large.
void trim(std::string& text) {
  constexpr std::size_t keptCapacity = 64 * 1024;
  text.clear();
  if (text.capacity() > keptCapacity) {
    text.shrink_to_fit();
  }
}

}  // namespace

SessionShare::SessionShare(ModelRoot& servedRoot)
    : root(servedRoot),
      invalidator(servedRoot.manager()->core().system()),
      watches(servedRoot),
      hooks(std::make_shared<SessionHooks>(*servedRoot.manager())) {}

TreeSession::TreeSession(std::shared_ptr<SessionShare> share,
                         EvtSrv::internal::ServerConnection& connection)
    : share_(std::move(share)),
      connection_(connection),
      subscriptions_(connection),
      watches_(connection, share_->watches) {}

TreeSession::~TreeSession() {
  if (isCounted_) {
    share_->hooks->sessionEnded();
  }
}

void TreeSession::opened() {
  isCounted_ = true;
  share_->hooks->sessionOpened(connection_);
}

std::uint16_t TreeSession::handle(std::uint16_t operation, EvtSrv::internal::PayloadReader& request,
                                  std::vector<std::uint8_t>& reply) {
  TreeLock::assertHeld(share_->root);
  const std::size_t before = reply.size();
  share_->reason.clear();
  const ModelRes result = serve(operation, request, reply);
  if (result != ModelRes_Success) {
    reply.resize(before);
    if (operation == static_cast<std::uint16_t>(Operation::load)) {
      EvtSrv::internal::PayloadWriter(reply).bytes(share_->reason);
    }
  }
  // This may be a nested dispatch: the outer request has another reason, or none.
  share_->reason.clear();
  return encodeResult(result);
}

bool TreeSession::isShort(std::uint16_t operation) const {
  const auto requested = static_cast<Operation>(operation);
  return requested == Operation::elementSum || requested == Operation::save ||
         requested == Operation::describe || requested == Operation::childIds;
}

ModelRes TreeSession::serve(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                            Bytes& reply) {
  static constexpr std::array<Handler, operationCount> handlers{
#define MODELSRV_HANDLER(operation, number, fields) &TreeSession::operation,
      MODELSRV_OPERATIONS(MODELSRV_HANDLER)
#undef MODELSRV_HANDLER
  };
  Request& request = share_->request;
  if (!decodeRequest(operation, payload, request)) {
    return ModelRes_BadRequest;
  }
  ModelPart* part = findPart(share_->root, request.chain, &PartAccess::asNode);
  if (part == nullptr) {
    const bool waits =
        request.operation == Operation::watch && (request.watchFlags & watchMayBeAbsent) != 0;
    if (request.operation != Operation::unsubscribe && request.operation != Operation::renew &&
        !waits) {
      return ModelRes_NoSuchPart;
    }
    // What is hidden keeps its subscriptions.
    part = findPart(share_->root, request.chain, &PartAccess::anyNode);
  }
  if (part == nullptr) {
    return serveAbsent(request);
  }
  return (this->*handlers[positionOf(request.operation)])(*part, request, reply);
}

/// Serves a request about subscriptions to a part that is not in the tree.
ModelRes TreeSession::serveAbsent(const Request& request) {
  if (request.operation == Operation::unsubscribe) {
    return subscriptions_.cancelSleeping(request.chain, request.index) == ModelRes_Success
               ? ModelRes_Success
               : ModelRes_NoSuchPart;
  }
  if (request.index > ModelPartIndex_All) {
    return ModelRes_NoSuchIndex;
  }
  if (std::any_of(request.chain.begin(), request.chain.end(),
                  [](ModelPartId id) { return id > ModelPartId_Max; })) {
    // No part ever has that id.
    return ModelRes_NoSuchPart;
  }
  if (request.operation == Operation::watch) {
    if (request.index != ModelPartIndex_All && termsOf(request).subtree) {
      return ModelRes_NoSuchIndex;
    }
    return watches_.add(nullptr, request.chain, termsOf(request));
  }
  return subscriptions_.addSleeping(request.chain, request.index,
                                    PartAccess::sleepingSessions(share_->root));
}

ModelRes TreeSession::childIds(ModelPart& part, const Request& /*request*/, Bytes& reply) {
  CountedReply ids(reply);
  forEachPublishedChild(part, [&ids](const ModelPart& child) { ids.addId(child.id()); });
  return ModelRes_Success;
}

ModelRes TreeSession::childNames(ModelPart& part, const Request& /*request*/, Bytes& reply) {
  CountedReply names(reply);
  forEachPublishedChild(part, [&names](const ModelPart& child) { names.addName(child.name()); });
  return names.fits() ? ModelRes_Success : ModelRes_TooLarge;
}

ModelRes TreeSession::elementSum(ModelPart& part, const Request& /*request*/, Bytes& reply) {
  const unsigned count = PartAccess::elementCount(part);
  EvtSrv::internal::PayloadWriter(reply).u16(static_cast<std::uint16_t>(count));
  return ModelRes_Success;
}

ModelRes TreeSession::elementNames(ModelPart& part, const Request& /*request*/, Bytes& reply) {
  CountedReply names(reply);
  for (const std::string& name : PartAccess::elementNames(part)) {
    names.addName(name);
  }
  return names.fits() ? ModelRes_Success : ModelRes_TooLarge;
}

ModelRes TreeSession::save(ModelPart& part, const Request& request, Bytes& reply) {
  ObjectLease<std::string> text(share_->text);
  text->clear();
  ModelRes result = PartAccess::appendText(part, *text, request.index);
  if (result == ModelRes_Success && text->size() > ModelValueText_Max) {
    result = ModelRes_TooLarge;
  }
  if (result == ModelRes_Success) {
    EvtSrv::internal::PayloadWriter(reply).bytes(*text);
  }
  trim(*text);
  return result;
}

ModelRes TreeSession::load(ModelPart& part, const Request& request, Bytes& /*reply*/) {
  if (request.text.size() > maxStoreText) {
    return ModelRes_TooLarge;
  }
  std::string reason;
  const Decision decision(*share_, *this);
  std::optional<OfferedText> offeredText;
  if (request.text.size() >= OfferedText::leastBytes) {
    offeredText.emplace(connection_, request.text);
  }
  const ModelRes result =
      PartAccess::storeFromClient(part, request.text, request.flag, request.index, reason);
  if (result != ModelRes_Success) {
    share_->reason = toLine(reason, ModelReason_Max);
  } else if (share_->stored) {
    share_->stored(part);
  }
  return result;
}

ModelRes TreeSession::subscribe(ModelPart& part, const Request& request, Bytes& /*reply*/) {
  const ModelPartIndex index = request.index;
  if (!PartAccess::subscribable(part)) {
    return ModelRes_NotSubscribable;
  }
  if (index != ModelPartIndex_All && index >= PartAccess::elementCount(part)) {
    return ModelRes_NoSuchIndex;
  }
  return subscriptions_.add(part, index);
}

ModelRes TreeSession::unsubscribe(ModelPart& part, const Request& request, Bytes& /*reply*/) {
  const ModelRes result = subscriptions_.cancel(part, request.index);
  // It may be one to a former part of another name.
  return result == ModelRes_NotSubscribed
             ? subscriptions_.cancelSleeping(request.chain, request.index)
             : result;
}

ModelRes TreeSession::renew(ModelPart& part, const Request& request, Bytes& reply) {
  const ModelRes result = subscribe(part, request, reply);
  if (result == ModelRes_Success) {
    // The part was absent when the client tried operation 7: it has appeared since.
    subscriptions_.reportValue(part);
  }
  return result;
}

ModelRes TreeSession::watch(ModelPart& part, const Request& request, Bytes& /*reply*/) {
  const ModelPartIndex index = request.index;
  const WatchTerms terms = termsOf(request);
  if (!PartAccess::subscribable(part)) {
    return ModelRes_NotSubscribable;
  }
  if (index != ModelPartIndex_All && (terms.subtree || index >= PartAccess::elementCount(part))) {
    return ModelRes_NoSuchIndex;
  }
  return watches_.add(&part, request.chain, terms);
}

ModelRes TreeSession::unwatch(ModelPart& /*part*/, const Request& request, Bytes& /*reply*/) {
  return watches_.remove(request.number);
}

ModelRes TreeSession::readTree(ModelPart& part, const Request& request, Bytes& reply) {
  ObjectLease<TreePageWriter> writer(share_->pages);
  writer->write(part, request.continues, request.position,
                share_->watches.registry->structureVersion(), share_->watches.turns, reply);
  return ModelRes_Success;
}

ModelRes TreeSession::prefetch(ModelPart& part, const Request& request, Bytes& reply) {
  const StatusPage* page = share_->invalidator.beginPrefetch();
  if (page == nullptr) {
    return ModelRes_DoNothing;
  }
  const unsigned parts = std::max<unsigned>(request.index, 1);
  ObjectLease<PrefetchWriter> writer(share_->prefetch);
  writer->write(share_->root, part, parts, *page, reply);
  return ModelRes_Success;
}

ModelRes TreeSession::describe(ModelPart& part, const Request& /*request*/, Bytes& reply) {
  return encodeDescription(descriptionOf(part), reply) ? ModelRes_Success : ModelRes_TooLarge;
}

bool TreeSession::takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) {
  TreeLock::assertHeld(share_->root);
  watchIsNext_ = !watchIsNext_;
  if (watchIsNext_) {
    return watches_.takeNext(type, payload) || takeUpdate(type, payload);
  }
  return takeUpdate(type, payload) || watches_.takeNext(type, payload);
}

bool TreeSession::takeUpdate(std::uint16_t& type, std::vector<std::uint8_t>& payload) {
  ModelPart* part = nullptr;
  ModelPartIndex index = ModelPartIndex_All;
  if (!subscriptions_.takeNext(part, index)) {
    return false;
  }
  type = ModelRoot::EvtTyp_Model_Update;
  encodeUpdate(*part, index, payload);
  return true;
}

}  // namespace ModelSrv::internal
