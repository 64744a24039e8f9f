#pragma once

#include <chrono>
#include <string>

namespace test_support {

/// Both ends of a new terminal (pty(7)); whoever opened it closes them.
struct PseudoTerminal {
  int master = -1;     ///< the side of the person; reading and writing never wait
  int device = -1;     ///< the side of programs, opened once so that it stays as it is
  std::string name{};  ///< the path of the device
};

/// Opens a terminal that controls no session yet, of that size. Throws
/// `std::system_error` where there is none to be had; nothing is open then.
PseudoTerminal openPseudoTerminal(int rows, int columns);

/// Closes `descriptor`, unless it is below 0, and makes it -1.
void closeOnce(int& descriptor);

/// The time until `deadline` in milliseconds, rounded up, as poll(2) takes it; 0 when
/// it is over.
int millisecondsUntil(std::chrono::steady_clock::time_point deadline);

}  // namespace test_support
