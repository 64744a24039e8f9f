#pragma once

#include "tools/context.h"

namespace treectl {

/// The commands, each in the file of its name. Each reports its errors to the context.

void runServers(Context& context);
void runList(Context& context);
void runGet(Context& context);
void runSet(Context& context);
void runDescribe(Context& context);
void runWatch(Context& context);
/// `watch` on a terminal: as a table or a chart.
void runLive(Context& context);
void runWait(Context& context);
void runDump(Context& context);
void runRestore(Context& context);
void runDiff(Context& context);
void runRecord(Context& context);
void runReplay(Context& context);

}  // namespace treectl
