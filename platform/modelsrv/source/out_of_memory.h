#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

#include "modelsrv/result.h"

/// How this library handles a failed allocation: it becomes a result at the public interface,
/// and what must not fail reserves its memory first.
namespace ModelSrv::internal {

/// The result of `operation`; `ModelRes_SystemError` if it throws `std::bad_alloc`.
template <typename Operation>
ModelRes withMemoryResult(Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return ModelRes_SystemError;
  }
}

/// Reserves capacity for one more item, so that the next `push_back` does not throw. The
/// capacity doubles as it would with `push_back` alone.
template <typename T>
void reserveForOne(std::vector<T>& items) {
  if (items.size() == items.capacity()) {
    items.reserve(std::max<std::size_t>(1, items.size() * 2));
  }
}

}  // namespace ModelSrv::internal
