#include "servers/id_allocator.h"

#include <string_view>
#include <utility>

namespace modelsrvd {

std::optional<IdAllocator::Child> IdAllocator::find(const std::string& key,
                                                    const std::string& wished,
                                                    const std::set<std::string>& present) {
  if (const auto known = children_.find(key); known != children_.end()) {
    return known->second;
  }
  if (nextId_ > ModelSrv::ModelPartId_Max && freed_.empty()) {
    forgetAbsent(present);
    if (freed_.empty()) {
      return std::nullopt;
    }
  }
  Child child{};
  if (freed_.empty()) {
    child.id = static_cast<ModelSrv::ModelPartId>(nextId_++);
  } else {
    child.id = freed_.extract(freed_.begin()).value();
  }
  child.name = wished;
  for (unsigned count = 2; !names_.insert(child.name).second; ++count) {
    child.name = wished + "-" + std::to_string(count);
  }
  return children_.emplace(key, std::move(child)).first->second;
}

void IdAllocator::forgetAbsent(const std::set<std::string>& present) {
  for (auto child = children_.begin(); child != children_.end();) {
    if (present.count(child->first) != 0) {
      ++child;
      continue;
    }
    freed_.insert(child->second.id);
    names_.erase(child->second.name);
    child = children_.erase(child);
  }
}

std::string mountName(const std::string& mountPoint) {
  constexpr std::string_view plain = "._-+:@";
  std::string name;
  for (const char character : mountPoint) {
    const auto byte = static_cast<unsigned char>(character);
    const bool letter = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                        (byte >= 'a' && byte <= 'z') || byte >= 0x80;
    if (character == '/') {
      name += name.empty() ? "" : "-";
    } else {
      name += letter || plain.find(character) != std::string_view::npos ? character : '_';
    }
  }
  return name.empty() ? "root" : name;
}

}  // namespace modelsrvd
