#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "modelsrv/watch.h"
#include "servers/signals.h"
#include "servers/value_feeds.h"
#include "tests/servers/published_trees.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

// What the server does when a client begins to watch very many values of files.

namespace modelsrvd {
namespace {

using namespace ModelSrv;

/// The processor time of this thread, which other programs do not lengthen.
std::chrono::nanoseconds processorTime() {
  timespec now{};
  EXPECT_EQ(::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now), 0);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

/// Watches everything at the port until each value has been reported.
void watchOnce(const std::string& name) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelRoot root(&manager);
  EXPECT_EQ(root.startAsClient(name, ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Default),
            ModelRes_Success);
  bool isComplete = false;
  WatchOptions options;
  options.subtree = true;
  Watch watch;
  EXPECT_EQ(watch.start(root, {}, options,
                        [&](const WatchEvent& event) {
                          isComplete = event.kind == WatchEvent::Kind::complete;
                        }),
            ModelRes_Success);
  while (!isComplete &&
         manager.receiveEvent(test_support::timeoutMilliseconds) == EvtSrv::EvtRes_Success) {
  }
  EXPECT_TRUE(isComplete);
}

TEST_F(PublishedTrees, ReadManyFilesForAWatchInDispatchesOfBoundedTime) {
  constexpr unsigned count = 5000;
  test_support::ScratchDirectory scratch;
  const std::string file = scratch.write("value", "1\n");
  std::string entries;
  for (unsigned i = 0; i < count; ++i) {
    entries += (i == 0 ? "" : ", ") + (R"({"type": "int32", "file": ")" + file + "\"}");
  }
  publish(describe(R"({"children": [)" + entries + "]}"));
  // The feeds' signal.
  const Signals signals(manager_);
  ValueFeeds feeds{ValueFeeds::Clock::now()};
  tree_->supply(feeds);
  const std::string name = test_support::uniquePortName();
  ASSERT_EQ(root_.startAsServer(name), ModelRes_Success);
  std::atomic<bool> done{false};
  std::thread client([&] {
    watchOnce(name);
    done = true;
    manager_.wake();
  });
  // All of them together take more than a hundred milliseconds.
  std::chrono::nanoseconds longest{0};
  while (!done) {
    const auto begin = processorTime();
    static_cast<void>(manager_.receiveEvent(-1));
    longest = std::max(longest, processorTime() - begin);
  }
  client.join();
  EXPECT_LT(longest, std::chrono::milliseconds(20));
  root_.stop(true);
  feeds.clear();
}

}  // namespace
}  // namespace modelsrvd
