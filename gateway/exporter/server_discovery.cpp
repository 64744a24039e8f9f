#include "gateway/exporter/server_discovery.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>

namespace modelgate {

namespace {

constexpr const char* mailboxDirectory = "/tmp";
constexpr std::string_view mailboxExtension = ".fifo";

/// A server that makes its mailbox reads it a moment later.
constexpr std::chrono::milliseconds firstPause{20};
constexpr std::chrono::milliseconds repetitionPause{500};
constexpr unsigned repetitionsAfterEvent = 2;
/// Without inotify.
constexpr std::chrono::seconds scanPeriod{5};

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

bool isPortName(std::string_view name) {
  constexpr std::size_t maxPortName = 200;
  const auto isAllowed = [](char byte) {
    return static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F && byte != '/' && byte != ';';
  };
  return !name.empty() && name.size() <= maxPortName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isAllowed);
}

int openToWrite(const std::string& path) {
  return ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
}

/// Whether it is a mailbox that a process reads. Nothing is written: only a pipe with a reader can
/// be opened.
bool isRead(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
    return false;
  }
  const int descriptor = openToWrite(path);
  if (descriptor < 0) {
    return errno == EACCES;
  }
  ::close(descriptor);
  return true;
}

}  // namespace

int openMailbox(const std::string& port) {
  const std::string path =
      std::string(mailboxDirectory) + '/' + port + std::string(mailboxExtension);
  return openToWrite(path);
}

bool isServerPort(std::string_view port) {
  return isPortName(port) && (port.starts_with("Model_") || port.ends_with(".Model"));
}

ServerDiscovery::ServerDiscovery(EventLoop& loop, std::vector<std::string> servers, Found found)
    : loop_(loop), servers_(std::move(servers)), found_(std::move(found)) {}

ServerDiscovery::~ServerDiscovery() {
  if (watch_ >= 0) {
    loop_.unwatch(watch_);
    ::close(watch_);
  }
}

void ServerDiscovery::start() {
  watch_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  // The opening of a mailbox is not among these: the scans open it, too.
  constexpr unsigned events = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
  if (watch_ >= 0 && ::inotify_add_watch(watch_, mailboxDirectory, events) < 0) {
    ::close(watch_);
    watch_ = -1;
  }
  if (watch_ >= 0) {
    loop_.watch(watch_, POLLIN, [this] { takeEvents(); });
  }
  scan();
}

bool ServerDiscovery::isWanted(std::string_view port) const {
  if (servers_.empty()) {
    return isServerPort(port);
  }
  return isPortName(port) &&
         std::any_of(servers_.begin(), servers_.end(), [port](const std::string& server) {
           return port == server || (!isServerPort(server) && port == "Model_" + server);
         });
}

void ServerDiscovery::scan() {
  std::vector<std::string> ports;
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(mailboxDirectory));
  while (const dirent* entry = directory == nullptr ? nullptr : ::readdir(directory.get())) {
    std::string_view name = entry->d_name;
    if (!name.ends_with(mailboxExtension)) {
      continue;
    }
    name.remove_suffix(mailboxExtension.size());
    if (isWanted(name) && isRead(std::string(mailboxDirectory) + '/' + entry->d_name)) {
      ports.emplace_back(name);
    }
  }
  std::sort(ports.begin(), ports.end());
  timer_ = {};
  if (watch_ < 0 || repetitions_ > 0) {
    repetitions_ -= repetitions_ > 0 ? 1 : 0;
    timer_ = loop_.after(watch_ < 0 ? EventLoop::Clock::duration(scanPeriod) : repetitionPause,
                         [this] { scan(); });
  }
  for (const std::string& port : ports) {
    found_(port);
  }
}

void ServerDiscovery::takeEvents() {
  alignas(inotify_event) std::array<char, 4096> bytes{};
  bool isMailbox = false;
  for (ssize_t size = 0; (size = ::read(watch_, bytes.data(), bytes.size())) > 0;) {
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(bytes.data() + at);
      const std::string_view name = event->len > 0 ? event->name : "";
      isMailbox |= name.ends_with(mailboxExtension) || (event->mask & IN_Q_OVERFLOW) != 0;
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
  if (isMailbox && repetitions_ < repetitionsAfterEvent) {
    repetitions_ = repetitionsAfterEvent;
    timer_ = loop_.after(firstPause, [this] { scan(); });
  }
}

}  // namespace modelgate
