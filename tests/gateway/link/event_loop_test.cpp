#include "gateway/link/event_loop.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/support/descriptor.h"
#include "tests/support/process.h"

namespace {

using modelgate::EventLoop;
using namespace std::chrono_literals;

EventLoop::Clock::time_point limit() {
  return EventLoop::Clock::now() + test_support::timeout;
}

test_support::Descriptor readyDescriptor() {
  return test_support::Descriptor(::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK));
}

TEST(GatewayEventLoop, CallsTimersInTheOrderOfTheirTimes) {
  EventLoop loop;
  std::string called;
  const auto now = EventLoop::Clock::now();
  const auto second = loop.at(now + 2ms, [&] { called += "2"; });
  const auto first = loop.at(now + 1ms, [&] { called += "1"; });
  const auto third = loop.at(now + 3ms, [&] {
    called += "3";
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(called, "123");
  EXPECT_GE(EventLoop::Clock::now(), now + 3ms);
}

TEST(GatewayEventLoop, CallsNoTimerThatWasDestroyedOrReplaced) {
  EventLoop loop;
  std::string called;
  {
    const auto destroyed = loop.after(0ms, [&] { called += "destroyed"; });
  }
  auto replaced = loop.after(0ms, [&] { called += "replaced"; });
  replaced = loop.after(0ms, [&] { called += "new"; });
  auto moved = loop.after(0ms, [&] { called += ",moved"; });
  const auto last = std::move(moved);
  moved = {};
  loop.runOnce(limit());
  EXPECT_EQ(called, "new,moved");
}

TEST(GatewayEventLoop, LetsATimerEndItselfInItsHandler) {
  EventLoop loop;
  int called = 0;
  std::optional<EventLoop::Timer> timer;
  const std::string held(100, 'x');
  timer = loop.after(0ms, [&, held] {
    timer.reset();
    called += static_cast<int>(held.size());
  });
  loop.runOnce(limit());
  EXPECT_EQ(called, 100);
}

TEST(GatewayEventLoop, LetsATimerOutliveTheLoop) {
  EventLoop::Timer timer;
  {
    EventLoop loop;
    timer = loop.after(1h, [] {});
  }
  timer = {};
}

TEST(GatewayEventLoop, DoesNotStarveDescriptorsForTimersThatAreAlwaysDue) {
  EventLoop loop;
  const auto descriptor = readyDescriptor();
  bool called = false;
  EventLoop::Timer timer;
  const auto past = EventLoop::Clock::now() - 1s;
  std::function<void()> again = [&] { timer = loop.at(past, again); };
  again();
  loop.watch(descriptor.get(), POLLIN, [&] {
    called = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(called);
  loop.unwatch(descriptor.get());
}

TEST(GatewayEventLoop, CallsAHandlerAsLongAsItsDescriptorIsReady) {
  EventLoop loop;
  const auto descriptor = readyDescriptor();
  int called = 0;
  loop.watch(descriptor.get(), POLLIN, [&] { ++called; });
  loop.runOnce(limit());
  loop.runOnce(limit());
  EXPECT_EQ(called, 2);
  loop.watch(descriptor.get(), 0, [&] { ++called; });
  loop.runOnce(EventLoop::Clock::now());
  EXPECT_EQ(called, 2);
  loop.unwatch(descriptor.get());
}

TEST(GatewayEventLoop, CallsNoHandlerThatOneBeforeItHasRemoved) {
  EventLoop loop;
  const auto one = readyDescriptor();
  const auto other = readyDescriptor();
  int called = 0;
  const auto handler = [&] {
    ++called;
    loop.unwatch(one.get());
    loop.unwatch(other.get());
  };
  loop.watch(one.get(), POLLIN, handler);
  loop.watch(other.get(), POLLIN, handler);
  loop.runOnce(limit());
  EXPECT_EQ(called, 1);
}

TEST(GatewayEventLoop, RefusesADescriptorThatCannotBeAwaited) {
  EventLoop loop;
  EXPECT_THROW(loop.watch(-1, POLLIN, [] {}), std::system_error);
  loop.unwatch(-1);
}

TEST(GatewayEventLoop, CallsWhatOtherThreadsPost) {
  EventLoop loop;
  int sum = 0;
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] {
      for (int count = 0; count < 1000; ++count) {
        loop.post([&] {
          if (++sum == 4000) {
            loop.stop();
          }
        });
      }
    });
  }
  loop.run();
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sum, 4000);
}

TEST(GatewayEventLoop, EndsAtOnceIfItWasStoppedBefore) {
  EventLoop loop;
  std::thread([&] { loop.stop(); }).join();
  loop.run();
}

}  // namespace
