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

/// One connection of a client, from the server's welcome to its end. The first
/// fatal fault closes it and is what every later call gives; that there is no
/// memory for what the server sends is one. With the client mutex held.
class ClientLink final : public ReadyHandler, public std::enable_shared_from_this<ClientLink> {
 public:
  ClientLink(ManagerCore& core, EventSink& sink, ConnectionPipes pipes);

  /// Begins to listen for events.
  EvtRes open();

  /// See `PortClient::exchange`.
  EvtRes exchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply);

  /// Looks, without waiting, whether the peer has gone.
  EvtRes look();

  /// Ends the connection; nothing reaches the sink from now on.
  void close() { static_cast<void>(fail(EvtRes_Closed)); }

  /// `EvtRes_Success` while the connection is open, else its first fault.
  [[nodiscard]] EvtRes fault() const { return fault_; }

  bool ready(unsigned role, std::uint32_t events) override;

 private:
  EvtRes tryExchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply);
  EvtRes fail(EvtRes fault);
  EvtRes stall(bool untilWritable);
  EvtRes send(const FrameHeader& header, std::span<const std::uint8_t> payload, Deadline& deadline);
  EvtRes writeAll(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body,
                  std::size_t& written, Deadline& deadline);
  EvtRes awaitReply(std::uint32_t sequence, Deadline& deadline, Reply& reply);
  EvtRes awaitInput(Deadline& deadline);
  /// Waits for room in the request pipe and drops what comes meanwhile: a server
  /// whose late reply has no room reads no request.
  EvtRes awaitWritable(Deadline& deadline);
  /// Reads once from the reply pipe; `EvtRes_Timeout` where nothing is there.
  EvtRes readReplies();
  /// Goes through the replies that were read: `EvtRes_Success` where the wanted
  /// one is among them, `EvtRes_Timeout` where not. All others are dropped.
  EvtRes takeReplies(const std::uint32_t* wanted, Reply* reply);
  EvtRes showsLife();
  void dispatchEvents();

  ManagerCore& core_;
  System& system_;
  EventSink& sink_;
  ConnectionPipes pipes_;
  Registration registration_;
  EvtRes fault_ = EvtRes_Success;

  std::uint32_t sequence_ = 0;
  bool stalled_ = false;
  bool awaitsWritable_ = false;                 // Stalled because the request pipe was full.
  std::vector<std::uint8_t> pendingOutput_;     // What is left to write of a request cut by that.
  std::unique_ptr<std::uint8_t[]> replyBytes_;  // Not cleared: most of it is never used.
  FrameReader replies_;

  FrameReader events_;
  bool dispatching_ = false;
  bool paused_ = false;  // A dispatch inside a dispatch found events.
};

}  // namespace EvtSrv::internal
