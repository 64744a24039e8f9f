#include "tests/support/pseudo_terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <system_error>

namespace test_support {

PseudoTerminal openPseudoTerminal(int rows, int columns) {
  PseudoTerminal terminal;
  terminal.master = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  const int master = terminal.master.get();
  std::array<char, 128> name{};
  if (master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0 &&
      ::ptsname_r(master, name.data(), name.size()) == 0) {
    terminal.name = name.data();
    terminal.device = Descriptor(::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }
  const winsize size{static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
  if (!terminal.device.isOpen() || ::ioctl(terminal.device.get(), TIOCSWINSZ, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "pseudoterminal");
  }
  return terminal;
}

bool sameMode(const termios& one, const termios& other) {
  return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
         one.c_cflag == other.c_cflag && one.c_lflag == other.c_lflag &&
         std::equal(std::begin(one.c_cc), std::end(one.c_cc), std::begin(other.c_cc));
}

}  // namespace test_support
