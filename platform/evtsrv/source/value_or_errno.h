#pragma once

#include <cerrno>

namespace EvtSrv::internal {

/// What a call of `System` returns for the result of a system call: that, or the negative error
/// number.
template <typename Number>
Number valueOrErrno(Number value) {
  return value >= 0 ? value : static_cast<Number>(-errno);
}

}  // namespace EvtSrv::internal
