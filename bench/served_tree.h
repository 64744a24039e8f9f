#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "modelsrv/model_root.h"

/// Processes that benchmarks talk with.
namespace bench {

/// Has the system end the calling process with SIGTERM when `parent`, the process that
/// has started it, ends (prctl(2), PR_SET_PDEATHSIG). False where that has ended already,
/// or the system refuses.
[[nodiscard]] bool endWith(pid_t parent);

/// A child process that runs one function; ended with SIGTERM and reaped at
/// destruction, and ended where the thread that made it ends before.
class Child {
 public:
  explicit Child(const std::function<void()>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

/// A server process of this system's, bound to a processor (see `pinTo`): part 1 "speed" (int32)
/// and part 2 "load" (three elements, of a class of its own, so that each question about them is an
/// exchange). Connectable once constructed; throws `std::runtime_error` where it cannot be.
class ServedTree {
 public:
  explicit ServedTree(unsigned processor = 1);

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
  std::unique_ptr<Child> child_;
};

/// A client of a `ServedTree`. Throws `std::runtime_error` where it cannot connect.
class ElementSumClient {
 public:
  explicit ElementSumClient(const std::string& server);

  /// Makes one exchange; whether it brought the right answer.
  [[nodiscard]] bool ask();

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ModelPart part_{2, "load"};
};

/// Binds the calling process to the `index`th of the processors that it may use,
/// counted round. False where the system refuses.
bool pinTo(unsigned index);

}  // namespace bench
