#pragma once

#include <functional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"
#include "modelsrv/watch.h"

namespace modelgate {

using Chain = std::vector<ModelSrv::ModelPartId>;

/// The connection to a server of this machine, which is made again when it is lost. Requests wait,
/// for 2 s at most. For one thread, except `wake`.
class LocalServer {
 public:
  /// Called by `dispatch`.
  struct Handlers {
    std::function<void()> lost;
    std::function<void()> restored;
  };

  explicit LocalServer(Handlers handlers);

  ModelSrv::ModelRes connect(const std::string& port);
  /// Ends the connection, and the watch.
  void disconnect();

  // Requests about the part at `chain`. On success the output is replaced.

  ModelSrv::ModelRes read(const Chain& chain, ModelSrv::ModelPartIndex index, std::string& text);
  /// Without success `reason` says why.
  ModelSrv::ModelRes store(const Chain& chain, std::string_view text, bool isLoader,
                           ModelSrv::ModelPartIndex index, std::string& reason);
  ModelSrv::ModelRes describe(const Chain& chain, ModelSrv::PartDescription& description);
  ModelSrv::ModelRes readChildIds(const Chain& chain, Chain& ids);
  ModelSrv::ModelRes readChildNames(const Chain& chain, std::vector<std::string>& names);
  ModelSrv::ModelRes readTree(const ModelSrv::TreeVisitor& visit, ModelSrv::TreeReading& reading);

  /// Watches the whole tree. `callback` is called by `dispatch`.
  ModelSrv::ModelRes watch(std::uint32_t period, ModelSrv::Watch::Callback callback);
  /// Within that callback: the whole text that the event was too short for.
  ModelSrv::ModelRes fetch(const ModelSrv::WatchEvent& event, std::string& text);

  /// Waits at most `milliseconds` (below 0: no limit) for events, and dispatches some. False if
  /// there were none.
  bool dispatch(int milliseconds);
  /// Ends the present or the next `dispatch`. Any thread.
  void wake() { manager_.wake(); }
  /// Readable as long as `dispatch` would not wait.
  [[nodiscard]] int pollDescriptor() const { return manager_.pollDescriptor(); }

 private:
  class Root final : public ModelSrv::ModelRoot {
   public:
    Root(EvtSrv::EventPortManager* manager, Handlers handlers)
        : ModelRoot(manager), handlers_(std::move(handlers)) {}
    unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                               EvtSrv::MemoryHolder* reply) override;

   private:
    Handlers handlers_;
  };

  /// Stands for the part that the next request is about. The library asks for each id of the chain
  /// once, the last one first. It is in no tree, so the client mutex is held during the request.
  class Target final : public ModelSrv::ModelPart {
   public:
    explicit Target(ModelSrv::ModelRoot& root) : root_(root) {}
    ~Target() override { detach(); }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    void set(std::span<const ModelSrv::ModelPartId> chain) { rest_ = chain; }
    ModelSrv::ModelPartId getId() override;
    ModelSrv::ModelPart* getParentNode() override;

   private:
    ModelSrv::ModelRoot& root_;
    std::span<const ModelSrv::ModelPartId> rest_;
  };

  ModelSrv::ModelPart* at(const Chain& chain);

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  Root root_;
  Target target_{root_};
  std::ostringstream stream_;
  ModelSrv::Watch watch_;  ///< after the root: it ends first
};

}  // namespace modelgate
