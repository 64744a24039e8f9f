#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bindings/c/source/event_loop.h"
#include "bindings/c/source/handle_table.h"
#include "bindings/c/source/served_part.h"
#include "modelsrv/model_root.h"

namespace treescope_c {

class Server;

/// A part of a C program's server. Everything is guarded by the server's client mutex.
class Part final : public Object, private PartCallbacks {
 public:
  static constexpr Kind objectKind = Kind::part;
  using WatchHandler = void (*)(void* context, bool watched);

  /// `parent` is null below the root.
  Part(std::shared_ptr<Server> server, std::unique_ptr<ServedPart> served, Part* parent);

  /// The server's client mutex, as a lock; and whether the part is still in the tree.
  [[nodiscard]] Server& server() const { return *server_; }
  [[nodiscard]] bool isRemoved() const { return removed_; }

  ServedPart& served() { return *served_; }
  treescope_result setStoreCheck(treescope_store_check check, void* context);
  treescope_result setGetter(treescope_getter getter, void* context);
  treescope_result setWatchHandler(WatchHandler handler, void* context);

 private:
  friend class Server;

  ModelSrv::ModelRes checkStore(treescope_store_request& request, std::string& reason) override;
  treescope_result readValue(treescope_reply& reply) override;
  [[nodiscard]] treescope_part* handle() const {
    return reinterpret_cast<treescope_part*>(handle_);
  }

  const std::shared_ptr<Server> server_;
  const std::unique_ptr<ServedPart> served_;
  Part* const parent_;
  const std::size_t depth_;  ///< the number of parts from the root to this one

  HandleTable::Handle handle_ = 0;
  std::size_t position_ = 0;  ///< in the parent's list
  std::vector<std::shared_ptr<Part>> children_;
  bool removed_ = false;
  treescope_store_check check_ = nullptr;
  void* checkContext_ = nullptr;
  treescope_getter getter_ = nullptr;
  void* getterContext_ = nullptr;
  bool reading_ = false;  ///< the getter runs: it cannot be called again
  WatchHandler watchHandler_ = nullptr;
  void* watchContext_ = nullptr;
};

/// The server of a C program: its loop, its root and its parts. Thread-safe.
class Server final : public Object, public std::enable_shared_from_this<Server> {
 public:
  static constexpr Kind objectKind = Kind::server;

  Server() : Object(objectKind) {}

  /// Adds a part below `parent`, or below the root if it is null, and gives it a handle.
  treescope_result add(Part* parent, const treescope_part_options& options,
                       treescope_part*& handle);
  /// Removes a part and its descendants, and closes their handles.
  treescope_result remove(Part& part);
  /// Ends the service and removes all parts. TREESCOPE_BUSY in a callback.
  treescope_result close();

  ModelSrv::ModelRes publish(const std::string& name, const ModelSrv::ServerOptions& options);
  treescope_result unpublish(int milliseconds);

  EventLoop loop{false};

 private:
  using Parts = std::vector<std::shared_ptr<Part>>;

  [[nodiscard]] Parts& childrenOf(Part* parent) {
    return parent == nullptr ? children_ : parent->children_;
  }
  /// Takes everything in `parts` and below it out of its list, and detaches it from its node: later
  /// no two of them depend on each other. Returns them all.
  static Parts takeApart(Parts parts);
  static void closeHandles(const Parts& parts);

  // Guarded by the client mutex.
  ModelSrv::ModelRoot root_{&loop.manager};
  Parts children_;
  bool closed_ = false;
};

}  // namespace treescope_c
