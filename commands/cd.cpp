#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

#include "commands/tree_scope.h"
#include "evtsrv/event_port_manager.h"
#include "shell/results.h"
#include "shell/words.h"
#include "term/shown_text.h"

namespace treescope {

namespace {

/// The name of `user`, or the number if it has none.
std::string userName(uid_t user) {
  constexpr std::size_t entrySize = 4096;
  std::array<char, entrySize> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return std::to_string(user);
  }
  return entry.pw_name;
}

/// Root's shell connects to the server of any user, who may have taken the name of another's.
void reportForeignServer(const std::string& name, std::optional<uid_t> owner) {
  constexpr uid_t root = 0;
  if (::geteuid() == root && owner && *owner != root) {
    std::string line = "treescope: ";
    if (::isatty(STDERR_FILENO) == 1) {
      appendPrintable(line, name);
    } else {
      line += name;
    }
    line += ": the server of user " + userName(*owner) + "\n";
    static_cast<void>(std::fputs(line.c_str(), stderr));
  }
}

}  // namespace

int TreeScope::doCd(const char* path) {
  if (!connected()) {
    const std::string name = expandPath(path);
    const int connectResult = connectServer(name);
    if (connectResult == result::success) {
      reportForeignServer(name, serverOwner());
    }
    return connectResult;
  }
  if (path == nullptr) {
    return disconnectServer();
  }
  NamedChain location;
  if (resolveChain(expandPath(path), location)) {
    changeLocation(std::move(location));
  }
  return result::success;
}

int TreeScope::connectServer(const std::string& name) {
  const KSTD::KThreadMutexLock held(eventPortManager_->clientMutex);
  if (!openServer(name)) {
    return result::connectError;
  }
  step();
  std::vector<std::string> path;
  splitAtSeparator(name.c_str(), path, '/');
  currentPath_ = std::move(path);
  return result::success;
}

int TreeScope::disconnectServer() {
  const Leaving leaving(*this);
  static_cast<void>(doDu(nullptr));
  const KSTD::KThreadMutexLock held(eventPortManager_->clientMutex);
  closeServer();
  currentPath_.clear();
  return result::success;
}

void TreeScope::changeLocation(NamedChain location) {
  const KSTD::KThreadMutexLock held(eventPortManager_->clientMutex);
  std::vector<std::string> path{currentPart()->serverName()};
  path.insert(path.end(), location.names.begin(), location.names.end());
  currentPart()->setLocation(std::move(location));
  currentPath_ = std::move(path);
}

}  // namespace treescope
