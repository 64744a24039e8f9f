#pragma once

#include <string>

namespace test_support {

/// Replaces standard input by a pipe until destruction. Constructed and destroyed while
/// no other thread reads standard input.
class FedInput {
 public:
  FedInput();
  ~FedInput();
  FedInput(const FedInput&) = delete;
  FedInput& operator=(const FedInput&) = delete;

  /// Writes `bytes` to the pipe; waits while it is full.
  void feed(const std::string& bytes);

  /// Ends the input.
  void end();

 private:
  int writer_ = -1;
  int original_ = -1;
};

}  // namespace test_support
