#include "bench/peers/supervisor.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "bench/peers/peer.h"

namespace bench::peers {

namespace {

/// Reaps what has ended, noting the status of `worker`; whether any child is left.
bool reap(pid_t worker, int& status, bool& working) {
  for (;;) {
    int ofChild = 0;
    const pid_t child = ::waitpid(-1, &ofChild, WNOHANG);
    if (child == worker) {
      status = ofChild;
      working = false;
    }
    if (child <= 0) {
      return child == 0;
    }
  }
}

/// What the worker left to this process and does not end by itself.
void killRest() {
  for (const pid_t process : withChildren(::getpid())) {
    if (process != ::getpid()) {
      ::kill(process, SIGKILL);
    }
  }
}

}  // namespace

int supervise(const std::function<int()>& work) {
  sigset_t awaited;
  sigset_t before;
  sigemptyset(&awaited);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
    sigaddset(&awaited, number);
  }
  // What loses its parent becomes a child of this process.
  if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0 || ::sigprocmask(SIG_BLOCK, &awaited, &before) != 0) {
    throw std::runtime_error("prctl or sigprocmask");
  }
  const pid_t parent = ::getpid();
  const pid_t worker = ::fork();
  if (worker < 0) {
    throw std::runtime_error("fork");
  }
  if (worker == 0) {
    const bool ready = endWith(parent) && ::sigprocmask(SIG_SETMASK, &before, nullptr) == 0;
    const int result = ready ? work() : 1;
    std::fflush(nullptr);
    ::_exit(result);
  }
  int status = 0;
  bool working = true;
  while (reap(worker, status, working)) {
    // Once the worker has gone, the others have 5 seconds to end by themselves.
    const timespec timeout{5, 0};
    const int number = ::sigtimedwait(&awaited, nullptr, &timeout);
    if (working && number > 0 && number != SIGCHLD) {
      ::kill(worker, number == SIGINT ? SIGTERM : number);
    } else if (!working && number < 0) {
      killRest();
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace bench::peers
