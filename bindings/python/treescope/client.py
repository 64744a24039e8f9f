"""A client: reads, stores and watches the values of a server."""

from __future__ import annotations

import ctypes
import enum
from collections.abc import Callable, Sequence
from ctypes import POINTER, byref, c_bool, c_size_t, c_void_p
from typing import Any, List, Optional

from . import _library as lib
from ._port import Port
from .errors import BadText, NoSuchPart, NoValue, TreescopeError, error_of
from .values import (
    Access,
    Child,
    Description,
    Storable,
    Tree,
    TreePart,
    Type,
    Value,
    parse,
    parse_scalar,
    is_array,
    scalar_text,
    to_text,
)
from .watch import Ender, Watch


class Event(enum.IntEnum):
    """What happens to a connection."""

    #: The server has ended. Values may change without an update from now on.
    LOST = 1
    #: There is a new connection, and the watches are renewed on it.
    RESTORED = 2


def split_index(path: str) -> tuple[str, Optional[int]]:
    """A path without the index at its end, and that index."""
    head, bracket, index = lib.check_text(path).rpartition("[")
    if bracket and index.endswith("]") and index[:-1].isdecimal() and index.isascii():
        return head, int(index[:-1])
    return path, None


def has_line_feeds(value: Storable) -> bool:
    """Whether `value` is several texts that cannot be separated by line feeds."""
    return (
        is_array(value)
        and len(value) > 1  # type: ignore[arg-type]
        and any(isinstance(element, str) and "\n" in element for element in value)  # type: ignore
    )


def check_number(name: str, texts: Sequence[bytes], elements: int) -> None:
    """BadText if there are not as many texts as the part has elements."""
    if len(texts) != elements:
        raise BadText(f"{name}: expected {elements} elements, got {len(texts)}")


def _tree_part(part: Any, names: tuple[str, ...], type: Type, value: Any) -> TreePart:
    """A part as the library reports it."""
    elements: int = part.elements
    element_names = part.element_names[:elements] if elements and part.element_names else ()
    path = lib.decode(part.path)
    result: int = part.result
    error = None
    if result not in (lib.SUCCESS, NoValue.code):
        error = error_of(result, f"{path}: {lib.result_text(result)}")
    return TreePart(
        path,
        names,
        type == Type.NODE,
        type,
        Access(part.access),
        part.watchable,
        elements,
        tuple(name.text() for name in element_names),
        value,
        error,
    )


class Client(Port):
    """A connection to the server of a port.

    It is made again by itself when the server comes back. Any thread may use it; its requests wait
    for each other, and each at most 2 s for its reply. Each may raise `NoServer`, `Timeout` and the
    other errors of a connection, `NoSuchPart`, `NoSuchElement`, and `Closed` after `close`.
    """

    _kind = "client"
    _close_function = "disconnect"

    def __init__(self, name: str) -> None:
        """Connects to the server of port `name`, for at most 2 s.

        Raises `NoServer`, `Timeout`, `BadName`, `NotPermitted`, `Refused` or an error of the system.
        """
        super().__init__()
        self.name = name
        # The handler and the one before it, which may be what has replaced itself.
        self._on_event: tuple[Any, ...] = ()
        self._ender = Ender()
        handle = c_void_p()
        lib.call("connect", lib.encode_path(name), byref(handle))
        self._handle = handle.value

    def __repr__(self) -> str:
        return f"<treescope.Client {self.name!r}{' closed' if self.closed else ''}>"

    def get(self, path: str) -> Any:
        """The value at `path`, as the type of the part says; an array is a list.

        It takes one exchange, or two for an element. Raises `NoValue` for a node, and why the server
        cannot read the value, such as `Unreachable`.
        """
        part, index = split_index(path)
        if index is not None:
            # The whole array may be large.
            return parse_scalar(self.get_text(path), self.describe(part).type)
        found: List[tuple[Type, int, int, bytes]] = []

        def take(part: Any) -> bool:
            found.append((Type(part.type), part.elements, part.result, part.text.content()))
            return False

        self._read_parts(path, take)
        if not found:
            raise NoSuchPart(f"{path or '/'}: {lib.result_text(NoSuchPart.code)}")
        type, elements, result, text = found[0]
        if result != lib.SUCCESS:
            raise error_of(result, f"{path or '/'}: {lib.result_text(result)}")
        return self._parse(path, text, type, elements)

    def _parse(self, path: str, text: bytes, type: Type, elements: int) -> Value:
        try:
            return parse(text, type, elements)
        except BadText:
            if elements < 2:
                raise
            # An element has line feeds of its own.
            texts = [self.get_text(f"{path}[{i}]") for i in range(elements)]
            return [parse_scalar(one, type) for one in texts]  # type: ignore[return-value]

    def _read_parts(self, path: str, take: Callable[[Any], bool]) -> bool:
        """Calls `take` for the part and those below it. Returns whether the structure changed."""
        raised: List[BaseException] = []

        def visit(_context: int, part: Any) -> bool:
            try:
                return not raised and take(part.contents)
            except BaseException as error:
                raised.append(error)
                return False

        changed = c_bool()
        visitor = lib.Visitor(visit)
        arguments = (lib.encode_path(path), visitor, None, byref(changed))
        result = lib.raw_with_callbacks(raised, "read_tree", self._handle, *arguments)
        if raised:
            raise raised[0]
        lib.check(result)
        return changed.value

    def read_tree(self, path: str = "/") -> Tree:
        """The part at `path` and everything below it, with values, in a few exchanges.

        A node comes before its children, these in the ascending order of their ids. A value that the
        server cannot read is no error of the reading: its part has it. `BadArgument` for an element.
        """
        tree = Tree()
        names: List[str] = []
        top: List[int] = []
        # Values that take requests, which the reading should not wait for.
        later: List[tuple[int, bytes]] = []

        def take(part: Any) -> bool:
            depth: int = part.depth
            if not top:
                top.append(depth)
            names[depth - top[0] :] = [part.name.text()]
            type = Type(part.type)
            value = None
            if part.result == lib.SUCCESS:
                text = part.text.content()
                try:
                    value = parse(text, type, part.elements)
                except BadText:
                    later.append((len(tree), text))
            tree.append(_tree_part(part, tuple(names), type, value))
            return True

        tree.structure_changed = self._read_parts(path, take)
        for at, text in later:
            made = tree[at]
            try:
                value = self._parse(made.path, text, made.type, made.elements)
                tree[at] = made._replace(value=value)
            except TreescopeError as error:
                tree[at] = made._replace(error=error)
        return tree

    def get_text(self, path: str) -> bytes:
        """The same as the bytes that the server sends: an array's elements by line feeds."""
        return lib.take_text("get", self._handle, lib.encode_path(path))

    def set(self, path: str, value: Storable, *, loader: bool = False) -> None:
        """Stores a value; the server applies it at most once.

        `loader`: also in a protected part. Texts with line feeds in an array are stored one by one.

        Raises `BadText`, `OutOfRange`, `Vetoed`, `ReadOnly`, `Protected`, `NoValue`, `Denied` or
        `Unreachable`: nothing has changed then, except that of texts stored one by one some may be.
        After `OutcomeUnknown`, `Timeout` and `ProtocolError` the value may have been stored.
        """
        if has_line_feeds(value) and split_index(path)[1] is None:
            texts = [scalar_text(element) for element in value]  # type: ignore[union-attr]
            elements = self.describe(path).elements
            if elements > 0:
                check_number(path, texts, elements)
                for i, element in enumerate(texts):
                    self._store(f"{path}[{i}]", element, loader)
                return
        self._store(path, to_text(value), loader)

    def _store(self, path: str, text: bytes, loader: bool) -> None:
        flags = lib.LOADER if loader else 0
        lib.call("store", self._handle, lib.encode_path(path), text, len(text), flags)

    def __getitem__(self, path: str) -> Any:
        return self.get(path)

    def __setitem__(self, path: str, value: Storable) -> None:
        self.set(path, value)

    def list(self, path: str = "/") -> List[Child]:
        """The children of a part, in the server's order."""
        children = POINTER(lib.Child)()
        count = c_size_t()
        lib.call("list", self._handle, lib.encode_path(path), byref(children), byref(count))
        try:
            return [Child(child.id, child.name.text()) for child in children[: count.value]]
        finally:
            lib.raw("free", ctypes.cast(children, c_void_p))

    def describe(self, path: str = "/") -> Description:
        """What a part is."""
        found = POINTER(lib.CDescription)()
        lib.call("describe", self._handle, lib.encode_path(path), byref(found))
        try:
            about = found.contents
            names = about.element_names[: about.elements] if about.element_names else []
            return Description(
                Type(about.type),
                Access(about.access),
                about.watchable,
                about.elements,
                tuple(name.text() for name in names),
                lib.decode(about.unit),
                lib.decode(about.minimum),
                lib.decode(about.maximum),
                lib.decode(about.text),
                tuple(lib.decode(choice) for choice in about.choices[: about.choice_count]),
            )
        finally:
            lib.raw("free", ctypes.cast(found, c_void_p))

    def resolve(self, path: str) -> str:
        """The path of ids, which needs no names to be looked up."""
        text = c_void_p()
        lib.call("resolve", self._handle, lib.encode_path(path), byref(text))
        try:
            return lib.decode(ctypes.string_at(text))
        finally:
            lib.raw("free", text)

    def watch(
        self, path: str, *, subtree: bool = False, period: float = 0, structure: bool = False
    ) -> Watch:
        """Watches a value, or with `subtree` everything at and below `path`: iterate over it.

        The current values come first, then each change. `period`: the minimum time between two
        changes of one part in seconds. `structure`: also reports parts that come and go.

        Raises `NotSubscribable`, `LimitReached`, `NotSupported` by an older server, and `BadArgument`
        for an element with `subtree` or a period that is negative or above 49 days.
        """
        return Watch(self, path, subtree, period, structure)

    def on_event(self, handler: Optional[Callable[[Event], None]]) -> None:
        """Calls `handler` in `dispatch`, on its thread, for each event; None: no longer."""

        def handle(_context: int, event: int) -> None:
            try:
                handler(Event(event))  # type: ignore[misc]
            except BaseException as error:
                self._raised.append(error)

        # A null pointer of the type is "no handler".
        lib.check_callable(handler)
        callback = lib.EventHandler(handle) if handler is not None else lib.EventHandler(0)
        lib.call("on_event", self._handle, callback, None)
        self._on_event = (callback, *self._on_event[:1])
