#include "tests/gateway/link/broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tests/support/descriptor.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
/// libmosquitto locks its mutexes in different orders, all on the one thread that uses a client. (A
/// suppression would start the symbolizer, which leaves pipes open.)
extern "C" const char* __tsan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __tsan_default_options() {
  return "detect_deadlocks=0";
}
#endif
#endif

namespace gateway_test {

namespace {

using test_support::Descriptor;

/// A port of 127.0.0.1 that was free a moment ago.
int freePort() {
  const Descriptor descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(descriptor.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(descriptor.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    test_support::throwError("bind");
  }
  return ntohs(address.sin_port);
}

bool connects(int family, const sockaddr* address, socklen_t size) {
  const Descriptor descriptor(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::connect(descriptor.get(), address, size) == 0;
}

}  // namespace

Broker::Broker(Options options) : options_(std::move(options)) {
  // Its clients write to a broker that is killed.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  start();
}

Broker::~Broker() {
  if (process_) {
    kill();
  }
}

void Broker::configure() {
  std::string text = "log_dest file " + directory_.file("log") + "\n";
  if (::geteuid() == 0) {
    // It would go on as another user, who cannot use the directory.
    text += "user root\n";
  }
  if (options_.whole) {
    static_cast<void>(directory_.write("mosquitto.conf", text + options_.whole(port_)));
    return;
  }
  text += "persistence false\nset_tcp_nodelay " + std::string(options_.noDelay ? "true" : "false");
  text += "\nper_listener_settings true\n" + options_.general;
  // The last one: once it accepts, the other is there.
  if (options_.tcp) {
    text += "listener " + std::to_string(port_) + " 127.0.0.1\n";
    text += std::string("allow_anonymous ") + (options_.anonymous ? "true\n" : "false\n");
    text += options_.listener;
  }
  text += "listener 0 " + socket() + "\nallow_anonymous true\n";
  static_cast<void>(directory_.write("mosquitto.conf", text));
}

bool Broker::accepts() const {
  if (options_.whole) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port_));
    return connects(AF_INET, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socket().c_str(), sizeof address.sun_path - 1);
  return connects(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

void Broker::launch() {
  configure();
  process_ = std::make_unique<test_support::Process>(
      std::vector<std::string>{"/usr/sbin/mosquitto", "-c", directory_.file("mosquitto.conf")},
      test_support::ProcessOptions{.mergeErrors = true});
}

void Broker::start() {
  const bool chosen = port_ != 0;
  for (int attempt = 0; attempt < 5; ++attempt) {
    if ((options_.tcp || options_.whole) && !chosen) {
      port_ = freePort();
    }
    launch();
    bool running = true;
    const bool ready = test_support::eventually([&] {
      running = !process_->waitForExit(std::chrono::milliseconds(0));
      return !running || accepts();
    });
    if (ready && running) {
      return;
    }
    if (running || chosen) {
      break;
    }
    // Another program may have taken the port in between.
  }
  throw std::runtime_error("no broker: " + process_->output());
}

void Broker::stop() {
  process_->signal(SIGTERM);
  if (!process_->waitForExit()) {
    throw std::runtime_error("the broker does not end");
  }
  process_.reset();
}

void Broker::kill() {
  process_->signal(SIGKILL);
  static_cast<void>(process_->waitForExit());
  process_.reset();
}

void Broker::pause() {
  process_->signal(SIGSTOP);
}
void Broker::resume() {
  process_->signal(SIGCONT);
}

long Broker::memory() const {
  return test_support::procNumber(process_->pid(), "status", "VmRSS:");
}

}  // namespace gateway_test
