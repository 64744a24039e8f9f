#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "servers/error.h"
#include "servers/host_sample.h"
#include "servers/id_allocator.h"

namespace modelsrvd {

/// The live tree: the values of this machine, and settings that clients may store.
///
/// Owns its nodes and parts. For the thread that dispatches events.
class HostTree {
 public:
  /// `period` is the initial value of "/settings/period", in milliseconds.
  explicit HostTree(std::uint32_t period);
  ~HostTree();
  HostTree(const HostTree&) = delete;
  HostTree& operator=(const HostTree&) = delete;

  /// Adds the tree to `root`, which outlives it. The error is the library's.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// Sets the values to those of `sample` and adds and removes the nodes that have
  /// appeared and disappeared. Holds the client mutex, so that clients see either the
  /// previous sample or this one.
  void update(const HostSample& sample);

  /// The value of "/settings/period": `minPeriod` to `maxPeriod`.
  [[nodiscard]] std::uint32_t period() const { return period_.value(); }

 private:
  using Node = ModelSrv::ModelNode;
  template <typename T>
  using Value = ModelSrv::ValuePart<T>;

  struct Disk;
  struct Interface;
  struct Zone;

  /// The children of a node that appear and disappear, by key.
  template <typename T>
  struct DynamicChildren {
    IdAllocator ids;
    std::map<std::string, std::unique_ptr<T>> current;
  };

  template <typename T, typename Item>
  static void updateChildren(Node& node, DynamicChildren<T>& children,
                             const std::vector<Item>& items);
  void describeParts();
  void updateCores(const std::vector<HostSample::Core>& cores);
  void updateZones(const std::vector<HostSample::Zone>& zones);

  DynamicChildren<Disk> disks_;
  DynamicChildren<Interface> interfaces_;
  DynamicChildren<Zone> zones_;

  Value<std::string> name_;
  Value<std::string> kernel_;
  Value<std::uint64_t> uptime_;
  Value<std::uint32_t> coreCount_;
  ModelSrv::ArrayPart<double> load_;
  std::vector<unsigned> coreNumbers_;
  std::unique_ptr<ModelSrv::ArrayPart<double>> usage_;
  Value<std::uint64_t> memoryTotal_;
  Value<std::uint64_t> memoryAvailable_;
  Value<std::uint64_t> memoryFree_;
  Value<std::uint64_t> memoryCached_;
  Value<std::uint32_t> processCount_;
  Value<std::uint32_t> running_;
  Value<std::uint32_t> period_;
  Value<std::string> label_;
  ModelSrv::ArrayPart<double> alarms_;

  Node host_;
  Node cpu_;
  Node memory_;
  Node disk_;
  Node net_;
  Node processes_;
  Node thermal_;
  Node settings_;
  ModelSrv::ModelRoot* root_ = nullptr;
};

}  // namespace modelsrvd
