#include "gateway/viewer/shape_fetch.h"

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
  if (collector_->isComplete()) {
    return finish();
  }
  link_.context().subscribe(link_.topics().shapes(server_), 1);
  retry_ = link_.context().loop().after(pagesPause, [this] { retry(); });
}

void ShapeFetch::retry() {
  link_.context().logDetail(link_.name() + ": " + server_ + ": " +
                            std::to_string(collector_->missing()) +
                            " pages of the shape are missing");
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
    link_.context().unsubscribe(link_.topics().shapes(server_));
    link_.context().endFetch();
  }
}

void ShapeFetch::take(std::size_t page, std::string_view payload) {
  if (!collector_) {
    return;
  }
  if (collector_->take(page, payload) == ShapeCollector::Result::wrong && !saidWrong_) {
    // Once: while a shape changes, its pages and the state come one after the other.
    saidWrong_ = true;
    link_.context().logDetail(link_.name() + ": " + server_ + ": page " + std::to_string(page) +
                              " of the shape is not the one of the state");
  }
  if (collector_->isComplete()) {
    finish();
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
