#include "servers/directory_watch.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

namespace modelsrvd {

namespace {

/// Without IN_MODIFY: while a file is being written its text is incomplete.
constexpr std::uint32_t watchedEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                        IN_MOVED_TO | IN_MOVE_SELF | IN_ONLYDIR;

std::string directoryOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

int openWatch() {
  const int descriptor = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (descriptor < 0) {
    return -1;
  }
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (::fcntl(descriptor, F_SETOWN, ::getpid()) < 0 || flags < 0 ||
      ::fcntl(descriptor, F_SETFL, flags | O_ASYNC) < 0) {
    ::close(descriptor);
    return -1;
  }
  return descriptor;
}

}  // namespace

DirectoryWatch::~DirectoryWatch() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

bool DirectoryWatch::add(const std::string& path) {
  if (descriptor_ < 0) {
    descriptor_ = openWatch();
  }
  Directory& directory = directories_[directoryOf(path)];
  if (directory.watch < 0 && descriptor_ >= 0) {
    directory.watch = ::inotify_add_watch(descriptor_, directoryOf(path).c_str(), watchedEvents);
  }
  if (directory.watch < 0) {
    if (directory.uses == 0) {
      directories_.erase(directoryOf(path));
    }
    return false;
  }
  ++directory.uses;
  return true;
}

bool DirectoryWatch::isWatching(const std::string& path) const {
  const auto found = directories_.find(directoryOf(path));
  return found != directories_.end() && found->second.watch >= 0;
}

void DirectoryWatch::remove(const std::string& path) {
  const auto found = directories_.find(directoryOf(path));
  if (found == directories_.end() || --found->second.uses != 0) {
    return;
  }
  if (found->second.watch >= 0) {
    ::inotify_rm_watch(descriptor_, found->second.watch);
  }
  directories_.erase(found);
}

std::vector<std::string> DirectoryWatch::take() {
  std::vector<std::string> changed;
  if (descriptor_ < 0) {
    return changed;
  }
  alignas(inotify_event) char buffer[16 * 1024];
  ssize_t count = 0;
  while ((count = ::read(descriptor_, buffer, sizeof buffer)) > 0) {
    for (ssize_t at = 0; at < count;) {
      inotify_event event{};
      std::memcpy(&event, buffer + at, sizeof event);
      const char* const name = event.len != 0 ? buffer + at + sizeof event : "";
      report(event.wd, event.mask, name, changed);
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  return changed;
}

void DirectoryWatch::report(int watch, unsigned events, const char* name,
                            std::vector<std::string>& changed) {
  for (auto& [path, directory] : directories_) {
    if ((events & IN_Q_OVERFLOW) != 0) {
      changed.push_back(path);
    } else if (directory.watch == watch) {
      if ((events & IN_MOVE_SELF) != 0) {
        ::inotify_rm_watch(descriptor_, watch);
      }
      if ((events & (IN_IGNORED | IN_MOVE_SELF)) != 0) {
        directory.watch = -1;
      }
      changed.push_back(path + name);
    }
  }
}

}  // namespace modelsrvd
