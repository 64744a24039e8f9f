#pragma once

#include <string>

namespace test_support {

/// Puts a pipe in place of standard input for as long as this object lives. Made
/// and destroyed while no other thread reads standard input.
class FedInput {
 public:
  FedInput();
  ~FedInput();
  FedInput(const FedInput&) = delete;
  FedInput& operator=(const FedInput&) = delete;

  /// Writes `bytes` to the pipe; waits where it is full.
  void feed(const std::string& bytes);

  /// Ends the input.
  void end();

 private:
  int writer_ = -1;
  int original_ = -1;
};

}  // namespace test_support
