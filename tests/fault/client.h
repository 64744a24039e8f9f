#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "tests/fault/served_tree.h"

/// A client of the served tree inside the test's or the peer's process.
namespace fault {

/// What a request gave, and how long it took.
struct Answer {
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NotConnected;
  std::string text;
  std::chrono::milliseconds elapsed{0};
};

/// "At once" where the alternative is the time-out of 2 s.
inline constexpr std::chrono::milliseconds atOnce{1000};

/// A stand-in that counts the updates it is told of.
class WatchedPart : public ModelSrv::ModelPart {
 public:
  explicit WatchedPart(ModelSrv::ModelPartId id) : ModelPart(id) {}
  ~WatchedPart() override { detach(); }

  ModelSrv::ModelRes update(void* context, unsigned short index) override;

  unsigned updates() const { return updates_; }
  /// The value as it was asked for inside the last update, where `asksInUpdate`.
  const std::string& seen() const { return seen_; }
  bool asksInUpdate = false;

 private:
  std::atomic<unsigned> updates_{0};
  std::string seen_;
};

/// Not for several threads but where the root allows it.
class Client {
 public:
  explicit Client(bool reconnects = true);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Answer connect(const std::string& port);
  Answer get(ModelSrv::ModelPart& part);
  Answer store(ModelSrv::ModelPart& part, const std::string& text);
  ModelSrv::ModelRes subscribe(ModelSrv::ModelPart& part);

  /// Dispatches events until `done`; false when that has not come in time.
  bool pumpUntil(const std::function<bool()>& done);

  /// Hangs stand-ins for all parts of the "many" node into the tree.
  void mirrorMany();

  EvtSrv::EventPortManager manager;
  ModelSrv::ModelRoot root;
  WatchedPart counter{counterId};
  WatchedPart text{textId};
  ModelSrv::ModelNode many{manyId};
  std::vector<std::unique_ptr<WatchedPart>> parts;
};

}  // namespace fault
