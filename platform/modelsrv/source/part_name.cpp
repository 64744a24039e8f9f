#include "modelsrv/part_name.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "modelsrv/model_part.h"

namespace ModelSrv::internal {

namespace {

using Length = std::uint16_t;
static_assert(ModelName_Max == UINT16_MAX);

}  // namespace

PartName::PartName(std::string_view name) {
  static_assert(sizeof(char*) + sizeof(Length) <= inlineMax);
  name = name.substr(0, ModelName_Max);
  if (name.size() <= inlineMax) {
    std::copy(name.begin(), name.end(), bytes_.begin());
    bytes_[inlineMax] = static_cast<char>(name.size());
    return;
  }
  char* const memory = new char[name.size()];
  const auto length = static_cast<Length>(name.size());
  std::copy(name.begin(), name.end(), memory);
  std::memcpy(bytes_.data(), &memory, sizeof memory);
  std::memcpy(bytes_.data() + sizeof memory, &length, sizeof length);
  bytes_[inlineMax] = elsewhere;
}

PartName::~PartName() {
  if (bytes_[inlineMax] == elsewhere) {
    delete[] ownMemory().data();
  }
}

std::string_view PartName::ownMemory() const {
  char* memory = nullptr;
  Length length = 0;
  std::memcpy(&memory, bytes_.data(), sizeof memory);
  std::memcpy(&length, bytes_.data() + sizeof memory, sizeof length);
  return {memory, length};
}

}  // namespace ModelSrv::internal
