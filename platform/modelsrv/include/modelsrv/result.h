#pragma once

#include "kstd/export.h"

namespace ModelSrv {

/// How an operation on a model ended. The numbers are what replies carry.
enum [[nodiscard]] ModelRes : unsigned{
    ModelRes_Success = 0,
    ModelRes_DoNothing = 1,         ///< nothing to do, nothing done
    ModelRes_NoSuchPart = 2,        ///< the id chain leads nowhere
    ModelRes_NoSuchIndex = 3,       ///< the part has no element of that index
    ModelRes_NoValue = 4,           ///< a node, or a part without a value
    ModelRes_BadText = 5,           ///< the text is no value of the part's type
    ModelRes_OutOfRange = 6,        ///< a value that the part's type cannot hold
    ModelRes_ReadOnly = 7,          ///< no client may store here
    ModelRes_Protected = 8,         ///< a store here wants the loader's flag
    ModelRes_Vetoed = 9,            ///< the server's own check refused the value
    ModelRes_TooLarge = 10,         ///< above the limit of a value or of a frame
    ModelRes_NotSubscribable = 11,  ///< the part refuses subscriptions
    ModelRes_NotSubscribed = 12,    ///< there is no such subscription
    ModelRes_LimitReached = 13,     ///< the server keeps no more subscriptions for this client
    ModelRes_BadRequest = 14,       ///< a request that no client of this version makes
    ModelRes_DuplicateId = 15,      ///< a sibling has that id
    ModelRes_BadArgument = 16,      ///< an argument outside what the operation takes

    // Results of the connection; never sent.
    ModelRes_NotConnected = 64,   ///< there is no connection and none could be made
    ModelRes_Timeout = 65,        ///< the server gave no answer in time, or has not since
    ModelRes_NameInUse = 66,      ///< another live server has that name
    ModelRes_BadName = 67,        ///< a port name that is not allowed
    ModelRes_NotPermitted = 68,   ///< the port's pipe is not one that this process may trust
    ModelRes_Refused = 69,        ///< the server cannot take another connection
    ModelRes_Protocol = 70,       ///< the peer sent what no peer may send
    ModelRes_NoDescriptors = 71,  ///< this process or the system is out of descriptors
    ModelRes_SystemError = 72,    ///< any other refusal of the system's
    ModelRes_Busy = 73,           ///< the root is a server already, or a client
};

/// One line of English for `result`, for messages; never null.
KRV_EXPORT const char* describe(ModelRes result);

}  // namespace ModelSrv
