#include "gateway/viewer/type_names.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>

#include "modelsrv/value_types.h"

namespace modelgate {

namespace {

#define MODELGATE_TYPE_NAME(id, Type, name) std::string_view(name),
constexpr std::array knownTypes{std::string_view(), MODELSRV_VALUE_TYPES(MODELGATE_TYPE_NAME)};
#undef MODELGATE_TYPE_NAME

constexpr std::size_t maxForeign = 200;
static_assert(knownTypes.size() + maxForeign <= 256);

/// Names that later servers have, or classes of their programs. A name stays where it is.
struct ForeignTypes {
  std::mutex mutex;
  std::array<std::string, maxForeign> names;
  std::atomic<std::size_t> count{0};
};

ForeignTypes& foreignTypes() {
  static ForeignTypes types;
  return types;
}

}  // namespace

std::uint8_t typeNumber(std::string_view name) {
  const auto* const known = std::find(knownTypes.begin(), knownTypes.end(), name);
  if (known != knownTypes.end()) {
    return static_cast<std::uint8_t>(known - knownTypes.begin());
  }
  ForeignTypes& foreign = foreignTypes();
  const std::lock_guard lock(foreign.mutex);
  const std::size_t count = foreign.count;
  const auto* const begin = foreign.names.data();
  const auto* const end = begin + count;
  const auto* const at = std::find(begin, end, name);
  if (at == end) {
    if (count == maxForeign) {
      return 0;
    }
    foreign.names[count] = name;
    foreign.count.store(count + 1, std::memory_order_release);
  }
  return static_cast<std::uint8_t>(knownTypes.size() + static_cast<std::size_t>(at - begin));
}

std::string_view typeText(std::uint8_t number) noexcept {
  if (number < knownTypes.size()) {
    return knownTypes[number];
  }
  const std::size_t index = number - knownTypes.size();
  return index < foreignTypes().count.load(std::memory_order_acquire)
             ? std::string_view(foreignTypes().names[index])
             : std::string_view();
}

}  // namespace modelgate
