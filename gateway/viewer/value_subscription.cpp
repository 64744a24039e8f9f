#include "gateway/viewer/value_subscription.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "modelsrv/model_node.h"

namespace modelgate {

using std::chrono::milliseconds;

namespace {

/// How long a request for values waits for each of its replies.
constexpr milliseconds requestLimit{2'000};
/// After a request without success.
constexpr milliseconds retryPause{1'000};
/// The most elements of an array that are requested one by one.
constexpr unsigned maxSingleElements = 256;

}  // namespace

std::vector<ModelSrv::ModelPartId> chainOf(const ModelSrv::ModelPart& part) {
  std::vector<ModelSrv::ModelPartId> chain;
  for (const ModelSrv::ModelPart* at = &part; at->parent() != nullptr; at = at->parent()) {
    chain.push_back(at->id());
  }
  std::reverse(chain.begin(), chain.end());
  return chain;
}

MirrorPart* findMirrorPart(const ModelSrv::ModelRoot& root,
                           const std::vector<ModelSrv::ModelPartId>& chain) {
  const ModelSrv::ModelNode* node = &root;
  ModelSrv::ModelPart* part = nullptr;
  for (const ModelSrv::ModelPartId id : chain) {
    part = node != nullptr ? node->findChild(id) : nullptr;
    node = dynamic_cast<const ModelSrv::ModelNode*>(part);
  }
  return dynamic_cast<MirrorPart*>(part);
}

ValueSubscription::ValueSubscription(DeviceLink& link, std::string server,
                                     std::function<bool()> isWanted, std::function<void()> synced)
    : link_(link),
      server_(std::move(server)),
      isWanted_(std::move(isWanted)),
      synced_(std::move(synced)) {}

void ValueSubscription::attach(MirrorTree& tree, std::uint64_t shape) {
  const bool isOtherRun = epoch_ != link_.epoch();
  if (isOtherRun || shape_ != shape) {
    tracker_.reset();
  }
  if (isOtherRun) {
    tree.forgetSequences();
  }
  tree_ = &tree;
  epoch_ = link_.epoch();
  shape_ = shape;
  isSynced_ = false;
  isSyncing_ = false;
  ++generation_;
  if (isActive_) {
    sendSync();
  }
}

void ValueSubscription::detach() {
  end();
  tree_ = nullptr;
}

void ValueSubscription::forget() {
  detach();
  tracker_.reset();
}

void ValueSubscription::begin() {
  if (isActive_ || tree_ == nullptr || !link_.context().isConnected()) {
    return;
  }
  isActive_ = true;
  link_.changeWatched(1);
  link_.context().subscribe(link_.topics().updates(server_), 0);
  sendWatch();
  sendSync();
}

void ValueSubscription::end() {
  if (isActive_) {
    link_.context().unsubscribe(link_.topics().updates(server_));
  }
  disconnected();
}

void ValueSubscription::disconnected() {
  ++generation_;
  if (std::exchange(isActive_, false)) {
    link_.changeWatched(-1);
  }
  isSynced_ = false;
  isSyncing_ = false;
  renewal_ = {};
  syncTimer_ = {};
}

void ValueSubscription::sendWatch() {
  Request request;
  request.server = server_;
  const auto done = [this](const RequestTable::Answer& answer) {
    if (!isActive_) {
      return;
    }
    const Reply* const reply = answer.reply;
    if (reply != nullptr && reply->result == ModelSrv::ModelRes_Success) {
      constexpr std::uint64_t maxLease = 600'000;
      renewLater(milliseconds(std::clamp<std::uint64_t>(reply->lease, 1'000, maxLease) / 2));
    } else if (answer.ending != RequestTable::Ending::disconnected) {
      if (answer.ending == RequestTable::Ending::refused && !std::exchange(saidDenied_, true)) {
        link_.context().log(link_.name() + ": the broker does not let this user watch");
      }
      renewLater(retryPause);
    }
  };
  static_cast<void>(link_.request(Verb::watch, request, requestLimit, done));
}

void ValueSubscription::renewLater(milliseconds pause) {
  renewal_ = link_.context().loop().after(pause, [this] {
    if (isWanted_()) {
      sendWatch();
    } else {
      end();
    }
  });
}

void ValueSubscription::sendSync() {
  if (isSyncing_ || !isActive_ || tree_ == nullptr) {
    return;
  }
  Request request;
  request.server = server_;
  request.epoch = epoch_;
  request.since = tracker_.complete();
  syncedUpTo_.reset();
  isSyncing_ = link_.request(Verb::sync, request, requestLimit,
                             [this, generation = generation_](const RequestTable::Answer& answer) {
                               if (generation == generation_) {
                                 takeSync(answer);
                               }
                             });
}

void ValueSubscription::takeSync(const RequestTable::Answer& answer) {
  const Reply* const reply = answer.reply;
  const bool isSuccess = reply != nullptr && reply->result == ModelSrv::ModelRes_Success;
  const auto batch = isSuccess && reply->batch ? decodeBatch(*reply->batch) : std::nullopt;
  if (!batch || !isCurrent(*batch)) {
    isSyncing_ = reply != nullptr && reply->more;
    return isSyncing_ ? void() : syncLater();
  }
  apply(*batch);
  if (!syncedUpTo_) {
    syncedUpTo_ = batch->sequence;
  }
  if (reply->more) {
    return;
  }
  isSyncing_ = false;
  // What has changed after the first reply may be missing in it.
  tracker_.synced(*syncedUpTo_);
  if (tracker_.hasGap()) {
    return sendSync();
  }
  isSynced_ = true;
  synced_();
}

void ValueSubscription::syncLater() {
  syncTimer_ = link_.context().loop().after(retryPause, [this] { sendSync(); });
}

bool ValueSubscription::isCurrent(const Batch& batch) const {
  return tree_ != nullptr && batch.epoch == epoch_ && batch.shape == shape_;
}

void ValueSubscription::take(std::string_view payload) {
  const auto batch = decodeBatch(payload);
  if (!batch) {
    link_.context().logDetail(link_.name() + ": " + server_ + ": a batch is wrong");
    return;
  }
  link_.heard(*batch);
  // One of another shape: its state comes, and then a sync.
  if (!isActive_ || !isCurrent(*batch)) {
    return;
  }
  apply(*batch);
  if (tracker_.take(batch->previous, batch->sequence) && isSynced_) {
    ++gaps_;
  }
  if (tracker_.hasGap()) {
    sendSync();
  }
}

void ValueSubscription::apply(const Batch& batch) {
  const std::lock_guard lock(link_.context().manager().clientMutex);
  for (const PositionedValue& value : batch.values) {
    tree_->take(value, batch.sequence, Accept::newer);
    if (value.index == ModelSrv::ModelPartIndex_All) {
      const MirrorPart* const part = tree_->partAt(value.position);
      if (part != nullptr && part->needsElements()) {
        requestElements(*part);
      }
    }
  }
}

/// Requests the elements of an array whose whole text cannot be divided.
void ValueSubscription::requestElements(const MirrorPart& part) {
  Request request;
  request.server = server_;
  request.chain = chainOf(part);
  const unsigned count = std::min(part.toShape().elements, maxSingleElements);
  for (unsigned i = 0; i < count; ++i) {
    request.index = static_cast<ModelSrv::ModelPartIndex>(i);
    const auto done = [this, generation = generation_, chain = *request.chain,
                       index = request.index](const RequestTable::Answer& answer) {
      const Reply* const reply = answer.reply;
      if (generation != generation_ || tree_ == nullptr || reply == nullptr ||
          reply->epoch != epoch_ || !reply->value) {
        return;
      }
      if (MirrorPart* const found = findMirrorPart(tree_->root(), chain)) {
        tree_->take(*found, index, {reply->result, *reply->value}, reply->sequence,
                    Accept::newerOrSame);
      }
    };
    static_cast<void>(link_.request(Verb::get, request, requestLimit, done));
  }
}

}  // namespace modelgate
