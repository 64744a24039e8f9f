#include "tools/status.h"

namespace treectl {

Status statusOf(ModelSrv::ModelRes result, RequestKind kind) {
  using namespace ModelSrv;
  const bool stores = kind == RequestKind::store;
  switch (result) {
    case ModelRes_Success:
      return Status::success;
    case ModelRes_DoNothing:
      // The server has stored nothing, or there is no value.
      return stores ? Status::refused : Status::notFound;
    case ModelRes_NoSuchPart:
    case ModelRes_NoSuchIndex:
    case ModelRes_NoValue:
      return Status::notFound;
    case ModelRes_NotConnected:
    case ModelRes_BadName:
    case ModelRes_Unreachable:
      return Status::noServer;
    case ModelRes_Timeout:
      return stores ? Status::outcomeUnknown : Status::timeout;
    case ModelRes_Protocol:
      return stores ? Status::outcomeUnknown : Status::noServer;
    case ModelRes_OutcomeUnknown:
      return Status::outcomeUnknown;
    case ModelRes_NotPermitted:
    case ModelRes_Denied:
      return Status::notPermitted;
    case ModelRes_NoDescriptors:
    case ModelRes_SystemError:
    case ModelRes_NoSpace:
    case ModelRes_NotWritable:
      return Status::ioError;
    default:
      return Status::refused;
  }
}

}  // namespace treectl
