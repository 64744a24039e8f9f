#pragma once

#include "servers/options.h"

namespace modelsrvd {

/// What the program gives back to the system.
enum class ExitStatus : int { success = 0, cannotServe = 1, badUsage = 2 };

/// Publishes the tree that `options` ask for and serves it until SIGINT or
/// SIGTERM. Prints "ready NAME" to standard output once it can be connected to;
/// each error is one line on standard error. To be called once, from the main
/// thread.
[[nodiscard]] ExitStatus serve(const Options& options);

/// Writes "modelsrvd: " and `error` to standard error as one line.
void printError(const Error& error);

}  // namespace modelsrvd
