#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "servers/error.h"

namespace modelsrvd {

/// What the server asks of the system about files and groups. Nothing here blocks
/// on a peer; any thread may call.

/// How long a description may be, in bytes.
inline constexpr std::size_t longestDescription = std::size_t{64} * 1024 * 1024;

/// Reads a regular file a piece at a time, so that no text is held whole.
class FileReader {
 public:
  /// Opens `path`, of which at most `most` bytes are to be read.
  FileReader(std::string path, std::size_t most);
  ~FileReader();
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  /// The bytes that follow, until the next call; none at the end of the file and
  /// where there is a error.
  [[nodiscard]] std::string_view next();

  /// Why the file could not be opened or read to its end. Begins with the path.
  [[nodiscard]] const std::optional<Error>& error() const { return error_; }

 private:
  /// Tells whether what is open is a regular file of at most `most_` bytes.
  bool isReadable();

  std::string path_;
  std::size_t most_;
  std::size_t passed_ = 0;
  int descriptor_;
  std::vector<char> buffer_;
  std::optional<Error> error_;
};

/// The group of that name or, where there is none, of that number.
[[nodiscard]] Result<gid_t> findGroup(const std::string& nameOrNumber);

/// Opens "/dev/null" in place of each standard stream that is closed, so that no
/// pipe of the server's gets its number. Tells whether all three are open.
[[nodiscard]] bool fillStandardStreams();

/// Writes all of `text` to standard output.
[[nodiscard]] std::optional<Error> writeOutput(std::string_view text);

/// The room of a file system, in bytes.
struct DiskRoom {
  std::uint64_t size = 0;
  std::uint64_t free = 0;  ///< to users without privileges
};

/// The kernel's files, as they are or as a test recorded them.
class HostFiles {
 public:
  /// Paths asked for are looked up below `top`; empty: the system's own.
  explicit HostFiles(std::string top = {}) : top_(std::move(top)) {}

  /// What a file of the kernel's gives, at most 1 MiB of it; nothing where it
  /// cannot be read.
  [[nodiscard]] std::optional<std::string> read(const std::string& path) const;

  /// The names in a directory but those that begin with ".", in the order of
  /// their bytes; empty where it cannot be read.
  [[nodiscard]] std::vector<std::string> list(const std::string& directory) const;

  /// statvfs(3) of a local file system; nothing where it is refused.
  [[nodiscard]] std::optional<DiskRoom> room(const std::string& mountPoint) const;

 private:
  std::string top_;
};

}  // namespace modelsrvd
