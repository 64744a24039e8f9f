#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/peers/peer.h"
#include "modelsrv/model_node.h"
#include "modelsrv/model_root.h"

namespace bench::peers {

/// A client of this system's server, with all parts of its synthetic tree. What
/// fails is a `std::runtime_error`.
class OwnClient {
 public:
  OwnClient(const std::string& server, const Shape& shape);
  ~OwnClient();
  OwnClient(const OwnClient&) = delete;
  OwnClient& operator=(const OwnClient&) = delete;

  /// Stores `value` in a part, counted through all groups.
  void store(std::size_t number, int value);

  /// Takes updates of all parts, asking for the value of each where `values`, and
  /// counts them in `count` until the process ends.
  [[noreturn]] void take(bool values, std::atomic<unsigned long>& count,
                         const std::function<void()>& ready);

 private:
  class Part;

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::deque<ModelSrv::ModelNode> groups_;
  std::deque<std::unique_ptr<Part>> parts_;
  std::atomic<unsigned long>* count_ = nullptr;
  bool values_ = false;
};

}  // namespace bench::peers
