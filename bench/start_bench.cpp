#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/ratio_table.h"
#include "bench/served_tree.h"

// What one command costs from a script: the whole run of the shell that connects,
// reads a value and prints it, beside a C++ program that prints one line.

namespace {

/// Runs a program to its end; returns the bytes that it wrote, or -1.
long runProgram(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return -1;
  }
  posix_spawn_file_actions_t files;
  pid_t pid = -1;
  const bool started =
      posix_spawn_file_actions_init(&files) == 0 &&
      posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO) == 0 &&
      posix_spawn(&pid, arguments[0], &files, nullptr, arguments.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&files);
  ::close(ends[1]);
  long total = 0;
  char buffer[4096];
  for (ssize_t count = 1; started && count > 0; total += count) {
    count = ::read(ends[0], buffer, sizeof buffer);
  }
  ::close(ends[0]);
  int status = 1;
  return started && ::waitpid(pid, &status, 0) == pid && status == 0 ? total : -1;
}

/// The built model server, serving this machine; connectable once constructed.
class HostServer {
 public:
  HostServer() : name_("Model_bench" + std::to_string(::getpid())) {
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe2");
    }
    child_ = std::make_unique<bench::Child>([this, ready] {
      if (::dup2(ready[1], STDOUT_FILENO) == STDOUT_FILENO) {
        ::execl(SERVER_PROGRAM, SERVER_PROGRAM, "--name", name_.c_str(), nullptr);
      }
    });
    ::close(ready[1]);
    // Its one line says that it is up; the end of the pipe, that it is not.
    char first = '\0';
    const ssize_t count = ::read(ready[0], &first, 1);
    ::close(ready[0]);
    if (count != 1) {
      throw std::runtime_error("the server did not start");
    }
  }

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
  std::unique_ptr<bench::Child> child_;
};

void registerProgram(const char* name, const std::vector<std::string>& words) {
  benchmark::RegisterBenchmark(name,
                               [words](benchmark::State& state) {
                                 for (auto _ : state) {
                                   if (runProgram(words) <= 0) {
                                     state.SkipWithError("it printed nothing or failed");
                                     break;
                                   }
                                 }
                               })
      ->Iterations(1)
      ->Repetitions(300)
      ->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const HostServer server;
    registerProgram("program that prints a line", {ONE_LINE_PROGRAM});
    registerProgram("treescope -c \"cd; get\"",
                    {SHELL_PROGRAM, "-c", "cd " + server.name() + ";get /cpu/load"});
    return bench::runAndCompare(argc, argv,
                                {{"program that prints a line", "treescope -c \"cd; get\"", 3.0}});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "start_bench: %s\n", error.what());
    return 1;
  }
}
