#include "tests/attack/changing_server.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <deque>
#include <stdexcept>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"

namespace attack {

namespace {

using ModelSrv::ModelRes_Success;
using ModelSrv::ValuePart;

/// Serves until the process is killed; returns if that is not possible.
void serve(const std::string& name, int ready) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  ValuePart<std::int32_t> value(1, "value");
  ValuePart<bool> toggle(ChangingServer::toggle, "toggle");
  std::deque<ValuePart<std::int32_t>> parts;
  ModelSrv::ModelNode node(ChangingServer::changing, "changing");
  for (unsigned short id = 1; id <= ChangingServer::changingParts; ++id) {
    static_cast<void>(node.add(&parts.emplace_back(id, "part_" + std::to_string(id))));
  }
  toggle.setStoreCheck([&](bool isThere, ModelSrv::ModelPartIndex) {
    const bool changes = isThere != (node.parent() != nullptr);
    return !changes ? ModelRes_Success : isThere ? root.add(&node) : root.remove(&node);
  });
  if (root.add(&value) == ModelRes_Success && root.add(&toggle) == ModelRes_Success &&
      root.startAsServer(name) == ModelRes_Success && ::write(ready, "r", 1) == 1) {
    for (;;) {
      static_cast<void>(manager.receiveEvent(-1));
    }
  }
}

}  // namespace

ChangingServer::ChangingServer(const std::string& name) : mailbox_("/tmp/" + name + ".fifo") {
  std::array<int, 2> pipe{};
  if (::pipe(pipe.data()) != 0) {
    throw std::runtime_error("no pipe");
  }
  pid_ = ::fork();
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(pipe[0]);
    serve(name, pipe[1]);
    ::_exit(1);
  }
  ::close(pipe[1]);
  char byte = 0;
  const bool isReady = pid_ > 0 && ::read(pipe[0], &byte, 1) == 1;
  ::close(pipe[0]);
  if (!isReady) {
    throw std::runtime_error("the server does not start");
  }
}

ChangingServer::~ChangingServer() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  ::unlink(mailbox_.c_str());
}

}  // namespace attack
