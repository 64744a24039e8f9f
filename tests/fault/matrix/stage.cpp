#include "tests/fault/matrix/stage.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>
#include <utility>

namespace fault_matrix {

using test_support::Descriptor;

namespace {

struct Pipe {
  Descriptor reading;
  Descriptor writing;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throwError("pipe2");
  }
  // The writing end blocks, as the program expects.
  static_cast<void>(::fcntl(ends[0], F_SETFL, O_NONBLOCK));
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// What the new process needs to become the program.
struct Launch {
  std::vector<char*> words;
  int input = -1;
  int output = -1;
  int errors = -1;
  const Injection* injection = nullptr;
  int channel = -1;
};

[[noreturn]] void become(const Launch& launch) {
  constexpr int cannotStart = 125;
  static_cast<void>(::setsid());
  static_cast<void>(::prctl(PR_SET_PDEATHSIG, SIGKILL));
  static_cast<void>(::signal(SIGPIPE, SIG_DFL));
  ::dup2(launch.input, STDIN_FILENO);
  ::dup2(launch.output, STDOUT_FILENO);
  ::dup2(launch.errors, STDERR_FILENO);
  // Of a terminal, which the new session then owns; not of anything else.
  static_cast<void>(::ioctl(STDIN_FILENO, TIOCSCTTY, 0));
  if (launch.injection == nullptr || launch.injection->install(launch.channel)) {
    ::execv(launch.words[0], launch.words.data());
  }
  ::_exit(cannotStart);
}

}  // namespace

void throwError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

Stage::~Stage() {
  for (Program& program : programs_) {
    // What a program has started is in its session, and dies with its group.
    static_cast<void>(::kill(-program.pid, SIGKILL));
    if (!program.status) {
      static_cast<void>(::kill(program.pid, SIGKILL));
    }
    if (program.injection) {
      program.injection->detach();
    }
  }
  // The orphans too (PR_SET_CHILD_SUBREAPER).
  while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

Program& Stage::start(const std::vector<std::string>& command, const Fault* fault) {
  return launch(command, fault, {});
}

Program& Stage::startOnTerminal(const std::vector<std::string>& command, const Fault* fault,
                                test_support::PseudoTerminal& terminal) {
  terminal = test_support::openPseudoTerminal(24, 80);
  Program& program = launch(command, fault, terminal.name);
  program.output = std::move(terminal.master);
  return program;
}

Program& Stage::launch(const std::vector<std::string>& command, const Fault* fault,
                       const std::string& terminal) {
  Program& program = programs_.emplace_back();
  program.command = command;
  Launch launch;
  for (std::string& word : program.command) {
    launch.words.push_back(word.data());
  }
  launch.words.push_back(nullptr);
  if (fault != nullptr) {
    program.injection.emplace(*fault, command[0]);
    launch.injection = &*program.injection;
  }
  std::array<int, 2> sockets{-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
    throwError("socketpair");
  }
  Descriptor ours(sockets[0]);
  Descriptor theirs(sockets[1]);
  launch.channel = theirs.get();
  const Descriptor device(
      ::open(terminal.empty() ? "/dev/null" : terminal.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  Pipe output = makePipe();
  Pipe errors = makePipe();
  launch.input = device.get();
  launch.output = terminal.empty() ? output.writing.get() : device.get();
  launch.errors = errors.writing.get();
  program.pid = ::fork();
  if (program.pid < 0) {
    throwError("fork");
  }
  if (program.pid == 0) {
    become(launch);
  }
  theirs.close();
  program.output = std::move(output.reading);
  program.errors = std::move(errors.reading);
  program.pidDescriptor = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, program.pid, 0)));
  if (program.injection && !program.injection->attach(ours.get(), program.pid)) {
    throwError("seccomp");
  }
  return program;
}

bool Stage::waitUntil(const std::function<bool()>& condition, Milliseconds within) {
  const auto deadline = Clock::now() + within;
  while (!condition()) {
    const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      return false;
    }
    pump(left);
  }
  return true;
}

bool Stage::waitForEnd(Program& program) {
  if (waitUntil([&] { return program.status.has_value(); })) {
    return true;
  }
  fail("does not end");
  static_cast<void>(::kill(program.pid, SIGKILL));
  return false;
}

void Stage::type(Program& program, std::string_view keys) {
  while (!keys.empty() && program.output.isOpen()) {
    const ssize_t count = ::write(program.output.get(), keys.data(), keys.size());
    if (count > 0) {
      keys.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EAGAIN || program.status) {
      return;
    } else {
      pump(Milliseconds(1));
    }
  }
}

void Stage::fail(const std::string& what) {
  failures_.push_back(what);
}

void Stage::expect(bool condition, const std::string& what) {
  if (!condition) {
    fail(what);
  }
}

std::string Stage::describe() const {
  std::ostringstream out;
  for (const Program& program : programs_) {
    out << "---";
    for (const std::string& word : program.command) {
      out << ' ' << word;
    }
    out << "\n" << program.written << program.reported;
    if (program.status) {
      out << "--- status " << program.status->code << " signal " << program.status->signal << '\n';
    }
  }
  return out.str();
}

/// Serves what is ready, or waits for something to become so.
void Stage::pump(Milliseconds wait) {
  std::vector<pollfd> polled;
  std::vector<std::function<void(int)>> handlers;
  const auto watch = [&](int descriptor, std::function<void(int)> handler) {
    if (descriptor >= 0) {
      polled.push_back({descriptor, POLLIN, 0});
      handlers.push_back(std::move(handler));
    }
  };
  for (Program& program : programs_) {
    watch(program.output.get(), [&](int) { take(program.output, program.written); });
    watch(program.errors.get(), [&](int) { take(program.errors, program.reported); });
    if (program.injection) {
      watch(program.injection->descriptor(), [&](int events) {
        // Without a process there is nothing to receive, and the call would wait.
        if ((events & POLLIN) == 0 || !program.injection->serve()) {
          program.injection->detach();
        }
      });
    }
    if (!program.status) {
      watch(program.pidDescriptor.get(), [&](int) { reap(program); });
    }
  }
  if (::poll(polled.data(), polled.size(), static_cast<int>(wait.count())) <= 0) {
    return;
  }
  for (std::size_t i = 0; i < polled.size(); ++i) {
    if (polled[i].revents != 0) {
      handlers[i](polled[i].revents);
    }
  }
}

void Stage::take(Descriptor& from, std::string& to) {
  std::array<char, 16384> buffer{};
  const ssize_t count = ::read(from.get(), buffer.data(), buffer.size());
  if (count > 0) {
    to.append(buffer.data(), static_cast<std::size_t>(count));
  } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    // EIO: a terminal that no program has open.
    from.close();
  }
}

void Stage::reap(Program& program) {
  int status = 0;
  if (::waitpid(program.pid, &status, 0) != program.pid) {
    return;
  }
  program.status =
      WIFSIGNALED(status) ? ExitStatus{0, WTERMSIG(status)} : ExitStatus{WEXITSTATUS(status), 0};
  // A program that this one has started may still have the pipes open.
  for (Descriptor* from : {&program.output, &program.errors}) {
    int unread = 0;
    while (from->isOpen() && ::ioctl(from->get(), FIONREAD, &unread) == 0 && unread > 0) {
      take(*from, from == &program.output ? program.written : program.reported);
    }
  }
  if (program.injection) {
    program.injection->detach();
  }
}

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> opened(::opendir(directory.c_str()), ::closedir);
  while (const dirent* entry = opened ? ::readdir(opened.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string contentsOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream contents;
  contents << stream.rdbuf();
  return contents.str();
}

void writeFile(const std::string& file, std::string_view contents) {
  std::ofstream(file, std::ios::binary | std::ios::trunc) << contents;
}

std::string shown(std::string_view text) {
  constexpr std::size_t longest = 120;
  std::string line;
  for (const char c : text.substr(text.size() > longest ? text.size() - longest : 0)) {
    line += c == '\n' ? '|' : (static_cast<unsigned char>(c) < 32 ? '?' : c);
  }
  return line;
}

}  // namespace fault_matrix
