#pragma once

#include <string>

#include "evtsrv/result.h"
#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/system.h"

namespace EvtSrv::internal {

/// The claim of a server to the name of its port, beside the lock on its mailbox. It has no
/// file: it outlasts the mailbox if somebody removes that, it ends with the process, and no
/// member of a group with which the port is shared can take it.
///
/// It is an address in the abstract namespace of Unix sockets, which the kernel gives to one
/// process at a time. Nothing is sent there, and connections are closed. Every user may take any
/// address, so it counts only if its holder belongs to this user; if another user has it, or
/// sockets are not permitted, the lock on the mailbox alone decides.
class NameClaim {
 public:
  /// Claims `name`. `EvtRes_NameInUse` if another server of this user has it;
  /// `EvtRes_NoDescriptors` or, without memory, `EvtRes_SystemError`; otherwise
  /// `EvtRes_Success`, whether it is held or cannot be had.
  EvtRes take(System& system, const std::string& name);

  void release() { socket_.reset(); }

  /// Takes some of those who have connected to the address, and closes their connections, so
  /// that no process can fill the queue. 0 if more may wait; `-EAGAIN` if none does; or another
  /// negative error number: then some wait that could not be taken.
  [[nodiscard]] int closeConnections();

  /// Readable when `closeConnections` is to be called. Negative if the claim is not held.
  [[nodiscard]] int descriptor() const { return socket_.number(); }

 private:
  System* system_ = nullptr;
  FileDescriptor socket_;
};

}  // namespace EvtSrv::internal
