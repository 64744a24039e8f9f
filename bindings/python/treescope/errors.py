"""The results of the library as exceptions: a class for each."""

from __future__ import annotations


class TreescopeError(Exception):
    """An operation that did not succeed; the text says what it was about and why."""

    code: int = -1


class NoSuchPart(TreescopeError, LookupError):
    """No part has this path."""

    code = 2


class NoSuchElement(TreescopeError, LookupError):
    """The part has no element with this index."""

    code = 3


class NoValue(TreescopeError):
    """The part is a node or has no value."""

    code = 4


class BadText(TreescopeError, ValueError):
    """The text is no value of the part's type."""

    code = 5


class OutOfRange(TreescopeError, ValueError):
    """The value is beyond the part's type or its limits."""

    code = 6


class ReadOnly(TreescopeError):
    """No client may store in this part."""

    code = 7


class Protected(TreescopeError):
    """A store in this part requires `loader=True`."""

    code = 8


class Vetoed(TreescopeError, ValueError):
    """The server refused the value; the text has its reason. A store check raises it to refuse."""

    code = 9


class TooLarge(TreescopeError):
    """Above the limit of a value or of a reply."""

    code = 10


class NotSubscribable(TreescopeError):
    """The part does not let clients watch it."""

    code = 11


class LimitReached(TreescopeError):
    """The server holds no more for this client."""

    code = 13


class BadRequest(TreescopeError):
    """The server, an older one perhaps, does not know the request."""

    code = 14


class DuplicateId(TreescopeError, ValueError):
    """A sibling has the same id."""

    code = 15


class BadArgument(TreescopeError, ValueError):
    """An argument that the operation does not accept."""

    code = 16


class Unreachable(TreescopeError):
    """The server stands for a device that it cannot reach."""

    code = 17


class Denied(TreescopeError):
    """The server's rules do not let this client do that."""

    code = 18


class NoServer(TreescopeError):
    """No server has the name, or the connection is lost."""

    code = 64


class Timeout(TreescopeError):
    """The server did not reply in time. It may still apply a store."""

    code = 65


class NameInUse(TreescopeError):
    """Another live server has this name."""

    code = 66


class BadName(TreescopeError, ValueError):
    """Not a valid port name."""

    code = 67


class NotPermitted(TreescopeError):
    """The port belongs to another user, or is not a pipe with one link."""

    code = 68


class Refused(TreescopeError):
    """The server accepts no further connection."""

    code = 69


class ProtocolError(TreescopeError):
    """The peer broke the protocol; the outcome is unknown."""

    code = 70


class NoDescriptors(TreescopeError):
    """This process or the system is out of descriptors."""

    code = 71


class SystemFailure(TreescopeError):
    """Another error of the system, such as out of memory."""

    code = 72


class Busy(TreescopeError):
    """In use in another role, or not allowed in a callback."""

    code = 73


class OutcomeUnknown(TreescopeError):
    """No reply of the server, or of the device behind it: the store may have been applied."""

    code = 74


class NoSpace(TreescopeError):
    """/tmp, where the pipes are, is full."""

    code = 75


class NotWritable(TreescopeError):
    """No pipe can be made in /tmp."""

    code = 76


class NotSupported(TreescopeError):
    """The server is too old for this."""

    code = 77


class Closed(TreescopeError):
    """The client, server, watch or part is closed."""

    code = 128


_BY_CODE: dict[int, type[TreescopeError]] = {}


def _register(base: type[TreescopeError]) -> None:
    for derived in base.__subclasses__():
        _BY_CODE[derived.code] = derived


_register(TreescopeError)


def code_of(error: Exception, otherwise: int) -> int:
    """The result of the library that `error` stands for; `otherwise` if it is none."""
    code = getattr(error, "code", otherwise) if isinstance(error, TreescopeError) else otherwise
    return code if code in _BY_CODE else otherwise


def error_of(code: int, message: str) -> TreescopeError:
    """The exception for a result of the library."""
    error = _BY_CODE.get(code, TreescopeError)(message)
    error.code = code
    return error
