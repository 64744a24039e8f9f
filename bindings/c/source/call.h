#pragma once

#include <cxxabi.h>

#include <new>
#include <string_view>

#include "evtsrv/result.h"
#include "modelsrv/result.h"
#include "treescope.h"

/// What every function of the C interface does around its own work: it catches exceptions, and
/// leaves a message about an error for the calling thread.
namespace treescope_c {

/// What an object that another thread closes meanwhile returns: TREESCOPE_CLOSED.
inline constexpr ModelSrv::ModelRes closedResult = ModelSrv::ModelRes_NotSubscribed;

/// A result of the platform libraries as one of the C interface.
[[nodiscard]] treescope_result toResult(ModelSrv::ModelRes result);
[[nodiscard]] treescope_result toResult(EvtSrv::EvtRes result);

/// The same for the value of a part. A server in C++ whose getter has nothing to do gives no value.
[[nodiscard]] inline treescope_result toValueResult(ModelSrv::ModelRes result) {
  return result == ModelSrv::ModelRes_DoNothing ? TREESCOPE_NO_VALUE : toResult(result);
}

/// A result that a program's callback returned, as a server sends it; `otherwise` if it is none
/// that can be sent.
[[nodiscard]] ModelSrv::ModelRes toModelResult(treescope_result result,
                                               ModelSrv::ModelRes otherwise);

/// Makes "ABOUT: REASON" the calling thread's message and returns `result`. An empty `about` is
/// left out, an empty `reason` is the text of the result. Control characters become "?".
treescope_result fail(treescope_result result, std::string_view about = {},
                      std::string_view reason = {}) noexcept;

/// The result for a path that `parsePath` does not accept.
inline treescope_result failOfPath(std::string_view path) noexcept {
  return fail(TREESCOPE_BAD_ARGUMENT, path, "an id or index is out of range");
}

/// `result`, after `fail` if it is not a success.
template <typename Result>
treescope_result finish(Result result, std::string_view about = {}, std::string_view reason = {}) {
  const treescope_result code = toResult(result);
  return code == TREESCOPE_SUCCESS ? code : fail(code, about, reason);
}

/// Runs `body`, which returns a `treescope_result`, and turns exceptions into results. The end of
/// the thread by pthread_cancel(3) passes through.
template <typename Body>
treescope_result guarded(Body body) {
  try {
    return body();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::bad_alloc&) {
    return fail(TREESCOPE_SYSTEM_ERROR, {}, "out of memory");
  } catch (...) {
    return fail(TREESCOPE_SYSTEM_ERROR, {}, "a callback threw an exception");
  }
}

}  // namespace treescope_c
