#include "bench/programs.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "bench/pipe.h"

namespace bench {

namespace {

/// Becomes `words[0]`; returns where it cannot.
void execute(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  ::execv(arguments[0], arguments.data());
}

std::string uniqueName() {
  static int made = 0;
  return "Model_bench" + std::to_string(::getpid()) + '_' + std::to_string(++made);
}

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::size_t countLines(int file) {
  std::array<char, 65536> bytes{};
  std::size_t lines = 0;
  off_t at = 0;
  for (ssize_t count = 1; count > 0; at += count) {
    count = ::pread(file, bytes.data(), bytes.size(), at);
    for (ssize_t i = 0; i < count; ++i) {
      lines += bytes[static_cast<std::size_t>(i)] == '\n' ? 1 : 0;
    }
  }
  return lines;
}

}  // namespace

ServerProgram::ServerProgram(std::vector<std::string> arguments, std::optional<unsigned> processor)
    : name_(uniqueName()) {
  arguments.insert(arguments.begin(), {SERVER_PROGRAM, "--name", name_});
  const Pipe ready;
  child_ = std::make_unique<Child>([&] {
    if (::dup2(ready.writing, STDOUT_FILENO) == STDOUT_FILENO &&
        (!processor.has_value() || pinTo(*processor))) {
      execute(std::move(arguments));
    }
  });
  ::close(ready.writing);
  // Its one line says that it is up; the end of the pipe, that it is not.
  char first = '\0';
  const ssize_t count = ::read(ready.reading, &first, 1);
  ::close(ready.reading);
  if (count != 1) {
    throw std::runtime_error("the server did not start");
  }
}

std::size_t ServerProgram::writes() const {
  std::ifstream counters("/proc/" + std::to_string(child_->pid()) + "/io");
  std::string name;
  for (std::size_t count = 0; counters >> name >> count;) {
    if (name == "syscw:") {
      return count;
    }
  }
  throw std::runtime_error("the system does not count the server's writes");
}

double ServerProgram::bytesOf(std::string_view name) const {
  std::ifstream status("/proc/" + std::to_string(child_->pid()) + "/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == name && status >> kilobytes) {
      return kilobytes * 1024;
    }
  }
  throw std::runtime_error("the system does not tell the server's memory");
}

Run runShell(const std::string& commands, std::size_t lines) {
  const int file = ::memfd_create("listing", MFD_CLOEXEC);
  if (file < 0) {
    throw std::runtime_error("memfd_create");
  }
  const auto begin = std::chrono::steady_clock::now();
  // Not posix_spawn: the child would begin with this process's memory as its peak.
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (::dup2(file, STDOUT_FILENO) == STDOUT_FILENO) {
      execute({SHELL_PROGRAM, "-c", commands});
    }
    ::_exit(127);
  }
  int status = 1;
  rusage used{};
  const bool ended = pid > 0 && ::wait4(pid, &status, 0, &used) == pid && status == 0;
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  const bool complete = ended && countLines(file) >= lines;
  ::close(file);
  if (!complete) {
    throw std::runtime_error("treescope -c \"" + commands + "\" failed");
  }
  // The size is in kilobytes (getrusage(2)).
  return {taken.count(), secondsOf(used.ru_utime) + secondsOf(used.ru_stime),
          static_cast<double>(used.ru_maxrss) * 1024};
}

TypedShell::TypedShell(unsigned processor) {
  const Pipe typed;
  const Pipe written;
  child_ = std::make_unique<Child>([&] {
    if (::dup2(typed.reading, STDIN_FILENO) == STDIN_FILENO &&
        ::dup2(written.writing, STDOUT_FILENO) == STDOUT_FILENO && pinTo(processor)) {
      execute({SHELL_PROGRAM});
    }
  });
  ::close(typed.reading);
  ::close(written.writing);
  input_ = typed.writing;
  output_ = written.reading;
  if (!await("$ ")) {
    throw std::runtime_error("the shell shows no prompt");
  }
}

TypedShell::~TypedShell() {
  ::close(input_);
  ::close(output_);
}

void TypedShell::type(const std::string& line) {
  const std::string typed = line + '\n';
  clear();
  if (::write(input_, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size()) ||
      !await("$ ") || written_.find("ERROR") != std::string::npos) {
    throw std::runtime_error("the shell does not take \"" + line + '"');
  }
}

void TypedShell::clear() {
  pollfd output{output_, POLLIN, 0};
  std::array<char, 4096> bytes{};
  while (::poll(&output, 1, 0) == 1 && ::read(output_, bytes.data(), bytes.size()) > 0) {
  }
  written_.clear();
}

bool TypedShell::await(std::string_view text) {
  std::array<char, 4096> bytes{};
  while (written_.find(text) == std::string::npos) {
    const ssize_t count = ::read(output_, bytes.data(), bytes.size());
    if (count <= 0) {
      return false;
    }
    written_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace bench
