#include "bench/served_tree.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>

#include "modelsrv/value_parts.h"

namespace bench {
namespace {

std::atomic<bool> stopping{false};
std::atomic<EvtSrv::EventPortManager*> servingManager{nullptr};

/// A part whose metadata clients must not cache.
class Load : public ModelSrv::ModelPart {
 public:
  Load() : ModelPart(2, "load") {}
  ~Load() override { detach(); }

 protected:
  [[nodiscard]] unsigned elementCount() const override { return 3; }
};

extern "C" void stopServing(int) {
  stopping.store(true);
  if (auto* const manager = servingManager.load()) {
    manager->wake();
  }
}

/// Writes one byte to `ready`: 'y' once clients can connect, 'n' if they cannot.
void serve(const std::string& name, int ready) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  ModelSrv::ValuePart<std::int32_t> speed(1, "speed", 42);
  Load load;
  servingManager.store(&manager);
  struct sigaction action {};
  action.sa_handler = stopServing;
  const bool up = root.add(&speed) == ModelSrv::ModelRes_Success &&
                  root.add(&load) == ModelSrv::ModelRes_Success &&
                  root.startAsServer(name) == ModelSrv::ModelRes_Success &&
                  sigaction(SIGTERM, &action, nullptr) == 0;
  const char status = up ? 'y' : 'n';
  if (::write(ready, &status, 1) != 1 || !up) {
    return;
  }
  while (!stopping.load()) {
    const EvtSrv::EvtRes result = manager.receiveEvent(-1);
    if (result != EvtSrv::EvtRes_Success && result != EvtSrv::EvtRes_Timeout) {
      return;
    }
  }
  servingManager.store(nullptr);
  root.stop(true);
}

}  // namespace

ServedTree::ServedTree(unsigned processor)
    : name_("Model_bench" + std::to_string(::getpid()) + "_" + std::to_string(processor)) {
  const Pipe ready;
  child_ = std::make_unique<Child>([this, processor, &ready] {
    if (pinTo(processor)) {
      serve(name_, ready.writing);
    }
  });
  ::close(ready.writing);
  char status = 'n';
  const ssize_t count = ::read(ready.reading, &status, 1);
  ::close(ready.reading);
  if (count != 1 || status != 'y') {
    throw std::runtime_error("the server did not start");
  }
}

ElementSumClient::ElementSumClient(const std::string& server) {
  if (root_.add(&part_) != ModelSrv::ModelRes_Success ||
      root_.startAsClient(server, ModelSrv::ModelRoot::CachePeriod_Stop,
                          EvtSrv::ConBehave_Default) != ModelSrv::ModelRes_Success) {
    throw std::runtime_error("no connection to the server");
  }
}

bool ElementSumClient::request() {
  unsigned short sum = 0;
  return root_.getElementSumFromServer(&part_, sum) == ModelSrv::ModelRes_Success && sum == 3;
}

}  // namespace bench
