#include "model/memory_budget.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace treescope {

namespace {

constexpr std::size_t most = std::size_t{1024} * 1024 * 1024;

std::size_t machineMemory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long pageSize = ::sysconf(_SC_PAGESIZE);
  return pages > 0 && pageSize > 0
             ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(pageSize)
             : SIZE_MAX;
}

/// The user's limit on the memory of a process (`ulimit -m`), which the kernel does not enforce.
std::size_t memoryLimit() {
  rlimit limit{};
  return ::getrlimit(RLIMIT_RSS, &limit) == 0 && limit.rlim_cur < SIZE_MAX
             ? static_cast<std::size_t>(limit.rlim_cur)
             : SIZE_MAX;
}

}  // namespace

std::size_t MemoryBudget::whole() {
  static const std::size_t budget = std::min(std::min(machineMemory(), memoryLimit()) / 2, most);
  return budget;
}

}  // namespace treescope
