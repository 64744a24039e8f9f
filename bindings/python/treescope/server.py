"""A server: publishes a tree of values."""

from __future__ import annotations

import asyncio
import os
import threading
from collections.abc import Callable, Sequence
from ctypes import byref, c_void_p, string_at
from typing import Any, Optional, Union

from . import _library as lib
from ._port import LONGEST, Port
from .client import check_number, has_line_feeds
from .errors import BadArgument, Busy, Closed, TreescopeError, Unreachable, Vetoed, code_of
from .values import (
    Access,
    Scalar,
    Storable,
    Type,
    Value,
    element_index,
    is_array,
    parse,
    parse_scalar,
    scalar_text,
    to_text,
    type_of,
)

#: Raises an exception to refuse a value: its text is the client's reason. The index is that of the
#: element, or None for a single value.
Check = Callable[[Any, Optional[int]], None]
Getter = Callable[[], Scalar]


class Siblings:
    """The children of a node, which it keeps, and the id of the next one."""

    def __init__(self) -> None:
        self.parts: set[Part] = set()
        self.next_id = 1


class Part:
    """A part of a server's tree. Any thread may use it. Made by `add` and `node`.

    Each operation raises `Closed` when the part has been removed or the server closed.
    """

    def __init__(
        self, siblings: Siblings, server: Server, handle: int, name: str, type: Type, elements: int
    ) -> None:
        self.server = server
        self.name = name
        self.type = type
        self.elements = elements
        self._handle = handle
        self._siblings = siblings
        self._children = Siblings()
        # The library calls them as long as the part exists: each, and the one before it, which may
        # be what has replaced itself.
        self._callbacks: dict[str, tuple[Any, ...]] = {}

    def __reduce__(self) -> Any:
        raise TypeError(f"{self!r} cannot be copied: there is one object for a part")

    def __repr__(self) -> str:
        return f"<treescope.Part {self.name!r} {self.type.name}>"

    def get(self, index: Optional[int] = None) -> Any:
        """The present value, or that of one element.

        Raises `NoValue` for a node, `NoSuchElement`, and what a getter of the part raises for clients.
        """
        if index is not None:
            return parse_scalar(self._text(element_index(index)), self.type)
        if self.type == Type.TEXT and self.elements > 1:
            texts = [self._text(i) for i in range(self.elements)]
            return [parse_scalar(text, self.type) for text in texts]
        return parse(self._text(lib.ALL), self.type, self.elements)

    def _text(self, index: int) -> bytes:
        return lib.take_text("part_get", self._handle, index)

    def set(self, value: Storable, index: Optional[int] = None) -> None:
        """Sets the value or one element from the server's side, whatever its access and limits.

        Clients that watch it are notified if it changes the value, by the next dispatch. Raises
        `BadText`, `OutOfRange` for the type, `TooLarge`, `NoValue` or `NoSuchElement`.
        """
        if has_line_feeds(value) and index is None and self.elements > 0:
            texts = [scalar_text(element) for element in value]  # type: ignore[union-attr]
            check_number(self.name, texts, self.elements)
            for i, element in enumerate(texts):
                self._store(element, i)
        else:
            self._store(to_text(value), element_index(index))

    def _store(self, text: bytes, index: int) -> None:
        lib.call("part_store", self._handle, index, text, len(text))

    @property
    def value(self) -> Any:
        return self.get()

    @value.setter
    def value(self, value: Storable) -> None:
        self.set(value)

    def add(self, name: str, value: Optional[Storable] = None, **options: Any) -> Part:
        """As `Server.add`, below this node."""
        return self.server.add(name, value, parent=self, **options)

    def node(self, name: str, *, id: Optional[int] = None) -> Part:
        """As `Server.node`, below this node."""
        return self.server.node(name, id=id, parent=self)

    def remove(self) -> None:
        """Takes the part and everything below it out of the tree. `Busy` in a server's callback."""
        lib.call("remove", self._handle)
        self._siblings.parts.discard(self)

    def on_store(self, check: Optional[Check]) -> None:
        """Calls `check` in `dispatch`, on its thread, before a client's store is applied.

        None: no longer. `BadArgument` for a node.
        """

        def run(_context: int, request: Any) -> int:
            try:
                return decide(request)
            except BaseException as error:
                self.server._raised.append(error)
                return Vetoed.code

        def decide(request: Any) -> int:
            try:
                stored = request.contents
                value = parse_scalar(string_at(stored.text, stored.size), self.type)
                check(value, None if stored.index == lib.ALL else stored.index)  # type: ignore[misc]
                return lib.SUCCESS
            except (TreescopeError, ValueError) as refusal:
                reason = str(refusal).encode("utf-8", "replace").replace(b"\0", b"?")
                lib.raw("refuse", request, reason)
                return code_of(refusal, Vetoed.code)

        self._set_callback("on_store", lib.StoreCheck, check, run)

    def on_get(self, getter: Optional[Getter]) -> None:
        """Lets clients read what `getter` returns, each time anew; None: the value that is held.

        It is called in `dispatch` and in `get`, on their thread, and must return soon. One that raises
        gives the client `Unreachable`, or the `TreescopeError` that it raises. `BadArgument` for a node
        or an array.
        """

        def run(_context: int, _part: int, reply: int) -> int:
            try:
                text = to_text(getter())  # type: ignore[misc]
                result: int = lib.raw("reply_text", reply, text, len(text))
                return result
            except TreescopeError as error:
                return code_of(error, Unreachable.code)
            except BaseException as error:
                self.server._raised.append(error)
                return Unreachable.code

        self._set_callback("on_get", lib.Getter, getter, run)

    def on_watched(self, handler: Optional[Callable[[bool], None]]) -> None:
        """Calls `handler` when a first client watches the part, and when none does any more."""

        def run(_context: int, watched: bool) -> None:
            try:
                handler(watched)  # type: ignore[misc]
            except BaseException as error:
                self.server._raised.append(error)

        self._set_callback("on_watched", lib.WatchedHandler, handler, run)

    def _set_callback(self, name: str, kind: Any, function: Any, run: Any) -> None:
        """Lets the library call `run`, which calls `function`; nothing if that is None."""
        lib.check_callable(function)
        calling = self.server._calling

        def call(*arguments: Any) -> Any:
            calling.append(threading.get_ident())
            lib.callbacks.depth += 1
            try:
                return run(*arguments)
            finally:
                lib.callbacks.depth -= 1
                calling.remove(threading.get_ident())

        # A null pointer of the type is "no callback".
        callback = kind(call) if function is not None else kind(0)
        lib.call(name, self._handle, callback, None)
        self._callbacks[name] = (callback, *self._callbacks.get(name, ())[:1])

    def notify(self) -> None:
        """Notifies the watching clients that a getter has another value, by the next dispatch."""
        lib.call("notify", self._handle)


class Server(Port):
    """A tree of parts and the port that publishes it.

    Any thread may use it. The callbacks of its parts run in `dispatch`, which `run` and `serve` call;
    they may set and read parts, but not add or remove them, dispatch or close the server (`Busy`).
    """

    _kind = "server"
    _close_function = "server_close"

    def __init__(self) -> None:
        super().__init__()
        self.name: Optional[str] = None
        self._children = Siblings()
        #: The threads that are in callbacks.
        self._calling: list[int] = []
        #: Ends each `serve`; any thread may call them.
        self._serving: list[Callable[[], None]] = []
        handle = c_void_p()
        lib.call("server_new", byref(handle))
        self._handle = handle.value

    def __repr__(self) -> str:
        return f"<treescope.Server {self.name!r}{' closed' if self.closed else ''}>"

    def add(
        self,
        name: str,
        value: Optional[Storable] = None,
        *,
        type: Optional[Type] = None,
        elements: Optional[int] = None,
        id: Optional[int] = None,
        parent: Optional[Part] = None,
        access: Access = Access.READ_WRITE,
        element_names: Sequence[str] = (),
        unit: str = "",
        minimum: Union[int, float, str] = "",
        maximum: Union[int, float, str] = "",
        text: str = "",
        choices: Sequence[Scalar] = (),
        watchable: bool = True,
        check: Optional[Check] = None,
        getter: Optional[Getter] = None,
    ) -> Part:
        """Adds a part with a value, by default of the type that Python's value suggests.

        A list makes an array. Without `id` it gets the one after the largest of its siblings. Raises
        `BadArgument`, another ValueError for options that contradict each other, `DuplicateId`,
        `BadText` or `OutOfRange` for the value; the tree is unchanged then.
        """
        if type is None:
            type = type_of(0.0 if value is None else value)
        if elements is None:
            elements = len(value) if value is not None and is_array(value) else 0  # type: ignore
        # What C cannot represent would become another number there.
        if not 0 <= elements <= 65534:
            raise BadArgument(f"expected at most 65534 elements, got {elements}")
        for texts in (element_names, choices):
            if isinstance(texts, (str, bytes)):
                raise TypeError(f"expected a sequence of texts, got {texts!r}")
        if element_names and len(element_names) != elements:
            raise ValueError(f"expected {elements} element names, got {len(element_names)}")
        split = value is not None and has_line_feeds(value)
        first = None if value is None or split else to_text(value)
        if first is not None and b"\0" in first:
            first, split = None, True
        options = lib.PartOptions(
            type=Type(type),
            access=Access(access),
            value=first,
            elements=elements,
            element_names=lib.text_array([lib.encode_path(name) for name in element_names]),
            not_watchable=not watchable,
            unit=lib.encode_path(unit),
            minimum=to_text(minimum),
            maximum=to_text(maximum),
            text=lib.encode_path(text),
            choices=lib.text_array([to_text(choice) for choice in choices]),
            choice_count=len(choices),
        )
        part = self._add(name, options, id, parent)
        try:
            if split and value is not None:
                part.set(value)
            if check is not None:
                part.on_store(check)
            if getter is not None:
                part.on_get(getter)
        except BaseException:
            part.remove()
            raise
        return part

    def node(
        self, name: str, *, id: Optional[int] = None, parent: Optional[Part] = None
    ) -> Part:
        """Adds a part that has children."""
        return self._add(name, lib.PartOptions(type=Type.NODE), id, parent)

    def _add(
        self, name: str, options: lib.PartOptions, id: Optional[int], parent: Optional[Part]
    ) -> Part:
        siblings = self._children if parent is None else parent._children
        number = siblings.next_id if id is None else id
        if not 0 <= number <= 65533:
            raise ValueError(f"expected an id from 0 to 65533, got {number}")
        options.id = number
        options.name = lib.encode_path(name)
        handle = c_void_p()
        above = None if parent is None else parent._handle
        lib.call("add", self._handle, above, byref(options), byref(handle))
        siblings.next_id = max(siblings.next_id, number + 1)
        type = Type(options.type)
        part = Part(siblings, self, handle.value or 0, name, type, options.elements)
        siblings.parts.add(part)
        return part

    def publish(self, name: str, *, group: Optional[int] = None) -> None:
        """Publishes the tree as port `name`; members of `group` (its number) may connect too.

        Raises `NameInUse`, `BadName`, `NotPermitted`, `Busy` if it is published already, or an error of
        the system such as `NoSpace`.
        """
        if group is None:
            lib.call("publish", self._handle, lib.encode_path(name))
        else:
            if not 0 <= group < 2**32 - 1:
                raise BadArgument(f"expected the number of a group, got {group}")
            lib.call("publish_to_group", self._handle, lib.encode_path(name), group)
        self.name = name

    def unpublish(self, timeout: Optional[float] = 2) -> None:
        """Ends the service after clients have received what is pending for them.

        Waits at most `timeout` seconds (None: without limit) and raises `Timeout` after that. The parts
        remain. Dispatches meanwhile, and raises what a callback raised.
        """
        milliseconds = -1 if timeout is None else int(min(max(0.0, timeout) * 1000, LONGEST))
        result = lib.raw_with_callbacks(self._raised, "unpublish", self._handle, milliseconds)
        self._raise_again()
        lib.check(result)

    def run(self) -> None:
        """Serves until the server is closed, by another thread or a signal handler.

        Raises what a callback raised, and exceptions such as KeyboardInterrupt.
        """
        while not self.closed:
            try:
                self.dispatch(None)
            except Closed:
                return

    async def serve(self) -> None:
        """Serves in the running event loop until the server is closed, by any thread, or until it is
        cancelled. Raises what a callback raised.
        """
        loop = asyncio.get_running_loop()
        ended: asyncio.Future[None] = loop.create_future()

        def end() -> None:
            if not ended.done():
                ended.set_result(None)

        def end_soon() -> None:
            try:
                loop.call_soon_threadsafe(end)
            except RuntimeError:
                pass  # The event loop has ended before.

        def dispatch() -> None:
            try:
                self.dispatch(0)
            except BaseException as error:
                if isinstance(error, Closed) and self.closed:
                    end()
                elif not ended.done():
                    ended.set_exception(error)

        try:
            # The event loop must not have the server's own one, which another thread may close.
            descriptor = os.dup(self.fileno())
        except (Closed, OSError):
            if self.closed:
                return
            raise
        self._serving.append(end_soon)
        try:
            if self.closed:
                return
            loop.add_reader(descriptor, dispatch)
            try:
                await ended
            finally:
                loop.remove_reader(descriptor)
        finally:
            self._serving.remove(end_soon)
            os.close(descriptor)

    def close(self) -> None:
        """Ends the service immediately and closes the parts. `Busy` in a callback of the server."""
        if threading.get_ident() in self._calling and not self.closed:
            # No other thread's dispatch ends because of that.
            raise Busy("a callback cannot close the server that called it")
        super().close()
        for end in list(self._serving):
            end()
        self._children.parts.clear()
