#include "modelsrv/source/tree_session.h"

#include <algorithm>
#include <utility>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/object_lease.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/value_text.h"

namespace ModelSrv::internal {

namespace {

/// The part that the chain leads to from `root`, null where it leads nowhere.
ModelPart* findPart(ModelRoot& root, const std::vector<ModelPartId>& chain) {
  ModelPart* part = &root;
  for (const ModelPartId id : chain) {
    const ModelNode* node = PartAccess::asNode(*part);
    part = node != nullptr ? node->findChild(id) : nullptr;
    if (part == nullptr) {
      return nullptr;
    }
  }
  return part;
}

template <typename Visit>
void forChildren(ModelPart& part, Visit visit) {
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

ModelRes writeChildIds(ModelPart& part, std::vector<std::uint8_t>& reply) {
  CountedReply ids(reply);
  forChildren(part, [&ids](const ModelPart& child) { ids.addId(child.id()); });
  return ModelRes_Success;
}

ModelRes writeChildNames(ModelPart& part, std::vector<std::uint8_t>& reply) {
  CountedReply names(reply);
  forChildren(part, [&names](const ModelPart& child) { names.addName(child.name()); });
  return names.fits() ? ModelRes_Success : ModelRes_TooLarge;
}

ModelRes writeElementNames(const ModelPart& part, std::vector<std::uint8_t>& reply) {
  CountedReply names(reply);
  for (const std::string& name : PartAccess::elementNames(part)) {
    names.addName(name);
  }
  return names.fits() ? ModelRes_Success : ModelRes_TooLarge;
}

/// Lets go of the room that one large text took.
void trim(std::string& text) {
  constexpr std::size_t kept = 64 * 1024;
  text.clear();
  if (text.capacity() > kept) {
    text.shrink_to_fit();
  }
}

}  // namespace

SessionShare::SessionShare(ModelRoot& servedRoot)
    : root(servedRoot), invalidator(servedRoot.manager()->core().system()) {}

TreeSession::TreeSession(std::shared_ptr<SessionShare> share,
                         EvtSrv::internal::ServerConnection& connection)
    : share_(std::move(share)), subscriptions_(connection) {}

std::uint16_t TreeSession::handle(std::uint16_t operation, EvtSrv::internal::PayloadReader& request,
                                  std::vector<std::uint8_t>& reply) {
  const std::size_t before = reply.size();
  const ModelRes result = answer(operation, request, reply);
  if (result != ModelRes_Success) {
    reply.resize(before);
  }
  return static_cast<std::uint16_t>(result);
}

ModelRes TreeSession::answer(std::uint16_t operation, EvtSrv::internal::PayloadReader& payload,
                             std::vector<std::uint8_t>& reply) {
  Request& request = share_->request;
  if (!decodeRequest(operation, payload, request)) {
    return ModelRes_BadRequest;
  }
  ModelPart* const part = findPart(share_->root, request.chain);
  if (part == nullptr) {
    return ModelRes_NoSuchPart;
  }
  switch (request.operation) {
    case Operation::childIds:
      return writeChildIds(*part, reply);
    case Operation::childNames:
      return writeChildNames(*part, reply);
    case Operation::elementSum:
      EvtSrv::internal::PayloadWriter(reply).u16(
          static_cast<std::uint16_t>(PartAccess::elementCount(*part)));
      return ModelRes_Success;
    case Operation::elementNames:
      return writeElementNames(*part, reply);
    case Operation::save:
      return save(*part, request.index, reply);
    case Operation::load:
      if (request.text.size() > maxStoreText) {
        return ModelRes_TooLarge;
      }
      return PartAccess::storeFromClient(*part, request.text, request.flag, request.index);
    case Operation::subscribe:
      return subscribe(*part, request.index);
    case Operation::unsubscribe:
      return subscriptions_.take(*part, request.index);
    case Operation::prefetch:
      return prefetch(*part, request.index, reply);
  }
  return ModelRes_BadRequest;
}

ModelRes TreeSession::save(const ModelPart& part, ModelPartIndex index,
                           std::vector<std::uint8_t>& reply) {
  ObjectLease<std::string> text(share_->text);
  text->clear();
  ModelRes result = PartAccess::appendText(part, *text, index);
  if (result == ModelRes_Success && text->size() > ModelValueText_Max) {
    result = ModelRes_TooLarge;
  }
  if (result == ModelRes_Success) {
    EvtSrv::internal::PayloadWriter(reply).bytes(*text);
  }
  trim(*text);
  return result;
}

ModelRes TreeSession::prefetch(ModelPart& part, unsigned parts, std::vector<std::uint8_t>& reply) {
  const StatusPage* page = share_->invalidator.begin();
  if (page == nullptr) {
    return ModelRes_DoNothing;
  }
  ObjectLease<PrefetchWriter> writer(share_->prefetch);
  writer->write(share_->root, part, std::max(parts, 1U), *page, reply);
  return ModelRes_Success;
}

ModelRes TreeSession::subscribe(ModelPart& part, ModelPartIndex index) {
  if (!PartAccess::subscribable(part)) {
    return ModelRes_NotSubscribable;
  }
  if (index != ModelPartIndex_All && index >= PartAccess::elementCount(part)) {
    return ModelRes_NoSuchIndex;
  }
  return subscriptions_.add(part, index);
}

bool TreeSession::takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) {
  ModelPart* part = nullptr;
  ModelPartIndex index = ModelPartIndex_All;
  if (!subscriptions_.next(part, index)) {
    return false;
  }
  type = ModelRoot::EvtTyp_Model_Update;
  encodeUpdate(*part, index, payload);
  return true;
}

}  // namespace ModelSrv::internal
