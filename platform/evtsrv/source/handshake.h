#pragma once

#include <array>
#include <string>

#include "evtsrv/result.h"
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

/// A client's way from a port name to a connection: private pipes, a hello in the
/// mailbox, the server's welcome. It stays alive while the welcome is awaited,
/// however long that takes; when it goes away nothing is left of it in the file
/// system.
class Handshake {
 public:
  explicit Handshake(System& system) : system_(system) {}

  /// Does everything that needs no answer. `EvtRes_NoServer` at once where nobody
  /// reads the mailbox; `EvtRes_NotPermitted` where it is not to be trusted, and
  /// nothing is written to it.
  EvtRes begin(const std::string& name);

  /// Waits for the welcome. `EvtRes_Timeout`: may be called again, and the answer
  /// may still come. `EvtRes_NoServer`: the server that the hello was meant for
  /// has gone. `EvtRes_Refused`, `EvtRes_NoDescriptors`: the server's answer.
  EvtRes await(Deadline& deadline);

  /// The connection's ends, once, after `await` gave `EvtRes_Success`.
  ConnectionPipes takePipes();

 private:
  EvtRes openMailbox(const std::string& name);
  int makePipes();
  int makePipesOf(const Token& token);
  EvtRes sendHello();
  EvtRes readWelcome();
  EvtRes judgeWelcome() const;
  [[nodiscard]] const FileDescriptor& replyReader() const { return reply_.reader(); }

  System& system_;
  FileDescriptor mailbox_;
  PipeAccess access_;
  Hello hello_;
  bool helloIsOut_ = false;
  PrivatePipe request_;
  PrivatePipe reply_;
  PrivatePipe event_;
  FileDescriptor requestWriter_;
  std::array<std::uint8_t, FrameHeader::size> welcome_{};
  std::size_t welcomeSize_ = 0;
};

}  // namespace EvtSrv::internal
