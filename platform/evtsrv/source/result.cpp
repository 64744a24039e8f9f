#include "evtsrv/result.h"

#include <cerrno>

#include "evtsrv/source/system.h"

namespace EvtSrv {

const char* describe(EvtRes result) {
  switch (result) {
    case EvtRes_Success:
      return "success";
    case EvtRes_Timeout:
      return "nothing came in time";
    case EvtRes_NoServer:
      return "no server serves that name";
    case EvtRes_NameInUse:
      return "another server has that name";
    case EvtRes_BadName:
      return "not a valid port name";
    case EvtRes_NotPermitted:
      return "the pipe belongs to another user, or is not a pipe with one link";
    case EvtRes_Refused:
      return "the server takes no further connection";
    case EvtRes_Closed:
      return "the connection has ended";
    case EvtRes_Stalled:
      return "the server does not answer";
    case EvtRes_Protocol:
      return "the peer broke the protocol";
    case EvtRes_TooLarge:
      return "too large";
    case EvtRes_NoDescriptors:
      return "out of descriptors";
    case EvtRes_SystemError:
      return "the system refused";
    case EvtRes_Busy:
      return "in use in another role";
    case EvtRes_NoSpace:
      return "/tmp is full";
    case EvtRes_NotWritable:
      return "/tmp is not writable";
  }
  return "unknown result";
}

}  // namespace EvtSrv

namespace EvtSrv::internal {

EvtRes resultOf(ssize_t error) {
  switch (-error) {
    case ENOENT:
    case ENXIO:
      return EvtRes_NoServer;
    case EACCES:
    case EPERM:
    case ELOOP:
    case EISDIR:
    case ENOTDIR:
      return EvtRes_NotPermitted;
    case EMFILE:
    case ENFILE:
      return EvtRes_NoDescriptors;
    case EPIPE:
      return EvtRes_Closed;
    default:
      return EvtRes_SystemError;
  }
}

EvtRes resultOfMaking(ssize_t error) {
  switch (-error) {
    case ENOSPC:
    case EDQUOT:
      return EvtRes_NoSpace;
    case EROFS:
    case ENOENT:
      return EvtRes_NotWritable;
    default:
      return resultOf(error);
  }
}

}  // namespace EvtSrv::internal
