#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "evtsrv/source/frame_reader.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/port_server.h"

namespace EvtSrv::internal {

class ServerLink;

/// Who keeps the connections of a served port.
class LinkOwner {
 public:
  virtual ~LinkOwner() = default;

  /// `link` has ended; it is forgotten.
  virtual void linkEnded(ServerLink& link) = 0;
};

/// The server's ends of a connection's private pipes.
struct ServerPipes {
  FileDescriptor request;  ///< for reading
  FileDescriptor reply;    ///< for writing
  FileDescriptor event;    ///< for writing
};

/// One connection of a server, from the client's hello to its end. A fault ends
/// this connection and nobody else notices; that there is no memory for what the
/// client wants is one. With the client mutex held.
///
/// What a client can make it hold is bounded: one request, one reply, and one
/// chunk of events that did not fit the pipe. While a reply waits for room no
/// request is read; while events wait for room none is taken from the session.
class ServerLink final : public ServerConnection,
                         public ReadyHandler,
                         public std::enable_shared_from_this<ServerLink> {
 public:
  ServerLink(ManagerCore& core, LinkOwner& owner, ServerPipes pipes);
  ~ServerLink() override;

  /// Opens a session of `port`, welcomes the client and posts the started event.
  /// On any other result than `EvtRes_Success` nothing but what the welcome says
  /// has happened.
  EvtRes open(ServedPort& port);

  /// Writes a welcome that refuses, with `reason`, to the client of `reply`.
  static void refuse(System& system, const FileDescriptor& reply, EvtRes reason);

  /// Ends when everything pending has been written.
  void drainAndClose();

  /// Ends at once, without a word to the owner.
  void closeSilently();

  void eventsPending() override;
  void closeOnNextDispatch() override;
  bool ready(unsigned role, std::uint32_t events) override;

  /// Where the owner keeps this.
  std::size_t position = 0;

 private:
  enum class Progress { all, blocked, failed };

  /// Bytes that wait for room in a pipe.
  struct PendingOutput {
    std::vector<std::uint8_t> bytes;
    std::size_t written = 0;

    [[nodiscard]] bool empty() const { return bytes.empty(); }
    void clear();
  };

  void end();
  void releaseSession();
  bool serve(unsigned role, std::uint32_t events) KRV_REQUIRES(core_.clientMutex());
  bool readRequests(std::uint32_t events) KRV_REQUIRES(core_.clientMutex());
  void writeReply() KRV_REQUIRES(core_.clientMutex());
  void serveRequests() KRV_REQUIRES(core_.clientMutex());
  void answer(const Frame& request) KRV_REQUIRES(core_.clientMutex());
  void pumpEvents() KRV_REQUIRES(core_.clientMutex());
  void pumpOrClose() KRV_REQUIRES(core_.clientMutex());
  bool fillEvents(std::vector<std::uint8_t>& chunk);
  void endIfDrained();
  Progress write(const FileDescriptor& pipe, std::vector<std::uint8_t>& bytes,
                 PendingOutput& pending);
  Progress writeFrom(const FileDescriptor& pipe, std::span<const std::uint8_t> bytes,
                     std::size_t& written);
  [[nodiscard]] bool setInterests();

  ManagerCore& core_;
  LinkOwner* owner_;  // Null from the end on.
  ServerPipes pipes_;
  std::unique_ptr<ServerSession> session_;
  Registration onRequest_;
  Registration onReply_;
  Registration onEvent_;

  FrameReader requests_;
  PendingOutput reply_;
  PendingOutput events_;
  bool serving_ = false;       // The session is at work; it must not be destroyed.
  bool pumping_ = false;       // Events are being taken from it.
  bool eventsWaited_ = false;  // They came up meanwhile.
  bool closing_ = false;       // To end at the next dispatch.
  bool draining_ = false;
  bool stoppedSent_ = false;
};

}  // namespace EvtSrv::internal
