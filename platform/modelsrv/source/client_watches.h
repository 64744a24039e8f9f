#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "evtsrv/source/frame.h"
#include "modelsrv/source/watch_payloads.h"
#include "modelsrv/watch.h"

namespace ModelSrv::internal {

class ClientSide;

/// What a client keeps of one watch, for the program's `Watch` and for the connection.
class ClientWatch {
 public:
  ClientWatch(EvtSrv::EventPortManager& ofManager, std::vector<ModelPartId> watchedChain,
              const WatchOptions& watchOptions, Watch::Callback eventCallback);

  // Constant.
  EvtSrv::EventPortManager& manager;
  const std::vector<ModelPartId> chain;
  const WatchOptions options;

  // Guarded by the client mutex.
  ClientSide* client = nullptr;  ///< null: the watch has ended
  WatchNumber number = 0;
  Watch::Callback callback;
  std::uint64_t refusedBy = 0;  ///< the last connection whose server refused it
};

/// The watches of a client, in the order in which they were started. Independent of any
/// connection. Guarded by the client mutex.
class ClientWatches {
 public:
  using Pointer = std::shared_ptr<ClientWatch>;

  ClientWatches() = default;
  ~ClientWatches() { clear(); }
  ClientWatches(const ClientWatches&) = delete;
  ClientWatches& operator=(const ClientWatches&) = delete;

  [[nodiscard]] WatchNumber nextNumber() { return ++last_; }
  /// Adds a watch with a number, which the server has just accepted.
  void add(const Pointer& watch, ClientSide& client);
  void erase(ClientWatch& watch);
  /// Ends all.
  void clear();
  [[nodiscard]] Pointer find(WatchNumber number) const;

  /// Passes an event to its watch; does nothing if there is none, or the event is malformed. The
  /// caller keeps this object alive, whatever the callback does. Returns whether the event is of a
  /// stray, which is to be ended now.
  bool dispatch(std::uint16_t type, EvtSrv::internal::PayloadReader payload);

  // Strays: watches that the server may have, and this client has not, since a request timed out.

  void noteStray(WatchNumber number) { strays_.insert(number); }
  /// The stray to end next: one that has sent an event.
  [[nodiscard]] std::optional<WatchNumber> firstToEnd() const;
  void markEnded(WatchNumber number) { std::erase(toEnd_, number); }

  // Renewal on a new connection, as in `ClientSubscriptions`.

  void markAllLost();
  [[nodiscard]] std::optional<WatchNumber> firstLost() const;
  void markRenewed(WatchNumber number) { renewed_ = number; }
  void markRefused(WatchNumber number);
  [[nodiscard]] bool isLost(const ClientWatch& watch) const {
    return watch.number > renewed_ || watch.refusedBy == connection_;
  }

 private:
  std::map<WatchNumber, Pointer> watches_;
  std::set<WatchNumber> strays_;
  std::vector<WatchNumber> toEnd_;
  WatchNumber last_ = 0;
  std::uint64_t connection_ = 1;  ///< the number of the connection
  WatchNumber renewed_ = 0;       ///< watches up to this number are renewed or refused
  DecodedWatchEvent decoded_;     ///< reused, unless a dispatch is nested
};

}  // namespace ModelSrv::internal
