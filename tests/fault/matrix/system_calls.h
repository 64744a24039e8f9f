#pragma once

#include <string>
#include <vector>

/// What is known of a system call: its name, and the errors that it may return.
namespace fault_matrix {

/// The name of the call `number`, as in "openat"; "call 471" if it is not in the table.
std::string callName(int number);

/// The errors that POSIX lists for the function that makes the call, and for a call of
/// Linux alone those of its manual page. A call that is not in the table has a few that
/// any call may return. Empty for a call that cannot fail, or whose error the C library
/// takes for a defect of its own.
const std::vector<int>& errorsOf(int number);

/// The name of `error`, as in "ENOENT".
std::string errorName(int error);

}  // namespace fault_matrix
