#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "evtsrv/source/accounts.h"
#include "evtsrv/source/frame.h"

/// The interfaces between a served port and the code that serves it. Everything here
/// runs with the manager's client mutex held.
namespace EvtSrv::internal {

/// A reply that is sent after `ServerSession::handle` has returned. Destroying it sends nothing:
/// its holder sees to it that the client gets a reply.
class DeferredReply {
 public:
  virtual ~DeferredReply() = default;

  /// Sends the reply with this code and payload, from any thread. Does nothing if the connection
  /// has ended or the reply was sent before.
  virtual void send(std::uint16_t code, std::span<const std::uint8_t> payload) = 0;

  /// Whether the client still waits.
  [[nodiscard]] virtual bool isAwaited() const = 0;
};

/// Keeps a connection from serving requests. Destroying it changes nothing: its holder ends it.
class RequestHold {
 public:
  virtual ~RequestHold() = default;

  /// Lets the connection serve its client's requests, from any thread. Does nothing after that, or
  /// if the connection has ended.
  virtual void release() = 0;

  /// Whether the connection is there, and waits.
  [[nodiscard]] virtual bool isInEffect() const = 0;
};

/// The connection of a session, as its session sees it.
class ServerConnection {
 public:
  virtual ~ServerConnection() = default;

  /// The session has events to send. Writes as many as the pipe takes now, and the
  /// rest when it becomes writable. Never blocks; cheap if the connection already
  /// waits for the pipe. Never destroys the session: after a write error the
  /// connection ends at the next dispatch.
  virtual void eventsPending() = 0;

  /// Where the session accounts for its subscriptions, and for the memory of its events.
  virtual SessionAccount& account() = 0;

  /// Ends the connection at the next dispatch, for a session that cannot send what it
  /// has to. Never destroys the session.
  virtual void closeOnNextDispatch() = 0;

  /// Within `ServerSession::handle`, once: the reply to this request comes later, and what `handle`
  /// returns is not sent. Until then the connection serves no further request of its client; its
  /// events go on.
  virtual std::shared_ptr<DeferredReply> deferReply() = 0;

  /// Within `ServerSession::handle`: the memory of a large request, for a session that keeps the
  /// payload instead of copying it: the payload stays valid as long as that memory. Null if the
  /// memory holds much else, or was taken before.
  virtual std::unique_ptr<std::uint8_t[]> takeRequestMemory() { return nullptr; }

  /// Within `ServerSession::opened`, once: the client's requests stay in the pipe, where they are
  /// not read, until the hold is released or the service begins to stop.
  virtual std::shared_ptr<RequestHold> holdRequests() = 0;
};

/// The state that a served port keeps for one connected client. It is destroyed when
/// the connection ends. If the connection ends during a call of the session, the
/// session is destroyed after that call has returned, and the `PortServer` may have been
/// destroyed before.
class ServerSession {
 public:
  virtual ~ServerSession() = default;

  /// The client has been welcomed, in a dispatch. Comes before everything else, once. May call the
  /// program.
  virtual void opened() {}

  /// Serves one request: reads its payload from `request`, appends the reply's payload
  /// to `reply` and returns the reply's code. `reply` may already hold bytes, which
  /// must not be changed. A session that fails removes what it has appended. A payload
  /// larger than `maxPayload` ends the connection.
  virtual std::uint16_t handle(std::uint16_t operation, PayloadReader& request,
                               std::vector<std::uint8_t>& reply) = 0;

  /// Whether a request of this operation is served soon, without a call of the program that changes
  /// anything. Its reply may wait for those of other clients (`ReplyBatch`).
  [[nodiscard]] virtual bool isShort(std::uint16_t /*operation*/) const { return false; }

  /// Events are about to be taken. With `inDispatch` that may call the program; otherwise the
  /// program is in the middle of a call of this library.
  virtual void beginEvents(bool /*inDispatch*/) {}

  /// Removes the next pending event, appends its payload to `payload` and sets `type`.
  /// Returns false if none is pending, or `eventsPaused`.
  virtual bool takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) = 0;

  /// Whether the last `takeEvent` left pending events to a later dispatch.
  [[nodiscard]] virtual bool eventsPaused() const { return false; }

  /// The connection ends when all pending events are sent: no event waits for a time any more.
  virtual void beginDrain() {}

  /// The code of the reply to a request that exceeds a limit of its client.
  [[nodiscard]] virtual std::uint16_t limitReached() const = 0;

  /// Frees a part of what the session holds, for at most about 1 ms; its connection has ended.
  /// Returns whether that was all, and the session may be destroyed.
  virtual bool release() { return true; }
};

/// The owner of a served port.
class ServedPort {
 public:
  virtual ~ServedPort() = default;

  /// Makes the session of a client that has connected; null refuses the client.
  /// `connection` outlives the session.
  virtual std::unique_ptr<ServerSession> openSession(ServerConnection& connection) = 0;

  /// Another server serves the name now. The connections end after this; what their clients
  /// have cached must not be used any more. The port may get its name, and clients, back.
  virtual void nameLost() {}
};

}  // namespace EvtSrv::internal
