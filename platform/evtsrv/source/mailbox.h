#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "evtsrv/result.h"
#include "evtsrv/source/file_descriptor.h"

/// The mailbox of a port: its name and path, and the server's end of it.
namespace EvtSrv::internal {

/// The directory of the pipes of event ports.
inline constexpr const char* pipeDirectory = "/tmp";

inline constexpr std::size_t maxPortName = 200;

/// Whether `name` is allowed as a port name: 1 to `maxPortName` bytes, no "/", no ";",
/// no control byte (0 to 31, 127) and no "." at the beginning. Names of ports are shown
/// on terminals and typed in command lines.
bool isPortName(std::string_view name);

/// The path of the mailbox of port `name`.
std::string mailboxPath(std::string_view name);

/// The server's end of a mailbox: open, locked against a second server, and removed on
/// destruction.
class Mailbox {
 public:
  Mailbox() = default;
  ~Mailbox() { remove(); }
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// Makes the mailbox of port `name`, or takes over the one that a dead server has
  /// left, and sets its access for `group`. Hellos that are in it are kept.
  /// `EvtRes_NameInUse` if a live server has the mailbox; `EvtRes_NotPermitted` if the
  /// path leads to anything but a pipe of this process's effective user that has no other
  /// link, which is then left as it is.
  EvtRes open(System& system, const std::string& name, std::optional<gid_t> group);

  /// Removes the path, while the lock still keeps other servers out, and closes the
  /// pipe. Does nothing if it is not open.
  void remove();

  [[nodiscard]] int descriptor() const { return pipe_.number(); }
  [[nodiscard]] bool isOpen() const { return pipe_.isOpen(); }

 private:
  enum class Attempt { done, again };

  Attempt tryOpen(std::optional<gid_t> group, EvtRes& result);
  int openPipe(const FileDescriptor& name, const struct stat& named);
  bool pathLeadsToPipe();

  System* system_ = nullptr;
  std::string path_;
  FileDescriptor pipe_;
};

}  // namespace EvtSrv::internal
