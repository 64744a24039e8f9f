#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evtsrv/result.h"
#include "evtsrv/source/accounts.h"
#include "evtsrv/source/back_off.h"
#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/hello.h"
#include "evtsrv/source/mailbox.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/private_pipe.h"
#include "evtsrv/source/server_link.h"
#include "evtsrv/source/server_session.h"

namespace EvtSrv::internal {

/// The server side of an event port: its mailbox, and a `ServerLink` for every
/// client that has said hello there. If somebody removes the mailbox, it is made again at
/// the next dispatch, and the connections stay. If that is not possible, it is tried again
/// when something is removed from the directory, and every few seconds; should another server have
/// the name by then, which the mailbox's claim prevents as far as the system lets it, the
/// connections end, so that the two never serve side by side. Requires the client mutex for every
/// call, destruction included.
///
/// Made with `std::make_shared`. A dispatch under way keeps the object alive, so the
/// owner calls `close` before it releases its own reference: after that nothing
/// reaches the owner any more.
class PortServer final : public ReadyHandler,
                         public TurnTaker,
                         public LinkOwner,
                         public std::enable_shared_from_this<PortServer> {
 public:
  /// `core` outlives this; `port` lives until `close`.
  PortServer(ManagerCore& core, ServedPort& port);
  ~PortServer() override { close(); }
  PortServer(const PortServer&) = delete;
  PortServer& operator=(const PortServer&) = delete;

  /// Makes the mailbox "/tmp/<name>.fifo", or takes over one that a dead server has
  /// left, locks it and begins to serve. If `group` is set, its members may connect
  /// too. `EvtRes_Busy` if it serves already or a graceful shutdown is under way.
  EvtRes start(const std::string& name, std::optional<gid_t> group);

  /// Begins a graceful shutdown: accepts no new client and removes the mailbox. Each
  /// connection ends when its pending reply and events have been written.
  void beginStop();

  /// Whether a graceful shutdown has begun and some connection has not ended yet.
  [[nodiscard]] bool stopping() const;

  [[nodiscard]] std::size_t connectionCount() const;

  /// Ends the service immediately: every connection is closed and the mailbox is
  /// removed. `start` may not be called again.
  void close();

  bool ready(unsigned role, std::uint32_t events) override;
  bool takeTurn() override;
  void linkEnded(ServerLink& link) override;
  unsigned frameBegun() override;

 private:
  bool checkMailbox() KRV_REQUIRES(core_.clientMutex());
  void readAllHellos() KRV_REQUIRES(core_.clientMutex());
  int awaitInput(int descriptor, unsigned role, Registration& registration)
      KRV_REQUIRES(core_.clientMutex());
  int listen() KRV_REQUIRES(core_.clientMutex());
  int watchClaim() KRV_REQUIRES(core_.clientMutex());
  void closeClaimants() KRV_REQUIRES(core_.clientMutex());
  void listenOrRetry() KRV_REQUIRES(core_.clientMutex());
  void retryLater();
  void retry() KRV_REQUIRES(core_.clientMutex());
  void restoreMailbox() KRV_REQUIRES(core_.clientMutex());
  void readMailbox() KRV_REQUIRES(core_.clientMutex());
  bool serveHellos() KRV_REQUIRES(core_.clientMutex());
  void releaseSessions();
  void secondPassed();
  void accept(const Hello& hello);
  EvtRes admit(uid_t user, const ServerPipes& pipes) const;
  void openLink(ServerPipes pipes, const Token& token, uid_t user);
  int openPipe(const Hello& hello, PipePurpose purpose, int access, FileDescriptor& out);
  int openPipe(const Hello& hello, PipePurpose purpose, int access, FileDescriptor& out,
               uid_t& user);
  void refuseUsingReserve(const Hello& hello);
  void takeReserve();
  void closeMailbox();
  void endStopIfDone() KRV_REQUIRES(core_.clientMutex());

  ManagerCore& core_;

  // Guarded by the client mutex.
  ServedPort* port_;  // Null after close().
  std::optional<gid_t> group_;
  Mailbox mailbox_;
  Registration onMailbox_;
  Registration onWatch_;
  Registration onClaim_;
  bool claimIsWatched_ = false;
  FileDescriptor retryTimer_;  // Expires when the mailbox or the claim is to be tried again.
  Registration onRetry_;
  BackOff retries_;
  HelloScanner hellos_;
  FileDescriptor reserve_;   // Closed to refuse a client when there is no other descriptor.
  bool hellosWait_ = false;  // In `hellos_`, for the next turn.
  std::vector<std::shared_ptr<ServerLink>> links_;
  std::vector<std::shared_ptr<ServerLink>> ended_;  // Those whose sessions are still released.
  const std::shared_ptr<Accounts> accounts_;
  TurnGroup turns_;
  Turn turn_;
  FileDescriptor timer_;  // Expires once a second while a part of a frame waits for its rest.
  Registration onTimer_;
  bool timerRuns_ = false;
  unsigned seconds_ = 0;
  bool stopping_ = false;
};

}  // namespace EvtSrv::internal
