#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "tests/fault/served_tree.h"

/// A client of the served tree, in the process of the test or of the peer.
namespace fault {

/// The result of a request, and how long it took.
struct Reply {
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NotConnected;
  std::string text;
  std::chrono::milliseconds elapsed{0};
};

/// An elapsed time below this shows that a request did not wait for its time-out of 2 s.
inline constexpr std::chrono::milliseconds immediateLimit{1000};

/// A proxy that counts its updates.
class WatchedPart : public ModelSrv::ModelPart {
 public:
  explicit WatchedPart(ModelSrv::ModelPartId id) : ModelPart(id) {}
  ~WatchedPart() override { detach(); }

  ModelSrv::ModelRes update(void* context, unsigned short index) override;

  unsigned updates() const { return updates_; }
  /// The value that was requested inside the last update, if `readsInUpdate`.
  const std::string& lastValue() const { return lastValue_; }
  bool readsInUpdate = false;

 private:
  std::atomic<unsigned> updates_{0};
  std::string lastValue_;
};

/// Thread-safe only as far as its root is.
class Client {
 public:
  explicit Client(bool reconnects = true);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Reply connect(const std::string& port);
  Reply get(ModelSrv::ModelPart& part);
  Reply store(ModelSrv::ModelPart& part, const std::string& text);
  ModelSrv::ModelRes subscribe(ModelSrv::ModelPart& part);

  /// Dispatches events until `done()`; false after a timeout.
  bool pumpUntil(const std::function<bool()>& done);

  /// Adds proxies for all parts of the node "many".
  void addProxies();

  EvtSrv::EventPortManager manager;
  ModelSrv::ModelRoot root;
  WatchedPart counter{counterId};
  WatchedPart text{textId};
  ModelSrv::ModelNode many{manyId};
  std::vector<std::unique_ptr<WatchedPart>> parts;
};

}  // namespace fault
