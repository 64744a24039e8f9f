#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "servers/error.h"
#include "servers/open_file.h"

namespace modelsrvd {

/// The server's system calls on files and groups. None waits for another process or
/// machine; any thread may call them.

/// The size limit of a description file.
inline constexpr std::size_t maxDescriptionBytes = std::size_t{64} * 1024 * 1024;

/// Reads a regular file in pieces, so that the whole text is never in memory.
class FileReader {
 public:
  /// Opens `path`. A file of more than `maxBytes` is an error.
  FileReader(std::string path, std::size_t maxBytes);
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  /// The next bytes, valid until the next call; empty at the end of the file and
  /// after an error.
  [[nodiscard]] std::string_view next();

  /// Lets the byte at `offset` be the next one.
  void seek(std::uint64_t offset);

  /// Why the file could not be opened or read completely. Begins with the path.
  [[nodiscard]] const std::optional<Error>& error() const { return error_; }

 private:
  /// Sets `error_` unless the open file is a regular file of at most `maxBytes_`.
  void checkFile();

  std::string path_;
  std::size_t maxBytes_;
  std::size_t bytesRead_ = 0;
  std::vector<char> buffer_;
  OpenFile file_;
  std::optional<Error> error_;
};

/// The group with that name or, if there is none, with that number.
[[nodiscard]] Result<gid_t> findGroup(const std::string& nameOrNumber);

/// Whether this process is in the group; false too if the system does not say.
[[nodiscard]] bool isMemberOf(gid_t group);

/// Opens "/dev/null" for each standard stream that is closed, so that no pipe of the
/// server gets its descriptor number.
[[nodiscard]] std::optional<Error> fillStandardStreams();

/// Writes all of `text` to standard output.
[[nodiscard]] std::optional<Error> writeOutput(std::string_view text);

/// The capacity of a file system, in bytes.
struct DiskSpace {
  std::uint64_t size = 0;
  std::uint64_t free = 0;  ///< available to unprivileged users
};

/// The files in which the kernel describes the machine; a test can substitute a
/// directory of recorded ones.
class HostFiles {
 public:
  /// `top` is prepended to every path; empty for the real files.
  explicit HostFiles(std::string top = {}) : top_(std::move(top)) {}

  /// The contents of a file, at most about 1 MiB of it; nothing if it cannot be
  /// read.
  [[nodiscard]] std::optional<std::string> read(const std::string& path) const;

  /// The names in a directory except those that begin with ".", sorted by bytes;
  /// empty if it cannot be read.
  [[nodiscard]] std::vector<std::string> list(const std::string& directory) const;

  /// The capacity of a local file system; nothing if statvfs(3) fails.
  [[nodiscard]] std::optional<DiskSpace> diskSpace(const std::string& mountPoint) const;

 private:
  std::string top_;
};

}  // namespace modelsrvd
