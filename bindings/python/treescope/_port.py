"""What clients and servers have in common: a handle and an event loop."""

from __future__ import annotations

import os
import select
import sys
import threading
import time
import warnings
from collections.abc import Callable
from types import TracebackType
from typing import Any, ClassVar, Optional, TypeVar

from ._library import SUCCESS, TIMEOUT, call, message, raw, raw_with_callbacks
from .errors import error_of

Self = TypeVar("Self", bound="Closable")

ONE = (1).to_bytes(8, sys.byteorder)
#: The longest wait of poll(2), in milliseconds.
LONGEST = 2**31 - 1

# Type checkers may not know it.
_eventfd: Callable[[int, int], int] = getattr(os, "eventfd")


def never() -> bool:
    return False


class Closable:
    """A handle of the library, which the end of a `with` closes."""

    _handle: Optional[int]

    @property
    def closed(self) -> bool:
        return self._handle is None

    def close(self) -> None:
        raise NotImplementedError

    def __reduce__(self) -> Any:
        raise TypeError(f"{self!r} cannot be copied: it has a handle, which one object closes")

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()


class Port(Closable):
    """A handle that is dispatched, too."""

    _kind: ClassVar[str]
    _close_function: ClassVar[str]

    def __init__(self) -> None:
        self._handle = None
        self._process = os.getpid()
        # What a callback raised; the dispatch that called it raises it again.
        self._raised: list[BaseException] = []
        # Guards what follows. One thread at a time waits for the descriptor, and the others for it.
        self._state = threading.Condition()
        self._waiting: Optional[int] = None
        # Ends that wait: another thread has dispatched, or closes this. The descriptor must stay
        # open until the waiting thread knows of its end.
        self._bell = -1

    def fileno(self) -> int:
        """A descriptor that is readable whenever `dispatch` has something to do.

        It is the same until `close`, which closes it: end the wait for it before. Not to be read.
        """
        descriptor: int = raw(self._kind + "_descriptor", self._handle)
        if descriptor < 0:
            raise error_of(128, f"the {self._kind} is closed")
        return descriptor

    def dispatch(self, timeout: Optional[float] = 0) -> bool:
        """Waits at most `timeout` seconds (None: without limit) for events and handles them.

        Returns whether there were any. It may end earlier, without any, when another thread has
        handled them. Callbacks run in here. Raises what a callback raised, and `Closed`, also if it
        is closed meanwhile.
        """
        if timeout != 0:
            self._wait(timeout, never)
        return self._dispatch()

    def _dispatch_until(self, arrived: Callable[[], bool]) -> None:
        """Waits for events and handles them, unless another thread's dispatch lets `arrived` be."""
        self._wait(None, arrived)
        self._dispatch()

    def _dispatch(self) -> bool:
        result = raw_with_callbacks(self._raised, self._kind + "_dispatch", self._handle, 0)
        self._ring()
        self._raise_again()
        if result not in (SUCCESS, TIMEOUT):
            raise error_of(result, message())
        return bool(result == SUCCESS)

    def _raise_again(self) -> None:
        """Raises what a callback raised first."""
        if self._raised:
            raise self._raised.pop(0)

    def _ring(self) -> None:
        """Lets the threads that wait look whether what they wait for has arrived."""
        with self._state:
            # Without a bell the wait has not begun yet, and has nothing to be ended.
            if self._bell >= 0 and self._waiting not in (None, threading.get_ident()):
                os.write(self._bell, ONE)
            self._state.notify_all()

    def _wait(self, timeout: Optional[float], arrived: Callable[[], bool]) -> None:
        """Waits until there is something to dispatch, `arrived`, or this is closed."""
        end = None if timeout is None else time.monotonic() + max(0.0, timeout)
        thread = threading.get_ident()
        with self._state:
            while self._waiting not in (None, thread):
                left = None if end is None else end - time.monotonic()
                if arrived() or self.closed or (left is not None and left <= 0):
                    return
                self._state.wait(left)
            # A signal handler may wait while its own thread does.
            outer = self._waiting
            # From now on the bell stays open: a signal handler may close this at any point.
            self._waiting = thread
        try:
            self._poll(end, arrived)
        finally:
            with self._state:
                self._waiting = outer
                self._close_bell()
                self._state.notify_all()

    def _poll(self, end: Optional[float], arrived: Callable[[], bool]) -> None:
        with self._state:
            if self._bell < 0:
                self._bell = _eventfd(0, os.O_CLOEXEC | os.O_NONBLOCK)
            elif not self.closed:
                try:
                    os.read(self._bell, 8)
                except BlockingIOError:
                    pass
            if arrived():
                return
        poll = select.poll()
        poll.register(self._bell, select.POLLIN)
        poll.register(self.fileno(), select.POLLIN)
        left = None if end is None else max(0.0, end - time.monotonic()) * 1000
        # Python's own wait: signal handlers run during it.
        poll.poll(None if left is None else min(left, LONGEST))

    def _close_bell(self) -> None:
        if self._handle is None and self._waiting is None and self._bell >= 0:
            os.close(self._bell)
            self._bell = -1

    def dispatch_for(self, seconds: float) -> None:
        """Handles events for so long. Raises as `dispatch` does."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self.dispatch(left)

    def wake(self) -> None:
        """Ends one waiting `dispatch`, the present or the next one. From any thread."""
        call(self._kind + "_wake", self._handle)

    def close(self) -> None:
        """Closes it, which is allowed more than once, from any thread and in a signal handler.

        After it no callback runs. What waits for it in another thread raises `Closed`.
        """
        with self._state:
            handle, self._handle = self._handle, None
            if handle is None:
                return
            self._ring_for_end()
            # A signal handler closes what its own thread waits for.
            while self._waiting not in (None, threading.get_ident()):
                self._state.wait()
            self._close_bell()
        result = raw(self._close_function, handle)
        if result != SUCCESS:
            self._handle = handle
            raise error_of(result, message())

    def _ring_for_end(self) -> None:
        if self._bell >= 0:
            os.write(self._bell, ONE)
        self._state.notify_all()

    def __del__(self, _warn: Any = warnings.warn) -> None:
        # In a process that has forked, it is the other process that may go on to use the handle.
        if getattr(self, "_handle", None) is not None and self._process == os.getpid():
            _warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self.close()
