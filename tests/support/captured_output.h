#pragma once

#include <string>

namespace test_support {

/// Collects what this process, and the programs it starts, write to standard
/// output while this object lives, or until `take`. One at a time; made and used
/// while no other thread opens or closes it.
class CapturedOutput {
 public:
  CapturedOutput();
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  /// Ends the collecting and gives every byte that was written.
  [[nodiscard]] std::string take();

 private:
  void restore();

  int collected_;
  int original_;
};

}  // namespace test_support
