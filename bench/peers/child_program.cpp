#include "bench/peers/child_program.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "bench/peers/unix_stream.h"
#include "bench/pipe.h"

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

/// Where `program` is found; itself where it is nowhere.
std::string find(const std::string& program) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder;
       program.find('/') == std::string::npos && std::getline(folders, folder, ':');) {
    folder.append("/").append(program);
    if (::access(folder.c_str(), X_OK) == 0) {
      return folder;
    }
  }
  return program;
}

/// The words as the system wants them, the program with its path, so that the
/// search for it is nobody's time.
class Arguments {
 public:
  explicit Arguments(const Words& words) : words_(words) {
    words_.front() = find(words_.front());
    for (std::string& word : words_) {
      pointers_.push_back(word.data());
    }
    pointers_.push_back(nullptr);
  }

  [[nodiscard]] char* const* get() const { return pointers_.data(); }

 private:
  Words words_;
  std::vector<char*> pointers_;
};

/// An unnamed file for a program's output.
class Output {
 public:
  Output() : file_(::memfd_create("output", MFD_CLOEXEC)) {
    if (file_ < 0) {
      throw std::runtime_error("memfd_create");
    }
  }
  ~Output() { ::close(file_); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  [[nodiscard]] int file() const { return file_; }

  void describe(Ended& ended) const {
    std::array<char, 65536> bytes{};
    for (ssize_t count = 1; count > 0;) {
      count = ::pread(file_, bytes.data(), bytes.size(), static_cast<off_t>(ended.bytes));
      const auto size = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
      const std::string_view part(bytes.data(), size);
      ended.lines += static_cast<std::size_t>(std::count(part.begin(), part.end(), '\n'));
      if (ended.bytes == 0) {
        ended.output = part.substr(0, 4096);
      }
      ended.bytes += size;
    }
  }

 private:
  int file_;
};

void checkStatus(bool waited, int status, const Words& words, const Ended& ended) {
  if (!waited || status != 0) {
    std::string line;
    for (const std::string& word : words) {
      line += word.substr(0, 200) + ' ';
    }
    throw std::runtime_error("failed: " + line + '\n' + ended.output);
  }
}

/// What a new process needs to become a program.
struct Start {
  char* const* arguments;
  int output;
  pid_t parent;
};

int become(void* what) {
  const auto& start = *static_cast<const Start*>(what);
  if (endWith(start.parent) && ::dup2(start.output, STDOUT_FILENO) == STDOUT_FILENO) {
    ::execv(start.arguments[0], start.arguments);
  }
  ::_exit(127);
}

/// Starts a program as posix_spawn(3) does, sharing this process's memory until it
/// has been loaded, but ended with this process.
pid_t spawn(const Arguments& arguments, int output) {
  Start start{arguments.get(), output, ::getpid()};
  alignas(16) std::array<char, 65536> stack;
  const pid_t pid =
      ::clone(become, stack.data() + stack.size(), CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
  if (pid < 0) {
    throw std::runtime_error(std::string("cannot start ") + arguments.get()[0]);
  }
  return pid;
}

}  // namespace

Ended runToEnd(const Words& words) {
  const Output output;
  const Arguments arguments(words);
  const Clock::time_point begin = Clock::now();
  const pid_t pid = spawn(arguments, output.file());
  int status = 1;
  const bool waited = ::waitpid(pid, &status, 0) == pid;
  Ended ended{std::chrono::duration<double>(Clock::now() - begin).count(), 0, 0, 0, {}};
  output.describe(ended);
  checkStatus(waited, status, words, ended);
  return ended;
}

Ended runForMemory(const Words& words) {
  const Output output;
  const Arguments arguments(words);
  // Not spawn: the child would begin with this process's memory as its peak.
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (endWith(parent) && ::dup2(output.file(), STDOUT_FILENO) == STDOUT_FILENO) {
      ::execv(arguments.get()[0], arguments.get());
    }
    ::_exit(127);
  }
  int status = 1;
  rusage used{};
  const bool waited = pid > 0 && ::wait4(pid, &status, 0, &used) == pid;
  // In kilobytes (getrusage(2)).
  Ended ended{0, 0, 0, static_cast<std::size_t>(used.ru_maxrss) * 1024, {}};
  output.describe(ended);
  checkStatus(waited, status, words, ended);
  return ended;
}

Memory memoryOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  Memory memory{};
  for (std::string name; status >> name;) {
    if (name == "VmRSS:") {
      status >> memory.now;
    } else if (name == "VmHWM:") {
      status >> memory.peak;
    }
  }
  if (memory.now == 0) {
    throw std::runtime_error("the system does not tell a server's memory");
  }
  return {memory.now * 1024, memory.peak * 1024};
}

Running::Running(const Words& words, Input input) {
  const Pipe typed;
  const Pipe written;
  input_ = typed.writing;
  output_ = written.reading;
  const Arguments arguments(words);
  child_ = std::make_unique<Child>([&] {
    if (::dup2(typed.reading, STDIN_FILENO) == STDIN_FILENO &&
        ::dup2(written.writing, STDOUT_FILENO) == STDOUT_FILENO &&
        ::dup2(written.writing, STDERR_FILENO) == STDERR_FILENO) {
      ::execv(arguments.get()[0], arguments.get());
    }
    ::_exit(127);
  });
  ::close(typed.reading);
  ::close(written.writing);
  if (input == Input::nothing) {
    ::close(std::exchange(input_, -1));
  }
}

Running::~Running() {
  if (input_ >= 0) {
    ::close(input_);
  }
  ::close(output_);
}

void Running::type(const std::string& line) const {
  const std::string typed = line + '\n';
  if (::write(input_, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size())) {
    throw std::runtime_error("a program takes no input");
  }
}

void Running::await(std::string_view text) {
  std::array<char, 4096> bytes{};
  while (written_.find(text) == std::string::npos) {
    const ssize_t count = ::read(output_, bytes.data(), bytes.size());
    if (count <= 0) {
      throw std::runtime_error("a program ended instead of writing \"" + std::string(text) +
                               "\"; it wrote: " + written_);
    }
    written_.append(bytes.data(), static_cast<std::size_t>(count));
  }
}

void Running::clear() {
  pollfd output{output_, POLLIN, 0};
  std::array<char, 4096> bytes{};
  while (::poll(&output, 1, 0) == 1 && ::read(output_, bytes.data(), bytes.size()) > 0) {
  }
  written_.clear();
}

void awaitSocket(const std::string& path) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    if (UnixStream::canConnect(path)) {
      return;
    }
    ::poll(nullptr, 0, 10);
  }
  throw std::runtime_error("nobody serves " + path);
}

Directory::Directory() : path_((std::filesystem::temp_directory_path() / "peers-XXXXXX").string()) {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error("mkdtemp");
  }
}

Directory::~Directory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string Directory::path(std::string_view file) const {
  return path_ + '/' + std::string(file);
}

std::string Directory::write(std::string_view file, std::string_view text) const {
  std::ofstream stream(path(file), std::ios::trunc);
  stream << text;
  stream.close();
  if (!stream) {
    throw std::runtime_error("cannot write " + path(file));
  }
  return path(file);
}

}  // namespace bench::peers
