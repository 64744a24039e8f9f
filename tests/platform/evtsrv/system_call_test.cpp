#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <map>
#include <optional>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

// The number of system calls of an exchange, counted from outside of its processes, so
// that no call is missed.

namespace EvtSrv::internal {
namespace {

struct SystemCall {
  pid_t process = 0;
  std::uint64_t number = 0;
};

/// Child processes whose system calls are traced (ptrace(2)).
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

  /// Starts a child that runs `body`; negative if this process may not trace it.
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
    const bool continues = ::ptrace(PTRACE_SETOPTIONS, child, nullptr,
                                    PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == 0 &&
                           ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0;
    return continues ? child : -1;
  }

  /// Lets the children run until one of them enters a system call; empty if one has
  /// ended.
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

  /// Lets the children run until `process` makes the call `number`. Adds the calls that
  /// each of them made before that to `counts`. False if one has ended.
  bool runUntil(pid_t process, long number, std::map<pid_t, int>& counts) {
    while (const auto call = next()) {
      if (call->process == process && call->number == static_cast<std::uint64_t>(number)) {
        return true;
      }
      // Most machines read the clock without a system call, but not all.
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

/// A call that marks a point in the test; nothing else makes it.
constexpr long mark = SYS_getppid;

void makeMark() {
  static_cast<void>(::getppid());
}

/// The number of system calls of one write on this kernel. If the kernel does not support
/// writes without a signal, the signal is blocked before and unblocked after the write.
int callsOfAWrite() {
  constexpr int noSignal = 0x100;
  int ends[2];
  std::uint8_t byte = 1;
  const iovec part{&byte, 1};
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return 0;
  }
  const bool isSupported = ::pwritev2(ends[1], &part, 1, -1, noSignal) == 1;
  ::close(ends[0]);
  ::close(ends[1]);
  return isSupported ? 1 : 3;
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
    makeMark();
    for (;;) {
      static_cast<void>(served.core.receive(-1));
    }
  });
  if (server < 0) {
    GTEST_SKIP() << "this process may not trace others";
  }
  ASSERT_TRUE(children.runUntil(server, mark, counts));
  const pid_t client = children.start([&] {
    EchoClient echoClient;
    std::string text(100, 'x');
    bool succeeded = echoClient.connect(name) == EvtRes_Success;
    for (int i = 0; i < 3; ++i) {
      succeeded = succeeded && echoClient.request(text) == EvtRes_Success;
    }
    makeMark();
    for (int i = 0; i < exchanges; ++i) {
      succeeded = succeeded && echoClient.request(text) == EvtRes_Success;
    }
    if (succeeded) {
      makeMark();
    }
  });
  ASSERT_GT(client, 0);
  ASSERT_TRUE(children.runUntil(client, mark, counts));
  counts.clear();
  ASSERT_TRUE(children.runUntil(client, mark, counts));
  const int expected = exchanges * (2 + callsOfAWrite());
  EXPECT_EQ(counts[client], expected);
  // The server may begin to wait before or after the mark.
  EXPECT_GE(counts[server], expected - 1);
  EXPECT_LE(counts[server], expected + 1);
  ::unlink(mailboxPath(name).c_str());
}

}  // namespace
}  // namespace EvtSrv::internal
