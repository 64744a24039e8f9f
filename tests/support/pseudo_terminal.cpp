#include "tests/support/pseudo_terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace test_support {

PseudoTerminal openPseudoTerminal(int rows, int columns) {
  PseudoTerminal terminal;
  terminal.master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  std::array<char, 128> name{};
  if (terminal.master >= 0 && ::grantpt(terminal.master) == 0 && ::unlockpt(terminal.master) == 0 &&
      ::ptsname_r(terminal.master, name.data(), name.size()) == 0) {
    terminal.name = name.data();
    terminal.device = ::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  }
  const winsize size{static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
  if (terminal.device < 0 || ::ioctl(terminal.device, TIOCSWINSZ, &size) != 0) {
    const int error = errno;
    closeOnce(terminal.device);
    closeOnce(terminal.master);
    throw std::system_error(error, std::generic_category(), "pseudoterminal");
  }
  return terminal;
}

void closeOnce(int& descriptor) {
  if (descriptor >= 0) {
    ::close(descriptor);
    descriptor = -1;
  }
}

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  constexpr std::chrono::milliseconds::rep longest = 3'600'000;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, longest));
}

}  // namespace test_support
