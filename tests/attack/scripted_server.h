#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "tests/fault/raw_pipe.h"
#include "tests/fault/wire.h"
#include "tests/support/descriptor.h"

namespace attack {

/// The code and the payload of a reply.
struct ScriptedReply {
  std::uint16_t code = 0;
  std::string payload;
};

/// How a server sends its replies, and its next welcome.
enum class Manner {
  prompt,
  slow,        ///< each after 1.9 s, just before the client stops waiting
  never,       ///< reads requests and sends nothing
  byteByByte,  ///< one byte every 150 ms
  closing,     ///< ends the connection after each; the next welcome takes 1.9 s
  batches,     ///< ends the connection once, then sends the next welcome, and all replies that
               ///< are due, after 1.9 s
};

/// A server for one client, without the library, that sends what it likes and when it likes.
/// Serves on a thread of its own from the constructor to the destructor. The client must have
/// ended by then.
class ScriptedServer {
 public:
  using Clock = std::chrono::steady_clock;
  /// What it replies to a request.
  using Script = std::function<ScriptedReply(const fault::wire::Frame& request)>;

  /// From the `count`th request for `operation` on, which is replied to promptly, the replies are
  /// sent in that manner.
  struct Turn {
    Manner manner = Manner::prompt;
    std::uint16_t operation = 0;
    unsigned count = 0;
    std::string event = {};  ///< is sent then
  };

  ScriptedServer(const std::string& mailbox, Script script, Turn turn);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  /// Waits until the manner has changed.
  [[nodiscard]] bool hasTurned() const;
  /// When the manner has changed; after `hasTurned`.
  [[nodiscard]] Clock::time_point turnedAt() const { return turnedAt_; }

  /// How many requests have come since then.
  [[nodiscard]] unsigned requestsSince() const { return requests_; }

 private:
  void serve();
  void accept();
  bool serveRequests();
  bool serveRequest();
  void deliver(const std::string& reply);
  void disconnect();
  /// Waits; false if the server is to stop.
  [[nodiscard]] bool pause(std::chrono::milliseconds time) const;

  const Script script_;
  fault::RawServer server_;
  const test_support::Descriptor stop_;
  Manner manner_ = Manner::prompt;
  Turn turn_;
  Clock::time_point turnedAt_;
  std::promise<void> turned_;
  std::shared_future<void> hasTurned_{turned_.get_future()};
  std::atomic<unsigned> requests_{0};  ///< since the manner has changed, or the beginning
  std::thread thread_;
};

/// The id chain that a request begins with.
std::vector<std::uint16_t> chainOf(const fault::wire::Frame& request);

/// An update of the whole value of the part at the chain.
std::string updateOf(std::initializer_list<std::uint16_t> ids);

/// The payload of a reply with these ids, or names.
std::string idsPayload(std::size_t count);
std::string namesPayload(std::size_t count, const std::string& name);

/// A tree with one node, "group", of `count` parts, all of the name "part" and their number. Each
/// has the value 0 and can be subscribed to.
ScriptedServer::Script groupOf(std::uint16_t count);

/// A tree without an end: each node has `width` nodes below it, all of the same name.
ScriptedServer::Script endlessTree(std::uint16_t width, const std::string& name);

}  // namespace attack
