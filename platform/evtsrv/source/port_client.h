#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "evtsrv/result.h"
#include "evtsrv/source/frame.h"
#include "evtsrv/source/handshake.h"

/// The client side of an event port. Everything here requires the manager's client
/// mutex, construction excluded.
namespace EvtSrv::internal {

class ClientLink;
class ManagerCore;

/// The reply to a request. The payload stays valid until the next exchange or the end
/// of the connection.
struct Reply {
  std::uint16_t code = 0;
  ByteOrder order = nativeOrder;
  std::span<const std::uint8_t> payload;
  /// How many bytes of the request's frame were written, also if the exchange failed. If it
  /// is 0 the server has not received the request.
  std::size_t written = 0;
};

/// The receiver of a connection's events.
class EventSink {
 public:
  virtual ~EventSink() = default;

  /// Receives one event from the connected port. May make exchanges, close the
  /// connection or connect it again.
  virtual void eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                             ByteOrder order) = 0;
};

/// The longest time that a server may take to reply to a request or a hello.
inline constexpr int replyTimeoutMs = 2000;

/// A connection to a port, which can be made again after it was lost.
class PortClient {
 public:
  /// `core` and `sink` outlive this.
  PortClient(ManagerCore& core, EventSink& sink);
  ~PortClient();
  PortClient(const PortClient&) = delete;
  PortClient& operator=(const PortClient&) = delete;

  /// Ends an earlier connection, sends a hello to port `name` and waits for the
  /// welcome, at most `replyTimeoutMs` (`EvtRes_Timeout`). After a time-out the hello
  /// stays valid, and `resume` may find the welcome later.
  EvtRes connect(const std::string& name);

  /// Restores a lost connection without waiting for a dead server. `EvtRes_Success`:
  /// the connection is open; `renewed` tells whether it is a new one. `EvtRes_NoServer`:
  /// no server has the name. `EvtRes_Stalled`: a live server has not replied to an
  /// earlier hello yet. `EvtRes_NotPermitted`: the name belongs to another user or group
  /// than the one that `connect` has found.
  EvtRes resume(bool& renewed);

  /// Sends one request and waits for its reply, at most `replyTimeoutMs`
  /// (`EvtRes_Timeout`). After a time-out it returns `EvtRes_Stalled` immediately until
  /// the server shows activity; a late reply is dropped. `EvtRes_Closed`: the
  /// connection is lost, which is noticed immediately; `reply.written` tells whether the
  /// server may have received the request.
  EvtRes exchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply);

  /// Whether a connection is open and no error has been found on it. The end of the
  /// peer is noticed by the next exchange, dispatch or `resume`.
  [[nodiscard]] bool isOpen() const;

  /// Ends the connection and forgets the name.
  void close();

  /// The name that was connected to last, without "/tmp/" and ".fifo".
  [[nodiscard]] const std::string& portName() const { return name_; }

  /// The owner of the mailbox that `connect` has found; empty after `close`.
  [[nodiscard]] std::optional<uid_t> serverOwner() const {
    return owner_ ? std::optional(owner_->user) : std::nullopt;
  }

 private:
  template <typename Operation>
  EvtRes endIfOutOfMemory(Operation operation);
  EvtRes tryResume(bool& renewed);
  EvtRes beginHandshake();
  EvtRes awaitWelcome(int milliseconds);
  void end();
  /// Why there is no connection.
  [[nodiscard]] EvtRes error() const;

  ManagerCore& core_;
  EventSink& sink_;

  // Guarded by the client mutex.
  std::string name_;
  std::optional<MailboxOwner> owner_;  // Whose server may have the session.
  std::optional<Handshake> handshake_;
  std::shared_ptr<ClientLink> link_;
  EvtRes error_ = EvtRes_Closed;
};

}  // namespace EvtSrv::internal
