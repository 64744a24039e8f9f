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
// between two processes over named pipes can cost. The bytes are as many, and the
// processes are placed alike: both on one processor, then each on its own.

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
  unsigned processor;
  NamedPipe requests{"-requests"};
  NamedPipe replies{"-replies"};
  bench::Child server{[this] {
    const bool pinned = bench::pinTo(processor);
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

  explicit Client(unsigned processor) : server(processor) {
    if (root.add(&part) != ModelSrv::ModelRes_Success ||
        root.startAsClient(server.name(), ModelSrv::ModelRoot::CachePeriod_Stop,
                           EvtSrv::ConBehave_Default) != ModelSrv::ModelRes_Success) {
      throw std::runtime_error("no connection to the server");
    }
  }
};

template <typename Round>
void registerRounds(const std::string& name, Round round) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [round](benchmark::State& state) {
                                 for (auto _ : state) {
                                   if (!round()) {
                                     state.SkipWithError("no answer");
                                     break;
                                   }
                                 }
                               })
      ->Repetitions(60)
      ->MinTime(0.03)
      ->UseRealTime();
}

/// Both servers on the same processor, the client on the first one.
class Placement {
 public:
  Placement(const std::string& where, unsigned serverProcessor)
      : bare_{serverProcessor},
        client_(serverProcessor),
        comparison_{"bare round trip, " + where, "element sum, " + where, 1.5} {
    registerRounds(comparison_.bare, [this] {
      return send(bare_.requests.descriptor(), requestSize) &&
             receive(bare_.replies.descriptor(), replySize);
    });
    registerRounds(comparison_.ours, [this] {
      unsigned short sum = 0;
      return client_.root.getElementSumFromServer(&client_.part, sum) ==
                 ModelSrv::ModelRes_Success &&
             sum == 3;
    });
  }

  [[nodiscard]] const bench::Comparison& comparison() const { return comparison_; }

 private:
  BarePipes bare_;
  Client client_;
  bench::Comparison comparison_;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    Placement together("one processor", 0);
    Placement apart("a processor each", 1);
    if (!bench::pinTo(0)) {
      throw std::runtime_error("cannot bind to a processor");
    }
    return bench::runAndCompare(argc, argv, {together.comparison(), apart.comparison()});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "exchange_bench: %s\n", error.what());
    return 1;
  }
}
