#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/ratio_table.h"
#include "bench/served_tree.h"
#include "modelsrv/model_root.h"

// What an exchange with a model server costs beside the least that a round trip
// between two processes over named pipes can cost. The two servers are bound to
// one processor and the client to another, and the bytes are as many.

namespace {

constexpr std::size_t requestSize = 20;
constexpr std::size_t replySize = 18;

/// Waits for bytes and reads them; false at the end or on a fault.
bool receive(int descriptor, std::size_t size) {
  std::array<char, 64> buffer{};
  pollfd waited{descriptor, POLLIN, 0};
  return ::poll(&waited, 1, -1) == 1 &&
         ::read(descriptor, buffer.data(), size) == static_cast<ssize_t>(size);
}

bool send(int descriptor, std::size_t size) {
  const std::array<char, 64> buffer{};
  return ::write(descriptor, buffer.data(), size) == static_cast<ssize_t>(size);
}

class NamedPipe {
 public:
  explicit NamedPipe(const char* purpose)
      : path_("/tmp/treescope-bench-" + std::to_string(::getpid()) + purpose) {
    if (::mkfifo(path_.c_str(), 0600) != 0) {
      throw std::runtime_error("mkfifo " + path_);
    }
    // For both directions, so that neither opening waits for the other process.
    descriptor_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
    ::unlink(path_.c_str());
  }
  ~NamedPipe() { ::close(descriptor_); }
  NamedPipe(const NamedPipe&) = delete;
  NamedPipe& operator=(const NamedPipe&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  std::string path_;
  int descriptor_ = -1;
};

/// The bare server: reads requests, writes replies.
struct BarePipes {
  NamedPipe requests{"-requests"};
  NamedPipe replies{"-replies"};
  bench::Child server{[this] {
    const bool pinned = bench::pinTo(1);
    while (pinned && receive(requests.descriptor(), requestSize) &&
           send(replies.descriptor(), replySize)) {
    }
  }};
};

/// A client of this system's server.
struct Client {
  bench::ServedTree server;
  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root{&manager};
  ModelSrv::ModelPart part{2, "load"};

  Client() {
    if (root.add(&part) != ModelSrv::ModelRes_Success ||
        root.startAsClient(server.name(), ModelSrv::ModelRoot::CachePeriod_Stop,
                           EvtSrv::ConBehave_Default) != ModelSrv::ModelRes_Success) {
      throw std::runtime_error("no connection to the server");
    }
  }
};

void registerBoth(BarePipes& bare, Client& client) {
  constexpr int repetitions = 60;
  constexpr double seconds = 0.03;
  benchmark::RegisterBenchmark("bare round trip",
                               [&bare](benchmark::State& state) {
                                 for (auto _ : state) {
                                   if (!send(bare.requests.descriptor(), requestSize) ||
                                       !receive(bare.replies.descriptor(), replySize)) {
                                     state.SkipWithError("pipe");
                                     break;
                                   }
                                 }
                               })
      ->Repetitions(repetitions)
      ->MinTime(seconds)
      ->UseRealTime();
  benchmark::RegisterBenchmark("exchange (element sum)",
                               [&client](benchmark::State& state) {
                                 for (auto _ : state) {
                                   unsigned short sum = 0;
                                   if (client.root.getElementSumFromServer(&client.part, sum) !=
                                           ModelSrv::ModelRes_Success ||
                                       sum != 3) {
                                     state.SkipWithError("exchange");
                                     break;
                                   }
                                 }
                               })
      ->Repetitions(repetitions)
      ->MinTime(seconds)
      ->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    BarePipes bare;
    Client client;
    if (!bench::pinTo(0)) {
      throw std::runtime_error("cannot bind to a processor");
    }
    registerBoth(bare, client);
    return bench::runAndCompare(argc, argv, "bare round trip", "exchange (element sum)", 1.5);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "exchange_bench: %s\n", error.what());
    return 1;
  }
}
