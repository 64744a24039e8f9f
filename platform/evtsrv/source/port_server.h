#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evtsrv/result.h"
#include "evtsrv/source/frame.h"

/// The served end of an event port: its mailbox, and a connection for every
/// client that said hello there. Everything here runs with the manager's client
/// mutex held.
namespace EvtSrv::internal {

class ManagerCore;

/// What a session may tell the connection that it answers on.
class ServerConnection {
 public:
  virtual ~ServerConnection() = default;

  /// The session has events to send: takes as many as the pipe has room for now
  /// and the rest when it has again. Never blocks. Cheap where the connection is
  /// waiting for room already. Never destroys the session: a fault found here
  /// ends the connection at the next dispatch.
  virtual void eventsPending() = 0;

  /// The session cannot tell what it has to: ends the connection at the next dispatch.
  /// Never destroys the session.
  virtual void closeOnNextDispatch() = 0;
};

/// What the owner of a served port keeps for one connected client. It is
/// destroyed when the connection ends, whoever ended it; where one of its own
/// calls ended it, after that call has returned, which may be after the
/// `PortServer` has gone.
class ServerSession {
 public:
  virtual ~ServerSession() = default;

  /// Answers one request: reads its payload from `request`, appends the reply's
  /// to `reply` (which may hold bytes already; they are not the session's) and
  /// returns the reply's code. What it appended for a reply that failed is the
  /// session's to take back. A payload above `maxPayload` ends the connection.
  virtual std::uint16_t handle(std::uint16_t operation, PayloadReader& request,
                               std::vector<std::uint8_t>& reply) = 0;

  /// Moves the next pending event to `payload` (appended) and `type`; false where
  /// none is pending.
  virtual bool takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) = 0;
};

/// The owner of a served port.
class ServedPort {
 public:
  virtual ~ServedPort() = default;

  /// A client has connected. `connection` outlives the session.
  virtual std::unique_ptr<ServerSession> openSession(ServerConnection& connection) = 0;
};

/// Serves one port name. Destroying it ends every connection and removes the
/// mailbox.
class PortServer {
 public:
  /// `core` and `port` outlive this.
  PortServer(ManagerCore& core, ServedPort& port);
  ~PortServer();
  PortServer(const PortServer&) = delete;
  PortServer& operator=(const PortServer&) = delete;

  /// Makes the mailbox "/tmp/<name>.fifo", or takes over one that a dead server
  /// left, locks it and begins to serve. With `group` its members may connect
  /// too.
  EvtRes start(const std::string& name, std::optional<gid_t> group);

  /// Takes no new clients and removes the mailbox; each connection ends when its
  /// pending events and reply have been taken.
  void beginStop();

  /// Whether a stop has begun and connections still wait for it.
  [[nodiscard]] bool stopping() const;

  [[nodiscard]] std::size_t connectionCount() const;

 private:
  class Impl;
  std::shared_ptr<Impl> impl_;  // A dispatch under way keeps it.
};

}  // namespace EvtSrv::internal
