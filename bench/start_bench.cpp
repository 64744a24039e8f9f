#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "bench/programs.h"
#include "bench/ratio_table.h"

// The time of one command in a script: a whole run of the shell, or of treectl, which connects,
// reads or writes a value and prints it. The baseline is a C++ program that prints one line.

namespace {

/// Runs a program until it exits; returns the number of bytes that it wrote, or -1 on an error.
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

void registerProgram(const std::string& name, const std::vector<std::string>& words) {
  benchmark::RegisterBenchmark(
      name.c_str(),
      [words](benchmark::State& state) {
        for (auto _ : state) {
          if (runProgram(words) <= 0) {
            state.SkipWithError("no output or an exit status other than 0");
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
    const bench::ServerProgram server({"--synthetic", "2x3"});
    const std::string baseline = "program that prints a line";
    const std::string get = "treescope -c \"cd; get\"";
    const std::string set = "treescope -c \"cd; set\"";
    const std::string tool = "treectl get";
    const std::string connect = "cd " + server.name();
    registerProgram(baseline, {ONE_LINE_PROGRAM});
    registerProgram(get, {SHELL_PROGRAM, "-c", connect + ";get /group_001/item_0002"});
    registerProgram(set, {SHELL_PROGRAM, "-c", connect + ";set 7 /group_001/item_0002"});
    registerProgram(tool, {TREECTL_PROGRAM, "get", server.name() + "/group_001/item_0002"});
    return bench::runAndCompare(
        argc, argv, {{baseline, get, 1.5}, {baseline, set, 1.5}, {baseline, tool, 1.0}});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "start_bench: %s\n", error.what());
    return 1;
  }
}
