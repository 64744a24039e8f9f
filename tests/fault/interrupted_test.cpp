#include <sys/time.h>

#include <csignal>

#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

volatile std::sig_atomic_t drops = 0;

/// Timer signals that interrupt whatever this process waits in.
class SignalRain {
 public:
  static constexpr suseconds_t microseconds = 300;

  SignalRain() {
    drops = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { drops = drops + 1; };
    ::sigaction(SIGALRM, &action, &before_);
    const itimerval timer{{0, microseconds}, {0, microseconds}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  ~SignalRain() {
    const itimerval none{};
    ::setitimer(ITIMER_REAL, &none, nullptr);
    ::sigaction(SIGALRM, &before_, nullptr);
  }
  SignalRain(const SignalRain&) = delete;
  SignalRain& operator=(const SignalRain&) = delete;

 private:
  struct sigaction before_ {};
};

class InterruptedTest : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.ask("serve " + port), success());
    ASSERT_EQ(server_.ask("rain " + std::to_string(SignalRain::microseconds)), "ok");
  }

  Peer server_;
  SignalRain rain_;
};

TEST_F(InterruptedTest, ExchangesGoOnThroughSignalsOnBothSides) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  for (int i = 0; i < 2000 || drops < 100; ++i) {
    const std::string value = std::to_string(i);
    ASSERT_EQ(client.store(client.counter, value).result, ModelRes_Success);
    ASSERT_EQ(client.get(client.counter).text, value);
  }
}

TEST_F(InterruptedTest, LargeValuesArriveWholeThroughSignalsOnBothSides) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  const std::string value = patternText(4'000'000);
  for (int i = 0; i < 5 || drops < 50; ++i) {
    ASSERT_EQ(client.store(client.text, value).result, ModelRes_Success);
    ASSERT_TRUE(client.get(client.text).text == value);
  }
}

TEST_F(InterruptedTest, HandshakesGoOnThroughSignalsOnBothSides) {
  for (int i = 0; i < 100 || drops < 20; ++i) {
    Client client;
    ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  }
}

TEST_F(InterruptedTest, UpdatesArriveThroughSignalsOnBothSides) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
  for (unsigned i = 1; i <= 200; ++i) {
    const unsigned before = client.counter.updates();
    ASSERT_EQ(server_.ask("set " + std::to_string(i)), success());
    ASSERT_TRUE(client.pumpUntil([&] { return client.counter.updates() > before; }));
  }
}

TEST_F(InterruptedTest, TimeoutOfReceivingEventsIsKeptThroughSignals) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.manager.receiveEvent(2000), EvtSrv::EvtRes_Success) << "the started event";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client.manager.receiveEvent(100), EvtSrv::EvtRes_Timeout);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::milliseconds(99));
  EXPECT_LT(elapsed, std::chrono::milliseconds(2000));
  EXPECT_GT(drops, 0);
}

}  // namespace
}  // namespace fault
