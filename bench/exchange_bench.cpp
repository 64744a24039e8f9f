#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

#include "bench/baseline_pipes.h"
#include "bench/concurrent_clients.h"
#include "bench/ratio_table.h"
#include "bench/served_tree.h"

// The time of an exchange with a model server, for one client and for 64 concurrent clients.
// The baseline is a round trip between two processes over named pipes with messages of the same
// length. All processes run on one processor; then the server runs on another.

namespace {

/// Both servers on `serverProcessor`; the clients are on the first processor.
class Placement {
 public:
  Placement(const std::string& description, unsigned serverProcessor)
      : baseline_(serverProcessor),
        server_(serverProcessor),
        baselineName_("baseline round trip, " + description),
        oneName_("element sum, " + description),
        clientsName_("element sum of 64 clients, " + description) {
    bench::registerRounds(baselineName_, [this] { return baseline_.roundTrip(); });
    bench::registerRounds(oneName_, [this] { return client_.request(); });
    registerConcurrentClients();
  }

  [[nodiscard]] std::vector<bench::Comparison> comparisons() const {
    // A target of 1.25 times the time is one of 0.8 times the rate.
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
            if (!clients_.run()) {
              state.SkipWithError("no reply");
              break;
            }
            const std::chrono::duration<double> taken = Clock::now() - start;
            state.SetIterationTime(taken.count() / (bench::ConcurrentClients::size *
                                                    bench::ConcurrentClients::requestsEach));
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
