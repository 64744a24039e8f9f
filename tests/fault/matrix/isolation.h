#pragma once

#include <string>

/// A place where the programs of a run see nothing of other programs.
namespace fault_matrix {

/// Gives this process a /tmp of its own, and a new directory outside of it to work in.
/// The process must have one thread. Throws std::system_error if the kernel refuses.
class Isolation {
 public:
  Isolation();
  /// Removes the directory. What is in /tmp goes with the process.
  ~Isolation();
  Isolation(const Isolation&) = delete;
  Isolation& operator=(const Isolation&) = delete;

  /// Empties /tmp and the directory.
  void clear();

 private:
  std::string directory_;
};

}  // namespace fault_matrix
