#include "modelsrv/source/client_side.h"

#include <new>
#include <utility>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/source/memory_result.h"
#include "modelsrv/source/port_result.h"
#include "modelsrv/source/update_holder.h"
#include "modelsrv/source/value_text.h"

namespace ModelSrv::internal {

using EvtSrv::EvtRes;
using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::Reply;

namespace {

PayloadReader readerOf(const Reply& reply) {
  return PayloadReader(reply.payload, reply.order);
}

std::vector<ModelPartId> copyOf(ChainView chain) {
  return {chain.begin(), chain.end()};
}

}  // namespace

ClientSide::ClientSide(ModelRoot& root)
    : root_(root), cache_(root.manager()->core().system()), port_(root.manager()->core(), *this) {}

ModelRes ClientSide::connect(const std::string& name) {
  close();
  prefetchEnabled_ = true;
  const ModelRes result = fromPort(port_.connect(name));
  started_ = result == ModelRes_Success;
  if (!started_) {
    port_.close();
  }
  return result;
}

void ClientSide::close() {
  subscriptions_->clear();
  cache_.clear();
  started_ = false;
  port_.close();
}

EvtRes ClientSide::send(const RequestView& request, Reply& reply) {
  payload_.clear();
  encodeRequest(request, payload_);
  const EvtRes result =
      port_.exchange(static_cast<std::uint16_t>(request.operation), payload_, reply);
  constexpr std::size_t kept = 64 * 1024;
  if (payload_.capacity() > kept) {
    payload_ = {};
  }
  return result;
}

EvtRes ClientSide::makeReady() {
  if (!port_.isOpen() && root_.manager()->reconnects()) {
    bool renewed = false;
    if (const EvtRes result = port_.resume(renewed); result != EvtSrv::EvtRes_Success) {
      return result;
    }
    if (renewed) {
      subscriptions_->markAllLost();
      // Another server may have the name now while the one before still lives.
      cache_.clear();
      prefetchEnabled_ = true;
    }
  }
  return renewSubscriptions();
}

EvtRes ClientSide::renewSubscriptions() {
  while (const std::optional<ClientSubscriptions::Key> key = subscriptions_->firstLost()) {
    const ClientSubscriptions::Entry& entry = *subscriptions_->find(*key);
    Reply reply;
    const EvtRes result = send({Operation::subscribe, entry.chain, entry.index, false, {}}, reply);
    if (result != EvtSrv::EvtRes_Success) {
      return result;
    }
    if (decodeResult(reply.code) == ModelRes_Success) {
      subscriptions_->markRenewed(*key);
    } else {
      subscriptions_->erase(*key);
    }
  }
  return EvtSrv::EvtRes_Success;
}

ModelRes ClientSide::request(const RequestView& request, Reply& reply) {
  if (!started_) {
    return ModelRes_NotConnected;
  }
  EvtRes result = makeReady();
  if (result == EvtSrv::EvtRes_Success) {
    result = send(request, reply);
  }
  // That the server has gone shows only now; another may be there already.
  if (result == EvtSrv::EvtRes_Closed && root_.manager()->reconnects()) {
    result = makeReady();
    if (result == EvtSrv::EvtRes_Success) {
      result = send(request, reply);
    }
  }
  return result == EvtSrv::EvtRes_Success ? decodeResult(reply.code) : fromPort(result);
}

ModelRes ClientSide::look(ChainView chain, ReplyCache::Wanted wanted,
                          const ReplyCache::Part*& part) {
  // Where the connection is known to be lost, a request has to make it good again.
  part = port_.isOpen() ? cache_.find(chain, wanted) : nullptr;
  if (part != nullptr || !prefetchEnabled_) {
    return ModelRes_Success;
  }
  Reply reply;
  const ModelRes result =
      request({Operation::prefetch, chain, cache_.partsToPrefetch(), false, {}}, reply);
  if (result == ModelRes_BadRequest || result == ModelRes_DoNothing) {
    // A server that gives none.
    prefetchEnabled_ = false;
    return ModelRes_Success;
  }
  if (result != ModelRes_Success) {
    return result;
  }
  part = cache_.take(chain, reply.payload, reply.order);
  prefetchEnabled_ = part != nullptr && cache_.isUsable();
  return part != nullptr ? ModelRes_Success : ModelRes_Protocol;
}

ModelRes ClientSide::ask(Operation operation, ChainView chain, Reply& reply, ModelPartIndex index) {
  return request({operation, chain, index, false, {}}, reply);
}

ModelRes ClientSide::childIds(ChainView chain, std::vector<ModelPartId>& ids) {
  const ReplyCache::Part* part = nullptr;
  ModelRes result = look(chain, ReplyCache::Wanted::shape, part);
  if (result != ModelRes_Success || (part != nullptr && cache_.childIds(*part, ids))) {
    return result;
  }
  Reply reply;
  result = ask(Operation::childIds, chain, reply);
  if (result != ModelRes_Success) {
    return result;
  }
  return decodeIds(readerOf(reply), ids) ? ModelRes_Success : ModelRes_Protocol;
}

ModelRes ClientSide::childNames(ChainView chain, std::vector<std::string>& names) {
  const ReplyCache::Part* part = nullptr;
  ModelRes result = look(chain, ReplyCache::Wanted::shape, part);
  if (result != ModelRes_Success || (part != nullptr && cache_.childNames(*part, names))) {
    return result;
  }
  Reply reply;
  result = ask(Operation::childNames, chain, reply);
  if (result != ModelRes_Success) {
    return result;
  }
  return decodeNames(readerOf(reply), names) ? ModelRes_Success : ModelRes_Protocol;
}

ModelRes ClientSide::elementSum(ChainView chain, std::uint16_t& sum) {
  const ReplyCache::Part* part = nullptr;
  ModelRes result = look(chain, ReplyCache::Wanted::shape, part);
  if (result != ModelRes_Success || (part != nullptr && cache_.elementSum(*part, sum))) {
    return result;
  }
  Reply reply;
  result = ask(Operation::elementSum, chain, reply);
  if (result != ModelRes_Success) {
    return result;
  }
  return decodeSum(readerOf(reply), sum) ? ModelRes_Success : ModelRes_Protocol;
}

ModelRes ClientSide::elementNames(ChainView chain, std::vector<std::string>& names) {
  const ReplyCache::Part* part = nullptr;
  ModelRes result = look(chain, ReplyCache::Wanted::shape, part);
  if (result != ModelRes_Success || (part != nullptr && cache_.elementNames(*part, names))) {
    return result;
  }
  Reply reply;
  result = ask(Operation::elementNames, chain, reply);
  if (result != ModelRes_Success) {
    return result;
  }
  return decodeNames(readerOf(reply), names) ? ModelRes_Success : ModelRes_Protocol;
}

ModelRes ClientSide::save(ChainView chain, std::ostringstream& text, ModelPartIndex index) {
  const ReplyCache::Part* part = nullptr;
  ModelRes result = look(chain, ReplyCache::Wanted::value, part);
  if (result != ModelRes_Success || (part != nullptr && cache_.save(*part, index, text, result))) {
    return result;
  }
  Reply reply;
  result = ask(Operation::save, chain, reply, index);
  if (result == ModelRes_Success) {
    text.write(reinterpret_cast<const char*>(reply.payload.data()),
               static_cast<std::streamsize>(reply.payload.size()));
  }
  return result;
}

ModelRes ClientSide::load(ChainView chain, std::string_view text, bool flag, ModelPartIndex index) {
  if (text.size() > maxStoreText) {
    return ModelRes_TooLarge;
  }
  Reply reply;
  return request({Operation::load, chain, index, flag, text}, reply);
}

ModelRes ClientSide::subscribe(ModelPart& part, ChainView chain, void* context,
                               ModelPartIndex index) {
  ClientSubscriptions::Entry entry{&part, copyOf(chain), context, index};
  Reply reply;
  const ModelRes result = request({Operation::subscribe, chain, index, false, {}}, reply);
  if (result != ModelRes_Success) {
    return result;
  }
  try {
    subscriptions_->add(std::move(entry));
  } catch (const std::bad_alloc&) {
    // The server must not keep what nobody here knows of.
    static_cast<void>(send({Operation::unsubscribe, chain, index, false, {}}, reply));
    throw;
  }
  return result;
}

ModelRes ClientSide::unsubscribe(ModelPart& part, ChainView chain) {
  const std::optional<ClientSubscriptions::Key> key = subscriptions_->lastOf(part, copyOf(chain));
  return key.has_value() ? cancel(*key) : ModelRes_NotSubscribed;
}

/// Takes one subscription back. Where the connection is lost there is nobody to
/// tell; where a live server does not answer, the subscription is kept.
ModelRes ClientSide::cancel(ClientSubscriptions::Key key) {
  if (port_.isOpen() && !subscriptions_->isLost(key)) {
    const ClientSubscriptions::Entry& entry = *subscriptions_->find(key);
    Reply reply;
    const EvtRes result =
        send({Operation::unsubscribe, entry.chain, entry.index, false, {}}, reply);
    if (result != EvtSrv::EvtRes_Success && port_.isOpen()) {
      return fromPort(result);
    }
  }
  subscriptions_->erase(key);
  return ModelRes_Success;
}

void ClientSide::partDetached(const ModelPart& part) {
  while (const std::optional<ClientSubscriptions::Key> key = subscriptions_->anyOf(part)) {
    if (withMemoryResult([&] { return cancel(*key); }) != ModelRes_Success) {
      subscriptions_->erase(*key);
    }
  }
}

void ClientSide::tell(const Update& update) {
  // What is told may end this root; its subscriptions are cleared then.
  const std::shared_ptr<const ClientSubscriptions> subscriptions = subscriptions_;
  for (const ClientSubscriptions::Key key :
       subscriptions->concernedBy(update.chain, update.index)) {
    // What was told before may have taken this one back.
    const ClientSubscriptions::Entry* entry = subscriptions->find(key);
    if (entry != nullptr) {
      static_cast<void>(entry->part->update(entry->context, update.index));
    }
  }
}

void ClientSide::eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                               EvtSrv::internal::ByteOrder order) {
  if (type == ModelRoot::EvtTyp_Model_Update) {
    Update update;
    if (!decodeUpdate(PayloadReader(payload, order), update) ||
        !subscriptions_->knows(update.chain)) {
      return;
    }
  }
  const std::string sender = port_.portName();
  EvtSrv::MemoryHolder data = makeHolder(payload, order);
  EvtSrv::MemoryHolder reply;
  static_cast<void>(root_.receive(sender.c_str(), type, &data, &reply));
}

}  // namespace ModelSrv::internal
