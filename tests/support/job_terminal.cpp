#include "tests/support/job_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "tests/support/pseudo_terminal.h"

namespace test_support {
namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The keeper is a fork of the test that leads the terminal's session and is the
// job's parent. It makes system calls only. It reports the job's process id and
// then each of its wait statuses, and gives and takes the foreground on request.

int keptTerminal = -1;
pid_t keptJob = -1;
constexpr int toForeground = SIGUSR1;
constexpr int toBackground = SIGUSR2;

void moveForeground(int request) {
  if (request == toBackground) {
    ::tcsetpgrp(keptTerminal, ::getpgrp());
  } else {
    ::tcsetpgrp(keptTerminal, keptJob);
    ::kill(-keptJob, SIGCONT);
  }
}

struct JobStart {
  const char* device;
  char* const* arguments;
  int changes;
  JobTerminal::Options options;
};

[[noreturn]] void becomeJob(const JobStart& start) {
  ::setpgid(0, 0);
  if (start.options.foreground) {
    ::tcsetpgrp(keptTerminal, ::getpid());
  }
  for (const int number : {SIGHUP, SIGTTOU, SIGPIPE}) {
    ::signal(number, SIG_DFL);
  }
  if (start.options.ignored != 0) {
    ::signal(start.options.ignored, SIG_IGN);
  }
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::close_range(3, ~0U, 0);
  ::execvp(start.arguments[0], start.arguments);
  ::_exit(127);
}

void report(int changes, int value) {
  if (::write(changes, &value, sizeof value) != sizeof value) {
    ::_exit(1);
  }
}

/// Reports what has become of the job; false when it has ended.
bool reportChanges(int changes) {
  int status = 0;
  while (::waitpid(keptJob, &status, WUNTRACED | WCONTINUED | WNOHANG) == keptJob) {
    report(changes, status);
    if (WIFEXITED(status) || WIFSIGNALED(status)) {
      return false;
    }
  }
  return true;
}

[[noreturn]] void keep(const JobStart& start) {
  // Neither the keeper nor, behind its terminal, the job outlives a killed test.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::setsid();
  keptTerminal = ::open(start.device, O_RDWR);
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    ::dup2(keptTerminal, descriptor);
  }
  ::signal(SIGHUP, SIG_IGN);
  ::signal(SIGTTOU, SIG_IGN);
  sigset_t awaited;
  sigemptyset(&awaited);
  for (const int number : {SIGCHLD, toForeground, toBackground}) {
    sigaddset(&awaited, number);
  }
  ::sigprocmask(SIG_BLOCK, &awaited, nullptr);
  keptJob = ::fork();
  if (keptJob == 0) {
    becomeJob(start);
  }
  report(start.changes, keptJob);
  for (bool running = true; running;) {
    const int number = ::sigwaitinfo(&awaited, nullptr);
    if (number == SIGCHLD) {
      running = reportChanges(start.changes);
    } else if (number > 0) {
      moveForeground(number);
    }
  }
  ::_exit(0);
}

}  // namespace

JobTerminal::JobTerminal(const std::vector<std::string>& command, const Options& options) {
  open();
  start(command, options);
}

JobTerminal::~JobTerminal() {
  if (!ended_) {
    ::kill(pid_, SIGKILL);
  }
  hangUp();
  closeOnce(changes_);
  ::waitpid(keeper_, nullptr, 0);
}

void JobTerminal::open() {
  // The device is kept open, so that the mode can be looked at when the job has gone.
  const PseudoTerminal terminal = openPseudoTerminal(24, 80);
  master_ = terminal.master;
  slave_ = terminal.device;
  device_ = terminal.name;
  termios mode{};
  if (::tcgetattr(slave_, &mode) != 0) {
    fail(device_.c_str());
  }
  // A key that raises a signal must not discard the output that a test waits for.
  mode.c_lflag |= NOFLSH;
  setMode(mode);
}

void JobTerminal::start(const std::vector<std::string>& command, const Options& options) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    fail("pipe2");
  }
  keeper_ = ::fork();
  if (keeper_ == -1) {
    fail("fork");
  }
  if (keeper_ == 0) {
    ::close(master_);
    ::close(slave_);
    ::close(ends[0]);
    keep({device_.c_str(), arguments.data(), ends[1], options});
  }
  ::close(ends[1]);
  changes_ = ends[0];
  if (::read(changes_, &pid_, sizeof pid_) != sizeof pid_) {
    fail("job");
  }
}

void JobTerminal::type(std::string_view keys) {
  if (::write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    fail("type");
  }
}

bool JobTerminal::pump(Clock::time_point deadline) {
  std::array<pollfd, 2> waited{pollfd{master_, POLLIN, 0}, pollfd{changes_, POLLIN, 0}};
  const int ready = ::poll(waited.data(), waited.size(), millisecondsUntil(deadline));
  takeOutput();
  return ready > 0;
}

void JobTerminal::takeOutput() {
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t count = ::read(master_, buffer.data(), buffer.size());
    if (count <= 0) {
      return;
    }
    output_.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

bool JobTerminal::waitForOutput(std::string_view text, std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    const std::size_t at = output_.find(text);
    if (at != std::string::npos) {
      output_.erase(0, at + text.size());
      return true;
    }
    pollfd waited{master_, POLLIN, 0};
    if (::poll(&waited, 1, millisecondsUntil(deadline)) <= 0) {
      return false;
    }
    takeOutput();
  }
}

std::optional<int> JobTerminal::nextStatus(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    pollfd waited{changes_, POLLIN, 0};
    if (::poll(&waited, 1, 0) == 1) {
      int status = 0;
      if (::read(changes_, &status, sizeof status) != sizeof status) {
        return std::nullopt;
      }
      ended_ = WIFEXITED(status) || WIFSIGNALED(status);
      takeOutput();
      return status;
    }
    if (!pump(deadline)) {
      return std::nullopt;
    }
  }
}

void JobTerminal::signal(int number) {
  if (!ended_ && ::kill(pid_, number) != 0) {
    fail("kill");
  }
}

void JobTerminal::askKeeper(int request) {
  if (::kill(keeper_, request) != 0) {
    fail("keeper");
  }
}

void JobTerminal::continueInForeground() {
  askKeeper(toForeground);
}

void JobTerminal::sendToBackground() {
  askKeeper(toBackground);
  const auto deadline = Clock::now() + timeout;
  while (::tcgetpgrp(master_) == pid_ && Clock::now() < deadline) {
  }
}

void JobTerminal::hangUp() {
  closeOnce(master_);
  closeOnce(slave_);
}

termios JobTerminal::mode() const {
  termios mode{};
  if (::tcgetattr(slave_, &mode) != 0) {
    fail("tcgetattr");
  }
  return mode;
}

void JobTerminal::setMode(const termios& mode) {
  if (::tcsetattr(slave_, TCSANOW, &mode) != 0) {
    fail("tcsetattr");
  }
}

bool sameMode(const termios& one, const termios& other) {
  return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
         one.c_cflag == other.c_cflag && one.c_lflag == other.c_lflag &&
         std::equal(std::begin(one.c_cc), std::end(one.c_cc), std::begin(other.c_cc));
}

}  // namespace test_support
