#pragma once

#include <functional>
#include <memory>

#include "bench/peers/fields.h"
#include "bench/peers/subscriber.h"

/// The clients of the compared systems in this process, constructed from the fields of a row.
/// Errors are reported as `std::runtime_error`.
namespace bench::peers {

/// Stores a value, or sends an update, in the way of one system.
using Store = std::function<void(unsigned long value)>;

/// Reads the fields of a storing client and connects it:
///
///   stream SOCKET OPENING REPLY MESSAGE REPLY   sends MESSAGE to a Unix socket
///   bus                                         sets a property on the D-Bus
///   bus-signals NUMBER                          has the service send that many signals
///   model SERVER                                stores in the first part of a tree
///
/// OPENING and MESSAGE are bytes in hexadecimal digits; "{value}" in MESSAGE stands for the
/// value. Each is followed by the length of the reply, in bytes, that the client waits for.
Store makeStore(Fields& fields);

/// Reads the fields of a subscriber and starts it:
///
///   stream SOCKET OPENING REPLY SIZE   counts SIZE bytes from a Unix socket as an update
///   bus PATH INTERFACE SIGNAL          counts signals on the D-Bus
///   model SERVER GROUPS VALUES         counts updates of all parts; if VALUES is not 0,
///                                      requests the value of each
std::shared_ptr<Subscriber> makeSubscriber(Fields& fields);

}  // namespace bench::peers
