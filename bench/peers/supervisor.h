#pragma once

#include <functional>

namespace bench::peers {

/// Runs `work` in a process of its own and returns its result, or 128 and the number of
/// the signal that ended it. SIGINT, SIGTERM and SIGHUP end it and all that it has
/// started; returns when none of them is left. Called from `main`, before there are
/// threads.
int supervise(const std::function<int()>& work);

}  // namespace bench::peers
