#pragma once

#include <memory>
#include <string>
#include <variant>

#include "modelsrv/model_node.h"
#include "treescope.h"

/// What a getter gives: one of three kinds of value.
struct treescope_reply {
  std::variant<std::monostate, double, std::int64_t, std::string> value;
};

namespace treescope_c {

/// Calls the program's callbacks for a part.
class PartCallbacks {
 public:
  virtual ~PartCallbacks() = default;
  virtual ModelSrv::ModelRes checkStore(treescope_store_request& request, std::string& reason) = 0;
  virtual treescope_result readValue(treescope_reply& reply) = 0;
};

/// A node or a value of any type. Operations that its class does not have are
/// TREESCOPE_BAD_ARGUMENT. The client mutex of the tree is held.
class ServedPart {
 public:
  virtual ~ServedPart() = default;

  virtual ModelSrv::ModelPart& part() = 0;
  /// Of an array; 0 for anything else.
  [[nodiscard]] virtual std::size_t elements() const { return 0; }
  /// Null if it is no node.
  virtual ModelSrv::ModelNode* node() { return nullptr; }

  /// Lets `callbacks`, which outlives this, check stores or give the value; or no longer.
  virtual treescope_result setChecked(PartCallbacks& callbacks, bool isChecked);
  virtual treescope_result setComputed(PartCallbacks& callbacks, bool isComputed);
  virtual treescope_result notify();
};

/// A part as `options` describe it, without its value and attributes. Null if there is no such type
/// or the options contradict each other.
[[nodiscard]] std::unique_ptr<ServedPart> makeServedPart(const treescope_part_options& options);

}  // namespace treescope_c
