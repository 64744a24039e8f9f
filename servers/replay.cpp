#include "servers/replay.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace modelsrvd {

namespace {

// What one call of `tick` does at most. A change takes some microseconds.
constexpr int changesPerTick = 200;
constexpr std::size_t bytesPerTick = std::size_t{64} * 1024;

/// A recording that begins again takes at least that long, whatever the speed.
constexpr std::chrono::milliseconds minLoop{10};

}  // namespace

Error Replay::errorAtLine(const Error& error) const {
  return {oneLine(path_) + ": line " + std::to_string(file_.line()) + ": " + error.text};
}

Result<std::unique_ptr<Replay>> Replay::open(const std::string& path, Pace pace) {
  std::unique_ptr<Replay> replay(new Replay(path, pace));
  if (auto error = replay->check()) {
    return std::move(*error);
  }
  return replay;
}

/// Applies the whole recording to a tree that no client sees.
std::optional<Error> Replay::check() {
  const auto line = file_.next();
  if (!line) {
    return file_.error() ? file_.error()
                         : Error{oneLine(path_) + ": line 1: expected the header of a recording"};
  }
  auto header = parseRecordingHeader(*line);
  if (const auto* error = std::get_if<Error>(&header)) {
    return errorAtLine(*error);
  }
  header_ = std::move(std::get<RecordingHeader>(header));
  ModelSrv::ModelNode top;
  ReplayedTree tree(top, header_, false);
  if (const auto error = tree.begin()) {
    return errorAtLine(*error);
  }
  for (;;) {
    if (auto error = readNext()) {
      return error;
    }
    if (!next_) {
      break;
    }
    if (const auto error = tree.apply(*next_)) {
      return errorAtLine(*error);
    }
  }
  const auto servers = tree.servers();
  isOfOneServer_ = servers.size() == 1 || !header_.server.empty();
  name_ = !header_.server.empty() ? header_.server : isOfOneServer_ ? *servers.begin() : "";
  return std::nullopt;
}

/// Reads a change into `next_`; nothing is there at the end.
std::optional<Error> Replay::readNext() {
  next_.reset();
  const auto line = file_.next();
  if (!line) {
    return file_.error();
  }
  auto change = parseRecordedChange(*line);
  if (const auto* error = std::get_if<Error>(&change)) {
    return errorAtLine(*error);
  }
  nextBytes_ = line->size();
  next_ = std::move(std::get<RecordedChange>(change));
  isBeginning_ = isBeginning_ && next_->event == RecordedChange::Event::value && !next_->isChange;
  if (!isBeginning_) {
    // A clock that was set back stops nothing.
    offset_ = std::max(offset_, next_->time - header_.start);
  }
  return std::nullopt;
}

std::optional<Error> Replay::begin() {
  file_.rewind();
  isBeginning_ = true;
  offset_ = 0;
  if (auto error = tree_->begin()) {
    return errorAtLine(*error);
  }
  return readNext();
}

std::optional<Error> Replay::publish(ModelSrv::ModelRoot& root) {
  root_ = &root;
  tree_.emplace(root, header_, isOfOneServer_);
  auto error = begin();
  while (!error && next_ && isBeginning_) {
    error = tree_->apply(*next_);
    error = error ? errorAtLine(*error) : readNext();
  }
  return error;
}

/// When the next change is due, or after the last one the end.
Replay::Clock::time_point Replay::due() const {
  // No program waits longer than a century, and the clock counts that far.
  constexpr double longest = 3.15e15;
  const std::chrono::duration<double, std::micro> after(
      std::min(static_cast<double>(offset_) / pace_.speed, longest));
  const auto due = *begin_ + std::chrono::duration_cast<Clock::duration>(after);
  return next_ ? due : std::max(due, *begin_ + Clock::duration(minLoop));
}

std::optional<Replay::Clock::time_point> Replay::nextDeadline(Clock::time_point now) const {
  if (isFinished_) {
    return std::nullopt;
  }
  return begin_ ? due() : now;
}

void Replay::end(std::optional<Error> error) {
  isFinished_ = true;
  if (error) {
    error_ = Error{"replay: " + error->text};
  }
}

/// Applies the next change, or begins again.
void Replay::step(Clock::time_point now, std::size_t& bytes) {
  std::optional<Error> error;
  if (next_) {
    bytes += nextBytes_;
    error = tree_->apply(*next_);
    error = error ? errorAtLine(*error) : readNext();
  } else if (pace_.loops && offset_ > 0) {
    // After a delay it does not hurry.
    begin_ = now;
    error = begin();
  } else {
    isFinished_ = true;
  }
  if (error) {
    end(std::move(error));
  }
}

void Replay::tick(Clock::time_point now) {
  if (!begin_) {
    begin_ = now;
  }
  if (isFinished_ || now < due()) {
    return;
  }
  const std::lock_guard lock(root_->manager()->clientMutex);
  try {
    std::size_t bytes = 0;
    for (int i = 0; i < changesPerTick && bytes < bytesPerTick && !isFinished_ && due() <= now;
         ++i) {
      step(now, bytes);
    }
  } catch (const std::bad_alloc&) {
    end(Error{"out of memory"});
  }
}

}  // namespace modelsrvd
