#include "servers/tree_source.h"

#include <mutex>
#include <utility>

#include "servers/churn.h"
#include "servers/description_parser.h"
#include "servers/files.h"
#include "servers/host_tree.h"
#include "servers/published_tree.h"
#include "servers/synthetic_tree.h"

namespace modelsrvd {

std::optional<TreeSource::Clock::time_point> TreeSource::nextDeadline(
    Clock::time_point /*now*/) const {
  return std::nullopt;
}

void TreeSource::tick(Clock::time_point /*now*/) {}

std::optional<Failure> TreeSource::reload() {
  return std::nullopt;
}

namespace {

class LiveTree final : public TreeSource {
 public:
  explicit LiveTree(std::uint32_t period) : tree_(period), sampler_(HostFiles()) {}

  [[nodiscard]] std::string name() const override { return "Model_host"; }

  [[nodiscard]] std::optional<Failure> publish(ModelSrv::ModelRoot& root) override {
    auto failure = tree_.publish(root);
    tree_.show(sampler_.sample());
    last_ = Clock::now();
    return failure;
  }

  // The period counts from the last sample, so that a new one holds at once.
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline(
      Clock::time_point /*now*/) const override {
    return last_ + std::chrono::milliseconds(tree_.period());
  }

  void tick(Clock::time_point now) override {
    const auto planned = last_ + std::chrono::milliseconds(tree_.period());
    if (now < planned) {
      return;
    }
    // On the beat, unless a whole period was missed.
    last_ = now - planned < std::chrono::milliseconds(tree_.period()) ? planned : now;
    tree_.show(sampler_.sample());
  }

 private:
  HostTree tree_;
  HostSampler sampler_;
  Clock::time_point last_;
};

Outcome<TreeDescription> readDescription(const std::string& path) {
  FileReader file(path, longestDescription);
  auto description = parseTreeDescription([&file] { return file.next(); });
  // What the parser makes of the text's early end is no matter then.
  if (file.failure()) {
    return Failure{"--tree: " + file.failure()->text};
  }
  if (const auto* failure = std::get_if<Failure>(&description)) {
    return Failure{oneLine(path) + ": " + failure->text};
  }
  return description;
}

class FileTree final : public TreeSource {
 public:
  FileTree(std::string path, TreeDescription description)
      : path_(std::move(path)),
        name_(description.name),
        tree_(std::make_unique<PublishedTree>(std::move(description))) {}

  [[nodiscard]] std::string name() const override { return name_; }

  [[nodiscard]] std::optional<Failure> publish(ModelSrv::ModelRoot& root) override {
    root_ = &root;
    return tree_->publish(root);
  }

  [[nodiscard]] std::optional<Failure> reload() override {
    auto outcome = readDescription(path_);
    if (auto* failure = std::get_if<Failure>(&outcome)) {
      return std::move(*failure);
    }
    auto& description = std::get<TreeDescription>(outcome);
    // Clients see the old tree or the new one.
    const std::lock_guard lock(root_->manager()->clientMutex);
    if (tree_->takeValues(description)) {
      return std::nullopt;
    }
    auto next = std::make_unique<PublishedTree>(std::move(description));
    tree_.reset();
    tree_ = std::move(next);
    return tree_->publish(*root_);
  }

 private:
  std::string path_;
  std::string name_;
  std::unique_ptr<PublishedTree> tree_;
  ModelSrv::ModelRoot* root_ = nullptr;
};

class MeasuredTree final : public TreeSource {
 public:
  MeasuredTree(SyntheticShape shape, std::uint32_t rate) : tree_(shape) {
    if (rate != 0) {
      pacer_.emplace(rate, Clock::now());
    }
  }

  [[nodiscard]] std::string name() const override { return "Model_synthetic"; }

  [[nodiscard]] std::optional<Failure> publish(ModelSrv::ModelRoot& root) override {
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

Outcome<std::unique_ptr<TreeSource>> makeTreeSource(const Options& options) {
  if (options.synthetic) {
    return std::make_unique<MeasuredTree>(*options.synthetic, options.churn);
  }
  if (!options.tree) {
    return std::make_unique<LiveTree>(options.period);
  }
  auto outcome = readDescription(*options.tree);
  if (auto* failure = std::get_if<Failure>(&outcome)) {
    return std::move(*failure);
  }
  return std::make_unique<FileTree>(*options.tree, std::move(std::get<TreeDescription>(outcome)));
}

}  // namespace modelsrvd
