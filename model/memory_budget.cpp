#include "model/memory_budget.h"

#include <unistd.h>

#include <algorithm>

namespace treescope {

namespace {

constexpr std::size_t most = std::size_t{1024} * 1024 * 1024;

}  // namespace

std::size_t MemoryBudget::whole() {
  static const std::size_t budget = [] {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) {
      return most;
    }
    return std::min(static_cast<std::size_t>(pages) / 2 * static_cast<std::size_t>(pageSize), most);
  }();
  return budget;
}

}  // namespace treescope
