"""Values that come by themselves."""

from __future__ import annotations

import _thread
import ctypes
import enum
import math
import os
from collections import deque
from collections.abc import Callable, Iterator
from ctypes import byref, c_void_p
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Optional

from . import _library as lib
from ._port import Closable
from .errors import BadArgument, Closed, TreescopeError, error_of
from .values import Type, Value, parse, parse_scalar

if TYPE_CHECKING:
    from .client import Client

SUBTREE = 1
TOO_LARGE = 10
#: In seconds.
LONGEST_PERIOD = 0xFFFFFFFF // 1000


class Change(enum.IntEnum):
    """What a watch reports."""

    #: What was reported before is void and follows anew, as on a new connection.
    BEGIN = 1
    #: A part is in the tree. If it was reported before, that and what was reported below it is void.
    ADDED = 2
    #: A value: at first the current one, then each change.
    VALUE = 3
    #: A part and everything below it has left the tree.
    REMOVED = 4
    #: Everything has been reported once since the beginning.
    COMPLETE = 5


@dataclass(frozen=True)
class Update:
    """One report of a watch."""

    change: Change
    path: str  # of ids, which every operation takes
    names: tuple[str, ...]  # from the watched part down to this one, as far as they were reported
    index: Optional[int]  # the element; None: the whole value
    value: Any  # a `Value`; None if there is an error, and if it is no value
    error: Optional[TreescopeError]  # why the server cannot read the value
    time_ns: int  # when the server changed it, or read it: since 1970-01-01 UTC
    changes: int  # how many changes this one stands for; 0: it is the current value
    is_node: bool


@dataclass(frozen=True)
class RawUpdate:
    """The same before its value is converted."""

    change: Change
    path: str
    ids: tuple[int, ...]
    name: str
    index: Optional[int]
    text: bytes
    result: int
    time_ns: int
    changes: int
    is_node: bool


class Ender:
    """Ends watches of a client on a thread that lives as long as there are any to end.

    For callbacks of servers: a reply may have to come from the server that waits for the callback.
    Any thread may use it, at any moment: it waits for nothing.
    """

    def __init__(self) -> None:
        # The library may call a watch's callback until it has ended.
        self._watches: deque[tuple[int, Any]] = deque()
        self._running = _thread.allocate_lock()

    def add(self, handle: int, callback: Any) -> None:
        self._watches.append((handle, callback))
        if self._running.acquire(False):
            try:
                # Unlike `threading`, it takes no lock that this thread may hold already.
                _thread.start_new_thread(self._run, ())
            except RuntimeError:
                # There are too many threads. The next one, or the client's end, ends it.
                self._running.release()

    def _run(self) -> None:
        while True:
            while self._watches:
                handle, callback = self._watches.popleft()
                lib.raw("watch_stop", handle)
                del callback
            self._running.release()
            if not self._watches or not self._running.acquire(False):
                return


class Watch(Closable):
    """The updates of a value or a subtree: iterate over them, and close it at the end.

    Made by `Client.watch`. The iteration dispatches the client and waits.
    """

    def __init__(
        self, client: Client, path: str, subtree: bool, period: float, structure: bool
    ) -> None:
        self.client = client
        self.path = path
        self.pending: deque[RawUpdate] = deque()
        self._structure = structure
        self._types: dict[tuple[int, ...], tuple[Type, int]] = {}
        # Of each part that was reported, the names from the watched part down to it.
        self._names: dict[tuple[int, ...], tuple[str, ...]] = {}
        self._handle = None
        self._ended = False
        # Called after each report, by asyncio clients.
        self.on_pending: Callable[[], None] = lambda: None
        self._callback = lib.Watcher(self._take)
        handle = c_void_p()
        flags = SUBTREE if subtree else 0
        # Not a number compares as false.
        if not 0 <= period <= LONGEST_PERIOD:
            raise BadArgument(f"expected a period from 0 to {LONGEST_PERIOD} s, got {period}")
        milliseconds = math.ceil(period * 1000)
        lib.call(
            "watch_start",
            client._handle,
            lib.encode_path(path),
            flags,
            milliseconds,
            self._callback,
            None,
            byref(handle),
        )
        self._handle = handle.value

    def __repr__(self) -> str:
        return f"<treescope.Watch {self.path!r}{' closed' if self.closed else ''}>"

    def _take(self, _context: int, report: Any) -> None:
        if self._ended:
            return
        try:
            update = report.contents
            self.pending.append(
                RawUpdate(
                    Change(update.kind),
                    lib.decode(update.path),
                    tuple(update.ids[: update.depth]),
                    update.name.text(),
                    None if update.index == lib.ALL else update.index,
                    ctypes.string_at(update.text.data, update.text.size),
                    update.result,
                    update.time_ns,
                    update.changes,
                    update.is_node,
                )
            )
            self.on_pending()
        except BaseException as error:
            self.client._raised.append(error)

    def close(self) -> None:
        """Ends the watch, which is allowed more than once, and the iteration of another thread.

        In a callback of a server it waits for no reply, and the server learns of it after the callback.
        """
        handle, self._handle = self._handle, None
        if handle is not None:
            self._ended = True
            if lib.callbacks.depth > 0:
                self.client._ender.add(handle, self._callback)
            else:
                # If the client has been closed, so has the watch.
                lib.raw("watch_stop", handle)
            self.pending.clear()
            self.client._ring()

    def __iter__(self) -> Iterator[Update]:
        return self

    def __next__(self) -> Update:
        """The next update, however long that takes. Raises what a callback of the client raised.

        The iteration ends when the watch or its client is closed. One thread at a time may iterate.
        """
        while not self.closed:
            if self.pending:
                raw = self.pending.popleft()
                names = self.note(raw)
                if self.is_reported(raw):
                    return self.convert(raw, names) or self.request(raw, names)
            elif self.client.closed:
                self.close()
            else:
                try:
                    self.client._dispatch_until(self._is_awaited_no_more)
                except Closed:
                    if not self.client.closed:
                        raise
        raise StopIteration

    def _is_awaited_no_more(self) -> bool:
        return bool(self.pending) or self.closed

    def note(self, raw: RawUpdate) -> tuple[str, ...]:
        """Notes what `raw` says about the tree; returns the names of its part."""
        if raw.change == Change.BEGIN:
            self._types.clear()
            self._names.clear()
        names = self._names.get(raw.ids)
        if names is None or raw.change == Change.ADDED:
            names = self._names.get(raw.ids[:-1], ()) if raw.ids else ()
        if raw.change == Change.ADDED:
            self._types.pop(raw.ids, None)
            names = (*names, raw.name)
            self._names[raw.ids] = names
        if raw.change == Change.REMOVED:
            depth = len(raw.ids)
            for ids in [ids for ids in self._types if ids[:depth] == raw.ids]:
                del self._types[ids]
            for ids in [ids for ids in self._names if ids[:depth] == raw.ids]:
                del self._names[ids]
        return names

    def is_reported(self, raw: RawUpdate) -> bool:
        """Whether the program gets it."""
        return self._structure or raw.change == Change.VALUE

    def convert(self, raw: RawUpdate, names: tuple[str, ...]) -> Optional[Update]:
        """The update with a value of Python's; None if that takes a request."""
        if raw.change != Change.VALUE:
            return self._update(raw, names)
        if raw.result not in (lib.SUCCESS, TOO_LARGE):
            error = error_of(raw.result, f"{raw.path}: {lib.result_text(raw.result)}")
            return self._update(raw, names, error=error)
        value = self._parse(raw)
        return None if value is None else self._update(raw, names, value)

    def request(self, raw: RawUpdate, names: tuple[str, ...]) -> Update:
        """The same with requests, which block."""
        try:
            if raw.result == lib.SUCCESS and raw.ids not in self._types:
                about = self.client.describe("/".join(f"#{id}" for id in raw.ids))
                self._types[raw.ids] = about.type, about.elements
            value = self._parse(raw)
            return self._update(raw, names, self.client.get(raw.path) if value is None else value)
        except TreescopeError as error:
            return self._update(raw, names, error=error)

    def _parse(self, raw: RawUpdate) -> Optional[Value]:
        """None if the text does not say the value."""
        if raw.result != lib.SUCCESS or raw.ids not in self._types:
            return None
        type, elements = self._types[raw.ids]
        try:
            if raw.index is not None:
                return parse_scalar(raw.text, type)
            return parse(raw.text, type, elements)
        except ValueError:
            # An element has line feeds of its own, or the part is another one by now.
            return None

    def _update(
        self,
        raw: RawUpdate,
        names: tuple[str, ...],
        value: Optional[Value] = None,
        error: Optional[TreescopeError] = None,
    ) -> Update:
        return Update(
            raw.change,
            raw.path,
            names,
            raw.index,
            value,
            error,
            raw.time_ns,
            raw.changes,
            raw.is_node,
        )

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None and self.client._process == os.getpid():
            self.close()
