#include "gateway/viewer/fleet_tree.h"

#include <utility>
#include <vector>

namespace modelgate {

using ModelSrv::ModelPartId;

FleetDevice::FleetDevice(ModelPartId id, const std::string& name, const LinkStatus& status)
    : node_(id, name),
      state_(
          1, "state", "text",
          [&status](std::string& out) {
            out += status.stateText();
            return true;
          },
          "", "online, conflict, unreachable, offline or silent"),
      age_(
          2, "age", "uint64",
          [&status](std::string& out) {
            const auto age = status.age();
            if (age) {
              out += std::to_string(age->count());
            }
            return age.has_value();
          },
          "ms", "time since the device was last heard"),
      serversNode_(3, "servers") {
  for (ModelSrv::ModelPart* const part :
       std::initializer_list<ModelSrv::ModelPart*>{&state_, &age_, &serversNode_}) {
    static_cast<void>(node_.add(part));
  }
}

FleetDevice::~FleetDevice() = default;

void FleetDevice::addServer(const std::string& name, LivePart::Read read) {
  if (servers_.size() > ModelSrv::ModelPartId_Max) {
    return;
  }
  auto part = std::make_unique<LivePart>(static_cast<ModelPartId>(servers_.size()), name, "text",
                                         std::move(read), "",
                                         "up or down, and why it has no port here if that is so");
  if (serversNode_.add(part.get()) == ModelSrv::ModelRes_Success) {
    servers_.emplace(name, std::move(part));
    std::vector<ModelSrv::ModelPart*> inOrder;
    for (const auto& [key, each] : servers_) {
      inOrder.push_back(each.get());
    }
    // Otherwise it is the last one.
    static_cast<void>(serversNode_.setChildren(inOrder));
  }
}

void FleetDevice::refresh() {
  state_.refresh();
  age_.refresh();
  for (const auto& [name, part] : servers_) {
    part->refresh();
  }
}

ModelSrv::ModelRes FleetTree::start(std::optional<gid_t> group) {
  ModelSrv::ServerOptions options;
  options.group = group;
  return root_.startAsServer("Model_fleet", options);
}

FleetDevice* FleetTree::add(const std::string& name, const LinkStatus& status) {
  if (!hasCapacity()) {
    return nullptr;
  }
  auto device = std::make_unique<FleetDevice>(static_cast<ModelPartId>(count_), name, status);
  if (root_.add(&device->node()) != ModelSrv::ModelRes_Success) {
    return nullptr;
  }
  ++count_;
  isSorted_ = false;
  return devices_.emplace(name, std::move(device)).first->second.get();
}

void FleetTree::sort() {
  if (isSorted_) {
    return;
  }
  std::vector<ModelSrv::ModelPart*> inOrder;
  inOrder.reserve(devices_.size());
  for (const auto& [name, device] : devices_) {
    inOrder.push_back(&device->node());
  }
  isSorted_ = root_.setChildren(inOrder) == ModelSrv::ModelRes_Success;
}

}  // namespace modelgate
