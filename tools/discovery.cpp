#include "tools/discovery.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include "tools/utf8.h"

namespace treectl {

namespace {

constexpr const char* mailboxDirectory = "/tmp";
constexpr std::string_view mailboxExtension = ".fifo";

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

/// What a port may be called.
bool isPortName(std::string_view name) {
  constexpr std::size_t maxPortName = 200;
  const auto isAllowed = [](char byte) {
    return !isControlByte(byte) && byte != '/' && byte != ';';
  };
  return !name.empty() && name.size() <= maxPortName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isAllowed);
}

bool isServerName(std::string_view name) {
  return isPortName(name) && (name.starts_with("Model_") || name.ends_with(".Model"));
}

std::string mailboxOf(const std::string& server) {
  return std::string(mailboxDirectory) + '/' + server + std::string(mailboxExtension);
}

bool isMailbox(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

/// Nothing is written: only a pipe that somebody reads can be opened.
bool isRead(const std::string& server) {
  const int descriptor =
      ::open(mailboxOf(server).c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) {
    return errno == EACCES;
  }
  ::close(descriptor);
  return true;
}

}  // namespace

std::vector<std::string> discoverServers() {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(mailboxDirectory));
  while (const dirent* entry = directory == nullptr ? nullptr : ::readdir(directory.get())) {
    std::string_view name = entry->d_name;
    if (!name.ends_with(mailboxExtension)) {
      continue;
    }
    name.remove_suffix(mailboxExtension.size());
    if (isServerName(name) && isMailbox(mailboxOf(std::string(name)))) {
      names.emplace_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> discoverLivingServers() {
  std::vector<std::string> names = discoverServers();
  std::erase_if(names, [](const std::string& name) { return !isRead(name); });
  return names;
}

}  // namespace treectl
