#include "bench/child_process.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <vector>

namespace bench {

Child::Child(const std::function<void()>& body) {
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) {
    throw std::runtime_error("fork");
  }
  if (pid_ == 0) {
    // The parent may have ended before the signal was requested.
    if (::prctl(PR_SET_PDEATHSIG, SIGTERM) == 0 && ::getppid() == parent) {
      body();
    }
    ::_exit(0);
  }
}

Child::~Child() {
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
}

Pipe::Pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2");
  }
  reading = ends[0];
  writing = ends[1];
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
