#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

#include "bench/baseline_pipes.h"
#include "bench/concurrent_clients.h"
#include "bench/ratio_table.h"
#include "bench/served_tree.h"

// What an exchange with a model server costs beside the least that a round trip
// between two processes over named pipes can cost: of one client, and of 64 that ask at
// the same time. The bytes are as many, and the processes are placed alike: all on one
// processor, then the server on another.

namespace {

/// All servers on the same processor, all clients on the first one.
class Placement {
 public:
  Placement(const std::string& where, unsigned serverProcessor)
      : baseline_(serverProcessor),
        server_(serverProcessor),
        baselineName_("bare round trip, " + where),
        oneName_("element sum, " + where),
        clientsName_("element sum of 64 clients, " + where) {
    bench::registerRounds(baselineName_, [this] { return baseline_.roundTrip(); });
    bench::registerRounds(oneName_, [this] { return client_.ask(); });
    registerConcurrentClients();
  }

  [[nodiscard]] std::vector<bench::Comparison> comparisons() const {
    // Four fifths of the rate are five fourths of the time.
    return {{baselineName_, oneName_, 1.3}, {baselineName_, clientsName_, 1.25}};
  }

 private:
  void registerConcurrentClients() {
    using Clock = std::chrono::steady_clock;
    benchmark::RegisterBenchmark(
        clientsName_.c_str(),
        [this](benchmark::State& state) {
          for (auto _ : state) {
            const Clock::time_point start = Clock::now();
            if (!clients_.ask()) {
              state.SkipWithError("no answer");
              break;
            }
            const std::chrono::duration<double> taken = Clock::now() - start;
            state.SetIterationTime(taken.count() / (bench::ConcurrentClients::size *
                                                    bench::ConcurrentClients::questionsEach));
          }
        })
        ->Repetitions(60)
        ->Iterations(1)
        ->UseManualTime();
  }

  bench::BaselinePipes baseline_;
  bench::ServedTree server_;
  bench::ConcurrentClients clients_{server_.name(), 0};
  bench::ElementSumClient client_{server_.name()};
  std::string baselineName_;
  std::string oneName_;
  std::string clientsName_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runInBothPlacements<Placement>(argc, argv);
}
