#include "gateway/viewer/mirror_store_requests.h"

#include <memory>
#include <utility>

#include "gateway/viewer/value_subscription.h"
#include "gateway/wire/limits.h"

namespace modelgate {

using ModelSrv::ModelRes;
using std::chrono::milliseconds;

namespace {

/// Within this time the device carries a store out, or not at all.
constexpr milliseconds storeBudget{1'500};
/// Then the client is told that the outcome is unknown. It waits for 2 s itself.
constexpr milliseconds replyLimit{1'700};
/// What a request has besides the text, at most.
constexpr std::size_t requestOverhead = std::size_t{16} * 1024;

/// The end of a reason.
constexpr const char* unknown = "; it may or may not have stored the value";

}  // namespace

ModelRes MirrorStoreRequests::store(MirrorPart& part, std::string_view text, bool flag,
                                    ModelSrv::ModelPartIndex index, std::string& reason) {
  const auto clock = link_.clock().at(ViewerContext::now());
  if (tree_ == nullptr || !link_.presence().isReachable() || !clock) {
    reason = unreachableReason();
    return ModelSrv::ModelRes_Unreachable;
  }
  if (text.size() + requestOverhead > maxPayload) {
    return ModelSrv::ModelRes_TooLarge;
  }
  Request request;
  request.server = server_;
  request.chain = chainOf(part);
  request.index = index;
  request.value = text;
  request.epoch = link_.epoch();
  request.until = *clock + static_cast<std::uint64_t>(storeBudget.count());
  // It must be copied with the function that has it.
  const auto store = std::make_shared<ModelSrv::DeferredStore>(part.findRoot()->deferStore());
  const auto done = [this, store, target = Target{*request.chain, index}](
                        const RequestTable::Answer& answer) { finish(answer, target, *store); };
  if (!link_.request(flag ? Verb::load : Verb::set, request, replyLimit, done)) {
    store->complete(ModelSrv::ModelRes_Unreachable, unreachableReason());
  }
  return ModelSrv::ModelRes_DoNothing;
}

void MirrorStoreRequests::finish(const RequestTable::Answer& answer, const Target& target,
                                 ModelSrv::DeferredStore& store) {
  if (answer.ending == RequestTable::Ending::refused) {
    return store.complete(ModelSrv::ModelRes_Denied, "the broker does not let this user store");
  }
  const Reply* const reply = answer.reply;
  if (reply == nullptr) {
    return store.complete(ModelSrv::ModelRes_OutcomeUnknown,
                          answer.ending == RequestTable::Ending::timedOut
                              ? "the device " + link_.name() + " did not reply in time" + unknown
                              : "the connection to the broker ended before the device " +
                                    link_.name() + " replied" + unknown);
  }
  // The value comes first: who has the reply reads it.
  MirrorPart* const part = tree_ != nullptr && reply->value && reply->epoch == link_.epoch()
                               ? findMirrorPart(tree_->root(), target.chain)
                               : nullptr;
  if (part != nullptr) {
    tree_->take(*part, target.index, {ModelSrv::ModelRes_Success, *reply->value}, reply->sequence,
                Accept::newerOrSame);
  }
  // The device speaks of its own connection to the server.
  store.complete(reply->result,
                 reply->result == ModelSrv::ModelRes_OutcomeUnknown
                     ? "the server on the device " + link_.name() + " did not reply" + unknown
                     : reply->reason);
}

std::string MirrorStoreRequests::unreachableReason() const {
  return "the device " + link_.name() + " cannot be reached";
}

}  // namespace modelgate
