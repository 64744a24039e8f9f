#pragma once

#include <functional>

/// Makes single allocations fail in a program that this is linked into.
namespace modelsrv_tests {

constexpr int allAllocations = -1;

/// The number of allocations of the calling thread that succeed before one fails. Negative after
/// that, and if all succeed.
int& allocationsLeft();

/// Runs `operation` and makes its allocation number `failing` fail, counted from 0. False if the
/// operation made fewer allocations.
bool runWithFailure(int failing, const std::function<void()>& operation);

/// Calls `attempt(failing)` for 0, 1, 2 … until it returns false, which means that no allocation
/// failed.
void forEachAllocation(const std::function<bool(int failing)>& attempt);

}  // namespace modelsrv_tests
