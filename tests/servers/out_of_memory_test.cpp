#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>

#include "servers/signals.h"
#include "servers/tree_source.h"
#include "servers/value_feeds.h"
#include "tests/platform/modelsrv/failing_allocation.h"
#include "tests/servers/published_trees.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/proxy_part.h"
#include "tests/support/pump.h"
#include "tests/support/scratch_directory.h"

// Values in files after any single allocation of the server has failed.

namespace modelsrvd {
namespace {

using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes_Success;
using modelsrv_tests::forEachAllocation;
using modelsrv_tests::runWithFailure;
using Clock = ValueFeeds::Clock;

class OutOfMemory : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const {
    return scratch_.path() + '/' + name;
  }
  void write(const std::string& name, std::string_view text) const {
    std::ofstream file(path(name), std::ios::binary | std::ios::trunc);
    file << text;
  }
  /// A tree whose first part has its value in the file v.
  [[nodiscard]] std::string tree(const std::string& more) const {
    return R"({"children": [{"name": "v", "type": "int32", "file": ")" + path("v") + "\"}" + more +
           "]}";
  }

  test_support::ScratchDirectory scratch_;
};

TEST_F(OutOfMemory, DuringAReloadLeavesEachPartItsSource) {
  write("v", "5\n");
  forEachAllocation([this](int failing) {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
    ModelSrv::ModelRoot root(&manager);
    write("tree.json", tree(""));
    Options options;
    options.tree = path("tree.json");
    auto made = makeTreeSource(options);
    TreeSource& source = *std::get<std::unique_ptr<TreeSource>>(made);
    EXPECT_FALSE(source.publish(root));
    write("tree.json", tree(R"(, {"name": "w", "type": "double", "simulate": "sine"})"));
    std::optional<Error> error;
    const bool allocationFailed = runWithFailure(failing, [&] { error = source.reload(nullptr); });
    EXPECT_TRUE(allocationFailed || !error) << error->text;
    // What could not be done for lack of memory is done later.
    source.tick(Clock::now() + std::chrono::hours(1));
    std::ostringstream text;
    EXPECT_EQ(root.findChild(1)->save(text, ModelPartIndex_All), ModelRes_Success);
    EXPECT_EQ(text.str(), "5") << "allocation " << failing;
    EXPECT_FALSE(source.reload(nullptr));
    EXPECT_EQ(root.children().size(), 2U);
    return allocationFailed;
  });
}

/// A server that dispatches on the thread of the test, and a client.
class WatchedServer {
 public:
  explicit WatchedServer(std::string_view description) : tree_(describe(description)) {
    EXPECT_FALSE(tree_.publish(root_));
    tree_.supply(feeds_);
    const std::string name = test_support::uniquePortName();
    EXPECT_EQ(root_.startAsServer(name), ModelRes_Success);
    const test_support::Pump pump(manager_);
    EXPECT_EQ(clientRoot_.add(&part_), ModelRes_Success);
    EXPECT_EQ(clientRoot_.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop,
                                        EvtSrv::ConBehave_Default),
              ModelRes_Success);
  }
  ~WatchedServer() {
    clientRoot_.stop(true);
    root_.stop(true);
  }
  WatchedServer(const WatchedServer&) = delete;
  WatchedServer& operator=(const WatchedServer&) = delete;

  /// The client subscribes to the first part while an allocation of the server fails; again if it
  /// was refused.
  bool subscribeWithFailure(int failing) {
    std::atomic<bool> isDone{false};
    ModelSrv::ModelRes result = ModelRes_Success;
    std::thread client([&] {
      result = subscribe();
      isDone = true;
      manager_.wake();
    });
    const bool allocationFailed = runWithFailure(failing, [&] {
      while (!isDone) {
        static_cast<void>(manager_.receiveEvent(1));
      }
    });
    client.join();
    if (result != ModelRes_Success) {
      const test_support::Pump pump(manager_);
      EXPECT_EQ(subscribe(), ModelRes_Success);
    }
    return allocationFailed;
  }

  void observe() {
    const std::lock_guard lock(manager_.clientMutex);
    feeds_.takeFileChanges(Clock::now());
    feeds_.tick(Clock::now() + std::chrono::hours(1));
  }
  bool getsUpdate() {
    const test_support::Pump pump(manager_);
    const auto limit = Clock::now() + test_support::timeout;
    while (part_.updates.empty() && Clock::now() < limit) {
      static_cast<void>(client_.receiveEvent(100));
    }
    return !part_.updates.empty();
  }

 private:
  ModelSrv::ModelRes subscribe() {
    return part_.at({1}).subscribeToServer(&clientRoot_, 0, nullptr, ModelPartIndex_All);
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  Signals signals_{manager_};
  ModelSrv::ModelRoot root_{&manager_};
  PublishedTree tree_;
  ValueFeeds feeds_{Clock::now()};
  EvtSrv::EventPortManager client_{EvtSrv::ConBehave_Default, true};
  ModelSrv::ModelRoot clientRoot_{&client_};
  test_support::ProxyPart part_{clientRoot_};
};

TEST_F(OutOfMemory, DoesNotLeaveAWatchedPartUnobserved) {
  forEachAllocation([this](int failing) {
    write("v", "1\n");
    WatchedServer server(tree(""));
    const bool allocationFailed = server.subscribeWithFailure(failing);
    write("v", "2\n");
    server.observe();
    EXPECT_TRUE(server.getsUpdate()) << "allocation " << failing;
    return allocationFailed;
  });
}

}  // namespace
}  // namespace modelsrvd
