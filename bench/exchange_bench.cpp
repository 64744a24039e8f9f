#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

#include "bench/bare_pipes.h"
#include "bench/client_crowd.h"
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
      : bare_(serverProcessor),
        server_(serverProcessor),
        bareName_("bare round trip, " + where),
        oneName_("element sum, " + where),
        crowdName_("element sum of 64 clients, " + where) {
    bench::registerRounds(bareName_, [this] { return bare_.roundTrip(); });
    bench::registerRounds(oneName_, [this] { return client_.ask(); });
    registerCrowd();
  }

  [[nodiscard]] std::vector<bench::Comparison> comparisons() const {
    // Four fifths of the rate are five fourths of the time.
    return {{bareName_, oneName_, 1.3}, {bareName_, crowdName_, 1.25}};
  }

 private:
  void registerCrowd() {
    using Clock = std::chrono::steady_clock;
    benchmark::RegisterBenchmark(
        crowdName_.c_str(),
        [this](benchmark::State& state) {
          for (auto _ : state) {
            const Clock::time_point start = Clock::now();
            if (!crowd_.ask()) {
              state.SkipWithError("no answer");
              break;
            }
            const std::chrono::duration<double> taken = Clock::now() - start;
            state.SetIterationTime(taken.count() /
                                   (bench::ClientCrowd::size * bench::ClientCrowd::questionsEach));
          }
        })
        ->Repetitions(60)
        ->Iterations(1)
        ->UseManualTime();
  }

  bench::BarePipes bare_;
  bench::ServedTree server_;
  bench::ClientCrowd crowd_{server_.name(), 0};
  bench::ElementSumClient client_{server_.name()};
  std::string bareName_;
  std::string oneName_;
  std::string crowdName_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runInBothPlacements<Placement>(argc, argv);
}
