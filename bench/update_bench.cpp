#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/baseline_pipes.h"
#include "bench/programs.h"
#include "bench/ratio_table.h"
#include "modelsrv/model_node.h"
#include "modelsrv/model_root.h"

// The time of an update: from the reply to a client's store until the subscribed shell has
// printed the update. The baseline is a round trip between two processes on the processors of
// the shell and the server.

namespace {

using Clock = std::chrono::steady_clock;

/// Stores numbers in the one part of a synthetic tree.
class StoringClient {
 public:
  explicit StoringClient(const std::string& server) {
    if (group_.add(&item_) != ModelSrv::ModelRes_Success ||
        root_.add(&group_) != ModelSrv::ModelRes_Success ||
        root_.startAsClient(server, ModelSrv::ModelRoot::CachePeriod_Stop,
                            EvtSrv::ConBehave_Default) != ModelSrv::ModelRes_Success) {
      throw std::runtime_error("no connection to the server");
    }
  }

  /// Stores a value that differs from the current one; false on an error.
  bool storeAnother() {
    std::istringstream text(std::to_string(++stored_));
    return item_.load(text, false, ModelSrv::ModelPartIndex_All) == ModelSrv::ModelRes_Success;
  }

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ModelNode group_{0, "group_000"};
  ModelSrv::ModelPart item_{0, "item_0000"};
  int stored_ = 0;
};

constexpr const char* partPath = "/group_000/item_0000";

/// The shell on the first processor, the server on `serverProcessor`.
class Placement {
 public:
  Placement(const std::string& description, unsigned serverProcessor)
      : baseline_(serverProcessor),
        server_({"--synthetic", "1x1"}, serverProcessor),
        comparison_{"baseline round trip, " + description, "update shown, " + description, 5.0} {
    shell_.type("cd " + server_.name());
    shell_.type(std::string("eu ") + partPath);
    bench::registerRounds(comparison_.baseline, [this] { return baseline_.roundTrip(); });
    registerUpdates();
  }

  [[nodiscard]] std::vector<bench::Comparison> comparisons() const { return {comparison_}; }

 private:
  void registerUpdates() {
    benchmark::RegisterBenchmark(
        comparison_.ours.c_str(),
        [this](benchmark::State& state) {
          for (auto _ : state) {
            shell_.clear();
            if (!client_.storeAnother()) {
              state.SkipWithError("the store failed");
              break;
            }
            const Clock::time_point stored = Clock::now();
            if (!shell_.await(partPath)) {
              state.SkipWithError("the shell has exited");
              break;
            }
            state.SetIterationTime(std::chrono::duration<double>(Clock::now() - stored).count());
          }
        })
        ->Repetitions(60)
        ->Iterations(300)
        ->UseManualTime();
  }

  bench::BaselinePipes baseline_;
  bench::ServerProgram server_;
  bench::TypedShell shell_{0};
  StoringClient client_{server_.name()};
  bench::Comparison comparison_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runInBothPlacements<Placement>(argc, argv);
}
