#include "shell/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace treescope {

void openStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open(2) gives the lowest that is free, which is this one.
    if (fcntl(standard, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1) {
      return;
    }
  }
}

}  // namespace treescope
