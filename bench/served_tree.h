#pragma once

#include <memory>
#include <string>

#include "bench/child_process.h"
#include "modelsrv/model_root.h"

namespace bench {

/// A model server in a process of its own, bound to a processor (see `pinTo`). It serves part
/// 1 "speed" (int32) and part 2 "load" (three elements, of a class of its own, so that its
/// metadata is never cached and each request for it is an exchange). Accepts connections once
/// constructed; throws `std::runtime_error` if it does not start.
class ServedTree {
 public:
  explicit ServedTree(unsigned processor = 1);

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
  std::unique_ptr<Child> child_;
};

/// A client of a `ServedTree`. Throws `std::runtime_error` if it cannot connect.
class ElementSumClient {
 public:
  explicit ElementSumClient(const std::string& server);

  /// Makes one exchange; true if the reply is right.
  [[nodiscard]] bool request();

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ModelPart part_{2, "load"};
};

}  // namespace bench
