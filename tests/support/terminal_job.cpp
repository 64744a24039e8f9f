#include "tests/support/terminal_job.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "tests/support/process.h"

namespace test_support {
namespace {

bool isEnd(int status) {
  return WIFEXITED(status) || WIFSIGNALED(status);
}

// The keeper is a fork of the test, so it makes system calls only.

constexpr int keeperTerminal = STDIN_FILENO;
constexpr int keeperChanges = 3;
constexpr int toForeground = SIGUSR1;
constexpr int toBackground = SIGUSR2;
/// Reported after a request was done; no wait status is negative.
constexpr int acknowledgement = -1;

struct JobStart {
  const char* device;
  char* const* arguments;
  int changes;
  const char* directory;
  bool foreground;
  int ignoredSignal;
  bool nonBlocking;
};

void report(int value) {
  if (::write(keeperChanges, &value, sizeof value) != sizeof value) {
    ::_exit(1);
  }
}

[[noreturn]] void becomeJob(const JobStart& start) {
  ::setpgid(0, 0);
  if (start.foreground) {
    ::tcsetpgrp(keeperTerminal, ::getpid());
  }
  for (int number = 1; number < NSIG; ++number) {
    ::signal(number, number == start.ignoredSignal ? SIG_IGN : SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  // From here on the job gets the signals of its terminal.
  report(::getpid());
  ::close_range(keeperChanges, ~0U, 0);
  if (*start.directory == '\0' || ::chdir(start.directory) == 0) {
    ::execvp(start.arguments[0], start.arguments);
  }
  ::_exit(127);
}

/// Reports each change of the job; false when it has ended.
bool reportChanges(pid_t job) {
  int status = 0;
  while (::waitpid(job, &status, WUNTRACED | WCONTINUED | WNOHANG) == job) {
    report(status);
    if (isEnd(status)) {
      return false;
    }
  }
  return true;
}

void moveForeground(pid_t job, int request) {
  if (request == toBackground) {
    ::tcsetpgrp(keeperTerminal, ::getpgrp());
  } else {
    ::tcsetpgrp(keeperTerminal, job);
    ::kill(-job, SIGCONT);
  }
  report(acknowledgement);
}

/// Leads a session that the terminal controls. Keeps no other descriptor of the test:
/// a terminal of another session would not hang up.
void leadSession(const JobStart& start) {
  ::setsid();
  ::dup2(start.changes, keeperChanges);
  ::close_range(keeperChanges + 1, ~0U, 0);
  const int terminal = ::open(start.device, O_RDWR | (start.nonBlocking ? O_NONBLOCK : 0));
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::dup2(terminal, standard);
  }
  ::close(terminal);
}

[[noreturn]] void keep(const JobStart& start) {
  // If the test is killed, the keeper ends too, and the terminal hangs up on the job.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  leadSession(start);
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU}) {
    ::signal(number, SIG_IGN);
  }
  sigset_t awaited;
  sigemptyset(&awaited);
  for (const int number : {SIGCHLD, toForeground, toBackground}) {
    sigaddset(&awaited, number);
  }
  ::sigprocmask(SIG_BLOCK, &awaited, nullptr);
  const pid_t job = ::fork();
  if (job == 0) {
    becomeJob(start);
  }
  for (bool running = true; running;) {
    const int number = ::sigwaitinfo(&awaited, nullptr);
    if (number == SIGCHLD) {
      running = reportChanges(job);
    } else if (number > 0) {
      moveForeground(job, number);
    }
  }
  ::_exit(0);
}

}  // namespace

TerminalJob::TerminalJob(const std::string& device, const std::vector<std::string>& command,
                         const Options& options) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throwError("pipe2");
  }
  changes_ = Descriptor(ends[0]);
  Descriptor keeperEnd(ends[1]);
  keeper_ = ::fork();
  if (keeper_ == -1) {
    throwError("fork");
  }
  if (keeper_ == 0) {
    keep({device.c_str(), arguments.data(), keeperEnd.get(), options.directory.c_str(),
          options.foreground, options.ignoredSignal, options.nonBlocking});
  }
  keeperEnd.close();
  if (::read(changes_.get(), &pid_, sizeof pid_) != sizeof pid_) {
    throwError("job");
  }
}

TerminalJob::~TerminalJob() {
  signal(SIGKILL);
  changes_.close();
  ::waitpid(keeper_, nullptr, 0);
}

/// Takes one report of the keeper; false at the end of its reports.
bool TerminalJob::receive() {
  int value = 0;
  if (::read(changes_.get(), &value, sizeof value) != sizeof value) {
    return false;
  }
  if (value == acknowledgement) {
    acknowledged_ = true;
  } else {
    statuses_.push_back(value);
  }
  return true;
}

std::optional<int> TerminalJob::nextStatus() {
  pollfd waited{changes_.get(), POLLIN, 0};
  while (statuses_.empty() && ::poll(&waited, 1, 0) == 1) {
    if (!receive()) {
      return std::nullopt;
    }
  }
  if (statuses_.empty()) {
    return std::nullopt;
  }
  const int status = statuses_.front();
  statuses_.pop_front();
  if (isEnd(status)) {
    endStatus_ = status;
  }
  return status;
}

void TerminalJob::signal(int number) {
  if (!endStatus_ && ::kill(pid_, number) != 0 && errno != ESRCH) {
    throwError("kill");
  }
}

void TerminalJob::request(int number) {
  acknowledged_ = false;
  if (::kill(keeper_, number) != 0) {
    throwError("keeper");
  }
  pollfd waited{changes_.get(), POLLIN, 0};
  while (!acknowledged_) {
    if (::poll(&waited, 1, static_cast<int>(timeout.count())) != 1 || !receive()) {
      throw std::system_error(ETIMEDOUT, std::generic_category(), "keeper");
    }
  }
}

void TerminalJob::continueInForeground() {
  request(toForeground);
}

void TerminalJob::moveToBackground() {
  request(toBackground);
}

}  // namespace test_support
