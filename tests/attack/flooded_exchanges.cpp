#include "tests/attack/flooded_exchanges.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "tests/fault/raw_pipe.h"
#include "tests/fault/wire.h"
#include "tests/support/descriptor.h"

namespace attack {

namespace {

namespace wire = fault::wire;
using fault::RawClient;

/// The processes of a flood, which compete with no other process for a processor.
class FloodProcess {
 public:
  FloodProcess(const Flood& flood, const Target& server) : cleanUp_(flood.cleanUp), pid_(::fork()) {
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::signal(SIGPIPE, SIG_IGN);
      ::setpriority(PRIO_PROCESS, 0, 19);
      flood.act(server);
      ::_exit(0);
    }
  }
  ~FloodProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    if (cleanUp_) {
      cleanUp_();
    }
  }
  FloodProcess(const FloodProcess&) = delete;
  FloodProcess& operator=(const FloodProcess&) = delete;

 private:
  const std::function<void()> cleanUp_;
  pid_t pid_;
};

/// For how long a thread was ready to run and had no processor.
class ProcessorWaits {
 public:
  /// `path`: its schedstat file (proc(5)).
  explicit ProcessorWaits(const std::string& path)
      : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

  /// Since it began; always 0 if there is no such file.
  [[nodiscard]] double milliseconds() const {
    std::array<char, 128> text{};
    unsigned long long ran = 0;
    unsigned long long waited = 0;
    if (::pread(file_.get(), text.data(), text.size() - 1, 0) <= 0 ||
        std::sscanf(text.data(), "%llu %llu", &ran, &waited) != 2) {
      return 0;
    }
    return static_cast<double>(waited) / 1e6;
  }

 private:
  test_support::Descriptor file_;
};

}  // namespace

Durations exchangesUnder(const Flood* flood, const Target& server, std::chrono::milliseconds time) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds pause(1);
  RawClient honest;
  if (!honest.connect(server.mailbox)) {
    return {};
  }
  const ProcessorWaits ownWaits("/proc/thread-self/schedstat");
  const ProcessorWaits serverWaits("/proc/" + std::to_string(server.process) + "/schedstat");
  std::unique_ptr<FloodProcess> process;
  if (flood != nullptr) {
    process = std::make_unique<FloodProcess>(*flood, server);
  }
  const std::string part =
      (server.read.empty() ? wire::chain({readPart}) : server.read) + wire::u16(wire::wholeValue);
  Durations durations;
  const auto end = Clock::now() + time;
  while (Clock::now() < end) {
    const double waited = ownWaits.milliseconds() + serverWaits.milliseconds();
    const auto begin = Clock::now();
    const auto reply = honest.exchange(wire::save, part);
    const std::chrono::duration<double, std::milli> elapsed = Clock::now() - begin;
    if (!reply || reply->code != 0) {
      return {};
    }
    const double waits = ownWaits.milliseconds() + serverWaits.milliseconds() - waited;
    durations.elapsed.push_back(elapsed.count());
    durations.served.push_back(std::max(0.0, elapsed.count() - waits));
    // Its next request comes at any moment of what the server does.
    ::poll(nullptr, 0, static_cast<int>(pause.count()));
  }
  return durations;
}

}  // namespace attack
