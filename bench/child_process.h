#pragma once

#include <sys/types.h>

#include <functional>

/// Child processes of the benchmarks and what connects them.
namespace bench {

/// A child process that runs one function. It gets SIGTERM and is reaped at destruction.
/// It also gets SIGTERM when the thread that created it ends.
class Child {
 public:
  /// Throws `std::runtime_error` if no process can be created.
  explicit Child(const std::function<void()>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

/// The descriptors of a new pipe(2), both close-on-exec. The creator closes them. Throws
/// `std::runtime_error` if no pipe can be created.
struct Pipe {
  Pipe();
  int reading = -1;
  int writing = -1;
};

/// Binds the calling process to one of the processors that it may use: the one at `index`,
/// modulo their number. Returns false if the system refuses.
[[nodiscard]] bool pinTo(unsigned index);

}  // namespace bench
