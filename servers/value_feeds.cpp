#include "servers/value_feeds.h"

#include <algorithm>
#include <new>
#include <utility>

#include "servers/feed_values.h"
#include "servers/value_file.h"

namespace modelsrvd {

namespace {

using Clock = ValueFeed::Clock;
using ModelSrv::ModelPart;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using ModelSrv::ValuePart;

/// The work of a call is bounded, since clients wait for the client mutex meanwhile.
class WorkLimit {
 public:
  [[nodiscard]] bool isReached() const {
    return Clock::now() - begin_ >= std::chrono::microseconds(500);
  }

 private:
  Clock::time_point begin_ = Clock::now();
};

/// What file and simulation feeds have in common: the connection to the part.
template <typename T>
class TypedFeed : public ValueFeed {
 public:
  TypedFeed(ValuePart<T>& part, std::shared_ptr<const EntryDetails> details)
      : part_(part), details_(std::move(details)) {
    part_.setGetter([this](T& value) { return get(value); });
  }
  ~TypedFeed() override { part_.removeHooks(); }
  TypedFeed(const TypedFeed&) = delete;
  TypedFeed& operator=(const TypedFeed&) = delete;

  ModelPart& part() override { return part_; }
  void notify() override { part_.notifyChange(); }

 protected:
  Reading read() override {
    T value{};
    const ModelRes result = get(value);
    return {result, result == ModelRes_Success ? valueText(value) : std::string()};
  }
  virtual ModelRes get(T& value) const = 0;
  [[nodiscard]] const EntryDetails& details() const { return *details_; }
  ValuePart<T>& typedPart() { return part_; }

 private:
  ValuePart<T>& part_;
  std::shared_ptr<const EntryDetails> details_;
};

template <typename T>
class FileFeed final : public TypedFeed<T> {
 public:
  FileFeed(ValuePart<T>& part, std::shared_ptr<const EntryDetails> details)
      : TypedFeed<T>(part, std::move(details)) {
    part.setStoreCheckWithReason([this](const T& value, ModelSrv::ModelPartIndex,
                                        std::string& reason) { return store(value, reason); });
  }

  [[nodiscard]] Clock::time_point next(Clock::time_point now) const override {
    constexpr std::uint32_t defaultPeriod = 1000;
    const std::uint32_t period = spec().period;
    return now + std::chrono::milliseconds(period == 0 ? defaultPeriod : period);
  }
  [[nodiscard]] std::string watchedFile() const override {
    return spec().period == 0 && reportsChanges(spec().path) ? spec().path : std::string();
  }

 protected:
  ModelRes get(T& value) const override {
    std::string text;
    const ModelRes result = readValueFile(spec().path, text);
    return result == ModelRes_Success ? fromFileText(text, spec(), value) : result;
  }

 private:
  [[nodiscard]] const FileSpec& spec() const { return *this->details().file; }

  ModelRes store(const T& value, std::string& reason) {
    const std::string text = toFileText(value, spec());
    if (!isReadBack(value, text, spec())) {
      return ModelSrv::ModelRes_OutOfRange;
    }
    const Reading before = this->isObserved() ? this->read() : Reading();
    if (auto error = writeValueFile(spec().path, text)) {
      reason = std::move(*error);
      return ModelSrv::ModelRes_Vetoed;
    }
    if (this->isObserved()) {
      this->stored(before);
    }
    return ModelRes_Success;
  }
};

template <typename T>
class SimulatedFeed final : public TypedFeed<T> {
 public:
  SimulatedFeed(ValuePart<T>& part, std::shared_ptr<const EntryDetails> details,
                Clock::time_point start)
      : TypedFeed<T>(part, std::move(details)), start_(start) {}

  [[nodiscard]] Clock::time_point next(Clock::time_point now) const override {
    const std::uint32_t interval = this->details().simulation->interval;
    return start_ + std::chrono::milliseconds((elapsed(now) / interval + 1) * interval);
  }
  [[nodiscard]] std::string watchedFile() const override { return {}; }

 protected:
  ModelRes get(T& value) const override {
    return simulatedValue(this->details(), elapsed(Clock::now()), value);
  }

 private:
  [[nodiscard]] std::uint64_t elapsed(Clock::time_point now) const {
    using std::chrono::milliseconds;
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<milliseconds>(now - start_).count());
  }

  Clock::time_point start_;
};

}  // namespace

void ValueFeed::refresh() {
  Reading reading = read();
  if (reading != last_) {
    last_ = std::move(reading);
    notify();
  }
}

void ValueFeed::stored(const Reading& before) {
  Reading reading = read();
  // Another program may have changed the value to `before`, or to the stored one, unnoticed.
  if (reading != before || reading != last_) {
    last_ = std::move(reading);
    notify();
  }
}

void ValueFeeds::add(ModelPart& part, EntryType type, std::shared_ptr<const EntryDetails> details) {
  if (details == nullptr || (!details->file && !details->simulation)) {
    return;
  }
  auto owned = std::make_unique<Observed>();
  Observed& observed = *owned;
  observed.feed = visitValueType(type, [&]<typename T>() -> std::unique_ptr<ValueFeed> {
    auto& typed = static_cast<ValuePart<T>&>(part);
    if (details->file) {
      return std::make_unique<FileFeed<T>>(typed, details);
    }
    return std::make_unique<SimulatedFeed<T>>(typed, details, start_);
  });
  feeds_.emplace_back(nullptr);
  try {
    supplied_.insert(&part);
    part.setWatchHandler([this, &observed](bool watched) { setWatched(observed, watched); });
  } catch (...) {
    supplied_.erase(&part);
    feeds_.pop_back();
    throw;
  }
  feeds_.back() = std::move(owned);
  if (part.isWatched()) {
    setWatched(observed, true);
    const auto before = cleared_.find(&part);
    if (before == cleared_.end() || before->second != observed.feed->last()) {
      observed.feed->notify();
    }
  }
  cleared_.erase(&part);
}

void ValueFeeds::clear() {
  cleared_.clear();
  for (const auto& observed : feeds_) {
    ModelPart& part = observed->feed->part();
    if (observed->feed->isObserved()) {
      setWatched(*observed, false);
      try {
        cleared_.emplace(&part, observed->feed->last());
      } catch (const std::bad_alloc&) {
        // Then `add` notifies the subscribers.
      }
    }
    part.setWatchHandler({});
  }
  feeds_.clear();
  supplied_.clear();
  changed_.clear();
  changing_.reset();
  retryAt_.reset();
}

std::optional<Clock::time_point> ValueFeeds::nextDeadline() const {
  if (hasChanged()) {
    return start_;
  }
  if (due_.empty()) {
    return retryAt_;
  }
  return std::min(due_.begin()->first, retryAt_.value_or(notScheduled));
}

void ValueFeeds::tick(Clock::time_point now) {
  if (retryAt_ && *retryAt_ <= now) {
    retry(now);
  }
  readChanged(now);
  readDue(now);
}

void ValueFeeds::takeFileChanges(Clock::time_point now) {
  mayHaveChanges_ = true;
  readChanged(now);
}

void ValueFeeds::retry(Clock::time_point now) {
  retryAt_.reset();
  for (const auto& observed : feeds_) {
    if (observed->feed->isObserved() && observed->deadline == notScheduled) {
      observe(*observed, now, [&] {
        schedule(*observed, now);
        observed->feed->refresh();
      });
    }
  }
}

void ValueFeeds::readDue(Clock::time_point now) {
  const WorkLimit limit;
  while (!due_.empty() && due_.begin()->first <= now) {
    Observed& observed = *due_.begin()->second;
    observe(observed, now, [&] {
      schedule(observed, now);
      observed.feed->refresh();
    });
    if (limit.isReached()) {
      return;
    }
  }
}

void ValueFeeds::readChanged(Clock::time_point now) {
  // More is left in the kernel, which keeps a bounded number of changes.
  constexpr std::size_t maxChanged = 10000;
  try {
    if (mayHaveChanges_ && changed_.size() < maxChanged) {
      mayHaveChanges_ = directories_.take(changed_);
    }
    const WorkLimit limit;
    while (nextChanged() && !limit.isReached()) {
      const auto at = byFile_.upper_bound(FilePosition{changing_->file, changing_->observed});
      const bool isDirectory = changing_->path.ends_with('/');
      if (at == byFile_.end() || !(isDirectory ? (*at)->watchedFile.starts_with(changing_->path)
                                               : (*at)->watchedFile == changing_->path)) {
        changing_.reset();
        continue;
      }
      Observed& observed = **at;
      changing_->file = observed.watchedFile;
      changing_->observed = &observed;
      observe(observed, now, [&] {
        if (!directories_.isWatching(observed.watchedFile)) {
          schedule(observed, now);
        }
        observed.feed->refresh();
      });
    }
  } catch (const std::bad_alloc&) {
    // What is lost here is found when the file is due.
  }
}

/// Whether there is a changed path.
bool ValueFeeds::nextChanged() {
  if (!changing_ && !changed_.empty()) {
    std::string path = *changed_.begin();
    changing_ = Changed{path, path};
    changed_.erase(changed_.begin());
  }
  return changing_.has_value();
}

void ValueFeeds::setWatched(Observed& observed, bool watched) noexcept {
  if (observed.feed->isObserved() == watched) {
    return;
  }
  observed.feed->setObserved(watched);
  if (!watched) {
    unschedule(observed);
    return;
  }
  const auto now = Clock::now();
  observe(observed, now, [&] {
    schedule(observed, now);
    // After that, so that no change is missed between both.
    observed.feed->readFirst();
  });
}

/// Does `operation`, which observes the part. If memory is out that is tried again later.
template <typename Operation>
void ValueFeeds::observe(Observed& observed, Clock::time_point now, Operation operation) noexcept {
  try {
    operation();
  } catch (const std::bad_alloc&) {
    unschedule(observed);
    retryAt_ = now + std::chrono::seconds(1);
  }
}

/// Determines how the part is observed, which may differ from the last time.
void ValueFeeds::schedule(Observed& observed, Clock::time_point now) {
  // A file has its events for the usual case. A rename of a directory further above gives none.
  constexpr auto recheckPeriod = std::chrono::seconds(10);
  std::string file = observed.feed->watchedFile();
  if (!file.empty() && !directories_.add(file)) {
    file.clear();
  }
  unschedule(observed);
  observed.watchedFile = std::move(file);
  const bool isWatched = !observed.watchedFile.empty();
  observed.deadline = isWatched ? now + recheckPeriod : observed.feed->next(now);
  due_.emplace(observed.deadline, &observed);
  if (isWatched) {
    byFile_.insert(&observed);
  }
}

void ValueFeeds::unschedule(Observed& observed) noexcept {
  due_.erase({observed.deadline, &observed});
  observed.deadline = notScheduled;
  if (!observed.watchedFile.empty()) {
    byFile_.erase(&observed);
    directories_.remove(observed.watchedFile);
    observed.watchedFile.clear();
  }
}

}  // namespace modelsrvd
