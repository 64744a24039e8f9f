#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/link/back_off.h"
#include "gateway/link/broker_link.h"
#include "gateway/link/connection.h"
#include "gateway/link/half_close.h"
#include "gateway/link/host_lookup.h"

namespace modelgate {

class TlsContext;

/// The settings of TLS for the host of `options`; null without TLS. Throws std::runtime_error, with
/// a line for a person, if a file cannot be used.
[[nodiscard]] std::shared_ptr<TlsContext> makeTls(const LinkOptions& options);

/// The life of a `BrokerLink`: when there is a connection, and what is done with it. `BrokerLink`
/// is its only user, with the same rules for threads.
struct BrokerLink::State final : Connection::Listener {
  using Clock = EventLoop::Clock;
  using milliseconds = std::chrono::milliseconds;

  enum class Phase {
    idle,        ///< before `start` and after `finish`
    waiting,     ///< for the next attempt
    looking,     ///< for the host's addresses
    connecting,  ///< until the broker accepts
    connected,
    finishing,  ///< until everything has left
    closing,    ///< until the broker has read it
  };

  EventLoop& loop;
  LinkOptions options;
  Handlers handlers;
  HostLookup lookup;
  BackOff backOff{std::random_device{}()};
  AnswerLimit answerLimit;

  Phase phase = Phase::idle;
  std::unique_ptr<Connection> connection;
  int watchedDescriptor = -1;
  short watchedEvents = 0;
  /// Inside `process` of the connection, where it must not be destroyed.
  bool processing = false;
  bool breakOff = false;

  std::vector<std::string> addresses;  ///< that are still to be tried
  Clock::time_point notBefore{};
  Clock::time_point lastInput{};
  Clock::time_point lastTurn{};
  bool isDelayed = false;  ///< what is read may have waited here
  EventLoop::Timer retryTimer;
  EventLoop::Timer limitTimer;
  EventLoop::Timer keepAliveTimer;

  std::unordered_map<int, std::string> waiting;        ///< topics of QoS 1, by id
  std::unordered_map<int, std::string> subscriptions;  ///< filters, by id
  bool blocked = false;                                ///< `writable` is to be called
  bool over = false;                                   ///< `finish` was called
  std::function<void()> finished;
  std::unique_ptr<HalfClose> closing;

  State(EventLoop& usedLoop, LinkOptions usedOptions, Handlers usedHandlers)
      : loop(usedLoop),
        options(std::move(usedOptions)),
        handlers(std::move(usedHandlers)),
        lookup(usedLoop) {}
  ~State() { drop(); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Connecting.

  void attempt();
  void connectNext();
  void awaitAnswer();
  void noAnswer();
  void accepted();
  void scheduleKeepAlive();
  void checkKeepAlive();
  /// To be called whenever this connection gets its turn, before anything is read.
  void noteTurn();

  // The connection's descriptor.

  void updateWatch();
  void ready();
  /// What follows from what the connection has done, and from what handlers have asked for.
  void settle();
  void notifyWritable();
  [[nodiscard]] bool capacity() const;

  // What is sent.

  bool publish(const Publication& publication);
  /// Waits for the socket if it could not take everything.
  void written();

  // The end of a connection.

  void holdBack(milliseconds delay);
  void drop();
  void ended();
  void lost(const std::string& reason, bool takenOver);
  void scheduleRetry();

  // The end of the link.

  void finish(std::optional<Publication> last, milliseconds limit, std::function<void()> whenDone);
  void advanceFinish();
  /// Calls `finished` later, since that may destroy the link.
  void done();

  // What arrives.

  void messageArrived(const Message& message) override;
  void published(int id, int reason) override;
  void subscriptionTaken(int id, bool granted) override;
};

}  // namespace modelgate
