// Runs the programs again and again, and makes another system call of them fail in each
// run. Prints the matrix of calls and errors, and the runs that went wrong.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/fault/matrix/isolation.h"
#include "tests/fault/matrix/report.h"
#include "tests/fault/matrix/run.h"
#include "tests/fault/matrix/system_calls.h"

namespace {

using namespace fault_matrix;
using Clock = std::chrono::steady_clock;

constexpr const char* usage =
    "usage: fault_matrix --shell FILE --server FILE [--seconds N] [--seed N] [--jobs N]\n"
    "                    [--only TEXT] [--verbose 1]\n"
    "  --seconds N  stop after that time; the runs are in random order (default: no limit)\n"
    "  --seed N     of that order (default: a random one)\n"
    "  --jobs N     how many runs at a time (default: eight a processor)\n"
    "  --only TEXT  only runs whose name contains it, as in \"shell -c/openat/ENOENT/3\"\n"
    "  --verbose 1  print what each program has written\n";

constexpr int occurrences = 20;

struct Options {
  Programs programs;
  std::chrono::seconds time = std::chrono::hours(24);
  unsigned seed = std::random_device()();
  unsigned jobs = 8 * std::max(std::thread::hardware_concurrency(), 1U);
  std::string only;
  bool verbose = false;
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string_view name = argv[i];
    const char* const value = argv[i + 1];
    const auto number = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
    if (name == "--shell") {
      options.programs.shell = std::filesystem::canonical(value);
    } else if (name == "--server") {
      options.programs.server = std::filesystem::canonical(value);
    } else if (name == "--seconds") {
      options.time = std::chrono::seconds(number);
    } else if (name == "--seed") {
      options.seed = number;
    } else if (name == "--jobs") {
      options.jobs = std::max(number, 1U);
    } else if (name == "--only") {
      options.only = value;
    } else if (name == "--verbose") {
      options.verbose = number != 0;
    } else {
      return false;
    }
  }
  return argc % 2 == 1 && !options.programs.shell.empty() && !options.programs.server.empty();
}

/// A result in memory that the workers share.
struct SharedResult {
  State state = State::notRun;
  double seconds = 0;
  std::array<char, 255> text{};
};

struct Shared {
  std::atomic<std::size_t> next{0};
};

template <typename Type>
Type* sharedMemory(std::size_t count) {
  void* const memory = ::mmap(nullptr, std::max<std::size_t>(count * sizeof(Type), 1),
                              PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return new (memory) Type[std::max<std::size_t>(count, 1)];
}

using References = std::map<const Scenario*, Reference>;

/// Runs every scenario twice without a fault: for its reference, and for the calls that
/// it makes, whose number depends a little on time.
std::vector<Case> discover(const Options& options, Isolation& isolation, References& references) {
  std::vector<Case> cases;
  for (const auto* scenarios : {&shellScenarios, &serverScenarios}) {
    for (const Scenario& scenario : *scenarios) {
      std::map<int, int> counts;
      for (int repetition = 0; repetition < 2; ++repetition) {
        isolation.clear();
        const Fault record;
        Run run(options.programs, record, references[&scenario]);
        const Program& program = scenario.run(run);
        for (const auto& [call, count] : program.injection->counts()) {
          counts[call] = std::max(counts[call], count);
        }
        for (const std::string& failure : run.stage().failures()) {
          throw std::runtime_error(std::string(scenario.name) + " without a fault: " + failure);
        }
      }
      for (const auto& [call, count] : counts) {
        for (const int error : errorsOf(call)) {
          for (int i = 1; i <= std::min(count, occurrences); ++i) {
            cases.push_back({&scenario, {call, error, i}});
          }
        }
      }
    }
  }
  std::erase_if(
      cases, [&](const Case& one) { return nameOf(one).find(options.only) == std::string::npos; });
  return cases;
}

void runCase(const Options& options, const Case& one, Reference& reference, SharedResult& result) {
  const auto begin = Clock::now();
  Run run(options.programs, one.fault, reference);
  const Program& program = one.scenario->run(run);
  result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  if (options.verbose) {
    std::cout << "=== " << nameOf(one) << '\n' << run.stage().describe() << std::flush;
  }
  result.state = program.injection->injected() ? State::passed : State::notReached;
  if (!run.stage().failures().empty()) {
    const std::string& failure = run.stage().failures().front();
    result.state = isKnownLimit(one.fault, failure) ? State::known : State::failed;
    std::snprintf(result.text.data(), result.text.size(), "%s", failure.c_str());
  }
}

void work(const Options& options, const std::vector<Case>& cases, References& references,
          Shared& shared, SharedResult* results, Clock::time_point end) {
  Isolation isolation;
  while (Clock::now() < end) {
    const std::size_t index = shared.next++;
    if (index >= cases.size()) {
      return;
    }
    isolation.clear();
    runCase(options, cases[index], references[cases[index].scenario], results[index]);
  }
}

/// Runs the cases in worker processes; each has a /tmp of its own.
std::vector<Result> runAll(const Options& options, const std::vector<Case>& cases,
                           References& references, Clock::time_point end) {
  Shared& shared = *sharedMemory<Shared>(1);
  SharedResult* const results = sharedMemory<SharedResult>(cases.size());
  std::vector<pid_t> workers;
  for (unsigned i = 0; i < options.jobs; ++i) {
    const pid_t worker = ::fork();
    if (worker == 0) {
      int status = 0;
      try {
        work(options, cases, references, shared, results, end);
      } catch (const std::exception& error) {
        std::cerr << "fault_matrix: " << error.what() << '\n';
        status = 1;
      }
      std::_Exit(status);
    }
    workers.push_back(worker);
  }
  bool whole = true;
  for (const pid_t worker : workers) {
    int status = 0;
    whole = ::waitpid(worker, &status, 0) == worker && status == 0 && whole;
  }
  if (!whole) {
    throw std::runtime_error("a worker ended early");
  }
  std::vector<Result> copies;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    copies.push_back({results[i].state, results[i].seconds, results[i].text.data()});
  }
  return copies;
}

int runMatrix(const Options& options) {
  const auto begin = Clock::now();
  std::vector<Case> cases;
  std::vector<Result> results;
  {
    Isolation isolation;
    References references;
    cases = discover(options, isolation, references);
    std::shuffle(cases.begin(), cases.end(), std::mt19937(options.seed));
    results = runAll(options, cases, references, begin + options.time);
  }
  const auto count = [&](State state) {
    return std::count_if(results.begin(), results.end(),
                         [&](const Result& result) { return result.state == state; });
  };
  const auto failed = count(State::failed);
  const std::chrono::duration<double> time = Clock::now() - begin;
  std::cout << matrix(cases, results) << failures(cases, results) << slowest(cases, results)
            << "seed " << options.seed << ": " << cases.size() << " runs, " << count(State::passed)
            << " passed, " << count(State::known) << " known limits, " << failed << " failed, "
            << count(State::notReached) << " without the call, " << count(State::notRun)
            << " not run; " << time.count() << " s\n";
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    if (!parse(argc, argv, options)) {
      std::cerr << usage;
      return 2;
    }
    return runMatrix(options);
  } catch (const std::exception& error) {
    std::cerr << "fault_matrix: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
