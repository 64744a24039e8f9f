#pragma once

#include <termios.h>

#include <string>

#include "tests/support/descriptor.h"

namespace test_support {

/// Both ends of a new terminal (pty(7)).
struct PseudoTerminal {
  Descriptor master{};  ///< the side of the user; reading and writing never wait
  Descriptor device{};  ///< the side of programs; while it is open, the mode is kept
  std::string name{};   ///< the path of the device
};

/// Opens a terminal of that size that controls no session yet. Throws
/// `std::system_error` if the system has none.
PseudoTerminal openPseudoTerminal(int rows, int columns);

/// Whether two modes have the same flags and control characters.
bool sameMode(const termios& one, const termios& other);

}  // namespace test_support
