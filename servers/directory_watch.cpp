#include "servers/directory_watch.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <utility>

namespace modelsrvd {

namespace {

/// Without IN_MODIFY: while a file is being written its text is incomplete.
constexpr std::uint32_t watchedEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                        IN_MOVED_TO | IN_MOVE_SELF | IN_ONLYDIR;

std::string_view directoryOf(std::string_view path) {
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
  if (descriptor_ < 0) {
    return false;
  }
  const auto at = directories_.try_emplace(std::string(directoryOf(path))).first;
  Directory& directory = at->second;
  // An existing watch follows its directory when that is renamed, or one above it.
  const int watch = ::inotify_add_watch(descriptor_, at->first.c_str(), watchedEvents);
  if (watch != directory.watch) {
    end(at);
    begin(at, watch);
  }
  if (directory.watch >= 0) {
    ++directory.uses;
    return true;
  }
  if (directory.uses == 0) {
    directories_.erase(at);
  }
  return false;
}

/// `watch` is that of the directory from now on. Without memory for that there is none.
void DirectoryWatch::begin(Directories::iterator at, int watch) {
  if (watch < 0) {
    return;
  }
  try {
    byWatch_.emplace(watch, &at->first);
    at->second.watch = watch;
  } catch (...) {
    if (!isUsed(watch)) {
      ::inotify_rm_watch(descriptor_, watch);
    }
    if (at->second.uses == 0) {
      directories_.erase(at);
    }
    throw;
  }
}

void DirectoryWatch::end(Directories::iterator at) {
  const int watch = std::exchange(at->second.watch, -1);
  if (watch >= 0 && byWatch_.erase({watch, &at->first}) != 0 && !isUsed(watch)) {
    ::inotify_rm_watch(descriptor_, watch);
  }
}

bool DirectoryWatch::isUsed(int watch) const {
  const auto at = byWatch_.lower_bound({watch, nullptr});
  return at != byWatch_.end() && at->first == watch;
}

bool DirectoryWatch::isWatching(std::string_view path) const {
  const auto found = directories_.find(directoryOf(path));
  return found != directories_.end() && found->second.watch >= 0;
}

void DirectoryWatch::remove(std::string_view path) {
  const auto found = directories_.find(directoryOf(path));
  if (found == directories_.end() || --found->second.uses != 0) {
    return;
  }
  end(found);
  directories_.erase(found);
}

bool DirectoryWatch::take(std::set<std::string>& changed) {
  if (descriptor_ < 0) {
    return false;
  }
  alignas(inotify_event) char buffer[16 * 1024];
  const ssize_t count = ::read(descriptor_, buffer, sizeof buffer);
  for (ssize_t at = 0; at < count;) {
    inotify_event event{};
    std::memcpy(&event, buffer + at, sizeof event);
    const char* const name = event.len != 0 ? buffer + at + sizeof event : "";
    report(event.wd, event.mask, name, changed);
    at += static_cast<ssize_t>(sizeof event + event.len);
  }
  return count > 0;
}

void DirectoryWatch::report(int watch, unsigned events, const char* name,
                            std::set<std::string>& changed) {
  if ((events & IN_Q_OVERFLOW) != 0) {
    changed.insert("/");
    return;
  }
  const bool hasEnded = (events & (IN_IGNORED | IN_MOVE_SELF)) != 0;
  for (auto at = byWatch_.lower_bound({watch, nullptr});
       at != byWatch_.end() && at->first == watch;) {
    const std::string& path = *at->second;
    ++at;
    changed.insert(path + name);
    if (hasEnded) {
      end(directories_.find(path));
    }
  }
}

}  // namespace modelsrvd
