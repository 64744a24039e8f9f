// A model client in a bare epoll(7) loop: prints the changes of /ticks, and the lines that
// it reads from standard input, until that ends. Usage: "epoll_client [NAME]".

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <iostream>

#include "watcher.h"

namespace {

bool listen(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  Watcher watcher(manager);
  const std::string name = argc > 1 ? argv[1] : "Model_counter";
  if (const auto result = watcher.watch(name); result != ModelSrv::ModelRes_Success) {
    std::cerr << "epoll_client: " << name << ": " << describe(result) << '\n';
    return 1;
  }
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!listen(epoll, manager.pollDescriptor()) || !listen(epoll, STDIN_FILENO)) {
    std::cerr << "epoll_client: cannot make the event loop\n";
    return 1;
  }
  std::cout << "watching " << name << std::endl;
  for (;;) {
    epoll_event event{};
    if (epoll_wait(epoll, &event, 1, -1) != 1) {
      continue;
    }
    if (event.data.fd != STDIN_FILENO) {
      static_cast<void>(manager.receiveEvent(0));
      continue;
    }
    std::array<char, 256> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
      break;
    }
    std::cout.write(bytes.data(), count).flush();
  }
  return 0;
}
