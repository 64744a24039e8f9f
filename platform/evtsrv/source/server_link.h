#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "evtsrv/source/accounts.h"
#include "evtsrv/source/deferred_work.h"
#include "evtsrv/source/frame_reader.h"
#include "evtsrv/source/hello.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/pending_output.h"
#include "evtsrv/source/server_session.h"

namespace EvtSrv::internal {

class ServerLink;

/// The keeper of a served port's connections.
class LinkOwner {
 public:
  virtual ~LinkOwner() = default;

  /// `link` has ended by itself; the owner releases it, and its session (`releaseSession`).
  virtual void linkEnded(ServerLink& link) = 0;

  /// A part of a frame has arrived. Returns the time, in seconds from any beginning, and calls
  /// `ServerLink::secondPassed` from now on.
  virtual unsigned frameBegun() = 0;
};

/// The server's ends of a connection's private pipes.
struct ServerPipes {
  FileDescriptor request;  ///< for reading
  FileDescriptor reply;    ///< for writing
  FileDescriptor event;    ///< for writing
};

/// One connection of a server, from the client's hello to its end. An error ends this
/// connection and affects no other; to be out of memory for this client is such an
/// error. Requires the client mutex for every call.
///
/// A client can make it hold a bounded amount of memory: one request, one reply and
/// one chunk of events that did not fit into the pipe. While a reply waits for the
/// pipe no request is read; while events wait, none is taken from the session. What is
/// held is limited for each user too: a request or reply that would exceed a limit is
/// refused (`ServerSession::limitReached`), anything else ends the connection.
///
/// A request whose reply is deferred keeps the ones after it waiting, and no other connection. So
/// does a hold, which a session may have from its beginning.
///
/// What its client sends is served in turns with the other connections (`TurnQueue`).
class ServerLink final : public ServerConnection,
                         public ReplyWriter,
                         public ReadyHandler,
                         public TurnTaker,
                         private DeferredWork,
                         public std::enable_shared_from_this<ServerLink> {
 public:
  /// `user` owns the pipes.
  ServerLink(ManagerCore& core, LinkOwner& owner, ServerPipes pipes,
             std::shared_ptr<Accounts> accounts, uid_t user);
  ~ServerLink() override;

  /// Opens a session of `port`, welcomes the client and sends the started event. On
  /// any other result than `EvtRes_Success` the client has received a refusal or nothing.
  EvtRes open(ServedPort& port);

  /// Writes a welcome to `reply` that refuses the client because of `reason`.
  static void refuse(System& system, const FileDescriptor& reply, EvtRes reason);

  /// Ends when all pending output has been written.
  void drainAndClose();

  /// Ends immediately, without a call to the owner.
  void closeSilently();

  /// After the end: frees a part of the session. Returns whether nothing is left.
  bool releaseSession();

  /// One second has passed. Ends the connection if its client has sent a part of a frame, and
  /// no more of it for a while. Returns whether a part of a frame is there.
  bool secondPassed(unsigned now);

  void eventsPending() override;
  void closeOnNextDispatch() override;
  SessionAccount& account() override { return account_; }
  std::shared_ptr<DeferredReply> deferReply() override;
  std::shared_ptr<RequestHold> holdRequests() override;
  std::unique_ptr<std::uint8_t[]> takeRequestMemory() override { return requests_.takeMemory(); }
  bool ready(unsigned role, std::uint32_t events) override;
  bool takeTurn() override;
  void replyWritten(std::span<const std::uint8_t> bytes, ssize_t result) noexcept override;

  /// The index of this in the owner's list; for the owner alone.
  std::size_t index = 0;
  /// What the client's hello says; for the owner alone.
  Token token{};

 private:
  using Progress = PendingOutput::Progress;

  // Errors and hang-ups are reported with every interest.
  static constexpr std::uint32_t noInterest = 0;
  static constexpr std::uint32_t readable = EPOLLIN;
  static constexpr std::uint32_t writable = EPOLLOUT;

  /// What is ready of a descriptor and was not served yet: a set of `EPOLL…` bits, 0 if nothing.
  using Due = std::array<std::uint32_t, 3>;

  class LaterReply;
  class Hold;

  /// Waits for a turn: to end the connection (`closeOnNextDispatch`), or to serve what has arrived
  /// after a request whose reply was deferred.
  bool runDeferred() override;
  void end();
  void closePipes();
  void destroySession();
  bool serveOrEnd(const Due& due) KRV_REQUIRES(core_.clientMutex());
  bool serve(const Due& due) KRV_REQUIRES(core_.clientMutex());
  bool serveRole(unsigned role, std::uint32_t events) KRV_REQUIRES(core_.clientMutex());
  bool readRequests(std::uint32_t events) KRV_REQUIRES(core_.clientMutex());
  void writeReply() KRV_REQUIRES(core_.clientMutex());
  void serveRequests() KRV_REQUIRES(core_.clientMutex());
  bool serveNext(std::size_t& replied) KRV_REQUIRES(core_.clientMutex());
  void keepInput() KRV_REQUIRES(core_.clientMutex());
  void refuseFrame(const FrameHeader& request) KRV_REQUIRES(core_.clientMutex());
  std::size_t handle(const Frame& request) KRV_REQUIRES(core_.clientMutex());
  bool addToBatch(std::span<const std::uint8_t> reply) KRV_REQUIRES(core_.clientMutex());
  void sendDeferred(std::uint16_t code, std::span<const std::uint8_t> payload);
  void writeDeferred(std::uint16_t code, std::span<const std::uint8_t> payload)
      KRV_REQUIRES(core_.clientMutex());
  void resumeRequests() KRV_REQUIRES(core_.clientMutex());
  void forgetDeferred();
  void releaseHold();
  void forgetHold();
  /// Whether the next request may be served, as far as replies and holds are concerned.
  [[nodiscard]] bool awaitsNothing() const {
    return reply_.empty() && deferred_ == nullptr && hold_ == nullptr;
  }
  /// `inDispatch`: see `ServerSession::beginEvents`.
  void pumpEvents(bool inDispatch) KRV_REQUIRES(core_.clientMutex());
  /// `pumpEvents` for callers outside a dispatch, which would end the connection when
  /// memory runs out.
  void pumpOrClose() KRV_REQUIRES(core_.clientMutex());
  bool fillEvents(std::vector<std::uint8_t>& chunk);
  void endIfDrained();
  [[nodiscard]] bool setInterests();
  [[nodiscard]] bool accountForMemory();

  ManagerCore& core_;

  // Guarded by the client mutex.
  LinkOwner* owner_;  // Null after the end.
  ServerPipes pipes_;
  SessionAccount account_;
  std::size_t held_ = 0;  // What the account has of the bytes below.
  Turn turn_;
  Due due_{};
  std::unique_ptr<ServerSession> session_;
  Registration onRequest_;
  Registration onReply_;
  Registration onEvent_;

  FrameReader requests_;
  PendingOutput reply_;
  PendingOutput events_;
  std::shared_ptr<LaterReply> deferred_;  // Null unless a reply is to come.
  std::shared_ptr<Hold> hold_;            // Null unless the requests are held back.
  std::uint32_t sequence_ = 0;            // Of the request that is being served, or was last.
  bool replyDeferred_ = false;            // The request being served has no reply of its own.
  bool batched_ = false;                  // A reply is in the manager's batch.
  bool moreRequests_ = false;             // Received, and to be served in the next turn.
  bool moreEvents_ = false;  // To be taken from the session when the event pipe is writable.
  bool frameBegun_ = false;  // The rest of a frame is awaited.
  unsigned frameBegunAt_ = 0;
  bool serving_ = false;         // In session_->handle(): the session must not be destroyed.
  bool pumping_ = false;         // In another call of the session: likewise.
  bool eventsPaused_ = false;    // The session leaves its events to the next dispatch.
  bool eventsDeferred_ = false;  // eventsPending() was called meanwhile.
  bool closing_ = false;         // To end at the next dispatch.
  bool draining_ = false;
  bool stoppedSent_ = false;
};

}  // namespace EvtSrv::internal
