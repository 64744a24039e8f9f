#pragma once

#include <new>

#include "modelsrv/result.h"

namespace ModelSrv::internal {

/// What `operation` gives; a want of memory is a result as well, and leaves this
/// library nowhere as an exception.
template <typename Operation>
ModelRes withMemoryResult(Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return ModelRes_SystemError;
  }
}

}  // namespace ModelSrv::internal
