#include "bench/served_tree.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <vector>

#include "modelsrv/value_parts.h"

namespace bench {
namespace {

std::atomic<bool> ending{false};
std::atomic<EvtSrv::EventPortManager*> pumped{nullptr};

/// Nothing that is said of it may be kept.
class Load : public ModelSrv::ModelPart {
 public:
  Load() : ModelPart(2, "load") {}
  ~Load() override { detach(); }

 protected:
  [[nodiscard]] unsigned elementCount() const override { return 3; }
};

extern "C" void endServing(int) {
  ending.store(true);
  if (auto* const manager = pumped.load()) {
    manager->wake();
  }
}

void serve(const std::string& name, int ready) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  ModelSrv::ValuePart<std::int32_t> speed(1, "speed", 42);
  Load load;
  pumped.store(&manager);
  struct sigaction action {};
  action.sa_handler = endServing;
  const bool up = root.add(&speed) == ModelSrv::ModelRes_Success &&
                  root.add(&load) == ModelSrv::ModelRes_Success &&
                  root.startAsServer(name) == ModelSrv::ModelRes_Success &&
                  sigaction(SIGTERM, &action, nullptr) == 0;
  const char answer = up ? 'y' : 'n';
  if (::write(ready, &answer, 1) != 1 || !up) {
    return;
  }
  while (!ending.load()) {
    const EvtSrv::EvtRes result = manager.receiveEvent(-1);
    if (result != EvtSrv::EvtRes_Success && result != EvtSrv::EvtRes_Timeout) {
      return;
    }
  }
  pumped.store(nullptr);
  root.stop(true);
}

}  // namespace

bool endWith(pid_t parent) {
  // The parent may have ended before the system knew whom to tell.
  return ::prctl(PR_SET_PDEATHSIG, SIGTERM) == 0 && ::getppid() == parent;
}

Child::Child(const std::function<void()>& body) {
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) {
    throw std::runtime_error("fork");
  }
  if (pid_ == 0) {
    if (endWith(parent)) {
      body();
    }
    ::_exit(0);
  }
}

Child::~Child() {
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
}

ServedTree::ServedTree(unsigned processor)
    : name_("Model_bench" + std::to_string(::getpid()) + "_" + std::to_string(processor)) {
  int ready[2] = {-1, -1};
  if (::pipe2(ready, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2");
  }
  child_ = std::make_unique<Child>([this, processor, ready] {
    if (pinTo(processor)) {
      serve(name_, ready[1]);
    }
  });
  ::close(ready[1]);
  char answer = 'n';
  const ssize_t count = ::read(ready[0], &answer, 1);
  ::close(ready[0]);
  if (count != 1 || answer != 'y') {
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

bool ElementSumClient::ask() {
  unsigned short sum = 0;
  return root_.getElementSumFromServer(&part_, sum) == ModelSrv::ModelRes_Success && sum == 3;
}

bool pinTo(unsigned index) {
  cpu_set_t allowed;
  if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
    return false;
  }
  std::vector<unsigned> processors;
  for (unsigned cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &allowed)) {
      processors.push_back(cpu);
    }
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processors[index % processors.size()], &one);
  return ::sched_setaffinity(0, sizeof one, &one) == 0;
}

}  // namespace bench
