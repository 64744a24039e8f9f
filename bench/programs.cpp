#include "bench/programs.h"

#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

/// A command line as execv(3) takes it.
class Arguments {
 public:
  explicit Arguments(CommandLine words) : words_(std::move(words)) {
    for (std::string& word : words_) {
      pointers_.push_back(word.data());
    }
    pointers_.push_back(nullptr);
  }

  [[nodiscard]] char* const* get() const { return pointers_.data(); }

  /// Replaces the calling process's program; returns only on an error.
  void execute() const { ::execv(pointers_[0], pointers_.data()); }

 private:
  CommandLine words_;
  std::vector<char*> pointers_;
};

/// posix_spawn(3) with standard output set to `output`; prepared before the time is taken.
class Spawner {
 public:
  explicit Spawner(int output) {
    if (posix_spawn_file_actions_init(&files_) != 0 ||
        posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO) != 0) {
      throw std::runtime_error("posix_spawn_file_actions");
    }
  }
  ~Spawner() { posix_spawn_file_actions_destroy(&files_); }
  Spawner(const Spawner&) = delete;
  Spawner& operator=(const Spawner&) = delete;

  /// Returns -1 on an error.
  [[nodiscard]] pid_t start(const Arguments& arguments) const {
    pid_t pid = -1;
    return posix_spawn(&pid, arguments.get()[0], &files_, nullptr, arguments.get(), environ) == 0
               ? pid
               : -1;
  }

 private:
  posix_spawn_file_actions_t files_{};
};

pid_t forkProgram(const Arguments& arguments, int output) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (::dup2(output, STDOUT_FILENO) == STDOUT_FILENO) {
      arguments.execute();
    }
    ::_exit(127);
  }
  return pid;
}

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::string joined(const CommandLine& words) {
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + word.substr(0, 200);
  }
  return line;
}

std::string uniqueName() {
  static int created = 0;
  return "Model_bench" + std::to_string(::getpid()) + '_' + std::to_string(++created);
}

}  // namespace

const char* const builtServer = SERVER_PROGRAM;

ServerProgram::ServerProgram(const CommandLine& arguments, std::optional<unsigned> processor,
                             const std::string& program)
    : name_(uniqueName()) {
  CommandLine words{program, "--name", name_};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const Arguments commandLine(words);
  const Pipe ready;
  child_ = std::make_unique<Child>([&] {
    if (::dup2(ready.writing, STDOUT_FILENO) == STDOUT_FILENO &&
        (!processor.has_value() || pinTo(*processor))) {
      commandLine.execute();
    }
  });
  ::close(ready.writing);
  // It writes one line when clients can connect; if it fails, the pipe ends.
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
  throw std::runtime_error("the server's write calls are not counted");
}

double ServerProgram::bytesOf(std::string_view name) const {
  std::ifstream status("/proc/" + std::to_string(child_->pid()) + "/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == name && status >> kilobytes) {
      return kilobytes * 1024;
    }
  }
  throw std::runtime_error("the server's memory cannot be read");
}

OutputFile::OutputFile() : descriptor_(::memfd_create("output", MFD_CLOEXEC)) {
  if (descriptor_ < 0) {
    throw std::runtime_error("memfd_create");
  }
}

OutputFile::~OutputFile() {
  ::close(descriptor_);
}

std::size_t OutputFile::size() const {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) {
    throw std::runtime_error("fstat");
  }
  return static_cast<std::size_t>(status.st_size);
}

std::size_t OutputFile::lines(std::size_t begin, std::size_t end) const {
  std::array<char, 65536> bytes{};
  std::size_t lines = 0;
  while (begin < end) {
    const ssize_t count = ::pread(descriptor_, bytes.data(), std::min(bytes.size(), end - begin),
                                  static_cast<off_t>(begin));
    if (count <= 0) {
      throw std::runtime_error("pread");
    }
    lines += static_cast<std::size_t>(std::count(bytes.begin(), bytes.begin() + count, '\n'));
    begin += static_cast<std::size_t>(count);
  }
  return lines;
}

std::string OutputFile::start() const {
  std::string text(4096, '\0');
  text.resize(static_cast<std::size_t>(
      std::max<ssize_t>(::pread(descriptor_, text.data(), text.size(), 0), 0)));
  return text;
}

PrintingProgram::PrintingProgram(const CommandLine& words)
    : child_([&] {
        if (::dup2(output_.descriptor(), STDOUT_FILENO) == STDOUT_FILENO) {
          Arguments(words).execute();
        }
      }) {}

void PrintingProgram::awaitOutput() const {
  const Clock::time_point begin = Clock::now();
  while (output_.size() == 0) {
    if (Clock::now() - begin > std::chrono::seconds(20)) {
      throw std::runtime_error("a program prints nothing");
    }
    ::poll(nullptr, 0, 1);
  }
}

Run runProgram(const CommandLine& words, Launch launch) {
  const OutputFile output;
  const Arguments arguments(words);
  const Spawner spawner(output.descriptor());
  const Clock::time_point begin = Clock::now();
  const pid_t pid = launch == Launch::spawn ? spawner.start(arguments)
                                            : forkProgram(arguments, output.descriptor());
  int status = 1;
  rusage used{};
  const bool exited = pid > 0 && ::wait4(pid, &status, 0, &used) == pid;
  const std::chrono::duration<double> taken = Clock::now() - begin;
  // ru_maxrss is in kilobytes (getrusage(2)).
  Run run{taken.count(),
          secondsOf(used.ru_utime) + secondsOf(used.ru_stime),
          static_cast<double>(used.ru_maxrss) * 1024,
          0,
          {}};
  run.lines = output.lines(0, output.size());
  run.output = output.start();
  if (!exited || status != 0) {
    throw std::runtime_error("failed: " + joined(words) + '\n' + run.output);
  }
  return run;
}

Run runShell(const std::string& commands, std::size_t lines) {
  Run run = runProgram({SHELL_PROGRAM, "-c", commands}, Launch::fork);
  if (run.lines < lines) {
    throw std::runtime_error("treescope -c \"" + commands + "\" wrote too few lines");
  }
  return run;
}

TypedShell::TypedShell(unsigned processor) {
  const Pipe typed;
  const Pipe written;
  child_ = std::make_unique<Child>([&] {
    if (::dup2(typed.reading, STDIN_FILENO) == STDIN_FILENO &&
        ::dup2(written.writing, STDOUT_FILENO) == STDOUT_FILENO && pinTo(processor)) {
      Arguments({SHELL_PROGRAM}).execute();
    }
  });
  ::close(typed.reading);
  ::close(written.writing);
  input_ = typed.writing;
  output_ = written.reading;
  if (!await("$ ")) {
    throw std::runtime_error("the shell prints no prompt");
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
    throw std::runtime_error("the shell does not accept \"" + line + '"');
  }
}

void TypedShell::clear() {
  discardInput(output_);
  written_.clear();
}

bool TypedShell::await(std::string_view text) {
  return readUntil(output_, written_, text);
}

bool readUntil(int descriptor, std::string& written, std::string_view text) {
  std::array<char, 4096> bytes{};
  while (written.find(text) == std::string::npos) {
    const ssize_t count = ::read(descriptor, bytes.data(), bytes.size());
    if (count <= 0) {
      return false;
    }
    written.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return true;
}

void discardInput(int descriptor) {
  pollfd input{descriptor, POLLIN, 0};
  std::array<char, 4096> bytes{};
  while (::poll(&input, 1, 0) == 1 && ::read(descriptor, bytes.data(), bytes.size()) > 0) {
  }
}

}  // namespace bench
