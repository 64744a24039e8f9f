#pragma once

#include "modelsrv/result.h"

namespace treectl {

/// The exit status of the program. Scripts rely on these numbers.
enum class Status : int {
  success = 0,
  differs = 1,         ///< the compared trees differ
  usage = 2,           ///< an argument is wrong; nothing was done
  notFound = 3,        ///< no such part, element or match, or a node where a value is expected
  noServer = 4,        ///< no such server, the connection was lost, or the device is unreachable
  refused = 5,         ///< the server refused
  timeout = 6,         ///< the time limit passed; nothing was changed
  notPermitted = 7,    ///< the server belongs to another user, or its rules forbid it
  outcomeUnknown = 8,  ///< a store may have been applied
  ioError = 9,         ///< output or a file failed, or the system did
  interrupted = 130,   ///< ended by SIGINT
  terminated = 143,    ///< ended by SIGTERM
};

/// Which status a failed request ends with.
enum class RequestKind { read, store };

/// The status for the result of a request or of a connection.
[[nodiscard]] Status statusOf(ModelSrv::ModelRes result, RequestKind kind = RequestKind::read);

}  // namespace treectl
