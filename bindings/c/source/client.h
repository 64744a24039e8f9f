#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bindings/c/source/event_loop.h"
#include "bindings/c/source/handle_table.h"
#include "bindings/c/source/path.h"
#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"
#include "modelsrv/watch.h"

namespace treescope_c {

/// The connection of a C program to a server. Thread-safe: operations hold the client mutex.
class Client final : public Object {
 public:
  static constexpr Kind objectKind = Kind::client;
  using EventHandler = void (*)(void* context, treescope_event event);

  Client() : Object(objectKind) {}

  ModelSrv::ModelRes connect(const std::string& name);

  /// Ends the connection. No callback runs or is called after this.
  void close();

  void setEventHandler(EventHandler handler, void* context);

  /// Sets `chain` to the ids of the part at `path`.
  ModelSrv::ModelRes resolve(const Path& path, IdChain& chain);

  ModelSrv::ModelRes read(const Path& path, std::string& text);
  /// As `ModelPart::store`.
  ModelSrv::ModelRes store(const Path& path, std::string_view text, bool flag, std::string& reason);
  ModelSrv::ModelRes list(const Path& path, IdChain& ids, std::vector<std::string>& names);
  ModelSrv::ModelRes describe(const Path& path, ModelSrv::PartDescription& description);

  /// As `ModelRoot::readTree`: `visit` is called without the client mutex.
  ModelSrv::ModelRes readTree(const Path& path, const ModelSrv::TreeVisitor& visit,
                              ModelSrv::TreeReading& reading);

  /// As `Watch::start`. On success `handle` is closed with the client.
  ModelSrv::ModelRes startWatch(const Path& path, const ModelSrv::WatchOptions& options,
                                ModelSrv::Watch::Callback callback, ModelSrv::Watch& watch,
                                HandleTable::Handle handle);
  /// Closes `handle` with the client no longer.
  void removeWatch(HandleTable::Handle handle);

  EventLoop loop{true};

 private:
  /// The top of the tree, with the event hook.
  class Root final : public ModelSrv::ModelRoot {
   public:
    explicit Root(Client& client) : ModelRoot(&client.loop.manager), client_(client) {}
    unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                               EvtSrv::MemoryHolder* reply) override;

   private:
    Client& client_;
  };

  /// Stands for the part of the next request, whose chain the request consumes.
  class Proxy final : public ModelSrv::ModelPart {
   public:
    explicit Proxy(Root& root) : root_(root) {}
    ~Proxy() override { detach(); }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    ModelSrv::ModelPartId getId() override;
    ModelPart* getParentNode() override;
    IdChain chain;

   private:
    Root& root_;
  };

  /// The children of the part at `chain`, from one moment. The mutex is held.
  ModelSrv::ModelRes children(const IdChain& chain, IdChain& ids, std::vector<std::string>& names);
  ModelSrv::ModelRes findChild(const IdChain& chain, std::string_view name,
                               ModelSrv::ModelPartId& id);

  /// The part for a request about `chain`. The mutex is held.
  ModelSrv::ModelPart& at(const IdChain& chain);
  /// Calls `request` with the part at `path`.
  template <typename Request>
  ModelSrv::ModelRes about(const Path& path, Request request);

  void report(treescope_event event);

  // Guarded by the client mutex.
  Root root_{*this};
  Proxy proxy_{root_};
  EventHandler handler_ = nullptr;
  void* context_ = nullptr;
  std::set<HandleTable::Handle> watches_;
  bool closed_ = false;
};

}  // namespace treescope_c
