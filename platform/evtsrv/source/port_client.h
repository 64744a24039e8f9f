#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>

#include "evtsrv/result.h"
#include "evtsrv/source/back_off.h"
#include "evtsrv/source/deferred_work.h"
#include "evtsrv/source/frame.h"
#include "evtsrv/source/handshake.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/reconnect_trigger.h"

/// The client side of an event port. Everything here requires the manager's client
/// mutex, construction excluded.
namespace EvtSrv::internal {

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

  // These may be called inside an exchange, so they must not call the program, make an
  // exchange or end the connection.

  /// An open connection has been lost; `close` and `connect` lose none.
  virtual void connectionLost() {}
  /// A dispatch has made a lost connection again (as `PortClient::resume` does).
  virtual void connectionMade() {}
  /// The reply to the first posted request that had none has arrived, with this code.
  virtual void replyReceived(std::uint16_t /*code*/) {}
};

class ClientLink;

/// The owner of a client's connection.
class ClientLinkOwner {
 public:
  virtual ~ClientLinkOwner() = default;

  /// The connection has ended by an error, not by `close`. May be called inside a request.
  virtual void linkLost() = 0;
};

/// The longest time that a server may take to reply to a request or a hello.
inline constexpr int replyTimeoutMs = 2000;

/// A connection to a port, which can be made again after it was lost. If its manager
/// reconnects, the manager's dispatches do that without waiting: they watch for the
/// server's return, and they notice a welcome that comes later.
class PortClient final : private ReadyHandler,
                         private DeferredWork,
                         private ClientLinkOwner,
                         private ReconnectTrigger::Listener {
 public:
  /// `core` and `sink` outlive this.
  PortClient(ManagerCore& core, EventSink& sink);
  ~PortClient() override;
  PortClient(const PortClient&) = delete;
  PortClient& operator=(const PortClient&) = delete;

  /// Ends an earlier connection, sends a hello to port `name` and waits for the
  /// welcome, at most `replyTimeoutMs` (`EvtRes_Timeout`). After a time-out the hello
  /// stays valid, and `resume` may find the welcome later.
  EvtRes connect(const std::string& name);

  // An operation with a deadline waits until that at the longest: one of `replyTimeoutMs` for all
  // that a request needs lets them take no longer than one.

  /// Restores a lost connection without waiting for a dead server. `EvtRes_Success`:
  /// the connection is open; `renewed`: whether it is a new one. `EvtRes_NoServer`:
  /// no server has the name. `EvtRes_Stalled`: a live server has not replied to an
  /// earlier hello, for which a call has waited already. `EvtRes_NotPermitted`: the
  /// name belongs to another user or group than the one that `connect` has found.
  EvtRes resume(bool& renewed, Deadline& deadline);

  /// Sends one request and waits for its reply (`EvtRes_Timeout`). After a time-out it returns
  /// `EvtRes_Stalled` immediately until the server shows activity; a late reply is dropped.
  /// `EvtRes_Closed`: the connection is lost, which is noticed immediately; `reply.written` shows
  /// whether the server may have received the request.
  EvtRes exchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply,
                  Deadline& deadline);

  // Posted requests: their replies are not waited for; the sink receives them in the order
  // of the requests. If the connection ends first, it receives none.

  /// Queues one request; `flushPosted` sends those that were queued, as far as the pipe
  /// takes them, and the rest when it takes more. Neither waits.
  EvtRes post(std::uint16_t operation, std::span<const std::uint8_t> payload);
  EvtRes flushPosted();
  /// Waits until every posted request has its reply; the results are those of `exchange`.
  /// After a time-out the replies may still come.
  EvtRes awaitPosted(Deadline& deadline);

  /// Ends an open connection as lost, because of `error` of this side.
  void lose(EvtRes error);

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
  /// The result of `operation`. If that runs out of memory, nothing of the connection
  /// stays, and it may be tried again.
  template <typename Operation>
  EvtRes endIfOutOfMemory(Operation operation) {
    try {
      return operation();
    } catch (const std::bad_alloc&) {
      end();
      return error_ = EvtRes_SystemError;
    }
  }
  EvtRes tryResume(bool& renewed, Deadline& deadline);
  EvtRes resumeHandshake(Deadline& deadline);
  EvtRes beginHandshake(Deadline& deadline);
  /// Begins a handshake and does not wait.
  EvtRes startHandshake();
  EvtRes awaitWelcome(Deadline& deadline);
  /// Takes the welcome if it has come, else `EvtRes_Timeout`.
  EvtRes takeWelcome();
  EvtRes openLink();
  /// Lets dispatches notice the welcome.
  EvtRes listenForWelcome();
  void endHandshake();
  void end();
  void forget();
  /// A dispatch tries to connect again, or waits for the time or the event that allows it.
  void attempt();
  void attemptAgain();
  void attemptFailed(EvtRes reason);

  bool ready(unsigned role, std::uint32_t events) override;
  bool runDeferred() override;
  void linkLost() override;
  void mayConnect() override;
  /// Why there is no connection.
  [[nodiscard]] EvtRes error() const;

  ManagerCore& core_;
  EventSink& sink_;

  // Guarded by the client mutex.
  std::string name_;
  std::optional<MailboxOwner> owner_;  // Whose server may have the session.
  std::optional<Handshake> handshake_;
  Registration onWelcome_;
  Registration onMailbox_;
  bool welcomeAwaited_ = false;  // A call has waited for the welcome in vain.
  bool foundServer_ = false;     // The failed attempt may have had a server.
  std::shared_ptr<ClientLink> link_;
  EvtRes error_ = EvtRes_Closed;
  bool lost_ = false;  // The connection was open, and is to be made again.
  BackOff backOff_;
  ReconnectTrigger trigger_;
};

}  // namespace EvtSrv::internal
