// A model server in an sd-event loop (sd-event(3)). Usage: "sd_event_server [NAME]", by
// default Model_counter. Ends on SIGINT or SIGTERM.

#include <systemd/sd-event.h>

#include <csignal>
#include <cstdint>
#include <iostream>

#include "counter.h"

namespace {

constexpr std::uint64_t periodUs = 50'000;

int receive(sd_event_source*, int, std::uint32_t, void* manager) {
  static_cast<void>(static_cast<EvtSrv::EventPortManager*>(manager)->receiveEvent(0));
  return 0;
}

int tick(sd_event_source* timer, std::uint64_t, void* counter) {
  static_cast<Counter*>(counter)->tick();
  const int result = sd_event_source_set_time_relative(timer, periodUs);
  return result < 0 ? result : sd_event_source_set_enabled(timer, SD_EVENT_ONESHOT);
}

int addSources(sd_event* loop, EvtSrv::EventPortManager& manager, Counter& counter) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  int result = sd_event_add_io(loop, nullptr, manager.pollDescriptor(), EPOLLIN, receive, &manager);
  if (result >= 0) {
    result =
        sd_event_add_time_relative(loop, nullptr, CLOCK_MONOTONIC, periodUs, 0, tick, &counter);
  }
  // Without a handler the signal ends the loop.
  for (const int signal : {SIGINT, SIGTERM}) {
    result = result < 0 ? result : sd_event_add_signal(loop, nullptr, signal, nullptr, nullptr);
  }
  return result;
}

}  // namespace

int main(int argc, char* argv[]) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  Counter counter(manager);
  const std::string name = argc > 1 ? argv[1] : "Model_counter";
  if (const auto result = counter.publish(name); result != ModelSrv::ModelRes_Success) {
    std::cerr << "sd_event_server: " << name << ": " << describe(result) << '\n';
    return 1;
  }
  sd_event* loop = nullptr;
  if (sd_event_default(&loop) < 0 || addSources(loop, manager, counter) < 0) {
    std::cerr << "sd_event_server: cannot make the event loop\n";
    return 1;
  }
  std::cout << "ready " << name << std::endl;
  const int result = sd_event_loop(loop);
  sd_event_unref(loop);
  counter.root.stop(true);
  return result < 0 ? 1 : 0;
}
