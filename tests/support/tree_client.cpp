#include "tests/support/tree_client.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <utility>

#include "tests/support/process.h"

namespace test_support {

using ModelSrv::ModelRes;

TreeClient::TreeClient(const std::string& port)
    : own_(std::in_place, EvtSrv::ConBehave_Default, false),
      manager_(*own_),
      connected_(connect(port)) {}

TreeClient::TreeClient(EvtSrv::EventPortManager& manager, const std::string& port)
    : manager_(manager), connected_(connect(port)) {}

ModelRes TreeClient::connect(const std::string& port) {
  // A part receives updates only as a child of the root.
  static_cast<void>(root_.add(&part_));
  return root_.startAsClient(port, ModelSrv::ModelRoot::CachePeriod_Stop,
                             EvtSrv::ConBehave_Default);
}

TreeClient::~TreeClient() {
  root_.stop(true);
}

ModelSrv::ModelPart* TreeClient::pointAt(std::vector<ModelSrv::ModelPartId> chain) {
  if (chain.empty()) {
    return &root_;
  }
  return &part_.at(std::move(chain));
}

std::optional<std::vector<ModelSrv::ModelPartId>> TreeClient::resolve(std::string_view path) {
  std::vector<ModelSrv::ModelPartId> chain;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    std::vector<unsigned short> ids;
    std::vector<std::string> names;
    if (root_.getChildIdsFromServer(pointAt(chain), ids) != ModelSrv::ModelRes_Success ||
        root_.getChildNamesFromServer(pointAt(chain), names) != ModelSrv::ModelRes_Success) {
      return std::nullopt;
    }
    const auto found = std::find(names.begin(), names.end(), name);
    const auto index = static_cast<std::size_t>(found - names.begin());
    if (index >= ids.size()) {
      return std::nullopt;
    }
    chain.push_back(ids[index]);
  }
  return chain;
}

ModelSrv::ModelPart* TreeClient::at(std::string_view path) {
  auto chain = resolve(path);
  return chain ? pointAt(std::move(*chain)) : nullptr;
}

std::string TreeClient::get(std::string_view path) {
  ModelSrv::ModelPart* const part = at(path);
  if (part == nullptr) {
    return "<no such part>";
  }
  std::ostringstream text;
  const ModelRes result = part->save(text, ModelSrv::ModelPartIndex_All);
  return result == ModelSrv::ModelRes_Success ? text.str()
                                              : std::string("<") + ModelSrv::describe(result) + ">";
}

ModelRes TreeClient::store(std::string_view path, const std::string& text) {
  ModelSrv::ModelPart* const part = at(path);
  std::istringstream stream(text);
  return part == nullptr ? ModelSrv::ModelRes_NoSuchPart
                         : part->load(stream, false, ModelSrv::ModelPartIndex_All);
}

int TreeClient::storeUntilError(std::string_view path, const std::string& text) {
  const auto chain = resolve(path);
  int stores = 0;
  while (chain) {
    std::istringstream stream(text);
    if (pointAt(*chain)->load(stream, false, ModelSrv::ModelPartIndex_All) !=
        ModelSrv::ModelRes_Success) {
      break;
    }
    ++stores;
  }
  return stores;
}

ModelRes TreeClient::subscribe(std::string_view path) {
  ModelSrv::ModelPart* const part = at(path);
  return part == nullptr
             ? ModelSrv::ModelRes_NoSuchPart
             : part->subscribeToServer(&root_, 0, nullptr, ModelSrv::ModelPartIndex_All);
}

std::vector<std::string> TreeClient::names(std::string_view path) {
  std::vector<std::string> names;
  if (ModelSrv::ModelPart* const part = at(path)) {
    static_cast<void>(root_.getChildNamesFromServer(part, names));
  }
  return names;
}

std::vector<unsigned short> TreeClient::ids(std::string_view path) {
  std::vector<unsigned short> ids;
  if (ModelSrv::ModelPart* const part = at(path)) {
    static_cast<void>(root_.getChildIdsFromServer(part, ids));
  }
  return ids;
}

std::vector<std::string> TreeClient::elementNames(std::string_view path) {
  std::vector<std::string> names;
  if (ModelSrv::ModelPart* const part = at(path)) {
    static_cast<void>(root_.getElementNamesFromServer(part, names));
  }
  return names;
}

bool TreeClient::has(std::string_view path) {
  return resolve(path).has_value();
}

bool TreeClient::pumpUntil(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + test_support::timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    static_cast<void>(manager_.receiveEvent(100));
  }
  return true;
}

bool TreeClient::waitForUpdate() {
  const std::size_t before = updates();
  return pumpUntil([&] { return updates() != before; });
}

}  // namespace test_support
