#include "gateway/exporter/server_export.h"

#include <algorithm>
#include <utility>

namespace modelgate {

ServerExport::ServerExport(ExportContext& context, std::string port)
    : context_(context),
      port_(std::move(port)),
      name_(serverInTopics(port_)),
      worker_(port_, context.interval, handlers()) {}

/// Calls `action` on the loop's thread if this object still exists then, and does not end.
void ServerExport::post(std::function<void()> action) {
  context_.loop.post([alive = std::weak_ptr(alive_), action = std::move(action)] {
    const std::shared_ptr<bool> isAlive = alive.lock();
    if (isAlive != nullptr && *isAlive) {
      action();
    }
  });
}

void ServerExport::end() {
  *alive_ = false;
  timer_ = {};
  syncs_.clear();
  worker_.stop();
}

TreeWorker::Handlers ServerExport::handlers() {
  TreeWorker::Handlers handlers;
  handlers.tree = [this](std::shared_ptr<ServedTree> tree) {
    post([this, tree = std::move(tree)] { takeTree(tree); });
  };
  handlers.changed = [this] {
    post([this] {
      takeMarks();
      flush();
    });
  };
  handlers.up = [this](bool isUp) { post([this, isUp] { setUp(isUp); }); };
  handlers.failed = [this](std::string reason) {
    post([this, reason = std::move(reason)] {
      context_.log(port_ + ": " + reason, isSettled_);
      if (!std::exchange(isSettled_, true)) {
        context_.stateChanged();
      }
    });
  };
  handlers.rejected = [this](std::string reason) {
    post([this, reason = std::move(reason)] {
      if (std::exchange(rejection_, reason) == reason) {
        return;
      }
      context_.log(port_ + " is not exported: " + reason, false);
      isSettled_ = true;
      removeAll();
      isUp_ = false;
      context_.stateChanged();
    });
  };
  handlers.ended = context_.threadEnded;
  return handlers;
}

std::optional<ServerState> ServerExport::state() const {
  if (tree_ == nullptr) {
    return std::nullopt;
  }
  return ServerState{isUp_, shape_, tree_->hashes, tree_->index.size()};
}

void ServerExport::takeTree(std::shared_ptr<ServedTree> tree) {
  leaveTopics();
  tree_ = std::move(tree);
  ++shape_;
  isUp_ = isSettled_ = true;
  rejection_.clear();
  sequences_.reset(tree_->index.size());
  static_cast<void>(tree_->values.takeMarks());
  json_.emplace(context_.topics, name_, context_.json, tree_);
  json_->notePublished(*leftTopics_);
  if (context_.retainsValues) {
    pages_.emplace(tree_, ValuePage{context_.epoch, shape_, 0, {}});
  }
  publishPages();
  removeLeftTopics();
  updateCover();
  for (PendingSync& sync : syncs_) {
    sync.job = makeJob(sync.top = rootPosition, sync.since);
  }
  updateActivity();
  context_.stateChanged();
  flush();
}

void ServerExport::setUp(bool isUp) {
  if (isUp_ != isUp && tree_ != nullptr) {
    isUp_ = isUp;
    context_.log(port_ + (isUp ? " is back" : " has ended"), true);
    context_.stateChanged();
  }
}

void ServerExport::takeMarks() {
  if (tree_ == nullptr) {
    return;
  }
  for (const ValueMark& mark : tree_->values.takeMarks()) {
    sequences_.change(mark);
    json_->change(mark.position);
    if (pages_) {
      pages_->change(mark.position);
    }
  }
}

bool ServerExport::request(WorkerRequest request) {
  request.done = [this, done = std::move(request.done)](WorkerResult result) {
    post([this, done, result = std::move(result)] {
      takeMarks();
      done(result);
      flush();
    });
  };
  return worker_.request(std::move(request));
}

bool ServerExport::lease(const std::string& holder, Position position) {
  const bool isTaken = leases_.renew(holder, tree_->index.chain(position), Clock::now());
  updateCover();
  flush();
  return isTaken;
}

void ServerExport::updateCover() {
  const bool wasLeased = sequences_.isCovering();
  sequences_.cover(leases_.ranges(tree_->index));
  if (!wasLeased && sequences_.isCovering()) {
    nextHeartbeat_ = Clock::now() + context_.heartbeat;
  }
  updateActivity();
}

/// Parts that cannot be watched are read while there is a use for them.
void ServerExport::updateActivity() {
  worker_.setActive(!leases_.isEmpty() || context_.retainsValues || !context_.json.isEmpty());
}

PositionRange ServerExport::rangeOf(Position top) const {
  return {top == rootPosition ? 0 : top, tree_->index.end(top)};
}

SyncJob ServerExport::makeJob(Position top, std::uint64_t since) {
  Batch numbers;
  numbers.epoch = context_.epoch;
  numbers.shape = shape_;
  numbers.sequence = sequences_.sequence();
  // A number that there has not been says nothing.
  return {tree_, rangeOf(top), since <= numbers.sequence ? since : 0, numbers};
}

bool ServerExport::sync(Position top, std::uint64_t since, SendBatch send) {
  constexpr std::size_t maxSyncs = 64;
  if (syncs_.size() >= maxSyncs) {
    return false;
  }
  takeMarks();
  syncs_.push_back({top, since, std::move(send), makeJob(top, since)});
  flush();
  return true;
}

}  // namespace modelgate
