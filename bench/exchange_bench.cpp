#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/bare_pipes.h"
#include "bench/ratio_table.h"
#include "bench/served_tree.h"
#include "modelsrv/model_root.h"

// What an exchange with a model server costs beside the least that a round trip
// between two processes over named pipes can cost. The bytes are as many, and the
// processes are placed alike: both on one processor, then each on its own.

namespace {

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

/// Both servers on the same processor, the client on the first one.
class Placement {
 public:
  Placement(const std::string& where, unsigned serverProcessor)
      : bare_(serverProcessor),
        client_(serverProcessor),
        comparison_{"bare round trip, " + where, "element sum, " + where, 1.5} {
    bench::registerRounds(comparison_.bare, [this] { return bare_.roundTrip(); });
    bench::registerRounds(comparison_.ours, [this] {
      unsigned short sum = 0;
      return client_.root.getElementSumFromServer(&client_.part, sum) ==
                 ModelSrv::ModelRes_Success &&
             sum == 3;
    });
  }

  [[nodiscard]] const bench::Comparison& comparison() const { return comparison_; }

 private:
  bench::BarePipes bare_;
  Client client_;
  bench::Comparison comparison_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runInBothPlacements<Placement>(argc, argv);
}
