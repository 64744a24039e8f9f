#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "commands/tree_scope.h"
#include "evtsrv/event_port_manager.h"
#include "shell/options.h"
#include "term/standard_output.h"

using treescope::TreeScope;
namespace run_mode = treescope::run_mode;

namespace {

/// Opens /dev/null as each of the descriptors 0, 1 and 2 that the parent process
/// has closed. Otherwise the next pipe to a server would get that number, and the
/// shell would read keys from it or print to it. Has no effect without /dev/null.
void openStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open(2) returns the lowest free number, which is this one.
    if (fcntl(standard, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1) {
      return;
    }
  }
}

void serveTerminal(TreeScope& shell) {
  shell.acceptInput();
  while (shell.isRunning() != 0) {
    shell.step();
  }
}

void runShell(EvtSrv::EventPortManager& manager, int mode, const std::string& text) {
  const auto shell = std::make_unique<TreeScope>(&manager, mode == run_mode::interactive ? 0 : 1);
  if (mode == run_mode::interactive) {
    serveTerminal(*shell);
  } else if (mode == run_mode::commandString) {
    shell->runCommandString(text.c_str(), 0);
  } else {
    shell->runCommandFile(text.c_str());
  }
  shell->freeListing();
  shell->stop(true);
}

}  // namespace

int main(int argc, char* argv[]) {
  openStandardDescriptors();
  treescope::forceLoadFlag = false;
  constexpr unsigned behaviour = EvtSrv::ConBehave_Default & ~EvtSrv::ConBehave_DisableOverNetwork;
  EvtSrv::EventPortManager manager(behaviour, true);
  int mode = run_mode::interactive;
  std::string text;
  treescope::parseOptions(argc, argv, mode, text);
  if (mode != run_mode::help) {
    // Fully buffered, a key's echo, an update or a listing reaches the terminal in few
    // writes.
    treescope::waitForOutput(mode == run_mode::interactive ? treescope::OutputBuffering::full
                                                           : treescope::OutputBuffering::lines);
    runShell(manager, mode, text);
    treescope::flushOutput();
  }
  return 0;
}
