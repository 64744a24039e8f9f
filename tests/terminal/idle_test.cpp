#include <gtest/gtest.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "tests/terminal/terminal_test.h"

// A shell that waits for the user costs the device almost nothing.

namespace terminal_test {
namespace {

/// How often the threads of process `pid` have been switched out to wait so far.
long wakesOf(pid_t pid) {
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  long wakes = 0;
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      constexpr std::string_view name = "voluntary_ctxt_switches:";
      if (line.starts_with(name)) {
        wakes += std::stol(line.substr(name.size()));
      }
    }
  }
  return wakes;
}

void waitSeconds(int seconds) {
  const int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  itimerspec time{};
  time.it_value.tv_sec = seconds;
  pollfd waited{timer, POLLIN, 0};
  EXPECT_EQ(::timerfd_settime(timer, 0, &time, nullptr), 0);
  EXPECT_EQ(::poll(&waited, 1, -1), 1);
  ::close(timer);
}

class Idle : public TerminalTest {
 protected:
  void expectFewWakes() {
    constexpr int seconds = 2;
    constexpr long wakesPerSecond = 20;
    const auto begin = std::chrono::steady_clock::now();
    const long before = wakesOf(shell().pid());
    waitSeconds(seconds);
    const long wakes = wakesOf(shell().pid()) - before;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    RecordProperty("wakes_per_second", std::to_string(wakes / seconds));
    // What the test has done before may still wake a thread or two.
    constexpr double ofBefore = 4;
    EXPECT_LE(static_cast<double>(wakes), taken.count() * wakesPerSecond + ofBefore);
  }
};

TEST_F(Idle, WakesAtMostTwentyTimesASecondAtThePrompt) {
  start();
  expectFewWakes();
}

TEST_F(Idle, WakesAtMostTwentyTimesASecondWhileWatching) {
  ModelServer server = ModelServer::ofTree(driveTree);
  start();
  connect(server.name());
  ASSERT_TRUE(run("eu -r drive"));
  ASSERT_TRUE(type("half a line"));
  ASSERT_TRUE(shell().showsLine("[ " + server.name() + "]$ half a line|"));
  expectFewWakes();
}

}  // namespace
}  // namespace terminal_test
