#pragma once

#include <sys/stat.h>

#include <string>

#include "evtsrv/source/access.h"
#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/hello.h"
#include "evtsrv/source/system.h"

/// The private pipes of a connection. The client makes them, the server opens them, and
/// they have names only during the handshake.
namespace EvtSrv::internal {

enum class PipePurpose { request, reply, event };

/// The path of the private pipe of `token` for `purpose`.
std::string privatePipePath(const Token& token, PipePurpose purpose);

/// Opens the pipe at `path` for reading. To update the access time of a pipe costs more than to
/// read it, so that is left out where it is permitted. 0 or a negative error number.
[[nodiscard]] int openForReading(System& system, const std::string& path, FileDescriptor& reader);

/// A private pipe during the handshake: its name, which is removed on destruction, and
/// its reading end. The lock on the reading end shows a sweep that a live process owns
/// the pipe.
class PrivatePipe {
 public:
  PrivatePipe() = default;
  ~PrivatePipe() { removeName(); }
  PrivatePipe(PrivatePipe&& other) noexcept;
  PrivatePipe& operator=(PrivatePipe&& other) noexcept;

  /// Makes the pipe, and opens and locks its reading end. 0 or a negative error number;
  /// `-EEXIST` if the name exists or a sweep locked the pipe first: try another token.
  [[nodiscard]] int make(System& system, std::string path, const PipeAccess& access);

  /// Opens the writing end, which requires no peer because the reading end is open.
  /// 0 or a negative error number; `-EEXIST` if the name was removed: try another token.
  [[nodiscard]] int openWriter(FileDescriptor& writer);

  void removeName();

  [[nodiscard]] const FileDescriptor& reader() const { return reader_; }
  [[nodiscard]] FileDescriptor takeReader() { return std::move(reader_); }

 private:
  int openAndLock(const PipeAccess& access);
  int restoreOwnMode();

  System* system_ = nullptr;
  std::string path_;  // Empty if there is no name to remove.
  FileDescriptor reader_;
};

/// The longest time that a sweep may take, in milliseconds, except for the rest of one system
/// call.
inline constexpr int sweepTimeMs = 10;

/// Removes the private pipes that clients of this user (root: of any user) have left
/// because they were killed during a handshake, and anything else of this user that has
/// such a name. Pipes of a live process are locked and stay; those of the token `own` are
/// skipped. What cannot be removed, or not within `sweepTimeMs`, is left for a later sweep.
void sweepPrivatePipes(System& system, const Token& own);

}  // namespace EvtSrv::internal
