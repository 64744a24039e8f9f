#pragma once

#include <string_view>

#include "modelsrv/model_part.h"
#include "modelsrv/value_types.h"
#include "treescope.h"

namespace treescope_c {

// TREESCOPE_BOOL to TREESCOPE_TEXT are the types of value in their order.
#define TREESCOPE_COUNT_TYPE(id, Type, name) +1  // NOLINT(bugprone-macro-parentheses)
static_assert(TREESCOPE_TEXT - TREESCOPE_BOOL + 1 == 0 MODELSRV_VALUE_TYPES(TREESCOPE_COUNT_TYPE));
#undef TREESCOPE_COUNT_TYPE

/// The type with the name that a description has.
[[nodiscard]] inline treescope_type typeOf(std::string_view name) {
  if (name == "node") {
    return TREESCOPE_NODE;
  }
  int type = TREESCOPE_BOOL;
#define TREESCOPE_COMPARE_NAME(id, Type, typeName) \
  if (name == (typeName)) {                        \
    return static_cast<treescope_type>(type);      \
  }                                                \
  ++type;
  MODELSRV_VALUE_TYPES(TREESCOPE_COMPARE_NAME)
#undef TREESCOPE_COMPARE_NAME
  return TREESCOPE_UNKNOWN;
}

/// The access that a server states. One that this version does not know is none.
[[nodiscard]] inline treescope_access accessOf(ModelSrv::ModelPartStatus status) {
  return status <= TREESCOPE_LOADER_ONLY ? static_cast<treescope_access>(status)
                                         : TREESCOPE_NO_ACCESS;
}

/// Calls `visit.operator()<T>()` with the type of value that `type` is. False if it is none.
template <typename Visit>
bool visitType(treescope_type type, Visit visit) {
  int at = TREESCOPE_BOOL;
  bool found = false;
  ModelSrv::ValueTypes::forEach([&]<typename T>() {
    if (at++ == type) {
      found = true;
      visit.template operator()<T>();
    }
  });
  return found;
}

}  // namespace treescope_c
