#include "gateway/viewer/mirror_clients.h"

#include <chrono>

namespace modelgate {

namespace {

/// A client waits 2 s for a reply itself.
constexpr std::chrono::seconds maxHold{1};

}  // namespace

void MirrorClients::addHooks(ModelSrv::ServerOptions& options) {
  reset();
  options.arrived = [this](ModelSrv::SessionHold hold) { arrive(std::move(hold)); };
  options.left = [this](std::size_t clients) {
    count_ = clients;
    if (count_ == 0) {
      gone_();
    }
  };
}

/// The tree must not change here, so the loop calls `arrived_`.
void MirrorClients::arrive(ModelSrv::SessionHold hold) {
  ++count_;
  arrivalTimer_ = loop_.after({}, arrived_);
  if (isComplete_()) {
    return;
  }
  held_.push_back({EventLoop::Clock::now() + maxHold, std::move(hold)});
  if (held_.size() == 1) {
    releaseLater();
  }
}

void MirrorClients::release() {
  held_.clear();
  releaseTimer_ = {};
}

void MirrorClients::releaseLater() {
  if (held_.empty()) {
    return;
  }
  releaseTimer_ = loop_.at(held_.front().until, [this] {
    const auto now = EventLoop::Clock::now();
    while (!held_.empty() && held_.front().until <= now) {
      held_.pop_front();
    }
    releaseLater();
  });
}

}  // namespace modelgate
