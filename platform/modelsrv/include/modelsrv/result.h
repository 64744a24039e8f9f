#pragma once

#include "kstd/export.h"

namespace ModelSrv {

/// The result of an operation on a model. The numbers below 64 are sent in replies.
enum [[nodiscard]] ModelRes : unsigned{
    ModelRes_Success = 0,
    ModelRes_DoNothing = 1,         ///< there was nothing to do
    ModelRes_NoSuchPart = 2,        ///< no part has this id chain
    ModelRes_NoSuchIndex = 3,       ///< the part has no element with this index
    ModelRes_NoValue = 4,           ///< a node, or a part without a value
    ModelRes_BadText = 5,           ///< the text cannot be read as a value of the part's type
    ModelRes_OutOfRange = 6,        ///< beyond the part's type, or beyond its limits
    ModelRes_ReadOnly = 7,          ///< no client may store a value in this part
    ModelRes_Protected = 8,         ///< a store in this part requires the loader's flag
    ModelRes_Vetoed = 9,            ///< the server refused the value, or it is no choice
    ModelRes_TooLarge = 10,         ///< above the limit of a value or of a frame
    ModelRes_NotSubscribable = 11,  ///< the part does not accept subscriptions
    ModelRes_NotSubscribed = 12,    ///< there is no such subscription
    ModelRes_LimitReached =
        13,                     ///< the server holds no more memory or subscriptions for the client
    ModelRes_BadRequest = 14,   ///< the server cannot decode the request
    ModelRes_DuplicateId = 15,  ///< a sibling has the same id
    ModelRes_BadArgument = 16,  ///< an argument that the operation does not accept
    ModelRes_Unreachable = 17,  ///< the server stands for a device that it cannot reach
    ModelRes_Denied = 18,       ///< the server's rules do not let this client do that

    // Results of the connection. They are never sent.
    ModelRes_NotConnected = 64,   ///< there is no connection and none could be made
    ModelRes_Timeout = 65,        ///< the server did not reply in time, or still does not respond
    ModelRes_NameInUse = 66,      ///< another live server has this name
    ModelRes_BadName = 67,        ///< not a valid port name
    ModelRes_NotPermitted = 68,   ///< this process may not trust the port's pipe
    ModelRes_Refused = 69,        ///< the server does not accept another connection
    ModelRes_Protocol = 70,       ///< the peer violated the protocol
    ModelRes_NoDescriptors = 71,  ///< this process or the system is out of file descriptors
    ModelRes_SystemError = 72,    ///< any other error of the system, including out of memory
    ModelRes_Busy = 73,           ///< the root already is a server or a client
    /// The connection ended before the reply to a request that changes something: it is unknown
    /// whether the server has handled the request. It is not sent again. A server that stands for
    /// a device far away also replies with it, if it does not know what the device has done.
    ModelRes_OutcomeUnknown = 74,
    ModelRes_NoSpace = 75,       ///< `/tmp`, where the pipes are made, is full
    ModelRes_NotWritable = 76,   ///< no pipe can be made in `/tmp`, for example if it is read-only
    ModelRes_NotSupported = 77,  ///< the server is too old to know the operation
};

/// A short English text for `result`, for messages. Never null.
KRV_EXPORT const char* describe(ModelRes result);

}  // namespace ModelSrv
