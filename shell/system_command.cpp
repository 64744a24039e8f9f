#include "shell/system_command.h"

#include <cstdio>
#include <cstdlib>

#include "term/terminal_mode.h"

namespace treescope {

int runSystemCommand(const char* command) {
  std::fflush(stdout);
  const OriginalMode original;
  return std::system(command);
}

}  // namespace treescope
