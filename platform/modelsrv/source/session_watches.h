#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "evtsrv/source/server_session.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/linked_queue.h"
#include "modelsrv/source/server_watch.h"
#include "modelsrv/source/watch_timer.h"

namespace ModelSrv::internal {

/// What the watches of all sessions of a server share. Guarded by the client mutex.
struct WatchShare {
  explicit WatchShare(ModelRoot& root);

  EvtSrv::internal::System& system;
  EvtSrv::internal::TurnQueue& turns;
  const std::shared_ptr<WatchRegistry> registry;
  WatchTimer timer;
  std::string text;              ///< of the value that was read last
  std::vector<ModelPartId> ids;  ///< used within one call
};

/// The watches of one client in a server. Guarded by the client mutex.
class SessionWatches final : private WatchTimer::Listener {
 public:
  /// `connection` and `share` outlive this.
  SessionWatches(EvtSrv::internal::ServerConnection& connection, WatchShare& share);
  ~SessionWatches() override;
  SessionWatches(const SessionWatches&) = delete;
  SessionWatches& operator=(const SessionWatches&) = delete;

  /// Adds a watch of `part`, or if that is null of the part that appears at `chain`.
  /// `ModelRes_LimitReached` if the account allows no more, or there is no descriptor for the
  /// timer; `ModelRes_BadArgument` if the number is in use.
  ModelRes add(ModelPart* part, ChainView chain, const WatchTerms& terms);
  /// `ModelRes_NotSubscribed` if there is no such watch.
  ModelRes remove(WatchNumber number);

  /// A write of events begins. With `inDispatch` it may call the program.
  void beginEvents(bool inDispatch);
  /// Removes the next pending event; false if there is none, or `isPaused`.
  bool takeNext(std::uint16_t& type, std::vector<std::uint8_t>& payload);
  /// The connection ends soon: periods have no meaning any more.
  void endPeriods();
  /// Whether more is to be sent by a later dispatch.
  [[nodiscard]] bool isPaused() const { return paused_; }

  /// Ends some watches, for a connection that has ended; true if none is left.
  bool release();

  // Called by `ServerWatch`.

  /// `watch` has something pending.
  void pendingAdded(ServerWatch& watch);
  /// Reads a value into the shared text, which is valid until the next call. The result is one
  /// that can be sent.
  ModelRes readValue(const ModelPart& part, ModelPartIndex index);
  /// The program is called, which may take long.
  void programCalled() { programCalled_ = true; }
  /// `watch` is to be woken up at that time or before.
  void rests(ServerWatch& watch, std::int64_t untilMs);
  void closeConnection() { connection_.closeOnNextDispatch(); }
  [[nodiscard]] EvtSrv::internal::SessionAccount& account() { return connection_.account(); }
  [[nodiscard]] WatchShare& share() { return share_; }
  [[nodiscard]] bool isReleased() const { return released_; }
  [[nodiscard]] bool hasPeriods() const { return !periodsEnded_; }

 private:
  bool enroll(const std::shared_ptr<ServerWatch>& watch);
  std::int64_t timeReached(std::int64_t nowMs) override;

  EvtSrv::internal::ServerConnection& connection_;
  WatchShare& share_;
  std::map<WatchNumber, std::shared_ptr<ServerWatch>> watches_;
  LinkedQueue<ServerWatch> ready_;  ///< those that have something pending
  std::size_t withPeriod_ = 0;
  WatchWakes wakes_;          ///< when which is to be woken up
  std::size_t textRead_ = 0;  ///< bytes since the beginning of this write
  bool inDispatch_ = false;
  bool programCalled_ = false;  ///< since the beginning of this write
  bool paused_ = false;
  bool released_ = false;
  bool periodsEnded_ = false;
};

}  // namespace ModelSrv::internal
