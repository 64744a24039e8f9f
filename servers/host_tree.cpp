#include "servers/host_tree.h"

#include <mutex>
#include <utility>

#include "modelsrv/part_description.h"
#include "servers/options.h"

namespace modelsrvd {

namespace {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using ModelSrv::ModelPartStatus_ReadOnly;

/// For children with unique ids, where adding cannot fail.
void addTo(ModelNode& node, ModelPart& part) {
  static_cast<void>(node.add(&part));
}

/// For values without limits, where setting cannot fail.
template <typename Part, typename T>
void set(Part& part, T value) {
  static_cast<void>(part.setValue(std::move(value)));
}

/// For attributes that fit the part, where setting cannot fail.
void stateAttributes(ModelPart& part, ModelSrv::PartAttributes attributes) {
  static_cast<void>(part.setAttributes(std::move(attributes)));
}

void setUnit(ModelPart& part, const char* unit, const char* text = "") {
  stateAttributes(part, {unit, "", "", text, {}});
}

std::string keyOf(const HostSample::Disk& disk) {
  return disk.mountPoint;
}
std::string keyOf(const HostSample::Interface& interface) {
  return interface.counts.name;
}
std::string keyOf(const HostSample::Zone& zone) {
  return zone.name;
}
std::string nameFor(const HostSample::Disk& disk) {
  return mountName(disk.mountPoint);
}
std::string nameFor(const HostSample::Interface& interface) {
  return interface.counts.name;
}
std::string nameFor(const HostSample::Zone& zone) {
  return zone.name;
}

}  // namespace

struct HostTree::Disk {
  Value<std::uint64_t> size{1, "size", 0, ModelPartStatus_ReadOnly};
  Value<std::uint64_t> free{2, "free", 0, ModelPartStatus_ReadOnly};
  Node node;

  explicit Disk(const IdAllocator::Child& child) : node(child.id, child.name) {
    setUnit(size, "bytes");
    setUnit(free, "bytes", "for unprivileged users");
    addTo(node, size);
    addTo(node, free);
  }
  void update(const HostSample::Disk& disk) {
    set(size, disk.space.size);
    set(free, disk.space.free);
  }
  ModelPart& part() { return node; }
};

struct HostTree::Interface {
  Value<std::uint64_t> receivedBytes{1, "rx_bytes", 0, ModelPartStatus_ReadOnly};
  Value<std::uint64_t> sentBytes{2, "tx_bytes", 0, ModelPartStatus_ReadOnly};
  Value<std::uint64_t> receivedPackets{3, "rx_packets", 0, ModelPartStatus_ReadOnly};
  Value<std::uint64_t> sentPackets{4, "tx_packets", 0, ModelPartStatus_ReadOnly};
  Value<std::uint32_t> mtu{5, "mtu", 0, ModelPartStatus_ReadOnly};
  Value<bool> up{6, "up", false, ModelPartStatus_ReadOnly};
  Node node;

  explicit Interface(const IdAllocator::Child& child) : node(child.id, child.name) {
    for (ModelPart* part : std::initializer_list<ModelPart*>{
             &receivedBytes, &sentBytes, &receivedPackets, &sentPackets, &mtu, &up}) {
      addTo(node, *part);
    }
    setUnit(receivedBytes, "bytes");
    setUnit(sentBytes, "bytes");
    setUnit(mtu, "bytes", "largest packet");
    stateAttributes(up, {"", "", "", "whether the interface is enabled", {}});
  }
  void update(const HostSample::Interface& interface) {
    set(receivedBytes, interface.counts.receivedBytes);
    set(sentBytes, interface.counts.sentBytes);
    set(receivedPackets, interface.counts.receivedPackets);
    set(sentPackets, interface.counts.sentPackets);
    set(mtu, interface.mtu);
    set(up, interface.up);
  }
  ModelPart& part() { return node; }
};

struct HostTree::Zone {
  Value<double> celsius;

  explicit Zone(const IdAllocator::Child& child)
      : celsius(child.id, child.name, 0, ModelPartStatus_ReadOnly) {
    setUnit(celsius, "degrees Celsius");
  }
  void update(const HostSample::Zone& zone) { set(celsius, zone.celsius); }
  ModelPart& part() { return celsius; }
};

HostTree::HostTree(std::uint32_t period)
    : name_(1, "name", {}, ModelPartStatus_ReadOnly),
      kernel_(2, "kernel", {}, ModelPartStatus_ReadOnly),
      uptime_(3, "uptime", 0, ModelPartStatus_ReadOnly),
      coreCount_(1, "count", 0, ModelPartStatus_ReadOnly),
      load_(2, "load", {0, 0, 0}, {"1min", "5min", "15min"}, ModelPartStatus_ReadOnly),
      memoryTotal_(1, "total", 0, ModelPartStatus_ReadOnly),
      memoryAvailable_(2, "available", 0, ModelPartStatus_ReadOnly),
      memoryFree_(3, "free", 0, ModelPartStatus_ReadOnly),
      memoryCached_(4, "cached", 0, ModelPartStatus_ReadOnly),
      processCount_(1, "count", 0, ModelPartStatus_ReadOnly),
      running_(2, "running", 0, ModelPartStatus_ReadOnly),
      period_(1, "period", period),
      label_(2, "label"),
      alarms_(3, "alarms", {90, 90, 90, 85}, {"cpu", "memory", "disk", "temperature"}),
      host_(1, "host"),
      cpu_(2, "cpu"),
      memory_(3, "memory"),
      disk_(4, "disk"),
      net_(5, "net"),
      processes_(6, "processes"),
      thermal_(7, "thermal"),
      settings_(8, "settings") {
  for (const auto& [node, part] :
       std::initializer_list<std::pair<Node*, ModelPart*>>{{&host_, &name_},
                                                           {&host_, &kernel_},
                                                           {&host_, &uptime_},
                                                           {&cpu_, &coreCount_},
                                                           {&cpu_, &load_},
                                                           {&memory_, &memoryTotal_},
                                                           {&memory_, &memoryAvailable_},
                                                           {&memory_, &memoryFree_},
                                                           {&memory_, &memoryCached_},
                                                           {&processes_, &processCount_},
                                                           {&processes_, &running_},
                                                           {&settings_, &period_},
                                                           {&settings_, &label_},
                                                           {&settings_, &alarms_}}) {
    addTo(*node, *part);
  }
  describeParts();
}

void HostTree::describeParts() {
  setUnit(uptime_, "seconds", "since the machine was started");
  stateAttributes(load_, {"", "", "", "average number of runnable threads", {}});
  for (ModelPart* part : std::initializer_list<ModelPart*>{&memoryTotal_, &memoryAvailable_,
                                                           &memoryFree_, &memoryCached_}) {
    setUnit(*part, "bytes");
  }
  stateAttributes(processCount_, {"", "", "", "processes", {}});
  stateAttributes(running_, {"", "", "", "runnable threads", {}});
  stateAttributes(period_, {"milliseconds",
                            std::to_string(minPeriod),
                            std::to_string(maxPeriod),
                            "time between two samples",
                            {}});
  stateAttributes(label_, {"", "", "", "for use by clients", {}});
  stateAttributes(alarms_, {"percent or degrees", "", "", "thresholds for use by clients", {}});
}

HostTree::~HostTree() = default;

std::optional<Error> HostTree::publish(ModelSrv::ModelRoot& root) {
  root_ = &root;
  for (Node* node : {&host_, &cpu_, &memory_, &disk_, &net_, &processes_, &settings_}) {
    const ModelSrv::ModelRes result = root.add(node);
    if (result != ModelSrv::ModelRes_Success) {
      return Error{std::string(node->name()) + ": " + ModelSrv::describe(result)};
    }
  }
  return std::nullopt;
}

template <typename T, typename Item>
void HostTree::updateChildren(Node& node, DynamicChildren<T>& children,
                              const std::vector<Item>& items) {
  std::set<std::string> present;
  for (const Item& item : items) {
    present.insert(keyOf(item));
  }
  for (auto child = children.current.begin(); child != children.current.end();) {
    // Erasing destroys the part, which removes itself from the tree.
    child = present.count(child->first) != 0 ? std::next(child) : children.current.erase(child);
  }
  for (const Item& item : items) {
    std::unique_ptr<T>& child = children.current[keyOf(item)];
    if (child) {
      child->update(item);
    } else if (const auto assigned = children.ids.assign(keyOf(item), nameFor(item), present)) {
      child = std::make_unique<T>(*assigned);
      child->update(item);
      addTo(node, child->part());
    } else {
      children.current.erase(keyOf(item));
    }
  }
}

void HostTree::updateCores(const std::vector<HostSample::Core>& cores) {
  std::vector<unsigned> numbers;
  std::vector<std::string> names;
  std::vector<double> usage;
  for (const HostSample::Core& core : cores) {
    numbers.push_back(core.number);
    names.push_back("cpu" + std::to_string(core.number));
    usage.push_back(core.usage);
  }
  set(coreCount_, static_cast<std::uint32_t>(cores.size()));
  if (numbers == coreNumbers_) {
    if (usage_) {
      // Cannot fail: as many values as elements.
      static_cast<void>(usage_->setValues(usage));
    }
    return;
  }
  usage_.reset();
  if (!cores.empty()) {
    usage_ = std::make_unique<ModelSrv::ArrayPart<double>>(ModelSrv::ModelPartId{3}, "usage",
                                                           std::move(usage), std::move(names),
                                                           ModelPartStatus_ReadOnly);
    stateAttributes(*usage_, {"percent", "0", "100", "busy since the previous sample", {}});
    addTo(cpu_, *usage_);
  }
  coreNumbers_ = std::move(numbers);
}

void HostTree::updateZones(const std::vector<HostSample::Zone>& zones) {
  updateChildren(thermal_, zones_, zones);
  if (root_ != nullptr && !zones.empty() && thermal_.parent() == nullptr) {
    addTo(*root_, thermal_);
  } else if (root_ != nullptr && zones.empty() && thermal_.parent() != nullptr) {
    static_cast<void>(root_->remove(&thermal_));
  }
}

void HostTree::update(const HostSample& sample) {
  std::unique_lock<KSTD::KThreadMutex> lock;
  if (root_ != nullptr) {
    lock = std::unique_lock(root_->manager()->clientMutex);
  }
  set(name_, sample.name);
  set(kernel_, sample.kernel);
  set(uptime_, sample.uptime);
  // Cannot fail: three values for three elements.
  static_cast<void>(load_.setValues(
      {sample.load.oneMinute, sample.load.fiveMinutes, sample.load.fifteenMinutes}));
  updateCores(sample.cores);
  set(memoryTotal_, sample.memory.total);
  set(memoryAvailable_, sample.memory.available);
  set(memoryFree_, sample.memory.free);
  set(memoryCached_, sample.memory.cached);
  updateChildren(disk_, disks_, sample.disks);
  updateChildren(net_, interfaces_, sample.interfaces);
  set(processCount_, sample.processes);
  set(running_, sample.running);
  updateZones(sample.zones);
}

}  // namespace modelsrvd
