#include "shell/results.h"

namespace treescope {

const char* resultMessage(int code) {
  switch (code) {
    case result::success:
    case result::nothing:
    case result::exit:
      return nullptr;
    case result::unknownError:
      return "ERROR: UnknownError";
    case result::notFound:
      return "ERROR: NotFound";
    case result::optionError:
      return "ERROR: OptionError";
    case result::openFileError:
      return "ERROR: OpenFileError";
    case result::connectError:
      return "ERROR: ConnectError";
    case result::outOfMemory:
      return "ERROR: OutOfMemory";
    case result::fileExists:
      return "ERROR: FileExists";
    case result::badArgument:
      return "ERROR: Bad Argument";
    default:
      return "ERROR: unknownError";
  }
}

}  // namespace treescope
