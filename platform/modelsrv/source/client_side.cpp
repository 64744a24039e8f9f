#include "modelsrv/source/client_side.h"

#include <new>
#include <utility>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/source/line_text.h"
#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/port_result.h"
#include "modelsrv/source/tree_lock.h"
#include "modelsrv/source/value_text.h"

namespace ModelSrv::internal {

using EvtSrv::EvtRes;
using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::Reply;

namespace {

/// Whether a server that receives the request twice may do something else than one that receives
/// it once. (A subscription belongs to its connection.)
bool changesSomething(Operation operation) {
  return operation == Operation::load || operation == Operation::unsubscribe;
}

std::vector<ModelPartId> copyOf(ChainView chain) {
  return {chain.begin(), chain.end()};
}

}  // namespace

ClientSide::ClientSide(ModelRoot& root)
    : root_(root), cache_(root.manager()->core().system()), port_(root.manager()->core(), *this) {}

ModelRes ClientSide::connect(const std::string& name) {
  TreeLock::assertHeld(root_);
  close();
  prefetchEnabled_ = true;
  describeEnabled_ = true;
  const ModelRes result = fromPort(port_.connect(name));
  started_ = result == ModelRes_Success;
  if (!started_) {
    port_.close();
  }
  return result;
}

void ClientSide::close() {
  TreeLock::assertHeld(root_);
  subscriptions_->clear();
  watches_->clear();
  cache_.clear();
  started_ = false;
  leaveQueue();
  history_ = {};
  port_.close();
  renewal_.begin();
}

EvtSrv::internal::Deadline ClientSide::timeOfRequest() const {
  return {root_.manager()->core().system(), EvtSrv::internal::replyTimeoutMs};
}

EvtRes ClientSide::send(const RequestView& request, Reply& reply, Deadline& deadline) {
  TreeLock::assertHeld(root_);
  payload_.clear();
  encodeRequest(request, payload_);
  const EvtRes result =
      port_.exchange(static_cast<std::uint16_t>(request.operation), payload_, reply, deadline);
  constexpr std::size_t keptCapacity = 64 * 1024;
  if (payload_.capacity() > keptCapacity) {
    payload_ = {};
  }
  return result;
}

EvtRes ClientSide::send(const RequestView& request, Reply& reply) {
  Deadline deadline = timeOfRequest();
  return send(request, reply, deadline);
}

EvtRes ClientSide::ensureReady(Deadline& deadline) {
  if (!port_.isOpen() && root_.manager()->reconnects()) {
    bool renewed = false;
    if (const EvtRes result = port_.resume(renewed, deadline); result != EvtSrv::EvtRes_Success) {
      return result;
    }
    if (renewed) {
      connectionMade();
    }
  }
  return renewSubscriptions(deadline);
}

EvtRes ClientSide::renewSubscriptions(Deadline& deadline) {
  const EvtRes result = renewal_.finish(deadline);
  if (result == EvtSrv::EvtRes_Success && noteIfRestored()) {
    deferWork();
  }
  return result;
}

ModelRes ClientSide::exchange(const RequestView& request, Reply& reply) {
  if (!started_) {
    return ModelRes_NotConnected;
  }
  Deadline deadline = timeOfRequest();
  EvtRes result = ensureReady(deadline);
  if (result == EvtSrv::EvtRes_Success) {
    result = send(request, reply, deadline);
  }
  // The loss of the connection may be noticed only now, when another server is running already.
  const bool maySend = reply.written == 0 || !changesSomething(request.operation);
  if (result == EvtSrv::EvtRes_Closed && maySend && root_.manager()->reconnects()) {
    reply = {};
    result = ensureReady(deadline);
    if (result == EvtSrv::EvtRes_Success) {
      result = send(request, reply, deadline);
    }
  }
  if (result == EvtSrv::EvtRes_Success) {
    return request.operation == Operation::load ? decodeStoreResult(reply.code)
                                                : decodeResult(reply.code);
  }
  const bool unknown = reply.written > 0 && result != EvtSrv::EvtRes_Timeout;
  return unknown && changesSomething(request.operation) ? ModelRes_OutcomeUnknown
                                                        : fromPort(result);
}

/// Finds `data` of the part at `chain` in the cache, or requests a prefetch of it. `part` is
/// null on success if the data can only be had with a request of its own.
ModelRes ClientSide::findOrPrefetch(ChainView chain, ReplyCache::Data data,
                                    const ReplyCache::Part*& part) {
  TreeLock::assertHeld(root_);
  // If the connection is known to be lost, a request must restore it.
  part = port_.isOpen() ? cache_.find(chain, data) : nullptr;
  if (part != nullptr || !prefetchEnabled_) {
    return ModelRes_Success;
  }
  Reply reply;
  const ModelRes result = exchange({Operation::prefetch, chain, cache_.partsToPrefetch()}, reply);
  if (result == ModelRes_BadRequest || result == ModelRes_DoNothing) {
    // The server does not support prefetch.
    prefetchEnabled_ = false;
    return ModelRes_Success;
  }
  if (result != ModelRes_Success) {
    return result;
  }
  part = cache_.replace(chain, reply.payload, reply.order);
  prefetchEnabled_ = part != nullptr && cache_.isUsable();
  return part != nullptr ? ModelRes_Success : ModelRes_Protocol;
}

/// `cached(part, result)` reads the output from a cached part and returns false if the part does
/// not have it; it may set another result than success. `decode(reader)` reads the output from
/// the reply to `request` itself and returns false if that is malformed.
template <typename Cached, typename Decode>
ModelRes ClientSide::read(const RequestView& request, ReplyCache::Data data, Cached cached,
                          Decode decode) {
  const ReplyCache::Part* part = nullptr;
  ModelRes result = findOrPrefetch(request.chain, data, part);
  if (result != ModelRes_Success || (part != nullptr && cached(*part, result))) {
    return result;
  }
  Reply reply;
  result = exchange(request, reply);
  if (result == ModelRes_Success && !decode(PayloadReader(reply.payload, reply.order))) {
    result = ModelRes_Protocol;
  }
  return result;
}

ModelRes ClientSide::childIds(ChainView chain, std::vector<ModelPartId>& ids) {
  return read(
      {Operation::childIds, chain}, ReplyCache::Data::structure,
      [&](const ReplyCache::Part& part, ModelRes&) { return cache_.childIds(part, ids); },
      [&](const PayloadReader& reply) { return decodeIds(reply, ids); });
}

ModelRes ClientSide::childNames(ChainView chain, std::vector<std::string>& names) {
  return read(
      {Operation::childNames, chain}, ReplyCache::Data::structure,
      [&](const ReplyCache::Part& part, ModelRes&) { return cache_.childNames(part, names); },
      [&](const PayloadReader& reply) { return decodeNames(reply, names); });
}

ModelRes ClientSide::elementSum(ChainView chain, std::uint16_t& sum) {
  return read(
      {Operation::elementSum, chain}, ReplyCache::Data::structure,
      [&](const ReplyCache::Part& part, ModelRes&) { return cache_.elementSum(part, sum); },
      [&](const PayloadReader& reply) { return decodeSum(reply, sum); });
}

ModelRes ClientSide::elementNames(ChainView chain, std::vector<std::string>& names) {
  return read(
      {Operation::elementNames, chain}, ReplyCache::Data::structure,
      [&](const ReplyCache::Part& part, ModelRes&) { return cache_.elementNames(part, names); },
      [&](const PayloadReader& reply) { return decodeNames(reply, names); });
}

ModelRes ClientSide::save(ChainView chain, std::ostringstream& text, ModelPartIndex index) {
  return read(
      {Operation::save, chain, index}, ReplyCache::Data::value,
      [&](const ReplyCache::Part& part, ModelRes& result) {
        return cache_.save(part, index, text, result);
      },
      [&](PayloadReader reply) {
        const std::string_view value = reply.rest();
        text.write(value.data(), static_cast<std::streamsize>(value.size()));
        return true;
      });
}

ModelRes ClientSide::save(ChainView chain, std::string& text, ModelPartIndex index) {
  return read(
      {Operation::save, chain, index}, ReplyCache::Data::value,
      [&](const ReplyCache::Part& part, ModelRes& result) {
        return cache_.save(part, index, text, result);
      },
      [&](PayloadReader reply) {
        text = reply.rest();
        return true;
      });
}

ModelRes ClientSide::load(ChainView chain, std::string_view text, bool flag, ModelPartIndex index,
                          std::string* reason) {
  if (text.size() > maxStoreText) {
    return ModelRes_TooLarge;
  }
  Reply reply;
  const ModelRes result = exchange({Operation::load, chain, index, flag, text}, reply);
  if (result != ModelRes_Success && reason != nullptr) {
    *reason = toLine(PayloadReader(reply.payload, reply.order).rest(), ModelReason_Max);
  }
  return result;
}

ModelRes ClientSide::describe(ChainView chain, PartDescription& description) {
  if (!describeEnabled_) {
    return describeElements(chain, description);
  }
  Reply reply;
  const ModelRes result = exchange({Operation::describe, chain}, reply);
  if (result == ModelRes_BadRequest) {
    describeEnabled_ = false;
    return describeElements(chain, description);
  }
  if (result != ModelRes_Success) {
    return result;
  }
  return decodeDescription(PayloadReader(reply.payload, reply.order), description)
             ? ModelRes_Success
             : ModelRes_Protocol;
}

ModelRes ClientSide::describeElements(ChainView chain, PartDescription& description) {
  PartDescription known;
  std::vector<ModelPartId> children;
  std::uint16_t elements = 0;
  ModelRes result = childIds(chain, children);
  if (result == ModelRes_Success) {
    result = elementSum(chain, elements);
  }
  if (result == ModelRes_Success && elements != 0) {
    result = elementNames(chain, known.elementNames);
  }
  if (result == ModelRes_Success && !areElementNames(known.elementNames, elements)) {
    // The part may have been replaced between both requests, or the server is wrong.
    result = ModelRes_Protocol;
  }
  if (result != ModelRes_Success) {
    return result;
  }
  known.type = children.empty() ? "" : "node";
  known.elements = elements;
  description = std::move(known);
  return ModelRes_Success;
}

ModelRes ClientSide::subscribe(ModelPart& part, ChainView chain, void* context,
                               ModelPartIndex index) {
  ClientSubscriptions::Entry entry{&part, copyOf(chain), context, index};
  Reply reply;
  const ModelRes result = exchange({Operation::subscribe, chain, index}, reply);
  if (result != ModelRes_Success) {
    return result;
  }
  try {
    subscriptions_->add(std::move(entry));
  } catch (const std::bad_alloc&) {
    // The server must not keep a subscription that this client does not know.
    static_cast<void>(send({Operation::unsubscribe, chain, index}, reply));
    throw;
  }
  return result;
}

ModelRes ClientSide::unsubscribe(ModelPart& part, ChainView chain) {
  TreeLock::assertHeld(root_);
  const std::optional<ClientSubscriptions::Key> key = subscriptions_->lastOf(part, copyOf(chain));
  Deadline deadline = timeOfRequest();
  return key.has_value() ? cancel(*key, deadline) : ModelRes_NotSubscribed;
}

/// Cancels one subscription, at the server too unless the connection is lost. If a live server
/// does not reply, or does not agree, the subscription is kept.
ModelRes ClientSide::cancel(ClientSubscriptions::Key key, Deadline& deadline) {
  if (port_.isOpen() && !subscriptions_->isLost(key)) {
    const ClientSubscriptions::Entry& entry = *subscriptions_->find(key);
    Reply reply;
    const EvtRes result = send({Operation::unsubscribe, entry.chain, entry.index}, reply, deadline);
    if (result != EvtSrv::EvtRes_Success && port_.isOpen()) {
      return fromPort(result);
    }
    const ModelRes agreed =
        result == EvtSrv::EvtRes_Success ? decodeResult(reply.code) : ModelRes_Success;
    // A server that ends the subscriptions of a part that leaves its tree has no such subscription.
    if (agreed != ModelRes_Success && agreed != ModelRes_NoSuchPart &&
        agreed != ModelRes_NotSubscribed) {
      return agreed;
    }
  }
  subscriptions_->erase(key);
  return ModelRes_Success;
}

void ClientSide::partDetached(const ModelPart& part) {
  TreeLock::assertHeld(root_);
  // One for all: the part may have very many.
  Deadline deadline = timeOfRequest();
  while (const std::optional<ClientSubscriptions::Key> key = subscriptions_->anyOf(part)) {
    if (withMemoryResult([&] { return cancel(*key, deadline); }) != ModelRes_Success) {
      subscriptions_->erase(*key);
    }
  }
}

void ClientSide::dispatch(const Update& update) {
  TreeLock::assertHeld(root_);
  // A notified part may close or destroy this object, which clears the subscriptions.
  const std::shared_ptr<const ClientSubscriptions> subscriptions = subscriptions_;
  for (const ClientSubscriptions::Key key : subscriptions->matching(update.chain, update.index)) {
    // A part notified before may have cancelled this one.
    const ClientSubscriptions::Entry* entry = subscriptions->find(key);
    if (entry != nullptr) {
      static_cast<void>(entry->part->update(entry->context, update.index));
    }
  }
}

void ClientSide::eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                               EvtSrv::internal::ByteOrder order) {
  TreeLock::assertHeld(root_);
  if (type == ModelRoot::EvtTyp_Model_Update) {
    Update update;
    if (!decodeUpdate(PayloadReader(payload, order), update) ||
        !subscriptions_->hasAny(update.chain)) {
      return;
    }
  }
  if (type == watchValueEvent || type == watchStructureEvent) {
    const std::shared_ptr<ClientWatches> watches = watches_;
    if (watches->dispatch(type, PayloadReader(payload, order))) {
      deferWork();
    }
    return;
  }
  const std::string sender = port_.portName();
  EvtSrv::MemoryHolder data = makeHolder(payload, order);
  EvtSrv::MemoryHolder reply;
  static_cast<void>(root_.receive(sender.c_str(), type, &data, &reply));
}

}  // namespace ModelSrv::internal
