#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "evtsrv/result.h"
#include "evtsrv/source/file_descriptor.h"

namespace EvtSrv::internal {

/// The served end of the mailbox of a port: open, locked against a second server,
/// and removed when this goes away.
class Mailbox {
 public:
  Mailbox() = default;
  ~Mailbox() { remove(); }
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// Makes the mailbox of port `name` or takes over the one that a dead server
  /// left, with the access of `group` set anew. Hellos that lie in it stay there
  /// to be served. `EvtRes_NameInUse` where a live server has it,
  /// `EvtRes_NotPermitted` where something lies in its place that is no pipe of
  /// this user's, which is left alone.
  EvtRes open(System& system, const std::string& name, std::optional<gid_t> group);

  /// Takes the name away while the lock still keeps others out, and closes.
  void remove();

  [[nodiscard]] int descriptor() const { return pipe_.number(); }
  [[nodiscard]] bool isOpen() const { return pipe_.isOpen(); }

 private:
  enum class Attempt { done, again };

  Attempt tryOpen(std::optional<gid_t> group, EvtRes& result);
  int openPipe(const FileDescriptor& name, const struct stat& named);
  bool nameIsOurs();

  System* system_ = nullptr;
  std::string path_;
  FileDescriptor pipe_;
};

}  // namespace EvtSrv::internal
