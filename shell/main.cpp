#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "evtsrv/event_port_manager.h"
#include "model/tree_scope.h"
#include "shell/options.h"
#include "shell/standard_descriptors.h"

using treescope::TreeScope;
namespace run_mode = treescope::run_mode;

namespace {

/// Standard output keeps everything until it is flushed, so that a key's echo, an
/// update or a listing reaches the terminal in few writes.
void bufferOutput() {
  static std::array<char, 65536> buffer;
  // Without it the output is the same in more writes.
  static_cast<void>(std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size()));
}

void serveTerminal(TreeScope& shell) {
  shell.acceptInput();
  while (shell.isRunning() != 0) {
    shell.step();
  }
}

void runShell(EvtSrv::EventPortManager& manager, int mode, const std::string& text) {
  if (mode == run_mode::interactive) {
    bufferOutput();
  }
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
  treescope::openStandardDescriptors();
  treescope::forceLoadFlag = false;
  constexpr unsigned behaviour = EvtSrv::ConBehave_Default & ~EvtSrv::ConBehave_DisableOverNetwork;
  EvtSrv::EventPortManager manager(behaviour, true);
  int mode = run_mode::interactive;
  std::string text;
  treescope::parseOptions(argc, argv, mode, text);
  if (mode != run_mode::help) {
    runShell(manager, mode, text);
  }
  return 0;
}
