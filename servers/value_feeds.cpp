#include "servers/value_feeds.h"

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

/// What file and simulation feeds have in common: the connection to the part.
template <typename T>
class TypedFeed : public ValueFeed {
 public:
  TypedFeed(ValuePart<T>& part, std::shared_ptr<const EntryDetails> details)
      : part_(part), details_(std::move(details)) {
    part_.setGetter([this](T& value) { return get(value); });
  }
  ~TypedFeed() override { part_.setGetter({}); }
  TypedFeed(const TypedFeed&) = delete;
  TypedFeed& operator=(const TypedFeed&) = delete;

  Reading read() override {
    T value{};
    const ModelRes result = get(value);
    return {result, result == ModelRes_Success ? valueText(value) : std::string()};
  }
  void notify() override { part_.notifyChange(); }
  ModelPart& part() override { return part_; }

 protected:
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
  ~FileFeed() override { this->typedPart().setStoreCheck({}); }
  FileFeed(const FileFeed&) = delete;
  FileFeed& operator=(const FileFeed&) = delete;

  [[nodiscard]] std::optional<Clock::time_point> next(Clock::time_point now) const override {
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
    const Reading before = this->read();
    if (auto error = writeValueFile(spec().path, toFileText(value, spec()))) {
      reason = std::move(*error);
      return ModelSrv::ModelRes_Vetoed;
    }
    if (this->read() != before) {
      this->notify();
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

  [[nodiscard]] std::optional<Clock::time_point> next(Clock::time_point now) const override {
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

void ValueFeeds::add(ModelPart& part, EntryType type, std::shared_ptr<const EntryDetails> details) {
  if (details == nullptr || (!details->file && !details->simulation)) {
    return;
  }
  supplied_.insert(&part);
  auto& observed = *feeds_.emplace_back(std::make_unique<Observed>());
  observed.feed = visitValueType(type, [&]<typename T>() -> std::unique_ptr<ValueFeed> {
    auto& typed = static_cast<ValuePart<T>&>(part);
    if (details->file) {
      return std::make_unique<FileFeed<T>>(typed, details);
    }
    return std::make_unique<SimulatedFeed<T>>(typed, details, start_);
  });
  part.setWatchHandler([this, &observed](bool watched) { setWatched(observed, watched); });
  if (part.isWatched()) {
    setWatched(observed, true);
    const auto before = cleared_.find(&part);
    if (before == cleared_.end() || before->second != observed.last) {
      observed.feed->notify();
    }
  }
  cleared_.erase(&part);
}

void ValueFeeds::clear() {
  cleared_.clear();
  for (const auto& observed : feeds_) {
    ModelPart& part = observed->feed->part();
    if (observed->isWatched) {
      setWatched(*observed, false);
      cleared_[&part] = observed->last;
    }
    part.setWatchHandler({});
  }
  feeds_.clear();
  supplied_.clear();
}

std::optional<Clock::time_point> ValueFeeds::nextDeadline() const {
  return due_.empty() ? std::nullopt : std::optional(due_.begin()->first);
}

void ValueFeeds::tick(Clock::time_point now) {
  while (!due_.empty() && due_.begin()->first <= now) {
    refresh(*due_.begin()->second, now);
  }
}

void ValueFeeds::takeFileChanges(Clock::time_point now) {
  for (const std::string& path : directories_.take()) {
    std::vector<Observed*> changed;
    const bool isDirectory = path.ends_with('/');
    for (auto at = byFile_.lower_bound(path); at != byFile_.end(); ++at) {
      if (isDirectory ? !at->first.starts_with(path) : at->first != path) {
        break;
      }
      changed.push_back(at->second);
    }
    for (Observed* const observed : changed) {
      refresh(*observed, now);
    }
  }
}

void ValueFeeds::setWatched(Observed& observed, bool watched) {
  if (observed.isWatched == watched) {
    return;
  }
  observed.isWatched = watched;
  if (watched) {
    schedule(observed, Clock::now());
    // After that, so that no change is missed between both.
    observed.last = observed.feed->read();
  } else {
    unschedule(observed);
  }
}

void ValueFeeds::refresh(Observed& observed, Clock::time_point now) {
  if (!directories_.isWatching(observed.watchedFile)) {
    unschedule(observed);
    schedule(observed, now);
  }
  Reading reading = observed.feed->read();
  if (reading != observed.last) {
    observed.last = std::move(reading);
    observed.feed->notify();
  }
}

void ValueFeeds::schedule(Observed& observed, Clock::time_point now) {
  const std::string file = observed.feed->watchedFile();
  if (!file.empty() && directories_.add(file)) {
    observed.watchedFile = file;
    byFile_.emplace(file, &observed);
    return;
  }
  if (const auto next = observed.feed->next(now)) {
    observed.deadline = *next;
    due_.emplace(observed.deadline, &observed);
  }
}

void ValueFeeds::unschedule(Observed& observed) {
  due_.erase({observed.deadline, &observed});
  observed.deadline = Clock::time_point::max();
  const auto [begin, end] = byFile_.equal_range(observed.watchedFile);
  for (auto at = begin; at != end; ++at) {
    if (at->second == &observed) {
      byFile_.erase(at);
      directories_.remove(observed.watchedFile);
      observed.watchedFile.clear();
      return;
    }
  }
}

}  // namespace modelsrvd
