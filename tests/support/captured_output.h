#pragma once

#include <string>

namespace test_support {

/// Collects what this process and the programs that it starts write to standard
/// output, from construction until `take` or destruction. One at a time; used while no
/// other thread opens or closes standard output.
class CapturedOutput {
 public:
  CapturedOutput();
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  /// Stops collecting and returns every byte that was written.
  [[nodiscard]] std::string take();

 private:
  void restore();

  int collected_;
  int original_;
};

}  // namespace test_support
