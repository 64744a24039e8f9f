#pragma once

#include "kstd/export.h"

namespace EvtSrv {

/// How an operation on event ports ended.
///
/// The first fatal fault of a connection is latched: every later operation on
/// that connection gives the same result until it is connected again.
enum [[nodiscard]] EvtRes : unsigned{
    EvtRes_Success = 0,
    EvtRes_Timeout = 1,         ///< nothing came within the time allowed
    EvtRes_NoServer = 2,        ///< nobody serves a port of that name
    EvtRes_NameInUse = 3,       ///< another live server has that name
    EvtRes_BadName = 4,         ///< a port name that is not allowed
    EvtRes_NotPermitted = 5,    ///< the pipe is not one that this process may trust
    EvtRes_Refused = 6,         ///< the server cannot take another connection
    EvtRes_Closed = 7,          ///< the peer has gone, or this side has stopped
    EvtRes_Stalled = 8,         ///< the peer missed an answer and has shown no life since
    EvtRes_Protocol = 9,        ///< the peer sent what no peer may send
    EvtRes_TooLarge = 10,       ///< a payload above the limit; nothing was sent
    EvtRes_NoDescriptors = 11,  ///< this process or the system is out of descriptors
    EvtRes_SystemError = 12,    ///< any other refusal of the system's
    EvtRes_Busy = 13,           ///< the object is in use in another role already
};

/// One line of English for `result`, for messages; never null.
KRV_EXPORT const char* describe(EvtRes result);

}  // namespace EvtSrv
