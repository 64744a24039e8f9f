#include "tests/gateway/network_namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "tests/support/process.h"

namespace gateway_test {

namespace {

using test_support::Descriptor;

/// The network of the calling thread.
Descriptor currentNetwork() {
  Descriptor network(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
  if (!network.isOpen()) {
    test_support::throwError("/proc/thread-self/ns/net");
  }
  return network;
}

}  // namespace

std::string NetworkNamespace::obstacle() {
  if (::geteuid() != 0) {
    return "only root can have networks of its own";
  }
  try {
    const NetworkNamespace near;
    const NetworkNamespace far;
    near.connect(far, "probe", 1);
  } catch (const std::exception& error) {
    return std::string("no networks of its own here: ") + error.what();
  }
  return {};
}

NetworkNamespace::NetworkNamespace() {
  const Descriptor before = currentNetwork();
  if (::unshare(CLONE_NEWNET) != 0) {
    test_support::throwError("unshare");
  }
  own_ = currentNetwork();
  if (::setns(before.get(), CLONE_NEWNET) != 0) {
    test_support::throwError("setns");
  }
  ip({"link", "set", "lo", "up"});
}

NetworkNamespace::Visit::Visit(const NetworkNamespace& visited) : before_(currentNetwork()) {
  if (::setns(visited.own_.get(), CLONE_NEWNET) != 0) {
    test_support::throwError("setns");
  }
}

NetworkNamespace::Visit::~Visit() {
  if (::setns(before_.get(), CLONE_NEWNET) != 0) {
    // Whatever followed would be in a wrong network.
    std::perror("setns");
    std::abort();
  }
}

void NetworkNamespace::connect(const NetworkNamespace& far, const std::string& name,
                               int number) const {
  const std::string network = "10.0." + std::to_string(number) + '.';
  // The descriptor is this process's, not that of ip(8).
  const std::string path =
      "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(far.own_.get());
  ip({"link", "add", name, "type", "veth", "peer", "name", "uplink", "netns", path});
  ip({"address", "add", network + "1/24", "dev", name});
  far.ip({"address", "add", network + "2/24", "dev", "uplink"});
  ip({"link", "set", name, "up"});
  far.ip({"link", "set", "uplink", "up"});
}

void NetworkNamespace::ip(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "ip");
  const test_support::Finished finished = inside([&] { return test_support::run(arguments); });
  if (finished.status != test_support::ExitStatus{}) {
    throw std::runtime_error(arguments[1] + ' ' + arguments[2] + ": " + finished.errors);
  }
}

}  // namespace gateway_test
