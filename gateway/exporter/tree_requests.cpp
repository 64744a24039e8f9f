#include <algorithm>
#include <utility>

#include "gateway/exporter/tree_worker.h"

namespace modelgate {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;

namespace {

using Clock = TreeWorker::Clock;

/// A request that the library has sent and that was not answered takes longer than that.
constexpr std::chrono::seconds shortestTimeout{1};
/// The longest that events from before a store are awaited.
constexpr std::chrono::milliseconds longestDrain{20};

/// What the requester gets for a result of a store's connection, which took from `begin` to now.
ModelRes storeResult(ModelRes result, Clock::time_point begin) {
  // The library does not send requests to a server that still owes a reply.
  const bool wasSent =
      result != ModelSrv::ModelRes_Timeout || Clock::now() - begin > shortestTimeout;
  if (wasSent && (result == ModelSrv::ModelRes_Timeout || result == ModelSrv::ModelRes_Protocol)) {
    return ModelSrv::ModelRes_OutcomeUnknown;
  }
  const bool isFinal = result < ModelSrv::ModelRes_NotConnected ||
                       result == ModelSrv::ModelRes_OutcomeUnknown ||
                       result == ModelSrv::ModelRes_NotSupported;
  return isFinal ? result : ModelSrv::ModelRes_Unreachable;
}

}  // namespace

bool TreeWorker::serveRequests() {
  std::unique_lock lock(mutex_);
  while (!requests_.empty() && !isStopping_) {
    const WorkerRequest request = std::move(requests_.front());
    requests_.pop_front();
    lock.unlock();
    request.done(carryOut(request));
    lock.lock();
  }
  return !isStopping_ && !hasLeft_;
}

WorkerResult TreeWorker::carryOut(const WorkerRequest& request) {
  if (tree_ == nullptr) {
    return {ModelSrv::ModelRes_Unreachable, {}, {}};
  }
  return request.verb == Verb::get ? readValue(request) : carryOutStore(request);
}

WorkerResult TreeWorker::readValue(const WorkerRequest& request) {
  const std::optional<Position> position = tree_->index.find(request.chain);
  WorkerResult reply;
  std::string text;
  reply.result = readInto(position.value_or(rootPosition), request.chain, request.index, text);
  if (reply.result == ModelRes_Success) {
    reply.value = std::move(text);
  } else if (reply.result >= ModelSrv::ModelRes_NotConnected) {
    reply.reason = ModelSrv::describe(reply.result);
    reply.result = ModelSrv::ModelRes_Unreachable;
  }
  return reply;
}

WorkerResult TreeWorker::carryOutStore(const WorkerRequest& request) {
  WorkerResult reply;
  if (!isSamePart(request)) {
    reply.result = ModelSrv::ModelRes_NoSuchPart;
    return reply;
  }
  const Clock::time_point begin = Clock::now();
  if (begin > request.until) {
    return {ModelSrv::ModelRes_Timeout, "the request came too late, nothing was stored", {}};
  }
  const ModelRes result = server_.store(request.chain, request.value, request.verb == Verb::load,
                                        request.index, reply.reason);
  reply.result = storeResult(result, begin);
  if (result >= ModelSrv::ModelRes_NotConnected) {
    return reply;
  }
  // What was reported before the store must not come after its value.
  while (server_.dispatch(0) && Clock::now() - begin < longestDrain) {
  }
  const std::optional<Position> position = tree_->index.find(request.chain);
  std::string text;
  if (readInto(position.value_or(rootPosition), request.chain, request.index, text) ==
      ModelRes_Success) {
    reply.value = std::move(text);
  }
  return reply;
}

bool TreeWorker::isSamePart(const WorkerRequest& request) {
  const auto hasName = [&](std::string_view name, std::size_t level) {
    return name == request.names[level];
  };
  if (!readAt_) {
    const std::optional<Position> position = tree_->index.find(request.chain);
    if (!position) {
      return false;
    }
    const std::vector<std::string_view> names = tree_->index.names(*position);
    return std::equal(names.begin(), names.end(), request.names.begin(), request.names.end());
  }
  // The structure has changed since the tree was read.
  Chain node;
  for (std::size_t level = 0; level < request.chain.size(); ++level) {
    Chain ids;
    std::vector<std::string> names;
    if (server_.readChildIds(node, ids) != ModelRes_Success ||
        server_.readChildNames(node, names) != ModelRes_Success || names.size() != ids.size()) {
      return false;
    }
    const auto child = std::find(ids.begin(), ids.end(), request.chain[level]);
    if (child == ids.end() ||
        !hasName(names[static_cast<std::size_t>(child - ids.begin())], level)) {
      return false;
    }
    node.push_back(request.chain[level]);
  }
  return true;
}

ModelRes TreeWorker::readInto(Position position, const Chain& chain, ModelPartIndex index,
                              std::string& text) {
  const ModelRes result = server_.read(chain, index, text);
  if (position == rootPosition || result >= ModelSrv::ModelRes_NotConnected) {
    return result;
  }
  if (index == ModelPartIndex_All) {
    setWhole(position, chain, result, text);
  } else if (result == ModelRes_Success) {
    static_cast<void>(tree_->values.setElement(position, index, text));
  }
  return result;
}

void TreeWorker::setWhole(Position position, const Chain& chain, ModelRes result,
                          std::string_view text) {
  if (result != ModelRes_Success || tree_->values.isWhole(position, text)) {
    return tree_->values.set(position, result, text);
  }
  std::vector<std::string> texts(tree_->index.elements(position));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const ModelRes read = server_.read(chain, static_cast<ModelPartIndex>(i), texts[i]);
    if (read != ModelRes_Success) {
      return tree_->values.set(
          position, read < ModelSrv::ModelRes_NotConnected ? read : ModelSrv::ModelRes_Unreachable,
          {});
    }
  }
  tree_->values.setElements(position, std::move(texts));
}

}  // namespace modelgate
