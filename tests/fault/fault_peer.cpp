#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/fault/client.h"
#include "tests/fault/served_tree.h"
#include "tests/support/process.h"
#include "tests/support/pump.h"
#include "tests/support/system_call_filter.h"

// The other process of the tests: a server, a client, or both. It executes the commands
// on its standard input, one a line, and prints one result line for each. Events are
// dispatched on a thread of their own. See `commands` for the list of commands.

namespace {

using fault::Client;

/// Reads lines from standard input; signals may interrupt it.
class Lines {
 public:
  std::optional<std::string> next() {
    for (;;) {
      if (const std::size_t end = text_.find('\n'); end != std::string::npos) {
        std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
      }
      char buffer[4096];
      const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
      if (count > 0) {
        text_.append(buffer, static_cast<std::size_t>(count));
      } else if (count == 0 || errno != EINTR) {
        return std::nullopt;
      }
    }
  }

 private:
  std::string text_;
};

bool printLine(std::string line) {
  line += '\n';
  for (std::size_t done = 0; done < line.size();) {
    const ssize_t count = ::write(STDOUT_FILENO, line.data() + done, line.size() - done);
    if (count < 0 && errno != EINTR) {
      return false;
    }
    done += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  return true;
}

std::string okOrErrno(bool done) {
  return done ? "ok" : "errno " + std::to_string(errno);
}

std::string number(ModelSrv::ModelRes result) {
  return std::to_string(static_cast<unsigned>(result));
}

class Peer {
 public:
  void runCommands();

 private:
  using Words = std::istringstream;

  struct Server {
    EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
    ModelSrv::ModelRoot root{&manager};
    fault::ServedTree tree{root};
    test_support::Pump pump{manager};
  };
  struct Connected {
    Client client;
    test_support::Pump pump{client.manager};
  };

  Server& server() {
    if (!server_) {
      server_ = std::make_unique<Server>();
    }
    return *server_;
  }
  Client& client() {
    if (!connected_) {
      connected_ = std::make_unique<Connected>();
    }
    return connected_->client;
  }

  std::string serve(Words& words);
  std::string become(Words& words);
  std::string run(Words& words);

  std::unique_ptr<Server> server_;
  std::unique_ptr<Connected> connected_;
};

/// serve NAME [GROUP]
std::string Peer::serve(Words& words) {
  std::string name;
  ModelSrv::ServerOptions options;
  words >> name;
  if (gid_t group = 0; words >> group) {
    options.group = group;
  }
  return number(server().root.startAsServer(name, options));
}

/// become USER GROUP [GROUP...]: the other groups are supplementary ones.
std::string Peer::become(Words& words) {
  uid_t user = 0;
  gid_t group = 0;
  words >> user >> group;
  std::vector<gid_t> others;
  for (gid_t other = 0; words >> other;) {
    others.push_back(other);
  }
  return okOrErrno(::setgroups(others.size(), others.data()) == 0 && ::setgid(group) == 0 &&
                   ::setuid(user) == 0 &&
                   // Otherwise the files of this process in /proc would belong to root.
                   ::prctl(PR_SET_DUMPABLE, 1) == 0);
}

/// run COMMAND: the output of the command comes before the result line.
std::string Peer::run(Words& words) {
  std::string command;
  std::getline(words >> std::ws, command);
  return "ended " + std::to_string(std::system(command.c_str()));
}

/// Sets the limit so that exactly `count` more descriptors can be opened. The numbers of
/// the open ones may have gaps.
bool leaveDescriptors(unsigned count) {
  int limit = 0;
  for (unsigned free = 0;; ++limit) {
    const bool isFree = ::fcntl(limit, F_GETFD) < 0;
    if (isFree && free == count) {
      break;
    }
    free += isFree ? 1 : 0;
  }
  rlimit now{};
  if (::getrlimit(RLIMIT_NOFILE, &now) != 0) {
    return false;
  }
  now.rlim_cur = static_cast<rlim_t>(limit);
  return ::setrlimit(RLIMIT_NOFILE, &now) == 0;
}

bool startTimerSignals(suseconds_t microseconds) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  const itimerval timer{{0, microseconds}, {0, microseconds}};
  return ::sigaction(SIGALRM, &action, nullptr) == 0 &&
         ::setitimer(ITIMER_REAL, &timer, nullptr) == 0;
}

template <typename T>
T take(std::istringstream& words) {
  T value{};
  words >> value;
  return value;
}

/// Whether this process, and those that it starts, have a /tmp of their own now.
bool mountOwnTmp() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0;
}

/// The system calls that `refuse` knows.
std::optional<std::uint32_t> callNumber(const std::string& name) {
  static const std::map<std::string, std::uint32_t> numbers{
      {"memfd_create", SYS_memfd_create},
      {"pwritev2", SYS_pwritev2},
      {"io_setup", SYS_io_setup},
      {"io_submit", SYS_io_submit},
      {"inotify_init1", SYS_inotify_init1},
      {"inotify_add_watch", SYS_inotify_add_watch},
      {"socket", SYS_socket},
      {"bind", SYS_bind},
      {"connect", SYS_connect},
      {"prlimit64", SYS_prlimit64},
      {"set_robust_list", SYS_set_robust_list},
      {"get_robust_list", SYS_get_robust_list},
  };
  const auto found = numbers.find(name);
  return found == numbers.end() ? std::nullopt : std::optional(found->second);
}

/// refuse ERROR CALL...: starts this program again, in which the calls fail with that error
/// number from the start.
std::string refuse(std::istringstream& words) {
  const auto error = take<std::uint32_t>(words);
  test_support::SystemCallFilter filter;
  for (std::string name; words >> name;) {
    const auto number = callNumber(name);
    if (!number) {
      return "unknown";
    }
    if (test_support::sanitized && *number == SYS_prlimit64) {
      // The sanitizer ends the process if it cannot read its own limits.
      filter.failIfEqual(*number, 1, RLIMIT_NOFILE, error);
    } else {
      filter.fail(*number, error);
    }
  }
  if (filter.install()) {
    ::execl("/proc/self/exe", "fault_peer", "ok", static_cast<char*>(nullptr));
  }
  return okOrErrno(false);
}

void Peer::runCommands() {
  const std::map<std::string, std::function<std::string(Words&)>> commands{
      // The process.
      {"become", [this](Words& words) { return become(words); }},
      {"filesize",
       [](Words& words) {
         const auto bytes = take<rlim_t>(words);
         const rlimit limit{bytes, bytes};
         return okOrErrno(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
       }},
      {"refuse", refuse},
      {"privatetmp", [](Words&) { return okOrErrno(mountOwnTmp()); }},
      {"isolate", [](Words&) { return okOrErrno(::unshare(CLONE_NEWNET) == 0); }},
      {"umask",
       [](Words& words) {
         ::umask(static_cast<mode_t>(std::stoul(take<std::string>(words), nullptr, 8)));
         return okOrErrno(true);
       }},
      {"spare",
       [this](Words& words) {
         // Not while a dispatch opens or closes descriptors.
         auto lock = server_ ? std::unique_lock(server_->manager.clientMutex)
                             : std::unique_lock<KSTD::KThreadMutex>();
         return okOrErrno(leaveDescriptors(take<unsigned>(words)));
       }},
      {"interrupt",
       [](Words& words) { return okOrErrno(startTimerSignals(take<suseconds_t>(words))); }},
      {"run", [this](Words& words) { return run(words); }},
      // The server.
      {"serve", [this](Words& words) { return serve(words); }},
      {"set",
       [this](Words& words) {
         return number(server().tree.counter.setValue(take<std::uint64_t>(words)));
       }},
      {"settext",
       [this](Words& words) {
         return number(server().tree.text.setValue(fault::patternText(take<std::size_t>(words))));
       }},
      {"change",
       [this](Words& words) {
         server().tree.changeMany(take<unsigned>(words));
         return okOrErrno(true);
       }},
      // The client.
      {"connect",
       [this](Words& words) { return number(client().connect(take<std::string>(words)).result); }},
      {"get",
       [this](Words&) {
         const fault::Reply reply = client().get(client().counter);
         return number(reply.result) + " " + reply.text;
       }},
      {"store",
       [this](Words& words) {
         return number(client().store(client().counter, take<std::string>(words)).result);
       }},
      {"owner",
       [this](Words&) {
         const auto owner = client().root.serverOwner();
         return owner ? std::to_string(*owner) : "none";
       }},
      {"subscribe", [this](Words&) { return number(client().subscribe(client().counter)); }},
      {"prepare",
       [this](Words&) {
         static_cast<void>(client());
         return okOrErrno(true);
       }},
  };
  Lines lines;
  while (const auto line = lines.next()) {
    Words words(*line);
    const auto name = take<std::string>(words);
    if (name == "quit") {
      break;
    }
    const auto found = commands.find(name);
    if (!printLine(found == commands.end() ? "unknown" : found->second(words))) {
      break;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  // After `refuse`: its result.
  if (argc > 1 && !printLine(argv[1])) {
    return 1;
  }
  Peer().runCommands();
}
