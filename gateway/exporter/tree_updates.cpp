#include <malloc.h>

#include <span>
#include <utility>

#include "gateway/exporter/tree_worker.h"

namespace modelgate {

using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using ModelSrv::WatchEvent;

namespace {

/// From the first change of the structure until the tree is read again.
constexpr std::chrono::milliseconds structurePause{200};
/// Until a reading that has failed is repeated.
constexpr std::chrono::milliseconds failurePause{500};
/// The same if the server has gone. When it is back, the tree is read at once.
constexpr std::chrono::milliseconds lossPause{5000};
constexpr std::chrono::seconds unwatchedPeriod{1};

}  // namespace

void TreeWorker::readAgain() {
  readAt_.reset();
  if (!isWatching_) {
    // Before the reading, so that no change is missed.
    expectsBegin_ = true;
    isWatching_ =
        server_.watch(static_cast<std::uint32_t>(interval_.count()),
                      [this](const WatchEvent& event) { handle(event); }) == ModelRes_Success;
  }
  TreeReadout readout;
  const ModelRes result = readTree(
      server_, [this] { return serveRequests(); }, readout);
  if (result == ModelSrv::ModelRes_TooLarge) {
    return reject("its tree has too many parts");
  }
  if (result != ModelRes_Success) {
    handlers_.failed(ModelSrv::describe(result));
    readAt_ = Clock::now() + (result == ModelSrv::ModelRes_NotConnected ? lossPause : failurePause);
    return;
  }
  if (readout.isMirror) {
    return reject("it is a mirror");
  }
  takeReadout(std::move(readout));
}

void TreeWorker::takeReadout(TreeReadout readout) {
  std::vector<std::string> pages = encodeShape(readout.shape);
  if (pages.empty()) {
    return reject("its tree is too large or has a part that cannot be exported");
  }
  const bool isSame = tree_ != nullptr && tree_->pages == pages;
  if (!isSame) {
    tree_ = std::make_shared<ServedTree>(readout.shape, std::move(pages));
  }
  unwatched_.clear();
  for (Position i = 0; i < tree_->index.size(); ++i) {
    if (!tree_->index.isNode(i) && (!isWatching_ || !tree_->index.isSubscribable(i))) {
      unwatched_.push_back(i);
    }
  }
  takeValues(readout.values);
  if (readout.isOutdated && !isSame) {
    noteStructureChange();
  }
  readout = {};
  ::malloc_trim(0);  // A readout is much larger than what remains of it.
  if (!isSame) {
    static_cast<void>(tree_->values.takeMarks());
    tree_->values.setHandler([this] { handlers_.changed(); });
    handlers_.tree(tree_);
  } else if (!isUp_) {
    handlers_.up(true);
  }
  isUp_ = true;
  unwatchedAt_ = Clock::now() + unwatchedPeriod;
}

void TreeWorker::takeValues(const std::vector<Value>& values) {
  for (Position i = 0; i < values.size(); ++i) {
    if (tree_->index.elements(i) == 0 || tree_->values.isWhole(i, values[i].text)) {
      tree_->values.set(i, values[i].result, values[i].text);
    } else {
      setWhole(i, tree_->index.chain(i), values[i].result, values[i].text);
    }
  }
}

void TreeWorker::handle(const WatchEvent& event) {
  if (event.kind == WatchEvent::Kind::value) {
    return takeValue(event);
  }
  if (event.kind == WatchEvent::Kind::begin) {
    if (!std::exchange(expectsBegin_, false)) {
      noteStructureChange();
    }
    return;
  }
  if (event.kind == WatchEvent::Kind::complete || event.chain.empty() || tree_ == nullptr) {
    return;
  }
  const std::optional<Position> position = tree_->index.find(event.chain);
  const bool isKnown = position && tree_->index.name(*position) == event.name &&
                       tree_->index.isNode(*position) == event.isNode;
  if (event.kind == WatchEvent::Kind::removed ? position.has_value() : !isKnown) {
    noteStructureChange();
  }
}

void TreeWorker::takeValue(const WatchEvent& event) {
  const std::optional<Position> position =
      tree_ == nullptr || event.chain.empty() ? std::nullopt : tree_->index.find(event.chain);
  if (!position || *position == rootPosition) {
    return;  // A new part: its value is read with the tree.
  }
  ModelRes result = event.result;
  std::string_view text = event.text;
  std::string whole;
  if (result == ModelSrv::ModelRes_TooLarge) {
    const ModelRes fetched = server_.fetch(event, whole);
    if (fetched >= ModelSrv::ModelRes_NotConnected) {
      return;  // The tree is read again when the server is back.
    }
    result = fetched;
    text = whole;
  }
  if (event.index != ModelPartIndex_All && result == ModelRes_Success &&
      tree_->values.setElement(*position, event.index, text)) {
    return;
  }
  chain_.assign(event.chain.begin(), event.chain.end());
  if (event.index == ModelPartIndex_All) {
    setWhole(*position, chain_, result, text);
  } else {
    static_cast<void>(readInto(*position, chain_, ModelPartIndex_All, whole));
  }
}

void TreeWorker::readUnwatched() {
  std::string text;
  for (std::size_t i = 0; i < unwatched_.size(); ++i) {
    const Chain chain = tree_->index.chain(unwatched_[i]);
    const ModelRes result = readInto(unwatched_[i], chain, ModelPartIndex_All, text);
    if (result >= ModelSrv::ModelRes_NotConnected || !serveRequests()) {
      break;
    }
  }
  unwatchedAt_ = Clock::now() + unwatchedPeriod;
}

void TreeWorker::noteStructureChange() {
  const Clock::time_point due = Clock::now() + structurePause;
  readAt_ = readAt_ ? std::min(*readAt_, due) : due;
}

void TreeWorker::reject(std::string reason) {
  isRejected_ = true;
  std::deque<WorkerRequest> requests;
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    requests.swap(requests_);
  }
  for (const WorkerRequest& request : requests) {
    request.done({ModelSrv::ModelRes_NoSuchPart, {}, {}});
  }
  handlers_.rejected(std::move(reason));
}

}  // namespace modelgate
