#include "modelsrv/deferred_store.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/source/server_session.h"
#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"
#include "modelsrv/source/line_text.h"
#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/server_side.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv {

DeferredStore::DeferredStore() noexcept = default;

DeferredStore::DeferredStore(EvtSrv::EventPortManager& manager,
                             std::shared_ptr<EvtSrv::internal::DeferredReply> reply) noexcept
    : manager_(&manager), reply_(std::move(reply)) {}

DeferredStore::~DeferredStore() {
  complete(ModelRes_OutcomeUnknown);
}

DeferredStore::DeferredStore(DeferredStore&& other) noexcept
    : manager_(other.manager_), reply_(std::move(other.reply_)) {}

DeferredStore& DeferredStore::operator=(DeferredStore&& other) noexcept {
  if (this != &other) {
    complete(ModelRes_OutcomeUnknown);
    manager_ = other.manager_;
    reply_ = std::move(other.reply_);
  }
  return *this;
}

bool DeferredStore::isAwaited() const {
  if (reply_ == nullptr) {
    return false;
  }
  const std::lock_guard lock(manager_->clientMutex);
  return reply_->isAwaited();
}

void DeferredStore::complete(ModelRes result, std::string_view reason) {
  if (reply_ == nullptr) {
    return;
  }
  std::vector<std::uint8_t> payload;
  if (result != ModelRes_Success) {
    // Without memory for the reason the client gets the result alone.
    static_cast<void>(internal::withMemoryResult([&] {
      const std::string line = internal::toLine(reason, ModelReason_Max);
      payload.assign(line.begin(), line.end());
      return result;
    }));
  }
  const std::lock_guard lock(manager_->clientMutex);
  std::exchange(reply_, nullptr)->send(internal::encodeResult(result), payload);
}

DeferredStore ModelRoot::deferStore() {
  const internal::TreeLock lock(*this);
  auto reply = server_ != nullptr ? server_->deferStore() : nullptr;
  return reply != nullptr ? DeferredStore(*manager(), std::move(reply)) : DeferredStore();
}

}  // namespace ModelSrv
