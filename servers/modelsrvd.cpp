// The model server: reads the command line, publishes one tree and serves it
// until SIGINT or SIGTERM.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "servers/files.h"
#include "servers/options.h"
#include "servers/service_notifier.h"
#include "servers/signals.h"
#include "servers/stored_values.h"
#include "servers/tree_source.h"

namespace {

using namespace modelsrvd;
using Clock = TreeSource::Clock;

enum class ExitStatus : int { success = 0, cannotServe = 1, badUsage = 2 };

/// Writes "modelsrvd: " and `error` to standard error as one line.
void printError(const Error& error) {
  const std::string line = "modelsrvd: " + error.text + "\n";
  // If standard error cannot be written, there is nowhere to report it.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

/// For errors that do not end the service.
void reportIfFailed(const std::optional<Error>& error) {
  if (error) {
    printError(*error);
  }
}

ExitStatus fail(ExitStatus status, const Error& error) {
  printError(error);
  return status;
}

ExitStatus print(const std::string& text) {
  if (const auto error = writeOutput(text)) {
    return fail(ExitStatus::cannotServe, *error);
  }
  return ExitStatus::success;
}

/// The timeout of `receiveEvent` until `deadline`, in milliseconds; without a
/// deadline there is no timeout.
int timeoutUntil(std::optional<Clock::time_point> deadline, Clock::time_point now) {
  using std::chrono::milliseconds;
  if (!deadline) {
    return -1;
  }
  const auto left = std::chrono::ceil<milliseconds>(*deadline - now);
  return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(maxPeriod)).count());
}

/// The earlier one of two deadlines, of which there may be none.
std::optional<Clock::time_point> earlier(std::optional<Clock::time_point> one,
                                         std::optional<Clock::time_point> other) {
  return one && other ? std::min(*one, *other) : one ? one : other;
}

/// Dispatches events and updates the tree until a signal requests the end. `stored` may be null.
ExitStatus run(EvtSrv::EventPortManager& manager, TreeSource& tree, StoredValues* stored,
               Signals& signals, const ServiceNotifier& notifier) {
  while (!signals.stopRequested()) {
    if (signals.takeReloadRequest()) {
      reportIfFailed(notifier.reloading());
      reportIfFailed(tree.reload(stored));
      reportIfFailed(notifier.ready());
    }
    const auto now = Clock::now();
    if (signals.takeFileChange()) {
      tree.filesChanged(now);
    }
    tree.tick(now);
    reportIfFailed(tree.takeError());
    auto deadline = tree.nextDeadline(now);
    if (stored != nullptr) {
      stored->tick(now);
      deadline = earlier(deadline, stored->nextDeadline());
    }
    const EvtSrv::EvtRes result = manager.receiveEvent(timeoutUntil(deadline, now));
    if (result != EvtSrv::EvtRes_Success && result != EvtSrv::EvtRes_Timeout) {
      return fail(ExitStatus::cannotServe, {std::string("events: ") + EvtSrv::describe(result)});
    }
  }
  return ExitStatus::success;
}

/// The error of a port name, prefixed with the option or file that it came from.
Error nameError(const Options& options, const std::string& name, ModelSrv::ModelRes result) {
  std::string origin;
  if (options.name) {
    origin = "--name: ";
  } else if (options.replay) {
    origin = oneLine(*options.replay) + ": ";
  } else if (options.tree) {
    origin = oneLine(*options.tree) + ": /name: ";
  }
  return {origin + oneLine(name) + ": " + ModelSrv::describe(result)};
}

/// The error of a tree without a name of its own.
Error missingNameError(const Options& options) {
  if (options.replay) {
    return {oneLine(*options.replay) + ": not of one server, and --name is not given"};
  }
  return {oneLine(*options.tree) + ": /name: missing, and --name is not given"};
}

/// Lets this process open as many descriptors as it may: a client takes three. If the system
/// refuses, there is capacity for fewer clients.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
  }
}

/// Sets the values of the state file, if there is one, in the published tree, and lets `stored`
/// keep in it what clients store.
std::optional<Error> keepStores(const Options& options, ModelSrv::ModelRoot& root,
                                const TreeSource& tree, std::unique_ptr<StoredValues>& stored,
                                ModelSrv::ServerOptions& serverOptions) {
  if (!options.state) {
    return std::nullopt;
  }
  stored = std::make_unique<StoredValues>(
      *options.state, root,
      StoredValues::Hooks{
          printError, [&tree](const ModelSrv::ModelPart& part) { return tree.holdsValue(part); }});
  serverOptions.stored = [&stored](ModelSrv::ModelPart& part) { stored->stored(part); };
  if (auto error = stored->restore()) {
    return Error{"--state: " + error->text};
  }
  return std::nullopt;
}

/// Reports that the port `name` cannot be served.
ExitStatus failToStart(const Options& options, const ModelSrv::ServerOptions& serverOptions,
                       const std::string& name, ModelSrv::ModelRes result) {
  if (result == ModelSrv::ModelRes_NotPermitted && serverOptions.group &&
      !isMemberOf(*serverOptions.group) && ::geteuid() != 0) {
    return fail(ExitStatus::badUsage,
                {"--group: this user is not a member of \"" + oneLine(*options.group) + '"'});
  }
  return fail(result == ModelSrv::ModelRes_BadName ? ExitStatus::badUsage : ExitStatus::cannotServe,
              nameError(options, name, result));
}

/// Publishes the tree that `options` select and serves it. Prints "ready NAME" to
/// standard output once clients can connect.
ExitStatus serve(const Options& options, ModelSrv::ServerOptions serverOptions) {
  raiseDescriptorLimit();
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  Signals signals(manager);
  if (!signals.installed()) {
    return fail(ExitStatus::cannotServe, {"signals: cannot install the handlers"});
  }
  ModelSrv::ModelRoot root(&manager);
  auto made = makeTreeSource(options);
  if (auto* error = std::get_if<Error>(&made)) {
    return fail(ExitStatus::badUsage, *error);
  }
  TreeSource& tree = *std::get<std::unique_ptr<TreeSource>>(made);
  const std::string name = options.name ? *options.name : tree.name();
  if (name.empty()) {
    return fail(ExitStatus::badUsage, missingNameError(options));
  }
  if (auto error = tree.publish(root)) {
    return fail(ExitStatus::cannotServe, *error);
  }
  std::unique_ptr<StoredValues> stored;
  if (auto error = keepStores(options, root, tree, stored, serverOptions)) {
    return fail(ExitStatus::badUsage, *error);
  }
  const ModelSrv::ModelRes started = root.startAsServer(name, serverOptions);
  if (started != ModelSrv::ModelRes_Success) {
    return failToStart(options, serverOptions, name, started);
  }
  ExitStatus status = print("ready " + name + "\n");
  if (status == ExitStatus::success) {
    const ServiceNotifier notifier;
    reportIfFailed(notifier.ready());
    status = run(manager, tree, stored.get(), signals, notifier);
    reportIfFailed(notifier.stopping());
  }
  root.stop(true);
  if (stored != nullptr) {
    stored->finish();
  }
  return status;
}

ExitStatus runProgram(const std::vector<std::string_view>& args) {
  const auto result = parseOptions(args);
  if (const auto* error = std::get_if<Error>(&result)) {
    return fail(ExitStatus::badUsage, *error);
  }
  const auto& options = std::get<Options>(result);
  if (options.help) {
    return print(usageText());
  }
  if (options.version) {
    return print("modelsrvd " MODELSRVD_VERSION "\n");
  }
  ModelSrv::ServerOptions serverOptions;
  if (options.group) {
    const auto group = findGroup(*options.group);
    if (const auto* error = std::get_if<Error>(&group)) {
      return fail(ExitStatus::badUsage, *error);
    }
    serverOptions.group = std::get<gid_t>(group);
  }
  return serve(options, std::move(serverOptions));
}

}  // namespace

int main(int argc, char** argv) {
  if (const auto error = fillStandardStreams()) {
    return static_cast<int>(fail(ExitStatus::cannotServe, *error));
  }
  try {
    const std::vector<std::string_view> args(argv + (argc > 0 ? 1 : 0), argv + argc);
    return static_cast<int>(runProgram(args));
  } catch (const std::bad_alloc&) {
    printError({"out of memory"});
    return static_cast<int>(ExitStatus::cannotServe);
  }
}
