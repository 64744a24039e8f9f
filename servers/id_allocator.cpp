#include "servers/id_allocator.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace modelsrvd {

std::optional<IdAllocator::Child> IdAllocator::assign(const std::string& key,
                                                      const std::string& preferredName,
                                                      const std::set<std::string>& present) {
  if (const auto known = children_.find(key); known != children_.end()) {
    return known->second;
  }
  const bool isFull = nextId_ > ModelSrv::ModelPartId_Max && released_.empty();
  if (isFull || keyBytes_ + key.size() > releaseAt_) {
    releaseAbsent(present);
    releaseAt_ = std::max(keyBytesLimit, 2 * keyBytes_);
  }
  if (nextId_ > ModelSrv::ModelPartId_Max && released_.empty()) {
    return std::nullopt;
  }
  Child child{};
  if (released_.empty()) {
    child.id = static_cast<ModelSrv::ModelPartId>(nextId_++);
  } else {
    child.id = released_.extract(released_.begin()).value();
  }
  child.name = preferredName;
  if (!names_.insert(child.name).second) {
    unsigned& number = nextNumbers_.try_emplace(preferredName, 2).first->second;
    do {
      child.name = preferredName + "-" + std::to_string(number++);
    } while (!names_.insert(child.name).second);
  }
  keyBytes_ += key.size();
  return children_.emplace(key, std::move(child)).first->second;
}

void IdAllocator::releaseAbsent(const std::set<std::string>& present) {
  nextNumbers_.clear();
  for (auto child = children_.begin(); child != children_.end();) {
    if (present.count(child->first) != 0) {
      ++child;
      continue;
    }
    released_.insert(child->second.id);
    names_.erase(child->second.name);
    keyBytes_ -= child->first.size();
    child = children_.erase(child);
  }
}

std::string mountName(const std::string& mountPoint) {
  constexpr std::string_view allowed = "._-+:@";
  std::string name;
  for (const char character : mountPoint) {
    const auto byte = static_cast<unsigned char>(character);
    const bool alphanumeric = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                              (byte >= 'a' && byte <= 'z') || byte >= 0x80;
    if (character == '/') {
      name += name.empty() ? "" : "-";
    } else {
      name += alphanumeric || allowed.find(character) != std::string_view::npos ? character : '_';
    }
  }
  return name.empty() ? "root" : name;
}

}  // namespace modelsrvd
