#include "evtsrv/source/reactor.h"

#include <array>
#include <utility>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

class EpollCountingSystem : public PosixSystem {
 public:
  int epollCtl(int epoll, int operation, int descriptor, std::uint32_t interest,
               std::uint64_t token) override {
    ++changes;
    return PosixSystem::epollCtl(epoll, operation, descriptor, interest, token);
  }

  int changes = 0;
};

class CountingHandler : public ReadyHandler {
 public:
  bool ready(unsigned role, std::uint32_t events) override {
    lastRole = role;
    lastEvents = events;
    ++count;
    return true;
  }

  unsigned lastRole = 0;
  std::uint32_t lastEvents = 0;
  int count = 0;
};

/// A reactor and a pipe whose ends it waits for.
class Reactors : public testing::Test {
 protected:
  Reactors() {
    EXPECT_EQ(reactor_.open(), 0);
    EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
  }
  ~Reactors() override {
    for (const int end : ends_) {
      ::close(end);
    }
  }

  /// Dispatches the ends that are ready and returns their number.
  int dispatchAll() {
    std::array<epoll_event, 4> events{};
    const int count = reactor_.wait(events, 0);
    for (int i = 0; i < count; ++i) {
      EXPECT_TRUE(reactor_.dispatch(events.at(static_cast<std::size_t>(i))));
    }
    return count;
  }
  [[nodiscard]] int readEnd() const { return ends_[0]; }
  [[nodiscard]] int writeEnd() const { return ends_[1]; }
  void fill() { EXPECT_EQ(::write(writeEnd(), "x", 1), 1); }

  EpollCountingSystem system_;
  CountingHandler handler_;
  KSTD::KThreadMutex mutex_;
  std::lock_guard<KSTD::KThreadMutex> lock_{mutex_};
  Reactor reactor_{system_, mutex_};
  std::array<int, 2> ends_{-1, -1};
};

TEST_F(Reactors, ReportsTheRoleAndTheEventsOfAReadyDescriptor) {
  Registration registration;
  ASSERT_EQ(reactor_.add(readEnd(), EPOLLIN, handler_, 7, registration), 0);
  EXPECT_EQ(dispatchAll(), 0);
  fill();
  EXPECT_EQ(dispatchAll(), 1);
  EXPECT_EQ(handler_.lastRole, 7U);
  EXPECT_EQ(handler_.lastEvents, static_cast<std::uint32_t>(EPOLLIN));
}

TEST_F(Reactors, MakesASystemCallOnlyIfTheInterestChanges) {
  Registration registration;
  ASSERT_EQ(reactor_.add(writeEnd(), EPOLLOUT, handler_, 0, registration), 0);
  const int before = system_.changes;
  EXPECT_EQ(registration.setInterest(EPOLLOUT), 0);
  EXPECT_EQ(system_.changes, before);
  EXPECT_EQ(dispatchAll(), 1);
  EXPECT_EQ(registration.setInterest(0), 0);
  EXPECT_EQ(dispatchAll(), 0);
  EXPECT_EQ(registration.setInterest(0), 0);
  EXPECT_EQ(system_.changes, before + 1);
  EXPECT_EQ(registration.setInterest(EPOLLOUT), 0);
  EXPECT_EQ(dispatchAll(), 1);
}

TEST_F(Reactors, KeepsTheInterestOfAMovedRegistration) {
  Registration first;
  ASSERT_EQ(reactor_.add(writeEnd(), EPOLLOUT, handler_, 0, first), 0);
  Registration second(std::move(first));
  EXPECT_EQ(second.setInterest(0), 0);
  EXPECT_EQ(dispatchAll(), 0);
  Registration third;
  third = std::move(second);
  EXPECT_EQ(third.setInterest(EPOLLOUT), 0);
  EXPECT_EQ(dispatchAll(), 1);
  const int before = system_.changes;
  Registration fourth(std::move(third));
  EXPECT_EQ(fourth.setInterest(EPOLLOUT), 0);
  Registration fifth;
  fifth = std::move(fourth);
  EXPECT_EQ(fifth.setInterest(EPOLLOUT), 0);
  EXPECT_EQ(system_.changes, before);
  EXPECT_EQ(dispatchAll(), 1);
}

TEST_F(Reactors, RejectsAnInterestWithoutARegistration) {
  Registration registration;
  EXPECT_EQ(registration.setInterest(0), -ENOENT);
  ASSERT_EQ(reactor_.add(readEnd(), EPOLLIN, handler_, 0, registration), 0);
  registration.end();
  EXPECT_EQ(registration.setInterest(EPOLLIN), -ENOENT);
  fill();
  EXPECT_EQ(dispatchAll(), 0);
}

TEST_F(Reactors, DropsAnEventFromBeforeTheEndOfTheRegistration) {
  Registration registration;
  ASSERT_EQ(reactor_.add(readEnd(), EPOLLIN, handler_, 0, registration), 0);
  fill();
  std::array<epoll_event, 1> events{};
  ASSERT_EQ(reactor_.wait(events, 0), 1);
  registration.end();
  CountingHandler later;
  ASSERT_EQ(reactor_.add(readEnd(), EPOLLIN, later, 0, registration), 0);
  EXPECT_FALSE(reactor_.dispatch(events[0]));
  EXPECT_EQ(handler_.count + later.count, 0);
  EXPECT_EQ(dispatchAll(), 1);
  EXPECT_EQ(later.count, 1);
}

}  // namespace
}  // namespace EvtSrv::internal
