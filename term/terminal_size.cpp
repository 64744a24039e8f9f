#include "term/terminal_size.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace treescope {

namespace {

winsize terminalSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
    return {};
  }
  return size;
}

}  // namespace

int terminalColumns() {
  return terminalSize().ws_col;
}

int terminalRows() {
  return terminalSize().ws_row;
}

}  // namespace treescope
