// Requests of a client about whole subtrees: to read and to watch them.

#include <algorithm>
#include <new>

#include "modelsrv/source/client_side.h"
#include "modelsrv/source/port_result.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv::internal {

using EvtSrv::EvtRes;
using EvtSrv::internal::Reply;

ModelRes ClientSide::readTreePage(ChainView chain, bool continues, ChainView position,
                                  std::vector<std::uint8_t>& page,
                                  EvtSrv::internal::ByteOrder& order) {
  RequestView request{Operation::readTree, chain};
  request.continues = continues;
  request.position = position;
  Reply reply;
  const ModelRes result = exchange(request, reply);
  if (result != ModelRes_Success) {
    return result == ModelRes_BadRequest ? ModelRes_NotSupported : result;
  }
  page.assign(reply.payload.begin(), reply.payload.end());
  order = reply.order;
  return ModelRes_Success;
}

ModelRes ClientSide::nameOf(ChainView chain, std::string& name) {
  name.clear();
  if (chain.empty()) {
    return ModelRes_Success;
  }
  std::vector<ModelPartId> ids;
  std::vector<std::string> names;
  const ChainView parent = chain.first(chain.size() - 1);
  ModelRes result = childIds(parent, ids);
  if (result == ModelRes_Success) {
    result = childNames(parent, names);
  }
  const auto at = std::find(ids.begin(), ids.end(), chain.back());
  const auto position = static_cast<std::size_t>(at - ids.begin());
  if (result == ModelRes_Success && position >= names.size()) {
    result = ModelRes_NoSuchPart;
  }
  if (result == ModelRes_Success) {
    name = names[position];
  }
  return result;
}

ModelRes ClientSide::startWatch(const ClientWatches::Pointer& watch) {
  TreeLock::assertHeld(root_);
  watch->number = watches_->nextNumber();
  Reply reply;
  const ModelRes result = exchange(Renewal::requestFor(*watch, false), reply);
  if (result == ModelRes_Timeout && reply.written > 0) {
    watches_->noteStray(watch->number);
  }
  if (result != ModelRes_Success) {
    return result == ModelRes_BadRequest ? ModelRes_NotSupported : result;
  }
  try {
    watches_->add(watch, *this);
  } catch (const std::bad_alloc&) {
    // The server must not keep a watch that this client does not know.
    static_cast<void>(send(Renewal::requestToEnd(watch->number), reply));
    throw;
  }
  return result;
}

ModelRes ClientSide::stopWatch(ClientWatch& watch) {
  TreeLock::assertHeld(root_);
  const bool isKnown = port_.isOpen() && !watches_->isLost(watch);
  watches_->erase(watch);
  if (!isKnown) {
    return ModelRes_Success;
  }
  Reply reply;
  const EvtRes result = send(Renewal::requestToEnd(watch.number), reply);
  if (result != EvtSrv::EvtRes_Success && port_.isOpen()) {
    watches_->noteStray(watch.number);
    return fromPort(result);
  }
  return result == EvtSrv::EvtRes_Success ? decodeResult(reply.code) : ModelRes_Success;
}

}  // namespace ModelSrv::internal
