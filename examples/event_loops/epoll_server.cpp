// A model server in a bare epoll(7) loop, beside a timer and signals of the program's own.
// Usage: "epoll_server [NAME]", by default Model_counter. Ends on SIGINT or SIGTERM.

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <iostream>

#include "counter.h"

namespace {

bool watch(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

int openTimer() {
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  constexpr timespec period{0, 50'000'000};
  const itimerspec times{period, period};
  return timer >= 0 && timerfd_settime(timer, 0, &times, nullptr) == 0 ? timer : -1;
}

int openSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

int main(int argc, char* argv[]) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  Counter counter(manager);
  const std::string name = argc > 1 ? argv[1] : "Model_counter";
  if (const auto result = counter.publish(name); result != ModelSrv::ModelRes_Success) {
    std::cerr << "epoll_server: " << name << ": " << describe(result) << '\n';
    return 1;
  }
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  const int timer = openTimer();
  const int signals = openSignals();
  const int port = manager.pollDescriptor();
  if (!watch(epoll, port) || !watch(epoll, timer) || !watch(epoll, signals)) {
    std::cerr << "epoll_server: cannot make the event loop\n";
    return 1;
  }
  std::cout << "ready " << name << std::endl;
  for (;;) {
    epoll_event event{};
    if (epoll_wait(epoll, &event, 1, -1) != 1) {
      continue;
    }
    std::uint64_t expirations = 0;
    if (event.data.fd == port) {
      static_cast<void>(manager.receiveEvent(0));
    } else if (event.data.fd == signals) {
      break;
    } else if (read(timer, &expirations, sizeof expirations) > 0) {
      counter.tick();
    }
  }
  counter.root.stop(true);
  return 0;
}
