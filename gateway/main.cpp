// modelgate: publishes the model servers of this device at an MQTT broker, or makes those of other
// devices local servers.

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "gateway/client_user.h"
#include "gateway/config_file.h"
#include "gateway/exporter/exporter.h"
#include "gateway/link/event_loop.h"
#include "gateway/options.h"
#include "gateway/resident_memory.h"
#include "gateway/viewer/viewer.h"
#include "gateway/wire/topics.h"

namespace {

using namespace modelgate;

enum ExitStatus : int { success = 0, cannotRun = 1, badUsage = 2 };

/// An error that another command line or file avoids.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Writes "modelgate: " and `text`, which may come from the network, to standard error as one line.
void printLine(std::string_view text) {
  std::string line = "modelgate: ";
  line += text;
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7f'; }, '?');
  line += '\n';
  // If standard error cannot be written, there is nowhere to report it.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

ExitStatus fail(ExitStatus status, std::string_view text) {
  printLine(text);
  return status;
}

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw std::system_error(errno, std::generic_category(), "standard output");
  }
}

/// Opens what is closed of the three standard streams, so that no other descriptor is one of them.
void fillStandardStreams() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // open(2) uses the lowest free number.
    if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) < 0) {
      throw std::system_error(errno, std::generic_category(), "/dev/null");
    }
  }
}

/// Lets this process open as many descriptors as it may: each local client takes some. If the
/// system refuses, there is capacity for fewer clients. Returns the number.
rlim_t raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    throw std::system_error(errno, std::generic_category(), "getrlimit");
  }
  const rlim_t before = std::exchange(limit.rlim_cur, limit.rlim_max);
  return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : before;
}

/// SIGINT, SIGTERM and SIGHUP as events of the loop; SIGPIPE is ignored. To be made before any
/// thread.
class Signals {
 public:
  Signals(EventLoop& loop, std::function<void()> stop) : loop_(loop) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    struct sigaction hangUp {};
    // A program that is to outlive its terminal ignores it, see nohup(1).
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) {
      sigaddset(&set, SIGHUP);
    }
    descriptor_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor_ < 0 || ::sigprocmask(SIG_BLOCK, &set, nullptr) != 0 ||
        std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
      throw std::system_error(errno, std::generic_category(), "signals");
    }
    loop_.watch(descriptor_, POLLIN, [this, stop = std::move(stop)] {
      signalfd_siginfo info{};
      if (::read(descriptor_, &info, sizeof info) == sizeof info) {
        stop();
      }
    });
  }
  ~Signals() {
    loop_.unwatch(descriptor_);
    ::close(descriptor_);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  EventLoop& loop_;
  int descriptor_ = -1;
};

std::string hostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) {
    throw std::system_error(errno, std::generic_category(), "gethostname");
  }
  if (!isFleetName(name.data())) {
    throw UsageError(std::string("--device: missing, and the host's name \"") + name.data() +
                     "\" cannot be one");
  }
  return name.data();
}

std::string readPassword(const std::string& path) {
  auto text = readSmallFile(path);
  if (const auto* error = std::get_if<ConfigError>(&text)) {
    throw UsageError("--password-file: " + path + ": " + error->text);
  }
  const std::string& password = std::get<std::string>(text);
  return password.substr(0, password.find_first_of("\r\n"));
}

/// Of a group that the system does not know by this name.
std::optional<gid_t> groupNumber(const std::string& text) {
  gid_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, number);
  // The largest number stands for "no group" (chown(2)).
  const bool isRight =
      code == std::errc() && stop == end && number != std::numeric_limits<gid_t>::max();
  return isRight ? std::optional(number) : std::nullopt;
}

/// Whether this user may give a file to `group`.
bool mayShareWith(gid_t group) {
  const int count = ::getgroups(0, nullptr);
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
  return ::geteuid() == 0 || group == ::getegid() ||
         (count > 0 && ::getgroups(count, groups.data()) == count &&
          std::find(groups.begin(), groups.end(), group) != groups.end());
}

/// `name` may be a number, too.
gid_t findGroup(const std::string& name) {
  std::vector<char> buffer(std::size_t{1} << 16);
  group entry{};
  group* found = nullptr;
  const int error = ::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
  const std::optional<gid_t> number =
      found != nullptr ? std::optional(found->gr_gid) : groupNumber(name);
  if (!number) {
    throw UsageError("--group: " + name + ": " +
                     (error != 0 ? std::generic_category().message(error) : "no such group"));
  }
  if (!mayShareWith(*number)) {
    throw UsageError("--group: this user is not a member of \"" + name + '"');
  }
  return *number;
}

LinkOptions linkOptions(const Options& options) {
  LinkOptions link;
  link.broker = options.broker;
  link.user = options.user;
  if (!options.passwordFile.empty()) {
    link.password = readPassword(options.passwordFile);
  }
  link.caFile = options.caFile;
  link.certFile = options.certFile;
  link.keyFile = options.keyFile;
  link.keepAlive = options.keepAlive;
  return link;
}

ExporterOptions exporterOptions(const Options& options) {
  ExporterOptions result;
  result.link = linkOptions(options);
  result.fleet = options.fleet;
  result.device = options.device.empty() ? hostName() : options.device;
  result.servers = options.servers;
  result.allowSet = options.allowSet;
  result.interval = options.interval;
  result.heartbeat = options.heartbeat;
  result.json = options.json;
  result.retainValues = options.retainValues;
  return result;
}

ViewerOptions viewerOptions(const Options& options, rlim_t descriptors) {
  ViewerOptions result;
  result.link = linkOptions(options);
  result.fleet = options.fleet;
  // A quarter of the descriptors is for clients and the broker.
  constexpr rlim_t descriptorsOfMirror = 8;
  result.maxMirrors = static_cast<std::size_t>(
      std::min<rlim_t>(result.maxMirrors, descriptors / descriptorsOfMirror));
  if (!options.user.empty()) {
    result.user = options.user;
  } else if (!options.certFile.empty()) {
    result.user = userOfCertificate(options.certFile);
    if (!isTopicLevel(result.user)) {
      throw UsageError("--user: missing, and the name \"" + result.user + "\" in " +
                       options.certFile + " cannot be one");
    }
  }
  result.devices = options.devices;
  if (!options.group.empty()) {
    result.group = findGroup(options.group);
  }
  return result;
}

/// Runs an Exporter or a Viewer until a signal.
template <typename Worker, typename WorkerOptions>
ExitStatus run(WorkerOptions options, bool verbose) {
  EventLoop loop;
  std::optional<Worker> worker;
  bool stopping = false;
  const Signals signals(loop, [&] {
    // The second signal does not wait for the broker.
    if (stopping || !worker) {
      loop.stop();
      return;
    }
    stopping = true;
    worker->finish([&] { loop.stop(); });
  });
  options.log = [verbose](std::string_view line, bool detail) {
    if (verbose || !detail) {
      printLine(line);
    }
  };
  options.ready = [] {
    print("ready\n");
    releaseUnusedMemory();
  };
  try {
    worker.emplace(loop, std::move(options));
  } catch (const std::system_error&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw UsageError(error.what());
  }
  worker->start();
  loop.run();
  return success;
}

ExitStatus runProgram(const std::vector<std::string>& arguments) {
  const ParsedOptions parsed = parseOptions(arguments);
  if (const auto* error = std::get_if<OptionError>(&parsed)) {
    return fail(badUsage, error->text);
  }
  if (const auto* text = std::get_if<OptionText>(&parsed)) {
    print(text->text);
    return success;
  }
  const auto& options = std::get<Options>(parsed);
  const rlim_t descriptors = raiseDescriptorLimit();
  if (options.role == Options::Role::exporter) {
    return run<Exporter>(exporterOptions(options), options.verbose);
  }
  return run<Viewer>(viewerOptions(options, descriptors), options.verbose);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    fillStandardStreams();
    return runProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const UsageError& error) {
    return fail(badUsage, error.what());
  } catch (const std::bad_alloc&) {
    return fail(cannotRun, "out of memory");
  } catch (const std::exception& error) {
    return fail(cannotRun, error.what());
  }
}
