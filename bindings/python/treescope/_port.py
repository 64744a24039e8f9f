"""What clients and servers have in common: a handle and an event loop."""

from __future__ import annotations

import os
import select
import threading
import time
import warnings
from types import TracebackType
from typing import Any, ClassVar, Optional, TypeVar

from ._library import SUCCESS, TIMEOUT, call, message, raw
from .errors import error_of

Self = TypeVar("Self", bound="Closable")


class Closable:
    """A handle of the library, which the end of a `with` closes."""

    _handle: Optional[int]

    @property
    def closed(self) -> bool:
        return self._handle is None

    def close(self) -> None:
        raise NotImplementedError

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
        # What a callback raised; the dispatch that called it raises it again.
        self._raised: list[BaseException] = []
        # The threads that wait for the descriptor, which must stay open until they know of its end:
        # a readable eventfd says so.
        self._state = threading.Condition()
        self._waiting: set[int] = set()
        self._ended = -1

    def fileno(self) -> int:
        """A descriptor that is readable whenever `dispatch` has something to do."""
        descriptor: int = raw(self._kind + "_descriptor", self._handle)
        if descriptor < 0:
            raise error_of(128, f"the {self._kind} is closed")
        return descriptor

    def dispatch(self, timeout: Optional[float] = 0) -> bool:
        """Waits at most `timeout` seconds (None: without limit) for events and handles them.

        Returns whether there were any. Raises what a callback raised.
        """
        if timeout != 0:
            self._wait(timeout)
        result = raw(self._kind + "_dispatch", self._handle, 0)
        if self._raised:
            raise self._raised.pop(0)
        if result not in (SUCCESS, TIMEOUT):
            raise error_of(result, message())
        return bool(result == SUCCESS)

    def _wait(self, timeout: Optional[float]) -> None:
        thread = threading.get_ident()
        try:
            with self._state:
                # From now on `_ended` stays open: a signal handler may close this at any point.
                self._waiting.add(thread)
                if self._ended < 0:
                    self._ended = os.eventfd(0, os.EFD_CLOEXEC | os.EFD_NONBLOCK)
            poll = select.poll()
            poll.register(self._ended, select.POLLIN)
            poll.register(self.fileno(), select.POLLIN)
            # Python's own wait: signal handlers run during it.
            poll.poll(None if timeout is None else max(0.0, timeout) * 1000)
        finally:
            with self._state:
                self._waiting.discard(thread)
                self._close_ended()
                self._state.notify_all()

    def _close_ended(self) -> None:
        if self._handle is None and not self._waiting and self._ended >= 0:
            os.close(self._ended)
            self._ended = -1

    def dispatch_for(self, seconds: float) -> None:
        """Handles events for so long."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self.dispatch(left)

    def wake(self) -> None:
        """Ends one waiting `dispatch`, from any thread."""
        call(self._kind + "_wake", self._handle)

    def close(self) -> None:
        """Closes it, which is allowed more than once."""
        with self._state:
            handle, self._handle = self._handle, None
            if handle is None:
                return
            if self._ended >= 0:
                os.eventfd_write(self._ended, 1)
            # A signal handler closes what its own thread waits for.
            while self._waiting - {threading.get_ident()}:
                self._state.wait()
            self._close_ended()
        result = raw(self._close_function, handle)
        if result != SUCCESS:
            self._handle = handle
            raise error_of(result, message())

    def __del__(self, _warn: Any = warnings.warn) -> None:
        if getattr(self, "_handle", None) is not None:
            _warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self.close()
