#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "bench/peers/subscriber.h"
#include "modelsrv/model_node.h"
#include "modelsrv/model_root.h"
#include "modelsrv/watch.h"

namespace bench::peers {

/// A client of a server of this system, with all parts of its synthetic tree. Errors are
/// reported as `std::runtime_error`.
class ModelClient {
 public:
  static constexpr unsigned partsPerGroup = 1000;

  ModelClient(const std::string& server, unsigned long groups);
  ~ModelClient();
  ModelClient(const ModelClient&) = delete;
  ModelClient& operator=(const ModelClient&) = delete;

  /// Stores `value` in the part with that number, counted through all groups and modulo the
  /// number of parts; returns when the server has acknowledged it.
  void store(std::size_t number, unsigned long value);

  /// How a subscriber gets the values of the parts that have changed.
  enum class Values { none, requested, watched };

  /// Subscribes to all parts, calls `ready` and counts the updates until the process ends. If
  /// values are requested, counts each update after the request. If they are watched, the updates
  /// are those of one watch of the tree, and current values are not counted.
  [[noreturn]] void countUpdates(Values values, Subscriber::Count& count,
                                 const std::function<void()>& ready);

 private:
  class Part;

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::deque<ModelSrv::ModelNode> groups_;
  std::deque<std::unique_ptr<Part>> parts_;
  Subscriber::Count* count_ = nullptr;
  ModelSrv::Watch watch_;
  Values values_ = Values::none;
};

}  // namespace bench::peers
