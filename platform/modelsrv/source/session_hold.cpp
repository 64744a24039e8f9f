#include "modelsrv/session_hold.h"

#include <mutex>
#include <utility>

#include "evtsrv/source/server_session.h"

namespace ModelSrv {

SessionHold::SessionHold() noexcept = default;

SessionHold::SessionHold(EvtSrv::EventPortManager& manager,
                         std::shared_ptr<EvtSrv::internal::RequestHold> hold) noexcept
    : manager_(&manager), hold_(std::move(hold)) {}

SessionHold::~SessionHold() {
  release();
}

SessionHold::SessionHold(SessionHold&& other) noexcept
    : manager_(other.manager_), hold_(std::move(other.hold_)) {}

SessionHold& SessionHold::operator=(SessionHold&& other) noexcept {
  if (this != &other) {
    release();
    manager_ = other.manager_;
    hold_ = std::move(other.hold_);
  }
  return *this;
}

bool SessionHold::isInEffect() const {
  if (hold_ == nullptr) {
    return false;
  }
  const std::lock_guard lock(manager_->clientMutex);
  return hold_->isInEffect();
}

void SessionHold::release() {
  if (hold_ == nullptr) {
    return;
  }
  const std::lock_guard lock(manager_->clientMutex);
  std::exchange(hold_, nullptr)->release();
}

}  // namespace ModelSrv
