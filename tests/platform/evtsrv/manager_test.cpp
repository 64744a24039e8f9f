#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "evtsrv/event_port.h"
#include "evtsrv/event_port_manager.h"
#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv {
namespace {

TEST(EventPortManager, ReturnsTimeoutIfNothingComes) {
  EventPortManager manager(ConBehave_Default, true);
  EXPECT_EQ(manager.receiveEvent(0), EvtRes_Timeout);
  EXPECT_EQ(manager.receiveEvent(5), EvtRes_Timeout);
  EXPECT_TRUE(manager.reconnects());
}

TEST(EventPortManager, FinishesImmediatelyIfNoTerminationIsUnderWay) {
  EventPortManager manager(ConBehave_Default, false);
  EXPECT_EQ(manager.finishActiveTerm(-1), EvtRes_Success);
  EXPECT_FALSE(manager.reconnects());
}

TEST(EventPortManager, IsWokenOnceBeforeOrDuringItsWait) {
  EventPortManager manager(ConBehave_Default, true);
  manager.wake();
  EXPECT_EQ(manager.receiveEvent(-1), EvtRes_Timeout);
  EXPECT_EQ(manager.receiveEvent(0), EvtRes_Timeout);
  std::thread waiting([&] { EXPECT_EQ(manager.receiveEvent(-1), EvtRes_Timeout); });
  manager.wake();
  waiting.join();
}

EventPortManager* wokenBySignal = nullptr;

TEST(EventPortManager, IsWokenFromASignalHandler) {
  EventPortManager manager(ConBehave_Default, true);
  wokenBySignal = &manager;
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { wokenBySignal->wake(); };
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  ASSERT_EQ(::raise(SIGUSR1), 0);
  EXPECT_EQ(manager.receiveEvent(-1), EvtRes_Timeout);
  ASSERT_EQ(::sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST(EventPort, PassesItsEventsToTheModelHandler) {
  class Owner : public EventPort {
   public:
    using EventPort::EventPort;
    unsigned receiveModelEvent(const char* sender, unsigned type, MemoryHolder*,
                               MemoryHolder*) override {
      received = std::string(sender) + std::to_string(type);
      return EvtRes_Timeout;
    }
    std::string received;
  };
  EventPortManager manager(ConBehave_Default, true);
  Owner owner(&manager);
  MemoryHolder data;
  MemoryHolder reply;
  EXPECT_EQ(owner.receive("port", 2, &data, &reply), unsigned{EvtRes_Timeout});
  EXPECT_EQ(owner.received, "port2");
  EXPECT_EQ(owner.manager(), &manager);
}

TEST(MemoryHolder, ReturnsOffsetsAndStopsAtItsEnd) {
  MemoryHolder holder(std::vector<std::uint8_t>{9, 1, 2, 3}, 1);
  EXPECT_EQ(holder.getCurrentOffset(2), 1U);
  EXPECT_EQ(holder.position(), 3U);
  EXPECT_FALSE(holder.atEnd());
  EXPECT_EQ(holder.getCurrentOffset(2), holder.size());
  EXPECT_TRUE(holder.atEnd());
  EXPECT_EQ(holder.getCurrentOffset(SIZE_MAX), holder.size());
  EXPECT_EQ(MemoryHolder(std::vector<std::uint8_t>{1}, 7).position(), 1U);
}

TEST(EvtRes, HasADescription) {
  for (unsigned result = EvtRes_Success; result <= EvtRes_NotWritable; ++result) {
    EXPECT_STRNE(describe(static_cast<EvtRes>(result)), "unknown result");
  }
}

}  // namespace

namespace internal {
namespace {

TEST(ManagerCore, WithoutDescriptorsReturnsAnErrorEverywhere) {
  for (const char* call : {"createEpoll", "createEvent", "epollCtl"}) {
    const std::size_t before = openDescriptors();
    {
      TestSystem system;
      system.failNext(call, -EMFILE);
      KSTD::KThreadMutex mutex;
      ManagerCore core(system, mutex, true);
      EchoPort port;
      const std::lock_guard lock(mutex);
      const auto server = std::make_shared<PortServer>(core, port);
      EXPECT_EQ(core.receive(0), EvtRes_NoDescriptors);
      EXPECT_EQ(server->start(uniquePort(), {}), EvtRes_NoDescriptors);
      core.wake();
    }
    EXPECT_EQ(openDescriptors(), before);
  }
}

TEST(ManagerCore, WithoutDescriptorsKeepsItsPumpFromSpinning) {
  TestSystem system;
  system.failNext("createEpoll", -EMFILE);
  KSTD::KThreadMutex mutex;
  ManagerCore core(system, mutex, true);
  system.freezeTime();
  for (const int milliseconds : {-1, 1000}) {
    const std::int64_t before = system.nowMs();
    EXPECT_EQ(core.receive(milliseconds), EvtRes_NoDescriptors);
    EXPECT_GE(system.nowMs() - before, 100) << milliseconds;
  }
}

TEST(Managers, WorkSideBySideInOneProcess) {
  EchoServer one;
  EchoServer two;
  EchoClient client;
  EchoClient other;
  const std::string first = uniquePort();
  const std::string second = uniquePort();
  ASSERT_EQ(one.start(first), EvtRes_Success);
  ASSERT_EQ(two.start(second), EvtRes_Success);
  one.pump();
  two.pump();
  ASSERT_EQ(client.connect(first), EvtRes_Success);
  ASSERT_EQ(other.connect(second), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(other.request(), EvtRes_Success);
  EXPECT_EQ(one.port.handled, 1);
  EXPECT_EQ(two.port.handled, 1);
}

std::atomic<int> pipeSignals{0};

/// A kernel that does not support a write without the signal.
class OlderSystem : public PosixSystem {
 public:
  explicit OlderSystem(int error) : error_(error) {}

  int attempts = 0;

 protected:
  ssize_t writeWithoutSignal(int /*descriptor*/, std::span<const iovec> /*parts*/) override {
    ++attempts;
    return error_;
  }

 private:
  int error_;
};

/// A kernel that supports a write without the signal.
class NewerSystem : public PosixSystem {
 public:
  int attempts = 0;

 protected:
  ssize_t writeWithoutSignal(int descriptor, std::span<const iovec> parts) override {
    ++attempts;
    const ssize_t result = ::writev(descriptor, parts.data(), static_cast<int>(parts.size()));
    return result >= 0 ? result : -errno;
  }
};

/// Writes to a pipe without a reader while the signal is blocked or pending, or not.
void expectNoPipeSignal(System& system, bool blocked, bool pending) {
  sigset_t set;
  sigset_t old;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  ASSERT_EQ(::pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, &old), 0);
  if (pending) {
    ASSERT_EQ(::pthread_kill(::pthread_self(), SIGPIPE), 0);
  }
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  const std::array<std::uint8_t, 1> byte{1};
  EXPECT_EQ(system.write(ends[1], byte), -EPIPE);
  EXPECT_EQ(system.write(ends[1], byte, byte), -EPIPE);
  ::close(ends[1]);
  sigset_t after;
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &after), 0);
  EXPECT_EQ(sigismember(&after, SIGPIPE), blocked ? 1 : 0);
  sigset_t waiting;
  ASSERT_EQ(::sigpending(&waiting), 0);
  EXPECT_EQ(sigismember(&waiting, SIGPIPE), pending ? 1 : 0);
  if (pending) {
    const timespec noTime{};
    EXPECT_EQ(::sigtimedwait(&set, nullptr, &noTime), SIGPIPE);
  }
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &old, nullptr), 0);
}

TEST(PipeSignal, NeverReachesTheProgramAndTheMaskIsRestored) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++pipeSignals; };
  ASSERT_EQ(::sigaction(SIGPIPE, &action, &before), 0);
  OlderSystem withoutFlag(-EOPNOTSUPP);
  OlderSystem older(-EINVAL);
  OlderSystem oldest(-ENOSYS);
  OlderSystem filtered(-EPERM);
  for (System* const system :
       std::initializer_list<System*>{&posixSystem(), &withoutFlag, &older, &oldest, &filtered}) {
    expectNoPipeSignal(*system, false, false);
    expectNoPipeSignal(*system, true, false);
    expectNoPipeSignal(*system, true, true);
  }
  EXPECT_EQ(pipeSignals, 0);
  for (const OlderSystem* const system : {&withoutFlag, &older, &oldest, &filtered}) {
    EXPECT_EQ(system->attempts, triesNoSignal ? 1 : 0)
        << "a call that the kernel does not support is not tried again";
  }
  ASSERT_EQ(::sigaction(SIGPIPE, &before, nullptr), 0);
}

TEST(Write, WritesBothBuffersOnEveryKernel) {
  OlderSystem older(-EOPNOTSUPP);
  for (System* const system : std::initializer_list<System*>{&posixSystem(), &older}) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const std::array<std::uint8_t, 2> head{1, 2};
    const std::array<std::uint8_t, 3> body{3, 4, 5};
    EXPECT_EQ(system->write(ends[1], head, body), 5);
    EXPECT_EQ(system->write(ends[1], body), 3);
    std::array<std::uint8_t, 16> bytes{};
    EXPECT_EQ(system->read(ends[0], bytes), 8);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 16>{1, 2, 3, 4, 5, 3, 4, 5}));
    ::close(ends[0]);
    ::close(ends[1]);
  }
}

TEST(Write, DistinguishesAnErrorOfTheDescriptorFromAnUnsupportedCall) {
  NewerSystem system;
  // An eventfd accepts writes of 8 bytes only, a sealed memfd none.
  const int event = ::eventfd(0, EFD_CLOEXEC);
  const int sealed = ::memfd_create("sealed", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_TRUE(event >= 0 && sealed >= 0 && null >= 0);
  ASSERT_EQ(::fcntl(sealed, F_ADD_SEALS, F_SEAL_WRITE), 0);
  const std::array<std::uint8_t, 1> byte{1};
  EXPECT_EQ(system.write(event, byte), -EINVAL);
  EXPECT_EQ(system.write(sealed, byte), -EPERM);
  EXPECT_EQ(system.write(null, byte), 1);
  EXPECT_EQ(system.attempts, triesNoSignal ? 3 : 0) << "later writes use the same call";
  for (const int descriptor : {event, sealed, null}) {
    ::close(descriptor);
  }
}

TEST(Descriptors, AreClosedOnExec) {
  EchoServer server;
  EchoClient client;
  const std::string name = uniquePort();
  const std::size_t before = openDescriptors();
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  ASSERT_EQ(client.connect(name), EvtRes_Success);
  EXPECT_GT(openDescriptors(), before);
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int number = std::stoi(entry.path().filename().string());
    std::error_code ignored;
    const std::string target = std::filesystem::read_symlink(entry.path(), ignored).string();
    if (target.find("/tmp/" + name) == 0 || target.find("/tmp/.krv-") == 0 ||
        target.find("eventpoll") != std::string::npos ||
        target.find("eventfd") != std::string::npos) {
      EXPECT_NE(::fcntl(number, F_GETFD) & FD_CLOEXEC, 0) << target;
    }
  }
}

}  // namespace
}  // namespace internal
}  // namespace EvtSrv
