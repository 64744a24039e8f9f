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

/// The tree that shows this machine.
///
/// It owns its parts. For one thread, the one that dispatches; `show` takes the
/// client mutex, so that clients see one sample or the next.
class HostTree {
 public:
  /// `period` is what "/settings/period" holds at first, in milliseconds.
  explicit HostTree(std::uint32_t period);
  ~HostTree();
  HostTree(const HostTree&) = delete;
  HostTree& operator=(const HostTree&) = delete;

  /// Hangs the tree below `root`, which outlives it; the error is the library's
  /// refusal.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// Makes the tree show `sample`: sets values, adds what has come, takes away
  /// what has gone.
  void show(const HostSample& sample);

  /// What "/settings/period" holds: `shortestPeriod` to `longestPeriod`.
  [[nodiscard]] std::uint32_t period() const { return period_.value(); }

 private:
  using Node = ModelSrv::ModelNode;
  template <typename T>
  using Value = ModelSrv::ValuePart<T>;

  struct Interface;
  struct Disk;

  /// The children of a node that come and go, by what they stand for.
  template <typename T>
  struct Changing {
    IdAllocator known;
    std::map<std::string, std::unique_ptr<T>> shown;
  };

  template <typename T, typename Item>
  static void showChildren(Node& node, Changing<T>& children, const std::vector<Item>& items);
  void showCores(const std::vector<HostSample::Core>& cores);
  void showZones(const std::vector<HostSample::Zone>& zones);

  Changing<Disk> disks_;
  Changing<Interface> interfaces_;
  struct Zone;
  Changing<Zone> zones_;

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
