#include "term/key_input.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>

#include "tests/support/captured_output.h"
#include "tests/support/fed_input.h"
#include "tests/support/recorded_writes.h"

namespace treescope {
namespace {

using test_support::FedInput;
using testing::ElementsAre;

// Enough for a request to arrive before, during and between the reader's system calls.
constexpr int rounds = 200;

TEST(KeyInput, ReadsEveryByteAndThenTheEnd) {
  FedInput input;
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes.push_back(static_cast<char>(byte));
  }
  input.feed(bytes);
  input.end();
  for (int byte = 0; byte < 256; ++byte) {
    EXPECT_EQ(readKeyByte(), byte);
  }
  EXPECT_EQ(readKeyByte(), endOfKeys);
  EXPECT_EQ(readKeyByte(), endOfKeys);
}

TEST(KeyInput, LeavesTheRestOfTheInputUnread) {
  FedInput input;
  input.feed("key");
  EXPECT_EQ(readKeyByte(), 'k');
  std::array<char, 8> rest{};
  EXPECT_EQ(read(STDIN_FILENO, rest.data(), rest.size()), 2);
  EXPECT_STREQ(rest.data(), "ey");
}

TEST(KeyInput, AnInputThatCannotBeReadCountsAsEnded) {
  const FedInput input;
  const int directory = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(dup2(directory, STDIN_FILENO), STDIN_FILENO);
  close(directory);
  EXPECT_EQ(readKeyByte(), endOfKeys);
  close(STDIN_FILENO);
  EXPECT_EQ(readKeyByte(), endOfKeys);
  EXPECT_FALSE(keyWaiting());
}

TEST(KeyInput, WaitsForAnInputThatDoesNotBlock) {
  FedInput input;
  ASSERT_EQ(fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK), 0);
  std::thread typist([&input] { input.feed("k"); });
  EXPECT_EQ(readKeyByte(), 'k');
  typist.join();
}

TEST(KeyInput, ReportsWhetherAByteIsWaiting) {
  FedInput input;
  EXPECT_FALSE(keyWaiting());
  input.feed("k");
  EXPECT_TRUE(keyWaiting());
  EXPECT_EQ(readKeyByte(), 'k');
  EXPECT_FALSE(keyWaiting());
  input.end();
  EXPECT_FALSE(keyWaiting());
}

TEST(KeyInput, FlushesOutputBeforeItWaits) {
  FedInput input;
  test_support::RecordedWrites writes;
  std::fputs("echo", stdout);
  input.feed("k");
  EXPECT_EQ(readKeyByte(), 'k');
  std::fputs("more", stdout);
  EXPECT_THAT(writes.take(), ElementsAre("echo", "more"));
}

/// Waits for a byte, which only the repaint feeds: the wait has to continue after it.
int keyAfterRepaint(FedInput& input) {
  return readKeyByte([&input] { input.feed("r"); });
}

TEST(Repaint, ARequestBeforeTheWaitIsServed) {
  FedInput input;
  const RepaintRequests requests;
  requestRepaint();
  EXPECT_EQ(keyAfterRepaint(input), 'r');
}

TEST(Repaint, ARequestEndsTheWait) {
  FedInput input;
  const RepaintRequests requests;
  for (int round = 0; round < rounds; ++round) {
    std::thread requester([] { requestRepaint(); });
    EXPECT_EQ(keyAfterRepaint(input), 'r');
    requester.join();
  }
}

TEST(Repaint, ARequestFromASignalHandlerIsServed) {
  FedInput input;
  const RepaintRequests requests;
  struct sigaction requesting {};
  requesting.sa_handler = [](int) { requestRepaint(); };
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGCONT, &requesting, &before), 0);
  const pthread_t reader = pthread_self();
  for (int round = 0; round < rounds; ++round) {
    std::thread sender([reader] { pthread_kill(reader, SIGCONT); });
    EXPECT_EQ(keyAfterRepaint(input), 'r');
    sender.join();
  }
  EXPECT_EQ(sigaction(SIGCONT, &before, nullptr), 0);
}

TEST(Repaint, IsFlushedBeforeTheWaitContinues) {
  FedInput input;
  const RepaintRequests requests;
  test_support::RecordedWrites writes;
  requestRepaint();
  std::fputs("before", stdout);
  EXPECT_EQ(readKeyByte([&input] {
              std::fputs("again", stdout);
              input.feed("k");
            }),
            'k');
  std::fputs("after", stdout);
  EXPECT_THAT(writes.take(), ElementsAre("before", "again", "after"));
}

TEST(Repaint, ManyRequestsCauseOneRepaint) {
  FedInput input;
  const RepaintRequests requests;
  for (int count = 0; count < 3; ++count) {
    requestRepaint();
  }
  int repaints = 0;
  EXPECT_EQ(readKeyByte([&] {
              ++repaints;
              input.feed("k");
            }),
            'k');
  EXPECT_EQ(repaints, 1);
}

TEST(Repaint, IsNotPendingForTheNextReaderIfTheFirstHasNone) {
  FedInput input;
  const RepaintRequests requests;
  requestRepaint();
  input.feed("kl");
  EXPECT_EQ(readKeyByte(), 'k');
  EXPECT_EQ(readKeyByte([] { FAIL(); }), 'l');
}

TEST(Repaint, ARequestHasNoEffectIfRepaintsAreNotEnabled) {
  errno = ENOTTY;
  requestRepaint();
  { const RepaintRequests requests; }
  requestRepaint();
  EXPECT_EQ(errno, ENOTTY);
}

}  // namespace
}  // namespace treescope
