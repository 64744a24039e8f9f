#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/hello.h"
#include "evtsrv/source/system.h"

/// The private pipes of a connection: the client makes them, the server opens
/// them, and they have names only while the handshake lasts.
namespace EvtSrv::internal {

enum class PipePurpose { request, reply, event };

/// The path of one of the pipes that `token` names.
std::string privatePipePath(const Token& token, PipePurpose purpose);

/// Whom a client's private pipes are open to, besides its own user.
struct PipeAccess {
  std::optional<uid_t> owner;  ///< whom they are given to
  std::optional<gid_t> group;  ///< who may open them too
};

/// A private pipe in the making: its name, which is removed when this goes away,
/// and the reading end, whose lock tells a sweep that somebody alive owns it.
class PrivatePipe {
 public:
  PrivatePipe() = default;
  ~PrivatePipe() { removeName(); }
  PrivatePipe(PrivatePipe&& other) noexcept;
  PrivatePipe& operator=(PrivatePipe&& other) noexcept;

  /// Makes the pipe, opens and locks its reading end. `-EEXIST` where the name
  /// was taken or a sweep got hold of the pipe before it was locked: try another
  /// token.
  [[nodiscard]] int make(System& system, std::string path, const PipeAccess& access);

  /// Opens the writing end; this end is open, so that it needs no peer.
  [[nodiscard]] int openWriter(FileDescriptor& writer);

  void removeName();

  [[nodiscard]] const FileDescriptor& reader() const { return reader_; }
  [[nodiscard]] FileDescriptor takeReader() { return std::move(reader_); }

 private:
  int openAndLock(const PipeAccess& access);
  int giveOwnMode();

  System* system_ = nullptr;
  std::string path_;  // Empty where there is no name to remove.
  FileDescriptor reader_;
};

/// Removes the private pipes that clients of this user (root: of any) left behind
/// when they were killed in the middle of a handshake. Those that a live process
/// owns are locked and stay, those of the token `own` are not looked at. What cannot
/// be removed is left for a later sweep.
void sweepPrivatePipes(System& system, const Token& own);

}  // namespace EvtSrv::internal
