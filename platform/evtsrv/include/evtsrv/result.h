#pragma once

#include "kstd/export.h"

namespace EvtSrv {

/// The result of an operation on event ports.
///
/// The first fatal error of a connection is latched: every later operation on that
/// connection returns it until the connection is made again.
enum [[nodiscard]] EvtRes : unsigned{
    EvtRes_Success = 0,
    EvtRes_Timeout = 1,         ///< the time limit has passed
    EvtRes_NoServer = 2,        ///< no server has a port of that name
    EvtRes_NameInUse = 3,       ///< a live server has that name already
    EvtRes_BadName = 4,         ///< a port name that is not allowed
    EvtRes_NotPermitted = 5,    ///< the pipe is not trusted: wrong type, owner or mode
    EvtRes_Refused = 6,         ///< the server does not accept the connection
    EvtRes_Closed = 7,          ///< the peer or this side has closed the connection
    EvtRes_Stalled = 8,         ///< a reply is overdue and the peer has shown no activity since
    EvtRes_Protocol = 9,        ///< the peer has violated the protocol
    EvtRes_TooLarge = 10,       ///< the payload exceeds the limit; nothing was sent
    EvtRes_NoDescriptors = 11,  ///< this process or the system is out of descriptors
    EvtRes_SystemError = 12,    ///< any other error of the system, such as out of memory
    EvtRes_Busy = 13,           ///< the object is already in use in another role
    EvtRes_NoSpace = 14,        ///< `/tmp`, where the pipes are made, is full
    EvtRes_NotWritable = 15,    ///< no pipe can be made in `/tmp`, for example if it is read-only
};

/// A short English description of `result`, for messages; never null.
KRV_EXPORT const char* describe(EvtRes result);

}  // namespace EvtSrv
