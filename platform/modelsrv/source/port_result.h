#pragma once

#include "evtsrv/result.h"
#include "modelsrv/result.h"

namespace ModelSrv::internal {

/// The model result for a result of the event port.
inline ModelRes fromPort(EvtSrv::EvtRes result) {
  switch (result) {
    case EvtSrv::EvtRes_Success:
      return ModelRes_Success;
    case EvtSrv::EvtRes_Timeout:
    case EvtSrv::EvtRes_Stalled:
      return ModelRes_Timeout;
    case EvtSrv::EvtRes_NoServer:
    case EvtSrv::EvtRes_Closed:
      return ModelRes_NotConnected;
    case EvtSrv::EvtRes_NameInUse:
      return ModelRes_NameInUse;
    case EvtSrv::EvtRes_BadName:
      return ModelRes_BadName;
    case EvtSrv::EvtRes_NotPermitted:
      return ModelRes_NotPermitted;
    case EvtSrv::EvtRes_Refused:
      return ModelRes_Refused;
    case EvtSrv::EvtRes_Protocol:
      return ModelRes_Protocol;
    case EvtSrv::EvtRes_TooLarge:
      return ModelRes_TooLarge;
    case EvtSrv::EvtRes_NoDescriptors:
      return ModelRes_NoDescriptors;
    case EvtSrv::EvtRes_Busy:
      return ModelRes_Busy;
    case EvtSrv::EvtRes_NoSpace:
      return ModelRes_NoSpace;
    case EvtSrv::EvtRes_NotWritable:
      return ModelRes_NotWritable;
    case EvtSrv::EvtRes_SystemError:
      break;
  }
  return ModelRes_SystemError;
}

}  // namespace ModelSrv::internal
