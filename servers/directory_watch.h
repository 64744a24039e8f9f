#pragma once

#include <map>
#include <string>
#include <vector>

namespace modelsrvd {

/// Notices when files in directories are written, replaced, created or removed (inotify(7)). The
/// process receives SIGIO when there is something to take; its handler must be installed before.
/// For one thread.
class DirectoryWatch {
 public:
  DirectoryWatch() = default;
  ~DirectoryWatch();
  DirectoryWatch(const DirectoryWatch&) = delete;
  DirectoryWatch& operator=(const DirectoryWatch&) = delete;

  /// Begins to watch the directory of the file at `path`, once for each call. False if that is
  /// not possible, for example because there is no such directory.
  [[nodiscard]] bool add(const std::string& path);

  /// Whether the directory of that path is still watched.
  [[nodiscard]] bool isWatching(const std::string& path) const;

  /// Ends what one `add` of that path began.
  void remove(const std::string& path);

  /// The changes since the last call: the paths of changed files, and each directory that is no
  /// longer watched or of which changes may be missing, with "/" at its end. Never waits.
  [[nodiscard]] std::vector<std::string> take();

 private:
  struct Directory {
    int watch = -1;  ///< -1 after it was removed
    unsigned uses = 0;
  };

  void report(int watch, unsigned events, const char* name, std::vector<std::string>& changed);

  int descriptor_ = -1;
  std::map<std::string, Directory> directories_;  ///< by path, with "/" at its end
};

}  // namespace modelsrvd
