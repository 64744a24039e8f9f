#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "evtsrv/source/frame_reader.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/server_session.h"

namespace EvtSrv::internal {

class ServerLink;

/// The keeper of a served port's connections.
class LinkOwner {
 public:
  virtual ~LinkOwner() = default;

  /// `link` has ended by itself; the owner releases it.
  virtual void linkEnded(ServerLink& link) = 0;
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
/// pipe no request is read; while events wait, none is taken from the session.
class ServerLink final : public ServerConnection,
                         public ReadyHandler,
                         public std::enable_shared_from_this<ServerLink> {
 public:
  ServerLink(ManagerCore& core, LinkOwner& owner, ServerPipes pipes);
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

  void eventsPending() override;
  void closeOnNextDispatch() override;
  bool ready(unsigned role, std::uint32_t events) override;

  /// The index of this in the owner's list; for the owner alone.
  std::size_t index = 0;

 private:
  enum class Progress { all, blocked, failed };

  /// Output that did not fit into a pipe.
  struct PendingOutput {
    std::vector<std::uint8_t> bytes;
    std::size_t written = 0;

    [[nodiscard]] bool empty() const { return bytes.empty(); }
    void clear() { *this = {}; }
  };

  void end();
  void releaseSession();
  bool serve(unsigned role, std::uint32_t events) KRV_REQUIRES(core_.clientMutex());
  bool readRequests(std::uint32_t events) KRV_REQUIRES(core_.clientMutex());
  void writeReply() KRV_REQUIRES(core_.clientMutex());
  void serveRequests() KRV_REQUIRES(core_.clientMutex());
  void handle(const Frame& request) KRV_REQUIRES(core_.clientMutex());
  void pumpEvents() KRV_REQUIRES(core_.clientMutex());
  /// `pumpEvents` for callers outside a dispatch, which would end the connection when
  /// memory runs out.
  void pumpOrClose() KRV_REQUIRES(core_.clientMutex());
  bool fillEvents(std::vector<std::uint8_t>& chunk);
  void endIfDrained();
  Progress write(const FileDescriptor& pipe, std::vector<std::uint8_t>& bytes,
                 PendingOutput& pending);
  Progress writeFrom(const FileDescriptor& pipe, std::span<const std::uint8_t> bytes,
                     std::size_t& written);
  [[nodiscard]] bool setInterests();

  ManagerCore& core_;

  // Guarded by the client mutex.
  LinkOwner* owner_;  // Null after the end.
  ServerPipes pipes_;
  std::unique_ptr<ServerSession> session_;
  Registration onRequest_;
  Registration onReply_;
  Registration onEvent_;

  FrameReader requests_;
  PendingOutput reply_;
  PendingOutput events_;
  bool serving_ = false;         // In session_->handle(): the session must not be destroyed.
  bool pumping_ = false;         // In another call of the session: likewise.
  bool eventsDeferred_ = false;  // eventsPending() was called meanwhile.
  bool closing_ = false;         // To end at the next dispatch.
  bool draining_ = false;
  bool stoppedSent_ = false;
};

}  // namespace EvtSrv::internal
