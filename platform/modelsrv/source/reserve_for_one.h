#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ModelSrv::internal {

/// Makes sure that one more can be appended without a throw, growing no more often
/// than appending would.
template <typename T>
void reserveForOne(std::vector<T>& items) {
  if (items.size() == items.capacity()) {
    items.reserve(std::max<std::size_t>(1, items.size() * 2));
  }
}

}  // namespace ModelSrv::internal
