#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "modelsrv/watch.h"
#include "servers/signals.h"
#include "servers/value_feeds.h"
#include "tests/servers/published_trees.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/pump.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/tree_client.h"

namespace modelsrvd {

/// A described tree that this process serves, and a client that watches all of it and counts the
/// changes. The files are in a scratch directory. The test decides when the server observes them.
class ObservedValues : public PublishedTrees {
 protected:
  using Clock = ValueFeeds::Clock;

  ~ObservedValues() override {
    watch_ = ModelSrv::Watch();
    clientRoot_.stop(true);
    pump_.reset();
    root_.stop(true);
  }

  [[nodiscard]] std::string path(const std::string& name) const {
    return scratch_.path() + '/' + name;
  }
  void write(const std::string& name, std::string_view text) const {
    std::ofstream file(path(name), std::ios::binary | std::ios::trunc);
    file << text;
  }
  /// An entry whose value is an integer in a file.
  [[nodiscard]] std::string entry(const std::string& file, const std::string& more = "") const {
    return R"({"type": "int32", "file": ")" + path(file) + '"' + more + '}';
  }

  /// Serves the entries, with the ids 1, 2 …
  void serve(const std::string& entries) {
    publish(describe(withFence(entries)));
    tree_->supply(feeds_);
    ASSERT_EQ(root_.startAsServer(name_), ModelSrv::ModelRes_Success);
    pump_.emplace(manager_);
    ASSERT_EQ(clientRoot_.startAsClient(name_, ModelSrv::ModelRoot::CachePeriod_Stop,
                                        EvtSrv::ConBehave_Default),
              ModelSrv::ModelRes_Success);
    ModelSrv::WatchOptions options;
    options.subtree = true;
    ASSERT_EQ(watch_.start(clientRoot_, {}, options, [this](const auto& event) { note(event); }),
              ModelSrv::ModelRes_Success);
    ASSERT_TRUE(pumpUntil([this] { return isComplete_; }));
  }
  /// Serves other entries instead.
  void reload(const std::string& entries) {
    const std::lock_guard lock(manager_.clientMutex);
    feeds_.clear();
    EXPECT_FALSE(tree_->reload(describe(withFence(entries))));
    tree_->supply(feeds_);
  }

  void tick(Clock::time_point now) {
    const std::lock_guard lock(manager_.clientMutex);
    feeds_.tick(now);
  }
  void takeFileChanges(Clock::time_point now) {
    const std::lock_guard lock(manager_.clientMutex);
    feeds_.takeFileChanges(now);
  }
  /// Whether something is to be done at that time.
  bool isDue(Clock::time_point now) {
    const std::lock_guard lock(manager_.clientMutex);
    const auto deadline = feeds_.nextDeadline();
    return deadline && *deadline <= now;
  }
  /// Does what is due then.
  void tickAll(Clock::time_point now) {
    while (isDue(now)) {
      tick(now);
    }
  }
  /// The same after file changes.
  void observe() {
    takeFileChanges(start_);
    tickAll(start_);
  }

  /// How many changes of the part with that id the client has got.
  unsigned changes(ModelSrv::ModelPartId id) {
    receiveAll();
    return changes_[id];
  }
  /// The value that the client has got last.
  const std::string& text(ModelSrv::ModelPartId id) {
    receiveAll();
    return texts_[id];
  }

  /// Before the deadlines of everything that is served from now on.
  const Clock::time_point start_ = Clock::now();
  const std::string name_ = test_support::uniquePortName();
  test_support::ScratchDirectory scratch_;
  Signals signals_{manager_};
  ValueFeeds feeds_{start_};

 private:
  static constexpr ModelSrv::ModelPartId fenceId = 60000;

  static std::string withFence(const std::string& entries) {
    return R"({"children": [)" + entries + (entries.empty() ? "" : ", ") + R"({"id": )" +
           std::to_string(fenceId) + R"(, "type": "text", "value": ""}]})";
  }
  void note(const ModelSrv::WatchEvent& event) {
    using Kind = ModelSrv::WatchEvent::Kind;
    isComplete_ = isComplete_ || event.kind == Kind::complete;
    if (event.kind == Kind::value) {
      changes_[event.chain.back()] += event.changes;
      texts_[event.chain.back()] = event.text;
    }
  }
  template <typename Done>
  bool pumpUntil(Done done) {
    const auto limit = Clock::now() + test_support::timeout;
    while (!done() && Clock::now() < limit) {
      static_cast<void>(client_.receiveEvent(100));
    }
    return done();
  }
  /// Events arrive in the order of the changes, so a last change comes after all others.
  void receiveAll() {
    const std::string last = std::to_string(++fences_);
    auto& fence = dynamic_cast<ModelSrv::ValuePart<std::string>&>(*root_.findChild(fenceId));
    EXPECT_EQ(fence.setValue(last), ModelSrv::ModelRes_Success);
    EXPECT_TRUE(pumpUntil([&] { return texts_[fenceId] == last; }));
  }

  std::optional<test_support::Pump> pump_;
  EvtSrv::EventPortManager client_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot clientRoot_{&client_};
  ModelSrv::Watch watch_;
  bool isComplete_ = false;
  unsigned fences_ = 0;
  std::map<ModelSrv::ModelPartId, unsigned> changes_;
  std::map<ModelSrv::ModelPartId, std::string> texts_;
};

}  // namespace modelsrvd
