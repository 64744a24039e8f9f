// As many servers as a device may export, and one more.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gateway/wire/limits.h"
#include "modelsrv/model_root.h"
#include "tests/gateway/exporter/exporter_fixture.h"
#include "tests/gateway/own_tmp.h"
#include "tests/support/port_name.h"

namespace {

using gateway_test::runFor;
using modelgate::EventLoop;
using test_support::ModelServer;
using namespace std::chrono_literals;

/// Empty servers of this process.
class ManyServers {
 public:
  explicit ManyServers(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      roots_.push_back(std::make_unique<ModelSrv::ModelRoot>(&manager_));
      names_.push_back(test_support::uniquePortName());
      EXPECT_EQ(roots_.back()->startAsServer(names_.back()), ModelSrv::ModelRes_Success);
    }
    thread_ = std::thread([this] {
      while (!isStopping_) {
        static_cast<void>(manager_.receiveEvent(10));
      }
    });
  }
  ~ManyServers() {
    isStopping_ = true;
    thread_.join();
  }
  ManyServers(const ManyServers&) = delete;
  ManyServers& operator=(const ManyServers&) = delete;

  [[nodiscard]] const std::vector<std::string>& names() const { return names_; }

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  std::vector<std::unique_ptr<ModelSrv::ModelRoot>> roots_;
  std::vector<std::string> names_;
  std::atomic<bool> isStopping_{false};
  std::thread thread_;
};

/// The time that the calling thread has run, or could have run if the machine was less busy.
std::chrono::nanoseconds runnableTime() {
  std::ifstream statistics("/proc/thread-self/schedstat");
  std::int64_t ran = 0;
  std::int64_t waited = 0;
  statistics >> ran >> waited;
  return std::chrono::nanoseconds(ran + waited);
}

/// The longest time that a loop's thread was blocked between two turns.
class LongestTurn {
 public:
  explicit LongestTurn(EventLoop& loop) : loop_(loop) { tick(); }
  [[nodiscard]] EventLoop::Clock::duration value() const { return longest_; }

 private:
  void tick() {
    const auto now = EventLoop::Clock::now();
    const auto runnable = runnableTime();
    longest_ = std::max(longest_, now - last_ - (runnable - runnable_));
    last_ = now;
    runnable_ = runnable;
    timer_ = loop_.after(5ms, [this] { tick(); });
  }

  EventLoop& loop_;
  EventLoop::Clock::time_point last_ = EventLoop::Clock::now();
  std::chrono::nanoseconds runnable_ = runnableTime();
  EventLoop::Clock::duration longest_{};
  EventLoop::Timer timer_;
};

/// Has a /tmp of its own: so many names disturb tests that list the servers of the machine.
class ManyServersExport : private gateway_test::OwnTmp, public gateway_test::ExporterTest {
 protected:
  void SetUp() override {
    if (!isOwn) {
      GTEST_SKIP() << "only root can mount a /tmp of its own";
    }
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  }
};

TEST_F(ManyServersExport, AServerThatHasToGoKeepsNothingWaiting) {
  ModelServer stopped;
  stopped.hang();
  const ManyServers others(modelgate::maxServers - 1);
  const std::string later = test_support::uniquePortName();
  std::vector<std::string> names = others.names();
  names.insert(names.end(), {stopped.name(), later});
  startReady(names);
  ASSERT_TRUE(until([&] { return state()->servers.size() == modelgate::maxServers - 1; }));
  // Its thread begins to wait for the stopped server again when a mailbox is made.
  const std::string mailbox = test_support::mailboxPath(test_support::uniquePortName());
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  runFor(loop, 200ms);
  EXPECT_EQ(::unlink(mailbox.c_str()), 0);
  const LongestTurn longest(loop);
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  ASSERT_EQ(root.startAsServer(later), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] {
    static_cast<void>(manager.receiveEvent(0));
    return state()->servers.count(nameOf(later)) == 1;
  }));
  EXPECT_LT(longest.value(), 1500ms);
  stopped.resume();
}

}  // namespace
