// A model client in an sd-event loop (sd-event(3)): prints the changes of /ticks, and the
// lines that it reads from standard input, until that ends. Usage: "sd_event_client [NAME]".

#include <systemd/sd-event.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <iostream>

#include "watcher.h"

namespace {

int receive(sd_event_source*, int, std::uint32_t, void* manager) {
  static_cast<void>(static_cast<EvtSrv::EventPortManager*>(manager)->receiveEvent(0));
  return 0;
}

int readInput(sd_event_source* source, int input, std::uint32_t, void*) {
  std::array<char, 256> bytes{};
  const ssize_t count = read(input, bytes.data(), bytes.size());
  if (count <= 0) {
    return sd_event_exit(sd_event_source_get_event(source), 0);
  }
  std::cout.write(bytes.data(), count).flush();
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  Watcher watcher(manager);
  const std::string name = argc > 1 ? argv[1] : "Model_counter";
  if (const auto result = watcher.watch(name); result != ModelSrv::ModelRes_Success) {
    std::cerr << "sd_event_client: " << name << ": " << describe(result) << '\n';
    return 1;
  }
  sd_event* loop = nullptr;
  if (sd_event_default(&loop) < 0 ||
      sd_event_add_io(loop, nullptr, manager.pollDescriptor(), EPOLLIN, receive, &manager) < 0 ||
      sd_event_add_io(loop, nullptr, STDIN_FILENO, EPOLLIN, readInput, nullptr) < 0) {
    std::cerr << "sd_event_client: cannot make the event loop\n";
    return 1;
  }
  std::cout << "watching " << name << std::endl;
  const int result = sd_event_loop(loop);
  sd_event_unref(loop);
  return result < 0 ? 1 : 0;
}
