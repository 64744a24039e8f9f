#include "servers/server.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "servers/files.h"
#include "servers/signals.h"
#include "servers/tree_source.h"

namespace modelsrvd {

namespace {

using Clock = TreeSource::Clock;

/// How long to wait for events: until `due`, or without limit.
int waitFor(std::optional<Clock::time_point> due, Clock::time_point now) {
  using std::chrono::milliseconds;
  if (!due) {
    return -1;
  }
  const auto left = std::chrono::ceil<milliseconds>(*due - now);
  return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(longestPeriod)).count());
}

ExitStatus fail(ExitStatus status, const Error& error) {
  printError(error);
  return status;
}

/// Pumps events and keeps the tree going until the end is asked for.
ExitStatus run(EvtSrv::EventPortManager& manager, TreeSource& tree, Signals& signals) {
  while (!signals.ended()) {
    if (signals.takeReload()) {
      if (const auto error = tree.reload()) {
        printError(*error);
      }
    }
    const auto now = Clock::now();
    tree.tick(now);
    const EvtSrv::EvtRes result = manager.receiveEvent(waitFor(tree.nextDeadline(now), now));
    if (result != EvtSrv::EvtRes_Success && result != EvtSrv::EvtRes_Timeout) {
      return fail(ExitStatus::cannotServe, {std::string("events: ") + EvtSrv::describe(result)});
    }
  }
  return ExitStatus::success;
}

/// Where the name came from, for messages.
Error nameFailure(const Options& options, const std::string& name, ModelSrv::ModelRes result) {
  std::string where;
  if (options.name) {
    where = "--name: ";
  } else if (options.tree) {
    where = oneLine(*options.tree) + ": /name: ";
  }
  return {where + oneLine(name) + ": " + ModelSrv::describe(result)};
}

}  // namespace

void printError(const Error& error) {
  const std::string line = "modelsrvd: " + error.text + "\n";
  // Where standard error takes nothing there is nobody to tell.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

ExitStatus serve(const Options& options) {
  ModelSrv::ServerOptions serverOptions;
  if (options.group) {
    auto group = findGroup(*options.group);
    if (auto* error = std::get_if<Error>(&group)) {
      return fail(ExitStatus::badUsage, *error);
    }
    serverOptions.group = std::get<gid_t>(group);
  }
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  Signals signals(manager);
  if (!signals.set()) {
    return fail(ExitStatus::cannotServe, {"signals: the system refuses the handlers"});
  }
  ModelSrv::ModelRoot root(&manager);
  auto made = makeTreeSource(options);
  if (auto* error = std::get_if<Error>(&made)) {
    return fail(ExitStatus::badUsage, *error);
  }
  TreeSource& tree = *std::get<std::unique_ptr<TreeSource>>(made);
  const std::string name = options.name ? *options.name : tree.name();
  if (name.empty()) {
    return fail(ExitStatus::badUsage,
                {oneLine(*options.tree) + ": /name: missing, and there is no --name"});
  }
  if (auto error = tree.publish(root)) {
    return fail(ExitStatus::cannotServe, *error);
  }
  const ModelSrv::ModelRes started = root.startAsServer(name, serverOptions);
  if (started != ModelSrv::ModelRes_Success) {
    return fail(
        started == ModelSrv::ModelRes_BadName ? ExitStatus::badUsage : ExitStatus::cannotServe,
        nameFailure(options, name, started));
  }
  ExitStatus status = ExitStatus::success;
  if (auto error = writeOutput("ready " + name + "\n")) {
    status = fail(ExitStatus::cannotServe, *error);
  } else {
    status = run(manager, tree, signals);
  }
  root.stop(true);
  return status;
}

}  // namespace modelsrvd
