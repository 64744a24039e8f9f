#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace bench {

/// The ends of a new pipe(2), which children do not keep behind exec(3); whoever has
/// one closes it. Throws `std::runtime_error` where there can be none.
struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe2");
    }
    reading = ends[0];
    writing = ends[1];
  }
  int reading = -1;
  int writing = -1;
};

}  // namespace bench
