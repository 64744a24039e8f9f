#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "evtsrv/result.h"
#include "evtsrv/source/frame.h"

/// The client's end of one connection. Everything here runs with the manager's
/// client mutex held.
namespace EvtSrv::internal {

class ManagerCore;

/// The answer to a request; the payload stays valid until the next exchange or
/// the end of the connection.
struct Reply {
  std::uint16_t code = 0;
  ByteOrder order = nativeOrder;
  std::span<const std::uint8_t> payload;
};

/// Where a connection's events go.
class EventSink {
 public:
  virtual ~EventSink() = default;

  /// One event from the port that the connection leads to. May make exchanges,
  /// close the connection or connect it again.
  virtual void eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                             ByteOrder order) = 0;
};

/// How long a server may take to answer a request or a hello.
inline constexpr int answerTimeoutMs = 2000;

class PortClient {
 public:
  /// `core` and `sink` outlive this.
  PortClient(ManagerCore& core, EventSink& sink);
  ~PortClient();
  PortClient(const PortClient&) = delete;
  PortClient& operator=(const PortClient&) = delete;

  /// Says hello to port `name` and waits for its welcome, at most
  /// `answerTimeoutMs`. An earlier connection ends first. A hello that was not
  /// answered in time stays out, so that `resume` may find its answer later.
  EvtRes connect(const std::string& name);

  /// Brings a lost connection back: `EvtRes_Success` where it is open (`renewed`
  /// tells whether it is a new one), `EvtRes_NoServer` at once where nobody
  /// serves the name, `EvtRes_Stalled` at once where an earlier hello is still
  /// unanswered by a live server.
  EvtRes resume(bool& renewed);

  /// Sends one request and waits for its reply, at most `answerTimeoutMs`
  /// (`EvtRes_Timeout`). After that, and until the server shows life,
  /// `EvtRes_Stalled` at once; a late reply is dropped. `EvtRes_Closed` where the
  /// connection is gone, noticed at once.
  EvtRes exchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply);

  /// Whether a connection is open and no fault has been found on it. A peer that
  /// has gone is noticed by the next exchange, dispatch or `resume`.
  [[nodiscard]] bool isOpen() const;

  /// Ends the connection; the name is forgotten.
  void close();

  /// The name that was connected to last, without "/tmp/" and ".fifo".
  [[nodiscard]] const std::string& portName() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace EvtSrv::internal
