#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evtsrv/event_port.h"
#include "evtsrv/event_port_manager.h"
#include "modelsrv/deferred_store.h"
#include "modelsrv/model_node.h"
#include "modelsrv/session_hold.h"
#include "modelsrv/tree_part.h"

namespace ModelSrv {

namespace internal {
class ClientSide;
class ServerSide;
class SleepingSessions;
class WatchRegistry;
}  // namespace internal

/// How a server publishes its tree.
struct ServerOptions {
  /// If set, members of this group may connect too: the mailbox lets them write. `(gid_t)-1`, which
  /// chown(2) takes for the group that a file has, is none.
  std::optional<gid_t> group;

  /// Called when the store of a client has been accepted, whether it has changed the value or not,
  /// so that the server can keep what clients store. Called with the client mutex held, on the
  /// thread that dispatches, before the client gets its reply. It must not throw, and it must not
  /// add, remove or destroy parts.
  std::function<void(ModelPart& part)> stored = {};

  /// Called for each client that has connected, before anything that it requests is served, so that
  /// the server can make the tree, or begin to keep its values, when a client needs them. Nothing
  /// of this client is served while `hold` is in effect: keep it, add the parts later (from the
  /// program's loop or another thread, not here), then release it. If it is not kept, the client is
  /// served at once. A client that connects again has a new session, and is reported again; what it
  /// renews waits, too.
  ///
  /// Called with the client mutex held, on the thread that dispatches. It must not add, remove or
  /// destroy parts; it may stop the service. What it throws ends this client's connection and
  /// passes through the dispatch.
  std::function<void(SessionHold hold)> arrived = {};

  /// Called after clients have gone, with the number of those that there are now, so that a server
  /// can save its work while that is 0. One call may stand for several clients, and others may have
  /// arrived since. Not called for the clients that the end of the service disconnects.
  ///
  /// Called with the client mutex held, on the thread that dispatches, by itself: it may add and
  /// remove parts and stop the service, but not destroy the root. It must not throw.
  std::function<void(std::size_t clients)> left = {};
};

/// The top of a model tree, and its event port. In a server the tree is published; in a
/// client it represents the tree of the connected server.
///
/// The root does not own the manager, which must outlive it. Threads: any; every operation
/// locks the manager's client mutex while it runs. Nothing here throws: errors are results.
class KRV_EXPORT ModelRoot : public ModelNode, public EvtSrv::EventPort {
 public:
  /// How long a client may use cached replies without a check with the server. This library
  /// never does so, and accepts `CachePeriod_Stop` only.
  static constexpr int CachePeriod_Stop = -1;

  /// The types of the events that a client's root receives.
  static constexpr unsigned EvtTyp_Model_Started = 1;  ///< the server accepted the connection
  /// A subscribed part has changed. The data begins with the byte-order flag: 1 if the most
  /// significant byte comes first, otherwise this machine's own order. The holder's position
  /// is after the flag. Then follow the part's id chain, `ModelPartIndex_Void`, and the
  /// element index or `ModelPartIndex_All`, 16 bits each.
  static constexpr unsigned EvtTyp_Model_Update = 2;
  static constexpr unsigned EvtTyp_Model_Stopped = 3;  ///< the server ends the connection

  // Events of this library, which no server can send; their data is empty. They alternate,
  // the first is `Lost`, and both come from a dispatch, never inside a request. There are none
  // for a connection that the program ends itself, by `stop` or `startAsClient`. Events of the
  // new connection may come before `Restored`.

  /// The connection has been lost, such as when the server has ended. If the manager reconnects,
  /// its dispatches make the connection again as soon as a server of that name is back, and so
  /// does a request before that. Values may have changed meanwhile without an update.
  static constexpr unsigned EvtTyp_Model_Lost = 0x10000;
  /// There is a new connection, and all subscriptions have been renewed on it, except those that
  /// the server refuses.
  static constexpr unsigned EvtTyp_Model_Restored = 0x10001;

  explicit ModelRoot(EvtSrv::EventPortManager* manager);
  ~ModelRoot() override;

  /// Connects to the server of port `name` and waits at most 2 s for its reply. A previous
  /// connection of this root ends first, and its subscriptions with it. `cachePeriod` must be
  /// `CachePeriod_Stop`. `behaviour` is a set of `EvtSrv::ConBehave` bits; it has no effect in
  /// this library, where every connection is local.
  ///
  /// Results: `ModelRes_NotConnected` if no server has this name (returned at once),
  /// `ModelRes_Timeout`, `ModelRes_BadName`, `ModelRes_NotPermitted`, `ModelRes_Refused`,
  /// `ModelRes_Busy` for a root that serves, `ModelRes_BadArgument` for another cache period,
  /// or an error of the system.
  ModelRes startAsClient(const std::string& name, int cachePeriod, unsigned behaviour);

  /// The user that owns the server's mailbox: whose server this client is connected to, or
  /// was before the connection was lost. It stays the same as long as the session does: a
  /// lost connection is made again only to a mailbox of the same owner and group
  /// (`ModelRes_NotPermitted` otherwise). Empty for a root that is not a client. A client of
  /// root may have connected to the server of any user.
  [[nodiscard]] std::optional<uid_t> serverOwner();

  /// Publishes the tree below this root as port `name`. The program must then pump the
  /// manager. Results: `ModelRes_NameInUse`, `ModelRes_BadName`, `ModelRes_NotPermitted`,
  /// `ModelRes_BadArgument` for a group that is none, `ModelRes_Busy` for a root that is a client
  /// or serves already, or an error of the system.
  ModelRes startAsServer(const std::string& name, const ServerOptions& options = {});

  /// Ends the client's connection or the service; a service's mailbox is removed. With
  /// `atOnce` everything is closed before this returns. Otherwise the service accepts nothing
  /// new, and each connection ends when its client has received what is pending for it
  /// (see `finishActiveTerm`).
  void stop(bool atOnce);

  /// Within a call that decides about a client's store (a store check, or
  /// `ModelPart::storeFromClient`), in a server: the reply to that store comes later, from the
  /// object that this returns. What the call itself returns then only decides whether the library
  /// applies the value now; any result but `ModelRes_Success` leaves it as it is. Returns an object
  /// without a store everywhere else, and for a store that was deferred already. May throw
  /// `std::bad_alloc`, which ends the connection of that client.
  [[nodiscard]] DeferredStore deferStore();

  // Requests of a client about `part`, which is in the tree of this root, or a proxy whose
  // ancestors lead to this root, or the root itself. On `ModelRes_Success` the output is
  // replaced; otherwise it is unchanged. Each exchange waits at most 2 s. `ModelRes_BadArgument`
  // for a part that does not lead to this root, `ModelRes_NotConnected` for a root that is no
  // client, and otherwise what the server replies, such as `ModelRes_NoSuchPart`, or an error of
  // the connection.

  /// The ids of the part's children in the server's order. Empty if it is not a node.
  ModelRes getChildIdsFromServer(ModelPart* part, std::vector<unsigned short>& ids);
  /// The names of the children in the same order. A name may be empty.
  ModelRes getChildNamesFromServer(ModelPart* part, std::vector<std::string>& names);
  /// The number of elements of an array; 0 for a single value or a node.
  ModelRes getElementSumFromServer(ModelPart* part, unsigned short& sum);
  /// The names of the elements: none, or one for each element.
  ModelRes getElementNamesFromServer(ModelPart* part, std::vector<std::string>& names);

  /// The text of the whole value or of one element, as `ModelPart::save` gives it, into a string: a
  /// program that makes no stream has none of the C++ library's locales, a third of a megabyte.
  ModelRes getTextFromServer(ModelPart* part, ModelPartIndex index, std::string& text);

  /// Reads `part` and all its descendants, with their names, types, elements and values, in few
  /// exchanges, and calls `visit` for each: a node before its children, these in the ascending
  /// order of their ids (of an older server: in its order). It reports neither the children that a
  /// node hides nor more than the program wants: `visit` may end the reading, which is success.
  /// Does not hold the client mutex during the whole reading, nor while it calls `visit`; so other
  /// threads may make requests meanwhile, and the tree may change (see `TreeReading`).
  ///
  /// A value that cannot be read is reported with its result, and is no error of the reading. On
  /// any result but `ModelRes_Success` parts may have been reported. `reading` is set in any case.
  /// `ModelRes_BadArgument` for an empty `visit`.
  ModelRes readTree(ModelPart* part, const TreeVisitor& visit, TreeReading& reading);
  ModelRes readTree(ModelPart* part, const TreeVisitor& visit);

  /// The library's own handling of an event. In a client it dispatches an update to the parts
  /// that subscribed (`ModelPart::update`). Returns an `EvtSrv::EvtRes`.
  unsigned receiveMain(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                       EvtSrv::MemoryHolder* reply);

  /// Waits at most `milliseconds` (below 0: no limit) until a stop of this root that is in progress
  /// has finished, and dispatches meanwhile. Results as for `EventPortManager::finishActiveTerm`.
  virtual EvtSrv::EvtRes finishActiveTerm(int milliseconds);

  /// The event hook: receives every event of this root's port, on the thread that dispatches,
  /// with the client mutex held. The default calls `receiveMain`.
  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override;

 protected:
  [[nodiscard]] ModelRoot* asRoot() override { return this; }

 private:
  friend class ModelPart;
  friend class ModelNode;
  friend struct internal::PartAccess;

  /// Calls `send` with the id chain of `part`.
  template <typename Send>
  ModelRes request(ModelPart* part, Send send);

  // Guarded by the client mutex.
  std::unique_ptr<internal::ClientSide> client_;
  std::unique_ptr<internal::ServerSide> server_;
  /// Shared with those sessions, which may outlive the root.
  std::shared_ptr<internal::SleepingSessions> sleepingSessions_;
  std::shared_ptr<internal::WatchRegistry> watchRegistry_;
};

}  // namespace ModelSrv
