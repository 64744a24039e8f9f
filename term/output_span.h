#pragma once

#include <cstdio>

namespace treescope {

/// Keeps what one thread prints in one piece: while this lives no other thread
/// prints on standard output or flushes it. May be nested in one thread
/// (flockfile(3)). Not to be held while a command runs.
class OutputSpan {
 public:
  OutputSpan() { flockfile(stdout); }
  ~OutputSpan() { funlockfile(stdout); }
  OutputSpan(const OutputSpan&) = delete;
  OutputSpan& operator=(const OutputSpan&) = delete;
};

}  // namespace treescope
