#include <algorithm>
#include <utility>

#include "gateway/exporter/server_export.h"

namespace modelgate {

namespace {

/// The values of a batch end with the one that exceeds that many bytes, or before one with which
/// no message would hold them.
constexpr std::size_t batchSize = std::size_t{128} * 1024;

}  // namespace

/// The next page that the broker does not have.
std::optional<Publication> ServerExport::nextPage() {
  for (std::size_t page = 0; tree_ != nullptr && page < tree_->hashes.size(); ++page) {
    publishedPages_.resize(std::max(publishedPages_.size(), page + 1));
    if (publishedPages_[page] != tree_->hashes[page]) {
      publishedPages_[page] = tree_->hashes[page];
      return retained(context_.topics.shape(name_, page), tree_->pages[page],
                      contentType(Format::cbor));
    }
  }
  return std::nullopt;
}

/// Publishes the pages that the broker does not have.
void ServerExport::publishPages() {
  // Those above are removed.
  publishedPages_.resize(std::min(publishedPages_.size(), tree_->hashes.size()));
  context_.outbox.pushRetained(
      &publishedPages_,
      [this, alive = std::weak_ptr(alive_)] { return alive.expired() ? std::nullopt : nextPage(); },
      true);
}

void ServerExport::removePages(std::size_t count) {
  for (std::size_t page = 0; page < std::min(count, maxPages); ++page) {
    leftTopics_->insert(context_.topics.shape(name_, page));
  }
  removeLeftTopics();
}

void ServerExport::removeAll() {
  leaveTopics();
  tree_.reset();
  publishedPages_.clear();
  json_.reset();
  pages_.reset();
  removeLeftTopics();
}

/// Adds the pages of the present tree.
void ServerExport::addPages(std::set<std::string>& topics) const {
  for (std::size_t page = 0; tree_ != nullptr && page < tree_->pages.size(); ++page) {
    topics.insert(context_.topics.shape(name_, page));
  }
  for (std::size_t page = 0; pages_ && page < pages_->count(); ++page) {
    topics.insert(context_.topics.values(name_, page));
  }
}

/// Notes what the broker may have of the present tree, which ends. Of nodes without a connection
/// that is nothing: there may be ever new ones.
void ServerExport::leaveTopics() {
  addPages(*leftTopics_);
  for (std::string& topic : json_ ? json_->publishedTopics() : std::vector<std::string>()) {
    leftTopics_->insert(std::move(topic));
  }
}

/// Removes from the broker what the present tree does not publish. Without a connection: later.
void ServerExport::removeLeftTopics() {
  if (leftTopics_->empty()) {
    return;
  }
  std::set<std::string> present;
  addPages(present);
  for (std::string& topic : json_ ? json_->topics() : std::vector<std::string>()) {
    present.insert(std::move(topic));
  }
  std::erase_if(*leftTopics_, [&](const std::string& topic) { return present.count(topic) > 0; });
  context_.outbox.pushRetained(
      leftTopics_.get(),
      [left = leftTopics_]() -> std::optional<Publication> {
        return left->empty() ? std::nullopt
                             : std::optional(retained(left->extract(left->begin()).value(), {}));
      },
      true);
}

void ServerExport::publishRetained() {
  removeLeftTopics();
  if (tree_ == nullptr) {
    return;
  }
  publishedPages_.clear();
  publishPages();
  json_->changeAll();
  if (pages_) {
    pages_->changeAll();
  }
  flush();
}

void ServerExport::flush() {
  if (tree_ == nullptr) {
    return;
  }
  const Clock::time_point now = Clock::now();
  if (leases_.expire(now)) {
    updateCover();
  }
  while (context_.outbox.pump() && flushOne(now)) {
  }
  schedule(now);
}

/// Publishes one message if one is due.
bool ServerExport::flushOne(Clock::time_point now) {
  if (!syncs_.empty()) {
    PendingSync sync = std::move(syncs_.front());
    syncs_.pop_front();
    sendSync(sync);
    if (!sync.job.isComplete()) {
      syncs_.push_back(std::move(sync));
    }
    return true;
  }
  if (isBatchDue(now)) {
    sendBatch(now);
    return true;
  }
  if (const std::optional<Publication> json = json_->take(now)) {
    context_.outbox.publish(*json);
    return true;
  }
  if (const auto page = pages_ ? pages_->take(now, sequences_.sequence()) : std::nullopt) {
    context_.outbox.publish(retained(context_.topics.values(name_, page->number), page->payload,
                                     contentType(Format::cbor)));
    return true;
  }
  return false;
}

void ServerExport::sendSync(PendingSync& sync) {
  Batch batch = sync.job.next(sequences_);
  batch.time = realMilliseconds();
  batch.monotonic = monotonicMilliseconds();
  sync.send(std::move(batch), !sync.job.isComplete());
}

bool ServerExport::isBatchDue(Clock::time_point now) const {
  return (sequences_.isPending() && (isBatchOpen_ || nextBatch_ <= now)) ||
         (sequences_.isCovering() && nextHeartbeat_ <= now);
}

void ServerExport::sendBatch(Clock::time_point now) {
  const SequenceTable::Numbers numbers = sequences_.beginBatch();
  Batch batch;
  batch.epoch = context_.epoch;
  batch.shape = shape_;
  batch.sequence = numbers.sequence;
  batch.previous = numbers.previous;
  batch.time = realMilliseconds();
  batch.monotonic = monotonicMilliseconds(now);
  std::size_t size = 0;
  while (sequences_.isPending() && size < batchSize &&
         tree_->values.readForBatch(sequences_.front(), batch.values, size)) {
    static_cast<void>(sequences_.take());
  }
  Publication publication;
  publication.topic = context_.topics.updates(name_);
  publication.payload = encodeBatch(batch);
  publication.contentType = contentType(Format::cbor);
  context_.outbox.publish(publication);
  isBatchOpen_ = sequences_.isPending();
  nextBatch_ = now + context_.interval;
  // Not before the interval is over: it would have the values that wait for that.
  const auto first = std::max<Clock::duration>(firstHeartbeat, context_.interval);
  nextHeartbeat_ =
      now + (batch.values.empty() ? context_.heartbeat
                                  : std::min<Clock::duration>(first, context_.heartbeat));
}

void ServerExport::schedule(Clock::time_point now) {
  Clock::time_point next = leases_.deadline().value_or(Clock::time_point::max());
  // Without capacity the outbox flushes when there is some.
  if (context_.outbox.hasCapacity()) {
    const auto consider = [&next](std::optional<Clock::time_point> time) {
      next = std::min(next, time.value_or(Clock::time_point::max()));
    };
    if (sequences_.isPending()) {
      consider(nextBatch_);
    }
    if (sequences_.isCovering()) {
      consider(nextHeartbeat_);
    }
    consider(json_->deadline());
    consider(pages_ ? pages_->deadline() : std::nullopt);
  }
  if (next == timerAt_) {
    return;
  }
  timerAt_ = next;
  timer_ = next == Clock::time_point::max() ? EventLoop::Timer()
                                            : context_.loop.at(std::max(next, now), [this] {
                                                timerAt_ = Clock::time_point::max();
                                                flush();
                                              });
}

}  // namespace modelgate
