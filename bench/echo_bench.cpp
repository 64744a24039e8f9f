#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/ratio_table.h"
#include "bench/served_tree.h"

// The time from a key press to its echo on the terminal. The baseline is a program that writes
// back each byte that it reads. Both programs run on the processor of the typing process, then
// on another one.

namespace {

/// A terminal with `program` on it, bound to a processor.
class Terminal {
 public:
  Terminal(unsigned processor, const std::function<void()>& program)
      : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)),
        device_(deviceOf(master_)),
        child_([this, processor, &program] {
          if (::setsid() != -1 && attach() && bench::pinTo(processor)) {
            program();
          }
        }) {}
  ~Terminal() { ::close(master_); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Types `key` and reads until the output ends in `echo`. False at the end of the output or
  /// on an error.
  bool exchange(char key, std::string_view echo) {
    return ::write(master_, &key, 1) == 1 && readUntil(echo);
  }

  bool readUntil(std::string_view end) {
    std::string output;
    while (!output.ends_with(end)) {
      std::array<char, 256> buffer{};
      const ssize_t count = ::read(master_, buffer.data(), buffer.size());
      if (count <= 0) {
        return false;
      }
      output.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return true;
  }

 private:
  static std::string deviceOf(int master) {
    std::array<char, 128> name{};
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0 ||
        ::ptsname_r(master, name.data(), name.size()) != 0) {
      throw std::runtime_error("no pseudoterminal");
    }
    return name.data();
  }

  [[nodiscard]] bool attach() const {
    const int terminal = ::open(device_.c_str(), O_RDWR);
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 80;
    return terminal >= 0 && ::ioctl(terminal, TIOCSWINSZ, &size) == 0 &&
           ::dup2(terminal, STDIN_FILENO) == STDIN_FILENO &&
           ::dup2(terminal, STDOUT_FILENO) == STDOUT_FILENO;
  }

  int master_;
  std::string device_;
  bench::Child child_;
};

/// Echoes keys as the baseline; in the terminal mode of the shell: each key at once, no echo.
void echoKeys() {
  termios mode{};
  if (::tcgetattr(STDIN_FILENO, &mode) != 0) {
    return;
  }
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  char key = '$';
  if (::tcsetattr(STDIN_FILENO, TCSANOW, &mode) != 0) {
    return;
  }
  while (::write(STDOUT_FILENO, &key, 1) == 1 && ::read(STDIN_FILENO, &key, 1) == 1) {
  }
}

void runShell() {
  ::execl(SHELL_PROGRAM, SHELL_PROGRAM, nullptr);
}

/// Measures a key and its echo; `undo` then deletes the key.
void registerKeys(const std::string& name, const std::function<bool()>& echo,
                  const std::function<bool()>& undo) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [echo, undo](benchmark::State& state) {
                                 using Clock = std::chrono::steady_clock;
                                 for (auto _ : state) {
                                   const auto begin = Clock::now();
                                   const bool echoed = echo();
                                   const std::chrono::duration<double> time = Clock::now() - begin;
                                   if (!echoed || !undo()) {
                                     state.SkipWithError("no echo");
                                     break;
                                   }
                                   state.SetIterationTime(time.count());
                                 }
                               })
      ->Repetitions(60)
      ->MinTime(0.02)
      ->UseManualTime();
}

/// Both programs on `processor`; the typing process is on the first one.
class Placement {
 public:
  Placement(const std::string& description, unsigned processor)
      : baseline_(processor, echoKeys),
        shell_(processor, runShell),
        comparison_{"baseline key and echo, " + description,
                    "treescope key and echo, " + description, 3.0} {
    constexpr std::string_view emptyLine = "\033[7G\033[0K\033[7G";
    constexpr std::string_view oneKey = "\033[7Gx\033[0K\033[8G";
    constexpr char deleteToStart = 23;  // Ctrl-W
    if (!baseline_.readUntil("$") || !shell_.readUntil(emptyLine)) {
      throw std::runtime_error("no prompt");
    }
    const auto exchange = [this] { return baseline_.exchange('x', "x"); };
    registerKeys(comparison_.baseline, exchange, exchange);
    registerKeys(
        comparison_.ours, [this, oneKey] { return shell_.exchange('x', oneKey); },
        [this, emptyLine] { return shell_.exchange(deleteToStart, emptyLine); });
  }

  [[nodiscard]] std::vector<bench::Comparison> comparisons() const { return {comparison_}; }

 private:
  Terminal baseline_;
  Terminal shell_;
  bench::Comparison comparison_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runInBothPlacements<Placement>(argc, argv);
}
