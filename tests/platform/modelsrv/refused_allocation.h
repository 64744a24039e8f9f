#pragma once

#include <functional>

/// Refuses single allocations of a program that this is linked into.
namespace modelsrv_tests {

constexpr int allAllocations = -1;

/// The number of allocations of the calling thread that succeed before one is refused. Negative
/// after that, and if all succeed.
int& allocationsLeft();

/// Runs `operation` and refuses its allocation number `refused`, counted from 0. False if the
/// operation made fewer allocations.
bool runWithRefusal(int refused, const std::function<void()>& operation);

/// Calls `attempt(refused)` for 0, 1, 2 … until it returns false, which means that no allocation
/// was refused.
void forEachAllocation(const std::function<bool(int refused)>& attempt);

}  // namespace modelsrv_tests
