#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evtsrv/event_port.h"
#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_node.h"

namespace ModelSrv {

namespace internal {
class ClientSide;
class ServerSide;
}  // namespace internal

/// How a server publishes its tree.
struct ServerOptions {
  /// Members of this group may connect too; the mailbox is then open to it.
  std::optional<gid_t> group;
};

/// The top of a model tree and its event port: in a server the tree that is
/// published, in a client the tree that the server publishes.
///
/// The manager is not owned and outlives the root. Threads: any; every operation
/// takes the manager's client mutex for its own run. Nothing here throws; the
/// results say what failed.
class KRV_EXPORT ModelRoot : public ModelNode, public EvtSrv::EventPort {
 public:
  /// How long a client may answer from what it has asked before, by the clock.
  /// This library keeps nothing by the clock and takes `CachePeriod_Stop` only.
  static constexpr int CachePeriod_Stop = -1;

  /// Types of the events that reach a client's root.
  static constexpr unsigned EvtTyp_Model_Started = 1;  ///< the server has taken the connection
  /// A subscribed part has changed. The data begins with the byte-order flag (1:
  /// most significant byte first, else this machine's own order), behind which
  /// reading starts; then the part's id chain, `ModelPartIndex_Void`, and the
  /// element index or `ModelPartIndex_All`, 16 bits each.
  static constexpr unsigned EvtTyp_Model_Update = 2;
  static constexpr unsigned EvtTyp_Model_Stopped = 3;  ///< the server ends the connection

  explicit ModelRoot(EvtSrv::EventPortManager* manager);
  ~ModelRoot() override;

  /// Connects to the server that serves port `name`, waiting at most 2 s for it
  /// to answer; an earlier connection of this root ends first. `behaviour` is a
  /// set of `EvtSrv::ConBehave` bits for this connection. Results:
  /// `ModelRes_NotConnected` where nobody serves that name (at once),
  /// `ModelRes_Timeout`, `ModelRes_BadName`, `ModelRes_NotPermitted`,
  /// `ModelRes_Refused`, `ModelRes_Busy` for a root that serves, or what the
  /// system refused.
  ModelRes startAsClient(const std::string& name, int cachePeriod, unsigned behaviour);

  /// Publishes the tree below this root as port `name`; the program then pumps
  /// the manager. Results: `ModelRes_NameInUse`, `ModelRes_BadName`,
  /// `ModelRes_NotPermitted`, `ModelRes_Busy`, or what the system refused.
  ModelRes startAsServer(const std::string& name, const ServerOptions& options = {});

  /// Ends the client's connection or the service; the mailbox of a service is
  /// removed. With `atOnce` everything is closed now. Without it nothing new is
  /// taken, and each connection ends when what was pending for it has been taken
  /// (`finishActiveTerm`).
  void stop(bool atOnce);

  // What a client asks of its server about `part`: one of this root's parts or
  // stand-ins, or the root itself. The output is replaced on `ModelRes_Success`
  // and left alone otherwise.

  /// The ids of the part's children, in the server's order; empty for a part.
  ModelRes getChildIdsFromServer(ModelPart* part, std::vector<unsigned short>& ids);
  /// Their names, in the same order; a name may be empty.
  ModelRes getChildNamesFromServer(ModelPart* part, std::vector<std::string>& names);
  /// How many elements the part is an array of: 0 for a single value or a node.
  ModelRes getElementSumFromServer(ModelPart* part, unsigned short& sum);
  /// The elements' names: none, or as many as there are elements.
  ModelRes getElementNamesFromServer(ModelPart* part, std::vector<std::string>& names);

  /// The library's own handling of an event: in a client an update is handed to
  /// the parts that subscribed (`ModelPart::update`).
  unsigned receiveMain(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                       EvtSrv::MemoryHolder* reply);

  /// Waits at most `milliseconds` until a stop of this root that is under way has
  /// ended.
  virtual EvtSrv::EvtRes finishActiveTerm(int milliseconds);

  /// The event hook: what reaches this root's port, from the thread that
  /// dispatches, with the client mutex held. Hands everything to `receiveMain`.
  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override;

 protected:
  [[nodiscard]] ModelRoot* asRoot() override { return this; }

 private:
  friend class ModelPart;
  friend class ModelNode;

  /// The answer to `question`, which is put with the chain of `part`.
  template <typename Question>
  ModelRes ask(ModelPart* part, Question question);

  std::unique_ptr<internal::ClientSide> client_;
  std::unique_ptr<internal::ServerSide> server_;
};

}  // namespace ModelSrv
