#pragma once

#include <string>

/// What the kernel counts about a program that a test runs.

/// The number behind `key` in a file of "key: number" lines below /proc, such as
/// "smaps_rollup" (KiB) or "status"; -1 and a failed test where it is not there.
long procNumber(int pid, const std::string& file, const std::string& key);

/// Whether a program's memory is its own: the sanitizers keep books in it.
extern const bool ownMemory;
