#include "gateway/viewer/shape_fetch.h"

#include <algorithm>
#include <utility>

namespace modelgate {

namespace {

/// The broker sends pages at once; those that a device has yet to publish come when they do. After
/// this time another fetch may have its turn.
constexpr std::chrono::seconds pagesPause{5};

}  // namespace

ShapeFetch::ShapeFetch(DeviceLink& link, std::string server, Done done)
    : link_(link), server_(std::move(server)), done_(std::move(done)) {}

ShapeFetch::~ShapeFetch() {
  cancel();
}

void ShapeFetch::begin(const std::vector<std::string>& hashes) {
  if (wanted_ == hashes) {
    return;
  }
  cancel();
  if (hashes.empty()) {
    return;
  }
  wanted_ = hashes;
  turn_ = std::make_shared<std::function<void()>>([this] { collect(); });
  link_.context().beginFetch(turn_);
}

void ShapeFetch::collect() {
  collector_.emplace(wanted_);
  for (std::size_t page = 0; page < wanted_.size(); ++page) {
    if (const std::string* const cached = link_.context().pages().find(wanted_[page])) {
      static_cast<void>(collector_->take(page, *cached));
    }
  }
  if (collector_->isComplete()) {
    return finish();
  }
  subscribe();
  watchProgress();
}

/// To the next ones of the pages that are missing; not to all that the broker may have, of which
/// the device's next state lists more, perhaps.
void ShapeFetch::subscribe() {
  awaited_ = std::min(collector_->missing(), maxPagesAtOnce);
  for (std::size_t page = 0; page < wanted_.size() && filters_.size() < awaited_; ++page) {
    if (collector_->isMissing(page)) {
      filters_.push_back(link_.topics().shape(server_, page));
    }
  }
  for (const std::string& filter : filters_) {
    link_.context().subscribe(filter, 1);
  }
}

void ShapeFetch::unsubscribe() {
  for (const std::string& filter : std::exchange(filters_, {})) {
    link_.context().unsubscribe(filter);
  }
}

/// While pages come it goes on, however slow the connection is.
void ShapeFetch::watchProgress() {
  missingBefore_ = collector_->missing();
  retry_ = link_.context().loop().after(pagesPause, [this] {
    if (collector_->missing() == missingBefore_) {
      return retry();
    }
    watchProgress();
  });
}

void ShapeFetch::retry() {
  // A shape that changes has its pages soon; if not, somebody has to know.
  const std::string text =
      link_.name() + ": " + server_ + ": " + std::to_string(collector_->missing()) + " of " +
      std::to_string(wanted_.size()) + " pages of the shape are missing at the broker";
  ++retries_;
  retries_ == 2 ? link_.context().log(text) : link_.context().logDetail(text);
  const std::vector<std::string> hashes = wanted_;
  cancel();
  begin(hashes);
}

void ShapeFetch::cancel() {
  release();
  turn_.reset();
  wanted_.clear();
}

/// Ends the turn, if it is this fetch's.
void ShapeFetch::release() {
  if (collector_) {
    retry_ = {};
    collector_.reset();
    unsubscribe();
    link_.context().endFetch();
  }
}

void ShapeFetch::take(std::size_t page, std::string_view payload) {
  if (!collector_) {
    return;
  }
  const ShapeCollector::Result result = collector_->take(page, payload);
  if (result == ShapeCollector::Result::wrong && !saidWrong_) {
    // Once: while a shape changes, its pages and the state come one after the other.
    saidWrong_ = true;
    link_.context().logDetail(link_.name() + ": " + server_ + ": page " + std::to_string(page) +
                              " of the shape is not the one of the state");
  }
  if (result == ShapeCollector::Result::taken) {
    // If the fetch begins anew, it goes on from here.
    link_.context().pages().add(wanted_[page], payload);
    retries_ = 0;
    --awaited_;
  }
  if (collector_->isComplete()) {
    finish();
  } else if (awaited_ == 0) {
    unsubscribe();
    subscribe();
  }
}

void ShapeFetch::finish() {
  std::string error;
  const std::optional<Shape> shape = decodeShape(collector_->pages(), error);
  const std::vector<std::string> hashes = std::move(wanted_);
  cancel();
  saidWrong_ = false;
  if (!shape) {
    // These pages never become right; the next state has others.
    link_.context().log(link_.name() + ": " + server_ + ": wrong shape: " + error);
    wanted_ = hashes;
    return;
  }
  done_(*shape, hashes);
}

}  // namespace modelgate
