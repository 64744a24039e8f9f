#pragma once

#include <array>
#include <optional>
#include <string>

#include "evtsrv/result.h"
#include "evtsrv/source/access.h"
#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/frame.h"
#include "evtsrv/source/private_pipe.h"

namespace EvtSrv::internal {

/// The client's ends of a connection's private pipes.
struct ConnectionPipes {
  FileDescriptor request;  ///< for writing
  FileDescriptor reply;    ///< for reading
  FileDescriptor event;    ///< for reading
};

/// The handshake of a client: it makes the private pipes, writes the hello to the
/// mailbox and reads the welcome. It may wait for the welcome as long as it exists; on
/// destruction it removes everything that it has made in the file system.
class Handshake {
 public:
  explicit Handshake(System& system) : system_(system) {}

  /// Does everything up to the hello, without waiting. `EvtRes_NoServer` if no process
  /// reads the mailbox; `EvtRes_NotPermitted` if the mailbox is not trusted, or belongs to
  /// another owner than `pinned`, in which case nothing is written to it.
  EvtRes begin(const std::string& name, const std::optional<MailboxOwner>& pinned = {});

  /// Whose mailbox it is, after `begin` has returned `EvtRes_Success`.
  [[nodiscard]] const MailboxOwner& owner() const { return owner_; }

  /// Waits for the welcome. `EvtRes_Timeout`: it may still come; call again.
  /// `EvtRes_NoServer`: the server exited before it read the hello. `EvtRes_Refused`,
  /// `EvtRes_NoDescriptors`: the server refused the client.
  EvtRes await(Deadline& deadline);

  /// Removes the names of the pipes, sweeps what killed clients have left, and returns this
  /// side's ends. To be called once, after `await` has returned `EvtRes_Success`.
  ConnectionPipes takePipes();

  // For a caller that waits for several descriptors: `await` has something to do if the
  // reply pipe is readable, the mailbox has an error, or, before the hello has been sent,
  // the mailbox is writable.

  [[nodiscard]] int replyDescriptor() const { return replyReader().number(); }
  /// Negative if there is no mailbox that a process reads.
  [[nodiscard]] int mailboxDescriptor() const { return mailbox_.number(); }
  [[nodiscard]] bool isHelloSent() const { return helloSent_; }

 private:
  EvtRes openMailbox(const std::string& name);
  int makePipes();
  int makePipesOf(const Token& token);
  EvtRes sendHello();
  EvtRes readWelcome();
  EvtRes decodeWelcome() const;
  [[nodiscard]] const FileDescriptor& replyReader() const { return reply_.reader(); }

  System& system_;
  FileDescriptor mailbox_;
  MailboxOwner owner_;
  PipeAccess access_;
  Hello hello_;
  bool helloSent_ = false;
  PrivatePipe request_;
  PrivatePipe reply_;
  PrivatePipe event_;
  FileDescriptor requestWriter_;
  std::array<std::uint8_t, FrameHeader::size> welcome_{};
  std::size_t welcomeSize_ = 0;
};

}  // namespace EvtSrv::internal
