#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test_support {

/// Collects what this process writes to standard output, one entry for each write(2),
/// from construction until `take` or destruction. Used while no other thread opens or
/// closes standard output.
class RecordedWrites {
 public:
  RecordedWrites();
  ~RecordedWrites();
  RecordedWrites(const RecordedWrites&) = delete;
  RecordedWrites& operator=(const RecordedWrites&) = delete;

  /// Waits for the next write and returns it. Any thread.
  [[nodiscard]] std::string next();

  /// Stops collecting and returns all writes in order.
  [[nodiscard]] std::vector<std::string> take();

 private:
  void collect();
  void restore();

  int reader_ = -1;
  int original_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::string> writes_;
  std::size_t returned_ = 0;
  std::thread collector_;
};

}  // namespace test_support
