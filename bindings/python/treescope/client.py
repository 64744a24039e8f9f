"""A client: reads, stores and watches the values of a server."""

from __future__ import annotations

import ctypes
import enum
from collections.abc import Callable
from ctypes import POINTER, byref, c_size_t, c_void_p
from typing import List, Optional

from . import _library as lib
from ._port import Port
from .errors import BadText
from .values import (
    Access,
    Child,
    Description,
    Storable,
    Type,
    Value,
    parse,
    parse_scalar,
    to_text,
)
from .watch import Watch


class Event(enum.IntEnum):
    """What happens to a connection."""

    #: The server has ended. Values may change without an update from now on.
    LOST = 1
    #: There is a new connection, and the watches are renewed on it.
    RESTORED = 2


def split_index(path: str) -> tuple[str, Optional[int]]:
    """A path without the index at its end, and that index."""
    head, bracket, index = path.rpartition("[")
    if bracket and index.endswith("]") and index[:-1].isdecimal() and index.isascii():
        return head, int(index[:-1])
    return path, None


def has_line_feeds(value: Storable) -> bool:
    """Whether `value` is several texts that cannot be separated by line feeds."""
    return (
        not isinstance(value, (bool, int, float, str, bytes))
        and len(value) > 1
        and any(isinstance(element, str) and "\n" in element for element in value)
    )


class Client(Port):
    """A connection to the server of a port.

    It is made again by itself when the server comes back. Any thread may use it. A request waits
    at most 2 s for its reply.
    """

    _kind = "client"
    _close_function = "disconnect"

    def __init__(self, name: str) -> None:
        super().__init__()
        self.name = name
        self._on_event: Optional[lib.EventHandler] = None
        handle = c_void_p()
        lib.call("connect", lib.encode_path(name), byref(handle))
        self._handle = handle.value

    def __repr__(self) -> str:
        return f"<treescope.Client {self.name!r}{' closed' if self.closed else ''}>"

    def get(self, path: str) -> Value:
        """The value at `path`, as the type of the part says; an array is a list."""
        part, index = split_index(path)
        about = self.describe(part)
        text = self.get_text(path)
        if index is not None:
            return parse_scalar(text, about.type)
        try:
            return parse(text, about.type, about.elements)
        except BadText:
            # An element has line feeds of its own.
            texts = [self.get_text(f"{part}[{i}]") for i in range(about.elements)]
            return [parse_scalar(one, about.type) for one in texts]  # type: ignore[return-value]

    def get_text(self, path: str) -> bytes:
        """The same as the bytes that the server sends."""
        return lib.take_text("get", self._handle, lib.encode_path(path))

    def set(self, path: str, value: Storable, *, loader: bool = False) -> None:
        """Stores a value; the server applies it at most once.

        `loader`: also in a protected part. Texts with line feeds in an array are stored one by one.
        """
        if has_line_feeds(value):
            for i, element in enumerate(value):  # type: ignore[arg-type]
                self.set(f"{path}[{i}]", element, loader=loader)
            return
        text = to_text(value)
        flags = lib.LOADER if loader else 0
        lib.call("store", self._handle, lib.encode_path(path), text, len(text), flags)

    def __getitem__(self, path: str) -> Value:
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
        """
        return Watch(self, path, subtree, period, structure)

    def on_event(self, handler: Optional[Callable[[Event], None]]) -> None:
        """Calls `handler` in `dispatch` for each event of the connection; None: no longer."""

        def handle(_context: int, event: int) -> None:
            try:
                handler(Event(event))  # type: ignore[misc]
            except BaseException as error:
                self._raised.append(error)

        # A null pointer of the type is "no handler".
        callback = lib.EventHandler(handle) if handler is not None else lib.EventHandler(0)
        lib.call("on_event", self._handle, callback, None)
        self._on_event = callback
