// treectl: reads the command line and runs one command.

#include <unistd.h>
#include <cerrno>

#include <cstdlib>
#include <new>
#include <optional>
#include <utility>

#include "tools/commands.h"
#include "tools/option_table.h"

namespace {

using namespace treectl;

void runHelp(Context& context) {
  const Options& options = context.options();
  std::string& out = context.output().text();
  if (options.operands.empty()) {
    out += usageText();
  } else if (const auto command = findCommand(options.operands.front())) {
    out += usageText(*command);
  } else {
    context.fail(Status::usage, printable(options.operands.front()),
                 "unknown command; see treectl --help");
  }
}

void runCommand(Context& context) {
  switch (context.options().command) {
    case Command::servers:
      return runServers(context);
    case Command::list:
      return runList(context);
    case Command::get:
      return runGet(context);
    case Command::set:
      return runSet(context);
    case Command::describe:
      return runDescribe(context);
    case Command::watch:
      return runWatch(context);
    case Command::wait:
      return runWait(context);
    case Command::dump:
      return runDump(context);
    case Command::restore:
      return runRestore(context);
    case Command::diff:
      return runDiff(context);
    case Command::record:
      return runRecord(context);
    case Command::replay:
      return runReplay(context);
    case Command::help:
      return runHelp(context);
  }
}

/// `holder` keeps the context until the program ends: the kernel closes its connections faster.
Status run(const std::vector<std::string_view>& words, std::optional<Context>& holder) {
  auto parsed = parseOptions(words);
  if (const auto* problem = std::get_if<std::string>(&parsed)) {
    Messages().print(*problem);
    return Status::usage;
  }
  Context& context = holder.emplace(std::move(std::get<Options>(parsed)));
  const Options& options = context.options();
  if (options.version) {
    context.output().text() += "treectl " TREECTL_VERSION "\n";
  } else if (options.help && options.command == Command::help) {
    context.output().text() += usageText();
  } else if (options.help) {
    context.output().text() += usageText(options.command);
  } else {
    runCommand(context);
  }
  // A signal that ended the command while it wrote is no error of the output.
  if (!context.output().flush() && context.output().error() != EINTR) {
    context.messages().print("standard output", errorText(context.output().error()));
    return Status::ioError;
  }
  return context.status();
}

}  // namespace

int main(int argc, char** argv) {
  prepareStandardStreams();
  Status status = Status::ioError;
  std::optional<Context> context;
  try {
    const std::vector<std::string_view> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    status = run(words, context);
  } catch (const std::bad_alloc&) {
    Messages().print("out of memory");
  }
  // A request that was given up may still run on another thread.
  ::_exit(static_cast<int>(status));
}
