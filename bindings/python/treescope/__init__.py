"""Model servers and their clients.

    with Client("Model_host") as client:
        print(client["/cpu/load"])

    with Server() as server:
        server.add("setpoint", 20.5, unit="degrees", minimum=5, maximum=30)
        server.publish("Model_thermostat")
        server.run()

A path is the names of the parts from the root down, "/drive/gains", with the index of an element in
brackets if it is of one, "/drive/gains[1]"; "#7" instead of a name is the part with that id. An
error is an exception, derived from `TreescopeError`: a class for each result.
"""

from ._library import VERSION as __version__
from .async_client import AsyncClient
from .client import Client, Event
from .errors import (
    BadArgument,
    BadName,
    BadRequest,
    BadText,
    Busy,
    Closed,
    Denied,
    DuplicateId,
    LimitReached,
    NameInUse,
    NoDescriptors,
    NoServer,
    NoSpace,
    NoSuchElement,
    NoSuchPart,
    NotPermitted,
    NotSubscribable,
    NotSupported,
    NotWritable,
    NoValue,
    OutcomeUnknown,
    OutOfRange,
    Protected,
    ProtocolError,
    ReadOnly,
    Refused,
    SystemFailure,
    Timeout,
    TooLarge,
    TreescopeError,
    Unreachable,
    Vetoed,
)
from .server import Part, Server
from .values import Access, Child, Description, Tree, TreePart, Type, Value
from .watch import Change, Update, Watch

__all__ = [
    "__version__",
    "Access",
    "AsyncClient",
    "BadArgument",
    "BadName",
    "BadRequest",
    "BadText",
    "Busy",
    "Change",
    "Child",
    "Client",
    "Closed",
    "Description",
    "Denied",
    "DuplicateId",
    "Event",
    "LimitReached",
    "NameInUse",
    "NoDescriptors",
    "NoServer",
    "NoSpace",
    "NoSuchElement",
    "NoSuchPart",
    "NoValue",
    "NotPermitted",
    "NotSubscribable",
    "NotSupported",
    "NotWritable",
    "OutOfRange",
    "OutcomeUnknown",
    "Part",
    "Protected",
    "ProtocolError",
    "ReadOnly",
    "Refused",
    "Server",
    "SystemFailure",
    "Timeout",
    "TooLarge",
    "Tree",
    "TreePart",
    "TreescopeError",
    "Type",
    "Unreachable",
    "Update",
    "Value",
    "Vetoed",
    "Watch",
]
