#include <sys/time.h>

#include <csignal>

#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

volatile std::sig_atomic_t signalCount = 0;

/// Interrupts the system calls of this process by timer signals.
class TimerSignals {
 public:
  static constexpr suseconds_t microseconds = 300;

  TimerSignals() {
    signalCount = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { signalCount = signalCount + 1; };
    ::sigaction(SIGALRM, &action, &before_);
    const itimerval timer{{0, microseconds}, {0, microseconds}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  ~TimerSignals() {
    const itimerval none{};
    ::setitimer(ITIMER_REAL, &none, nullptr);
    ::sigaction(SIGALRM, &before_, nullptr);
  }
  TimerSignals(const TimerSignals&) = delete;
  TimerSignals& operator=(const TimerSignals&) = delete;

 private:
  struct sigaction before_ {};
};

class InterruptedCalls : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.execute("serve " + port), success());
    ASSERT_EQ(server_.execute("interrupt " + std::to_string(TimerSignals::microseconds)), "ok");
  }

  Peer server_;
  TimerSignals signals_;
};

TEST_F(InterruptedCalls, ExchangesSucceedDespiteSignalsOnBothSides) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  for (int i = 0; i < 2000 || signalCount < 100; ++i) {
    const std::string value = std::to_string(i);
    ASSERT_EQ(client.store(client.counter, value).result, ModelRes_Success);
    ASSERT_EQ(client.get(client.counter).text, value);
  }
}

TEST_F(InterruptedCalls, LargeValuesArriveCompleteDespiteSignalsOnBothSides) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  const std::string value = patternText(4'000'000);
  for (int i = 0; i < 5 || signalCount < 50; ++i) {
    ASSERT_EQ(client.store(client.text, value).result, ModelRes_Success);
    ASSERT_TRUE(client.get(client.text).text == value);
  }
}

TEST_F(InterruptedCalls, HandshakesSucceedDespiteSignalsOnBothSides) {
  for (int i = 0; i < 100 || signalCount < 20; ++i) {
    Client client;
    ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  }
}

TEST_F(InterruptedCalls, UpdatesArriveDespiteSignalsOnBothSides) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success);
  for (unsigned i = 1; i <= 200; ++i) {
    const unsigned before = client.counter.updates();
    ASSERT_EQ(server_.execute("set " + std::to_string(i)), success());
    ASSERT_TRUE(client.pumpUntil([&] { return client.counter.updates() > before; }));
  }
}

TEST_F(InterruptedCalls, TimeoutOfReceivingEventsIsKeptDespiteSignals) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  ASSERT_EQ(client.manager.receiveEvent(2000), EvtSrv::EvtRes_Success) << "the started event";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client.manager.receiveEvent(100), EvtSrv::EvtRes_Timeout);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::milliseconds(99));
  EXPECT_LT(elapsed, std::chrono::milliseconds(2000));
  EXPECT_GT(signalCount, 0);
}

}  // namespace
}  // namespace fault
