#include "shell/system_command.h"

#include <cstdio>
#include <cstdlib>

namespace treescope {

int runSystemCommand(const char* command) {
  std::fflush(stdout);
  return std::system(command);
}

}  // namespace treescope
