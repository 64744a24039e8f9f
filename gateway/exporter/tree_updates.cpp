#include <malloc.h>

#include <algorithm>
#include <limits>
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
/// From one reading of a rejected tree to the next one: the first, and twice as long each time.
constexpr std::chrono::milliseconds firstRejectionPause{1000};
constexpr std::chrono::milliseconds longestRejectionPause{300'000};

constexpr const char* tooLarge = "its tree is too large or has a part that cannot be exported";

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
  if (readout.isMirror) {
    return reject("it is a mirror", true);
  }
  if (result == ModelSrv::ModelRes_TooLarge) {
    return reject("its tree has too many parts");
  }
  if (result == ModelSrv::ModelRes_LimitReached) {
    return reject(tooLarge);
  }
  if (result != ModelRes_Success) {
    handlers_.failed(ModelSrv::describe(result));
    readAt_ = Clock::now() + (result == ModelSrv::ModelRes_NotConnected ? lossPause : failurePause);
    return;
  }
  takeReadout(std::move(readout));
}

void TreeWorker::takeReadout(TreeReadout readout) {
  std::vector<std::string> pages = encodeShape(readout.shape);
  if (pages.empty()) {
    return reject(tooLarge);
  }
  if (std::exchange(isRejected_, false)) {
    // Once more, now with a watch of the values.
    rejectionPause_ = {};
    isWatching_ = false;
    readAt_ = Clock::now();
    return;
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
  if (event.kind == WatchEvent::Kind::complete) {
    isListed_ = true;
    if (isRejected_) {
      noteStructureChange();  // What has changed before it was listed.
    }
    return;
  }
  if (event.kind == WatchEvent::Kind::begin) {
    isListed_ = false;
    if (!std::exchange(expectsBegin_, false)) {
      noteStructureChange();
    }
    return;
  }
  if (isRejected_ && isListed_) {
    return noteStructureChange();
  }
  if (event.chain.empty() || tree_ == nullptr) {
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
  Clock::time_point due = Clock::now() + structurePause;
  if (isRejected_) {
    due = std::max(due, rejectedUntil_);
  }
  readAt_ = readAt_ ? std::min(*readAt_, due) : due;
}

/// Of a rejected tree: its values of the beginning come, and changes of the structure.
void TreeWorker::watchStructure() {
  isListed_ = false;
  expectsBegin_ = true;
  isWatching_ =
      server_.watch(std::numeric_limits<std::uint32_t>::max(),
                    [this](const WatchEvent& event) { handle(event); }) == ModelRes_Success;
}

void TreeWorker::reject(std::string reason, bool leaves) {
  isUp_ = false;
  tree_.reset();
  unwatched_.clear();
  ::malloc_trim(0);
  rejectionPause_ = std::clamp(2 * rejectionPause_, firstRejectionPause, longestRejectionPause);
  rejectedUntil_ = Clock::now() + rejectionPause_;
  if (!std::exchange(isRejected_, true) && !leaves) {
    watchStructure();
  }
  std::deque<WorkerRequest> requests;
  {
    const std::lock_guard lock(mutex_);
    hasLeft_ = leaves;
    requests.swap(requests_);
  }
  for (const WorkerRequest& request : requests) {
    request.done({ModelSrv::ModelRes_NoSuchPart, {}, {}});
  }
  handlers_.rejected(std::move(reason));
}

}  // namespace modelgate
