#include "tests/support/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace test_support {
namespace {

void check(int error, const char* what) {
  if (error != 0) {
    throwError(what, error);
  }
}

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      throwError("pipe2", errno);
    }
    read = Descriptor(ends[0]);
    write = Descriptor(ends[1]);
  }

  Descriptor read;
  Descriptor write;
};

struct SpawnFiles {
  SpawnFiles() { check(::posix_spawn_file_actions_init(&value), "file actions"); }
  ~SpawnFiles() { ::posix_spawn_file_actions_destroy(&value); }
  SpawnFiles(const SpawnFiles&) = delete;
  SpawnFiles& operator=(const SpawnFiles&) = delete;

  void pass(const Descriptor& descriptor, int as) {
    check(::posix_spawn_file_actions_adddup2(&value, descriptor.get(), as), "adddup2");
  }

  posix_spawn_file_actions_t value{};
};

struct SpawnAttributes {
  explicit SpawnAttributes(bool ownGroup) {
    check(::posix_spawnattr_init(&value), "spawn attributes");
    sigset_t set;
    sigemptyset(&set);
    check(::posix_spawnattr_setsigmask(&value, &set), "setsigmask");
    sigaddset(&set, SIGPIPE);
    check(::posix_spawnattr_setsigdefault(&value, &set), "setsigdefault");
    const int group = ownGroup ? POSIX_SPAWN_SETPGROUP : 0;
    check(::posix_spawnattr_setflags(
              &value, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | group)),
          "setflags");
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&value); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  posix_spawnattr_t value{};
};

std::vector<char*> pointers(const std::vector<std::string>& words) {
  std::vector<char*> result;
  result.reserve(words.size() + 1);
  for (const std::string& word : words) {
    // posix_spawn(3) does not change the words; its type is older than const.
    result.push_back(const_cast<char*>(word.c_str()));
  }
  result.push_back(nullptr);
  return result;
}

pid_t spawn(const std::vector<std::string>& command, const ProcessOptions& options,
            SpawnFiles& files) {
  const SpawnAttributes attributes(options.ownGroup);
  if (!options.directory.empty()) {
    check(::posix_spawn_file_actions_addchdir_np(&files.value, options.directory.c_str()),
          "addchdir");
  }
  std::vector<char*> environment;
  if (options.environment) {
    environment = pointers(*options.environment);
  }
  pid_t pid = -1;
  check(
      ::posix_spawnp(&pid, command.at(0).c_str(), &files.value, &attributes.value,
                     pointers(command).data(), options.environment ? environment.data() : environ),
      command[0].c_str());
  return pid;
}

std::string programOfBuild(const char* variable, const char* name) {
  const char* const other = std::getenv(variable);
  return other != nullptr ? other : std::string(TEST_PROGRAM_DIRECTORY "/") + name;
}

}  // namespace

void throwError(const char* what, int error) {
  throw std::system_error(error, std::generic_category(), what);
}

BlockedPipeSignal::BlockedPipeSignal() {
  sigemptyset(&set_);
  sigaddset(&set_, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &set_, &before_);
}

BlockedPipeSignal::~BlockedPipeSignal() {
  const timespec none{};
  while (sigtimedwait(&set_, nullptr, &none) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  constexpr std::chrono::milliseconds::rep longest = 3'600'000;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, longest));
}

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    ::poll(nullptr, 0, 1);
  }
  return true;
}

Process::Process(const std::vector<std::string>& command, const ProcessOptions& options)
    : ownGroup_(options.ownGroup) {
  Pipe in;
  Pipe out;
  Pipe err;
  SpawnFiles files;
  files.pass(in.read, STDIN_FILENO);
  files.pass(out.write, STDOUT_FILENO);
  if (options.nonBlockingOutput && (::fcntl(out.write.get(), F_SETFL, O_NONBLOCK) != 0 ||
                                    ::fcntl(out.write.get(), F_SETPIPE_SZ, 1) == -1)) {
    throwError("fcntl", errno);
  }
  files.pass(options.mergeErrors ? out.write : err.write, STDERR_FILENO);
  pid_ = spawn(command, options, files);
  pidDescriptor_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  if (!pidDescriptor_.isOpen()) {
    const int error = errno;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    throwError("pidfd_open", error);
  }
  input_ = std::move(in.write);
  output_.descriptor = std::move(out.read);
  errors_.descriptor = std::move(err.read);
  for (const Descriptor* const end : {&input_, &output_.descriptor, &errors_.descriptor}) {
    ::fcntl(end->get(), F_SETFL, O_NONBLOCK);
  }
}

Process::~Process() {
  if (ownGroup_) {
    killGroup();
  }
  if (!status_) {
    closeInput();
    signal(SIGTERM);
    if (!waitForExit(std::chrono::seconds(2))) {
      signal(SIGKILL);
      // SIGKILL ends every process soon, and a child must be reaped.
      ::waitpid(pid_, nullptr, 0);
    }
  }
}

void Process::Stream::take() {
  std::array<char, 65536> buffer{};
  while (descriptor.isOpen()) {
    const ssize_t count = ::read(descriptor.get(), buffer.data(), buffer.size());
    if (count > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(count));
    } else if (count < 0 && errno == EINTR) {
      continue;
    } else if (count < 0 && errno == EAGAIN) {
      return;
    } else {
      descriptor.close();
    }
  }
}

bool Process::pump(Clock::time_point deadline, bool forInput, bool forExit) {
  std::array<pollfd, 4> waited{pollfd{output_.descriptor.get(), POLLIN, 0},
                               pollfd{errors_.descriptor.get(), POLLIN, 0},
                               pollfd{forInput ? input_.get() : -1, POLLOUT, 0},
                               pollfd{forExit ? pidDescriptor_.get() : -1, POLLIN, 0}};
  const int ready = ::poll(waited.data(), waited.size(), millisecondsUntil(deadline));
  if (ready < 0 && errno != EINTR) {
    throwError("poll", errno);
  }
  if (ready == 0) {
    return false;
  }
  output_.take();
  errors_.take();
  return true;
}

bool Process::write(std::string_view text, std::chrono::milliseconds limit) {
  const BlockedPipeSignal blocked;
  const auto deadline = Clock::now() + limit;
  while (!text.empty()) {
    if (!input_.isOpen()) {
      return false;
    }
    const ssize_t count = ::write(input_.get(), text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      if (!pump(deadline, true, false)) {
        return false;
      }
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

void Process::closeInput() {
  input_.close();
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    std::string& text = output_.text;
    const std::size_t end = text.find('\n');
    if (end != std::string::npos || (!output_.descriptor.isOpen() && !text.empty())) {
      const std::size_t length = std::min(end, text.size());
      std::string line = text.substr(0, length);
      text.erase(0, length + 1);
      return line;
    }
    if (!output_.descriptor.isOpen() || !pump(deadline, false, false)) {
      return std::nullopt;
    }
  }
}

bool Process::waitForLine(std::string_view line, std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (const auto next = readLine(std::chrono::milliseconds(millisecondsUntil(deadline)))) {
    if (*next == line) {
      return true;
    }
  }
  return false;
}

bool Process::waitForOutput(std::string_view text, std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (output_.text.find(text) == std::string::npos) {
    if (!output_.descriptor.isOpen() || !pump(deadline, false, false)) {
      return false;
    }
  }
  return true;
}

std::optional<ExitStatus> Process::finish(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  closeInput();
  while (output_.descriptor.isOpen() || errors_.descriptor.isOpen()) {
    if (!pump(deadline, false, false)) {
      return std::nullopt;
    }
  }
  return waitForExit(std::chrono::milliseconds(millisecondsUntil(deadline)));
}

std::optional<ExitStatus> Process::waitForExit(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (!reap()) {
    if (!pump(deadline, false, true)) {
      return std::nullopt;
    }
  }
  output_.take();
  errors_.take();
  return status_;
}

std::optional<ExitStatus> Process::reap() {
  int status = 0;
  if (!status_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    status_ =
        WIFSIGNALED(status) ? ExitStatus{0, WTERMSIG(status)} : ExitStatus{WEXITSTATUS(status), 0};
  }
  return status_;
}

void Process::killGroup() {
  // The number of the group of a reaped process may belong to another one.
  if (!status_) {
    ::kill(-pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    status_ = ExitStatus{0, SIGKILL};
  }
}

void Process::signal(int number) {
  // The pid of a reaped process may belong to another one.
  if (!status_ && ::kill(pid_, number) != 0) {
    throwError("kill", errno);
  }
}

Finished run(const std::vector<std::string>& command, std::string_view input,
             const ProcessOptions& options, std::chrono::milliseconds limit) {
  Process process(command, options);
  process.write(input, limit);
  const auto status = process.finish(limit);
  if (!status) {
    throw std::runtime_error(command.at(0) + " did not end; it wrote: " + process.output() +
                             process.errors());
  }
  return {*status, process.output(), process.errors()};
}

long procNumber(pid_t pid, const std::string& file, const std::string& key) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
  for (std::string word; in >> word;) {
    if (word == key) {
      long number = -1;
      in >> number;
      return number;
    }
  }
  ADD_FAILURE() << key << " is not in " << file;
  return -1;
}

std::string treescopeProgram() {
  return programOfBuild("TREESCOPE_TEST_SHELL", "treescope");
}

std::string modelsrvdProgram() {
  return programOfBuild("TREESCOPE_TEST_SERVER", "modelsrvd");
}

std::string sourceDirectory() {
  return TEST_SOURCE_DIRECTORY;
}

std::string buildDirectory() {
  return TEST_BUILD_DIRECTORY;
}

}  // namespace test_support
