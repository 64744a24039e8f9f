#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "evtsrv/source/frame_reader.h"
#include "evtsrv/source/handshake.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/port_client.h"

namespace EvtSrv::internal {

/// One connection of a client, from the server's welcome to its end. The first error
/// closes it and is the result of every later call; to be out of memory for what the
/// server sends is such an error. Requires the client mutex for every call.
class ClientLink final : public ReadyHandler, public std::enable_shared_from_this<ClientLink> {
 public:
  /// `core` outlives this; `sink` lives until `close`.
  ClientLink(ManagerCore& core, EventSink& sink, ConnectionPipes pipes);

  /// Begins to listen for events. `owner` lives until `close`, and is not notified if this
  /// fails.
  EvtRes open(ClientLinkOwner& owner);

  /// See `PortClient::exchange`.
  EvtRes exchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply,
                  Deadline& deadline);

  /// See `PortClient::post` and `PortClient::awaitPosted`.
  EvtRes post(std::uint16_t operation, std::span<const std::uint8_t> payload);
  EvtRes flushPosted();
  EvtRes awaitPosted(Deadline& deadline);

  /// Checks, without waiting, whether the peer has closed the connection.
  EvtRes checkPeer();

  /// Ends the connection; the owner and the sink receive nothing any more.
  void close() {
    owner_ = nullptr;
    static_cast<void>(fail(EvtRes_Closed));
  }

  /// Ends the connection because of an error of this side.
  void lose(EvtRes error) { static_cast<void>(fail(error)); }

  /// `EvtRes_Success` while the connection is open, else its first error.
  [[nodiscard]] EvtRes error() const { return error_; }

  bool ready(unsigned role, std::uint32_t events) override;

 private:
  EvtRes tryExchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply,
                     Deadline& deadline);
  enum Role : unsigned { eventRole, replyRole, requestRole };

  EvtRes listen();
  EvtRes fail(EvtRes error);
  bool readEvents();
  /// A write for posted requests is possible, or replies to them have arrived.
  void continuePosted(bool isReadable);
  EvtRes listenForPosted();
  EvtRes tryAwaitPosted(Deadline& deadline);
  EvtRes stall(bool untilWritable);
  /// Keeps `written` at the number of bytes of this frame that were written.
  EvtRes send(const FrameHeader& header, std::span<const std::uint8_t> payload,
              std::size_t& written, Deadline& deadline);
  EvtRes writePending(Deadline& deadline);
  EvtRes writeAll(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body,
                  std::size_t& written, Deadline& deadline);
  EvtRes awaitReply(std::uint32_t sequence, Deadline& deadline, Reply& reply);
  EvtRes awaitInput(Deadline& deadline);
  /// Waits until the request pipe is writable and drops the replies that come
  /// meanwhile: a server that cannot write a late reply reads no request.
  EvtRes awaitWritable(Deadline& deadline);
  /// Reads once from the reply pipe; `EvtRes_Timeout` if it is empty.
  EvtRes readReplies();
  /// Takes the replies that were read up to the one with sequence number `*wanted`,
  /// passes those of posted requests to the sink and drops the others. `EvtRes_Success` if that one
  /// is among them, else `EvtRes_Timeout`; with `wanted` null it is never found.
  EvtRes takeReplies(const std::uint32_t* wanted, Reply* reply);
  /// Ends the stall if the server has shown activity, else `EvtRes_Stalled`.
  EvtRes endStall();
  void dispatchEvents();

  ManagerCore& core_;
  System& system_;
  EventSink& sink_;

  // Guarded by the client mutex.
  ClientLinkOwner* owner_ = nullptr;  // Null before open() and after the end.
  ConnectionPipes pipes_;
  Registration onEvent_;
  Registration onReply_;    // While replies to posted requests are missing.
  Registration onRequest_;  // While posted requests wait for the pipe.
  EvtRes error_ = EvtRes_Success;

  std::uint32_t sequence_ = 0;
  bool stalled_ = false;
  bool awaitsWritable_ = false;                 // Stalled because the request pipe was full.
  std::vector<std::uint8_t> pendingOutput_;     // The unwritten rest of that and of posted ones.
  std::vector<std::uint32_t> posted_;           // The sequence numbers of posted requests.
  std::size_t postedDone_ = 0;                  // How many of them have their reply.
  std::unique_ptr<std::uint8_t[]> replyBytes_;  // Not cleared: most of it is never used.
  FrameReader replies_;

  FrameReader events_;
  bool dispatching_ = false;
  bool paused_ = false;  // A nested dispatch found events and left them.
};

}  // namespace EvtSrv::internal
