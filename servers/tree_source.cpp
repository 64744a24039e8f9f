#include "servers/tree_source.h"

#include <functional>
#include <mutex>
#include <new>
#include <utility>

#include "servers/change_pacer.h"
#include "servers/description_parser.h"
#include "servers/files.h"
#include "servers/host_tree.h"
#include "servers/published_tree.h"
#include "servers/replay.h"
#include "servers/stored_values.h"
#include "servers/synthetic_tree.h"
#include "servers/value_feeds.h"

namespace modelsrvd {

std::optional<TreeSource::Clock::time_point> TreeSource::nextDeadline(
    Clock::time_point /*now*/) const {
  return std::nullopt;
}

void TreeSource::tick(Clock::time_point /*now*/) {}

std::optional<Error> TreeSource::takeError() {
  return std::nullopt;
}

void TreeSource::filesChanged(Clock::time_point /*now*/) {}

std::optional<Error> TreeSource::reload(StoredValues* /*stored*/) {
  return std::nullopt;
}

bool TreeSource::holdsValue(const ModelSrv::ModelPart& /*part*/) const {
  return true;
}

namespace {

class LiveSource final : public TreeSource {
 public:
  explicit LiveSource(std::uint32_t period) : tree_(period), sampler_(HostFiles()) {}

  [[nodiscard]] std::string name() const override { return "Model_host"; }

  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root) override {
    auto error = tree_.publish(root);
    tree_.update(sampler_.sample());
    last_ = Clock::now();
    return error;
  }

  // Counted from the last sample, so that a change of the period takes effect
  // immediately.
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline(
      Clock::time_point /*now*/) const override {
    return last_ + std::chrono::milliseconds(tree_.period());
  }

  void tick(Clock::time_point now) override {
    const auto period = std::chrono::milliseconds(tree_.period());
    const auto deadline = last_ + period;
    if (now < deadline) {
      return;
    }
    // Small delays do not add up; after a missed period the schedule restarts.
    last_ = now - deadline < period ? deadline : now;
    tree_.update(sampler_.sample());
  }

 private:
  HostTree tree_;
  HostSampler sampler_;
  Clock::time_point last_;
};

/// Calls `beforeEach`, if it is set, before each piece of the file is read.
Result<TreeDescription> readDescription(const std::string& path,
                                        const std::function<void()>& beforeEach = {}) {
  FileReader file(path, maxDescriptionBytes);
  auto description = parseTreeDescription([&] {
    if (beforeEach) {
      beforeEach();
    }
    return file.next();
  });
  // A read error also ends the text early; the parse error it causes is irrelevant.
  if (file.error()) {
    return Error{"--tree: " + file.error()->text};
  }
  if (const auto* error = std::get_if<Error>(&description)) {
    return Error{oneLine(path) + ": " + error->text};
  }
  return description;
}

class FileSource final : public TreeSource {
 public:
  FileSource(std::string path, TreeDescription description)
      : path_(std::move(path)),
        name_(description.name),
        tree_(std::make_unique<PublishedTree>(std::move(description))) {}

  [[nodiscard]] std::string name() const override { return name_; }

  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root) override {
    root_ = &root;
    tree_->supply(feeds_);
    return tree_->publish(root);
  }

  [[nodiscard]] std::optional<Clock::time_point> nextDeadline(
      Clock::time_point /*now*/) const override {
    return supplyAt_ ? supplyAt_ : feeds_.nextDeadline();
  }

  void tick(Clock::time_point now) override {
    if (const auto deadline = nextDeadline(now); deadline && *deadline <= now) {
      const std::lock_guard lock(root_->manager()->clientMutex);
      if (supplyAt_) {
        supply(now);
      }
      feeds_.tick(now);
    }
  }

  void filesChanged(Clock::time_point now) override {
    const std::lock_guard lock(root_->manager()->clientMutex);
    feeds_.takeFileChanges(now);
  }

  [[nodiscard]] bool holdsValue(const ModelSrv::ModelPart& part) const override {
    return !feeds_.supplies(part);
  }

  [[nodiscard]] std::optional<Error> reload(StoredValues* stored) override {
    try {
      // A large file takes long, and clients are served meanwhile. An error of the dispatch is
      // reported by the next one.
      auto result =
          readDescription(path_, [this] { static_cast<void>(root_->manager()->receiveEvent(0)); });
      if (auto* error = std::get_if<Error>(&result)) {
        return std::move(*error);
      }
      // Under the client mutex, so that clients see the old tree or the new one.
      const std::lock_guard lock(root_->manager()->clientMutex);
      PublishedTree::KeepsValue keepsValue;
      if (stored != nullptr) {
        stored->beginReload();
        keepsValue = [stored](ModelSrv::ModelPart& part) { return stored->keeps(part); };
      }
      // Parts that leave the tree are destroyed. Nothing throws until the feeds are back.
      feeds_.clear();
      std::optional<Error> error;
      const bool isComplete =
          replaceTree(std::move(std::get<TreeDescription>(result)), keepsValue, error);
      supply(Clock::now());
      if (stored != nullptr) {
        stored->endReload();
      }
      if (isComplete) {
        return error;
      }
    } catch (const std::bad_alloc&) {
      // As if the tree could not be replaced.
    }
    return Error{oneLine(path_) + ": out of memory"};
  }

 private:
  /// False if memory ran out.
  bool replaceTree(TreeDescription&& description, const PublishedTree::KeepsValue& keepsValue,
                   std::optional<Error>& error) {
    try {
      error = tree_->reload(std::move(description), keepsValue);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  /// Without memory for that it is tried again a second later.
  void supply(Clock::time_point now) {
    try {
      supplyAt_.reset();
      tree_->supply(feeds_);
    } catch (const std::bad_alloc&) {
      feeds_.clear();
      supplyAt_ = now + std::chrono::seconds(1);
    }
  }

  std::string path_;
  std::string name_;
  std::unique_ptr<PublishedTree> tree_;
  /// Declared after the tree: its parts outlive their feeds.
  ValueFeeds feeds_{Clock::now()};
  std::optional<Clock::time_point> supplyAt_;  ///< set while the parts have no feeds
  ModelSrv::ModelRoot* root_ = nullptr;
};

class ReplaySource final : public TreeSource {
 public:
  explicit ReplaySource(std::unique_ptr<Replay> replay) : replay_(std::move(replay)) {}

  [[nodiscard]] std::string name() const override { return replay_->name(); }
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root) override {
    return replay_->publish(root);
  }
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline(
      Clock::time_point now) const override {
    return replay_->nextDeadline(now);
  }
  void tick(Clock::time_point now) override { replay_->tick(now); }
  [[nodiscard]] std::optional<Error> takeError() override { return replay_->takeError(); }

 private:
  std::unique_ptr<Replay> replay_;
};

class SyntheticSource final : public TreeSource {
 public:
  SyntheticSource(SyntheticShape shape, std::uint32_t rate) : tree_(shape) {
    if (rate != 0) {
      pacer_.emplace(rate, Clock::now());
    }
  }

  [[nodiscard]] std::string name() const override { return "Model_synthetic"; }

  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root) override {
    return tree_.publish(root);
  }

  [[nodiscard]] std::optional<Clock::time_point> nextDeadline(
      Clock::time_point now) const override {
    if (!pacer_) {
      return std::nullopt;
    }
    return now + pacer_->wait(now);
  }

  void tick(Clock::time_point now) override {
    if (pacer_) {
      tree_.change(pacer_->take(now));
    }
  }

 private:
  SyntheticTree tree_;
  std::optional<ChangePacer> pacer_;
};

}  // namespace

Result<std::unique_ptr<TreeSource>> makeTreeSource(const Options& options) {
  if (options.synthetic) {
    return std::make_unique<SyntheticSource>(*options.synthetic, options.churn);
  }
  if (options.replay) {
    auto result = Replay::open(*options.replay, {options.speed.value_or(1), options.loop});
    if (auto* error = std::get_if<Error>(&result)) {
      return Error{"--replay: " + error->text};
    }
    return std::make_unique<ReplaySource>(std::move(std::get<std::unique_ptr<Replay>>(result)));
  }
  if (!options.tree) {
    return std::make_unique<LiveSource>(options.period);
  }
  auto result = readDescription(*options.tree);
  if (auto* error = std::get_if<Error>(&result)) {
    return std::move(*error);
  }
  return std::make_unique<FileSource>(*options.tree, std::move(std::get<TreeDescription>(result)));
}

}  // namespace modelsrvd
