/// Any calls of the C interface in any order.
///
/// Input: bytes that `CallSequence` takes for calls and their arguments. Nothing crashes, hangs or
/// leaks.
///
/// Corpus: `serve_and_read`, `closed_handles`, `callbacks`.

#include <unistd.h>

#include "tests/bindings/call_sequence.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  bindings_tests::CallSequence sequence("Model_fuzz_" + std::to_string(getpid()) + "_");
  static_cast<void>(sequence.run({data, size}));
  return 0;
}
