#include "servers/synthetic_tree.h"

#include <mutex>
#include <numeric>
#include <string>
#include <string_view>

namespace modelsrvd {

namespace {

std::string numbered(std::string_view prefix, std::uint32_t number, std::size_t width) {
  const std::string digits = std::to_string(number);
  std::string name(prefix);
  if (digits.size() < width) {
    name.append(width - digits.size(), '0');
  }
  return name += digits;
}

/// A stride that visits each of `size` indices once per round and puts successive
/// indices far apart: near the golden section and coprime to `size`.
std::size_t spreadingStride(std::size_t size) {
  std::size_t stride = size - static_cast<std::size_t>(static_cast<double>(size) * 0.382);
  while (std::gcd(stride, size) != 1) {
    ++stride;
  }
  return stride;
}

}  // namespace

SyntheticTree::SyntheticTree(SyntheticShape shape) {
  for (std::uint32_t group = 0; group < shape.groups; ++group) {
    auto& node = groups_.emplace_back(static_cast<ModelSrv::ModelPartId>(group),
                                      numbered("group_", group, 3));
    for (std::uint32_t item = 0; item < shape.parts; ++item) {
      auto& part =
          parts_.emplace_back(static_cast<ModelSrv::ModelPartId>(item), numbered("item_", item, 4));
      // The ids are unique and in range, so adding cannot fail.
      static_cast<void>(node.add(&part));
    }
  }
  stride_ = spreadingStride(parts_.size());
}

std::optional<Error> SyntheticTree::publish(ModelSrv::ModelRoot& root) {
  root_ = &root;
  for (ModelSrv::ModelNode& group : groups_) {
    const ModelSrv::ModelRes result = root.add(&group);
    if (result != ModelSrv::ModelRes_Success) {
      return Error{std::string(group.name()) + ": " + ModelSrv::describe(result)};
    }
  }
  return std::nullopt;
}

void SyntheticTree::change(std::uint32_t count) {
  std::unique_lock<KSTD::KThreadMutex> lock;
  if (root_ != nullptr) {
    // Locked once for all changes; each store locks it again recursively.
    lock = std::unique_lock(root_->manager()->clientMutex);
  }
  for (std::uint32_t changed = 0; changed < count; ++changed) {
    auto& part = parts_[next_];
    const auto value = static_cast<std::uint32_t>(part.value());
    // Storing an integer cannot fail.
    static_cast<void>(part.setValue(static_cast<std::int32_t>(value + 1)));
    next_ = (next_ + stride_) % parts_.size();
  }
}

}  // namespace modelsrvd
