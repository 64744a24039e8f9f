#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "evtsrv/result.h"
#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/name_claim.h"

/// The mailbox of a port: its name and path, and the server's end of it.
namespace EvtSrv::internal {

/// The directory of the pipes of event ports.
inline constexpr const char* pipeDirectory = "/tmp";

/// The path for a watch of that directory: leads there also if its name is a link, which a watch
/// does not follow.
inline constexpr const char* pipeDirectoryToWatch = "/tmp/.";

inline constexpr std::size_t maxPortName = 200;

/// Whether `name` is allowed as a port name: 1 to `maxPortName` bytes, no "/", no ";",
/// no control byte (0 to 31, 127) and no "." at the beginning. Names of ports are shown
/// on terminals and typed in command lines.
bool isPortName(std::string_view name);

/// The name of the mailbox of port `name` in `pipeDirectory`, and its path.
std::string mailboxFileName(std::string_view name);
std::string mailboxPath(std::string_view name);

/// One of the few watches that the mailboxes of a process have: a user may have only 128 watch
/// instances (inotify(7)), and a program may serve thousands of ports. Threads: any.
class WatchSlot {
 public:
  static constexpr int maxInProcess = 32;

  WatchSlot() = default;
  ~WatchSlot() { release(); }
  WatchSlot(const WatchSlot&) = delete;
  WatchSlot& operator=(const WatchSlot&) = delete;

  /// Whether the mailbox may be watched until `release`.
  [[nodiscard]] bool take();
  void release();

 private:
  bool isTaken_ = false;
};

/// The server's end of a mailbox: open, locked against a second server, watched, and removed
/// on destruction.
///
/// If somebody removes or moves the mailbox, `watchDescriptor` becomes readable, and
/// `restore` makes it again. The claim to the name is kept meanwhile.
class Mailbox {
 public:
  Mailbox() = default;
  ~Mailbox() { remove(); }
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// Makes the mailbox of port `name`, or takes over the one that a dead server has
  /// left, and sets its access for `group`. Hellos that are in it are kept, unless other
  /// users may have it open or it belongs to another group: then it is replaced.
  /// `EvtRes_NameInUse` if a live server has the mailbox; `EvtRes_NotPermitted` if the
  /// path leads to anything but a pipe of this process's effective user that has no other
  /// link, which is then left as it is.
  EvtRes open(System& system, const std::string& name, std::optional<gid_t> group);

  /// Takes what the watch has reported. Returns whether the mailbox has to be restored: its
  /// path does not lead to the pipe any more.
  [[nodiscard]] bool takeRemoval();

  /// Closes the pipe and makes the mailbox again, with the results of `open`. After an error
  /// there is no pipe, and it is to be tried again when `takeRemoval` returns true, and now and
  /// then, because not all that may help is reported.
  EvtRes restore();

  /// Removes the path, while the lock still keeps other servers out, and closes the
  /// pipe. Does nothing if it is not open.
  void remove();

  /// The pipe; negative if it is not open, or could not be restored.
  [[nodiscard]] int descriptor() const { return pipe_.number(); }
  /// Readable when `takeRemoval` is to be called. Negative if the system does not permit
  /// watches, or `WatchSlot::maxInProcess` other mailboxes have one: then a mailbox that is removed
  /// stays away.
  [[nodiscard]] int watchDescriptor() const { return watch_.number(); }
  /// The claim to the name; its connections are to be closed (`NameClaim::closeConnections`).
  [[nodiscard]] NameClaim& claim() { return claim_; }
  /// Whether the port is served, from `open` to `remove`.
  [[nodiscard]] bool isOpen() const { return isOpen_; }

 private:
  enum class Attempt { done, again };

  EvtRes makePipe();
  Attempt tryMake(EvtRes& result);
  int lockPipe(const struct stat& named);
  int openPipe(const FileDescriptor& name, const struct stat& named);
  bool pathLeadsToPipe();
  bool pathLeadsTo(const struct stat& file);
  int findReader();
  [[nodiscard]] bool mayRestoreAfter(std::span<const std::uint8_t> events);
  void watchPipe();
  void watchDirectory();
  void endWatch();

  System* system_ = nullptr;
  std::string path_;
  std::optional<gid_t> group_;
  bool isOpen_ = false;
  NameClaim claim_;
  FileDescriptor pipe_;
  WatchSlot watchSlot_;
  FileDescriptor watch_;
  int watchNumber_ = -1;  // Of the pipe, or of the directory while there is no pipe.
  bool watchesDirectory_ = false;
  bool awaitsName_ = false;  // Another file has the name.
};

}  // namespace EvtSrv::internal
