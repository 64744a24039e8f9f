#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

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

  /// Begins to watch the directory of the file at `path`, once for each call. If another
  /// directory has taken that path since an earlier call, it is watched instead. False if that is
  /// not possible, for example because there is no such directory. If it throws `std::bad_alloc`,
  /// nothing has begun.
  [[nodiscard]] bool add(const std::string& path);

  /// Whether the directory of that path is still watched.
  [[nodiscard]] bool isWatching(std::string_view path) const;

  /// Ends what one `add` of that path began.
  void remove(std::string_view path);

  /// Adds changes to `changed`: the paths of changed files, and with "/" at its end each directory
  /// that is no longer watched, or that has directories of which changes may be missing. Takes a
  /// bounded number of them and never waits. Returns whether there may be more.
  [[nodiscard]] bool take(std::set<std::string>& changed);

 private:
  struct Directory {
    int watch = -1;  ///< -1 after it was removed
    unsigned uses = 0;
  };
  /// By path, with "/" at its end.
  using Directories = std::map<std::string, Directory, std::less<>>;

  void begin(Directories::iterator at, int watch);
  void end(Directories::iterator at);
  [[nodiscard]] bool isUsed(int watch) const;
  void report(int watch, unsigned events, const char* name, std::set<std::string>& changed);

  int descriptor_ = -1;
  Directories directories_;
  /// The paths by watch: a directory may have several. They are keys of `directories_`.
  std::set<std::pair<int, const std::string*>> byWatch_;
};

}  // namespace modelsrvd
