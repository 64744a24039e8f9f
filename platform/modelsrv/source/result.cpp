#include "modelsrv/result.h"

namespace ModelSrv {

const char* describe(ModelRes result) {
  switch (result) {
    case ModelRes_Success:
      return "success";
    case ModelRes_DoNothing:
      return "nothing to do";
    case ModelRes_NoSuchPart:
      return "no such part";
    case ModelRes_NoSuchIndex:
      return "no such element";
    case ModelRes_NoValue:
      return "the part has no value";
    case ModelRes_BadText:
      return "the text is no value of the part's type";
    case ModelRes_OutOfRange:
      return "the value is out of the range of the part's type";
    case ModelRes_ReadOnly:
      return "the part is read-only";
    case ModelRes_Protected:
      return "the part is protected";
    case ModelRes_Vetoed:
      return "the server refused the value";
    case ModelRes_TooLarge:
      return "too large";
    case ModelRes_NotSubscribable:
      return "the part cannot be subscribed to";
    case ModelRes_NotSubscribed:
      return "no such subscription";
    case ModelRes_LimitReached:
      return "the server holds no more for this client";
    case ModelRes_BadRequest:
      return "not a valid request";
    case ModelRes_DuplicateId:
      return "a sibling has that id";
    case ModelRes_BadArgument:
      return "an argument is outside what the operation takes";
    case ModelRes_Unreachable:
      return "the device behind the server cannot be reached";
    case ModelRes_Denied:
      return "the server's rules do not allow that";
    case ModelRes_NotConnected:
      return "no server serves that name, or there is no connection";
    case ModelRes_Timeout:
      return "the server does not answer";
    case ModelRes_NameInUse:
      return "another server has that name";
    case ModelRes_BadName:
      return "not a valid port name";
    case ModelRes_NotPermitted:
      return "the port's pipe belongs to another user, or is not a pipe with one link";
    case ModelRes_Refused:
      return "the server takes no further connection";
    case ModelRes_Protocol:
      return "the peer broke the protocol";
    case ModelRes_NoDescriptors:
      return "out of descriptors";
    case ModelRes_SystemError:
      return "the system refused";
    case ModelRes_Busy:
      return "in use in another role";
    case ModelRes_NoSpace:
      return "/tmp is full";
    case ModelRes_NotWritable:
      return "/tmp is not writable";
    case ModelRes_OutcomeUnknown:
      return "the connection ended before the server answered; the change may have been made";
    case ModelRes_NotSupported:
      return "the server is too old for that";
  }
  return "unknown result";
}

}  // namespace ModelSrv
