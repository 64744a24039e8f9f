#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <map>
#include <optional>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

// What an exchange costs in system calls, counted from outside of the processes that
// make it, whichever calls they are.

namespace EvtSrv::internal {
namespace {

struct SystemCall {
  pid_t process = 0;
  std::uint64_t number = 0;
};

/// Child processes whose system calls are seen one by one (ptrace(2)).
class TracedChildren {
 public:
  ~TracedChildren() {
    for (const pid_t child : children_) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, __WALL);
    }
  }
  TracedChildren() = default;
  TracedChildren(const TracedChildren&) = delete;
  TracedChildren& operator=(const TracedChildren&) = delete;

  /// Starts a child that runs `body`; below 0 where this process may not trace it.
  pid_t start(const std::function<void()>& body) {
    const pid_t child = forkChild();
    if (child == 0) {
      if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || ::raise(SIGSTOP) != 0) {
        ::_exit(1);
      }
      body();
      ::_exit(0);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, __WALL) != child || !WIFSTOPPED(status)) {
      return -1;
    }
    children_.push_back(child);
    const bool goesOn = ::ptrace(PTRACE_SETOPTIONS, child, nullptr,
                                 PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == 0 &&
                        ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0;
    return goesOn ? child : -1;
  }

  /// Lets the children run until one of them enters a system call; nothing where one
  /// has ended.
  std::optional<SystemCall> next() {
    for (;;) {
      int status = 0;
      const pid_t child = ::waitpid(-1, &status, __WALL);
      if (child < 0 || !WIFSTOPPED(status)) {
        std::erase(children_, child);
        return std::nullopt;
      }
      std::optional<SystemCall> entered;
      int signal = WSTOPSIG(status);
      if (signal == (SIGTRAP | 0x80)) {
        signal = 0;
        entered = enteredBy(child);
      }
      ::ptrace(PTRACE_SYSCALL, child, nullptr, signal);
      if (entered) {
        return entered;
      }
    }
  }

  /// Lets the children run until `process` makes the call `number`, which is not
  /// counted; the calls that each made until then are added to `counts`. False where
  /// one has ended before.
  bool runUntil(pid_t process, long number, std::map<pid_t, int>& counts) {
    while (const auto call = next()) {
      if (call->process == process && call->number == static_cast<std::uint64_t>(number)) {
        return true;
      }
      // The clock is read without one, but for machines whose clock only the kernel can read.
      counts[call->process] += call->number == SYS_clock_gettime ? 0 : 1;
    }
    return false;
  }

 private:
  static std::optional<SystemCall> enteredBy(pid_t child) {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0 ||
        info.op != PTRACE_SYSCALL_INFO_ENTRY) {
      return std::nullopt;
    }
    return SystemCall{child, info.entry.nr};
  }

  std::vector<pid_t> children_;
};

/// A call that nothing else makes.
constexpr long mark = SYS_getppid;

void setMark() {
  static_cast<void>(::getppid());
}

/// How many system calls one write is on this kernel: where it cannot be told to raise no
/// signal, that is kept away before and behind.
int callsOfAWrite() {
  constexpr int noSignal = 0x100;
  int ends[2];
  std::uint8_t byte = 1;
  const iovec part{&byte, 1};
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return 0;
  }
  const bool knows = ::pwritev2(ends[1], &part, 1, -1, noSignal) == 1;
  ::close(ends[0]);
  ::close(ends[1]);
  return knows ? 1 : 3;
}

TEST(SystemCallsOfAnExchange, AreOneWaitOneReadAndOneWriteOnEachSide) {
  constexpr int exchanges = 100;
  const std::string name = uniquePort();
  TracedChildren children;
  std::map<pid_t, int> counts;
  const pid_t server = children.start([&] {
    EchoServer served;
    if (served.start(name) != EvtRes_Success) {
      return;
    }
    setMark();
    for (;;) {
      static_cast<void>(served.core.receive(-1));
    }
  });
  if (server < 0) {
    GTEST_SKIP() << "no tracing here";
  }
  ASSERT_TRUE(children.runUntil(server, mark, counts));
  const pid_t client = children.start([&] {
    EchoClient asking;
    std::string text(100, 'x');
    bool answered = asking.connect(name) == EvtRes_Success;
    for (int i = 0; i < 3; ++i) {
      answered = answered && asking.ask(text) == EvtRes_Success;
    }
    setMark();
    for (int i = 0; i < exchanges; ++i) {
      answered = answered && asking.ask(text) == EvtRes_Success;
    }
    if (answered) {
      setMark();
    }
  });
  ASSERT_GT(client, 0);
  ASSERT_TRUE(children.runUntil(client, mark, counts));
  counts.clear();
  ASSERT_TRUE(children.runUntil(client, mark, counts));
  const int expected = exchanges * (2 + callsOfAWrite());
  EXPECT_EQ(counts[client], expected);
  // The server may begin to wait before or behind the mark.
  EXPECT_GE(counts[server], expected - 1);
  EXPECT_LE(counts[server], expected + 1);
  ::unlink(mailboxPath(name).c_str());
}

}  // namespace
}  // namespace EvtSrv::internal
