#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test_support {

/// Collects what this process writes to standard output, a write(2) an entry, while
/// this object lives, or until `take`. Made and used while no other thread opens or
/// closes standard output.
class RecordedWrites {
 public:
  RecordedWrites();
  ~RecordedWrites();
  RecordedWrites(const RecordedWrites&) = delete;
  RecordedWrites& operator=(const RecordedWrites&) = delete;

  /// Waits for the next write that was not given yet, and gives it. Any thread.
  [[nodiscard]] std::string next();

  /// Ends the collecting and gives all that was written, in order.
  [[nodiscard]] std::vector<std::string> take();

 private:
  void collect();
  void restore();

  int reader_ = -1;
  int original_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::string> writes_;
  std::size_t given_ = 0;
  std::thread collector_;
};

}  // namespace test_support
