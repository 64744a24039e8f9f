#pragma once

#include <cstdint>

#include "modelsrv/result.h"

namespace modelgate {

/// The result with this number, which is not 0. `ModelRes_SystemError` for one that only a later
/// version knows.
[[nodiscard]] ModelSrv::ModelRes resultOf(std::uint64_t number);

}  // namespace modelgate
