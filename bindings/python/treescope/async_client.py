"""A client for asyncio: nothing blocks the event loop."""

from __future__ import annotations

import asyncio
from collections.abc import AsyncIterator, Callable
from concurrent.futures import Future, ThreadPoolExecutor
from functools import partial
from types import TracebackType
from typing import Any, List, Optional, TypeVar

from .client import Client, Event
from .values import Child, Description, Storable, Tree, Value
from .watch import Update, Watch

T = TypeVar("T")
C = TypeVar("C", Client, Watch)

#: A watch with so many updates that its program has not taken stops the dispatch; the server then
#: reports the last value of each part only.
MAX_PENDING = 1000


def _close_result(finished: Future[C]) -> None:
    if not finished.cancelled() and finished.exception() is None:
        finished.result().close()


class AsyncClient:
    """`async with AsyncClient("Model_host") as client: print(await client.get("/cpu/load"))`

    Requests run one after the other on a thread of this client's own; meanwhile the event loop
    waits for no event of the connection. Events arrive through the event loop's reader. It is entered
    once, and used in that event loop's thread only. Errors are those of `Client`; what a handler
    raises goes to the event loop's exception handler. When it is left, iterations over its watches
    end.
    """

    def __init__(self, name: str) -> None:
        self.name = name
        self._client: Optional[Client] = None
        self._entered = False
        self._thread = ThreadPoolExecutor(1, f"treescope {name}")
        # The dispatch rests as long as there are any: running requests, and full watches.
        self._requests = 0
        self._full: set[Watch] = set()
        self._arrived: set[asyncio.Event] = set()  # of all watches
        self._descriptor = -1
        self._on_event: Optional[Callable[[Event], None]] = None

    async def __aenter__(self) -> AsyncClient:
        if self._entered:
            raise RuntimeError("the client has been entered before; make another one")
        self._entered = True
        self._loop = asyncio.get_running_loop()
        try:
            self._client = await self._opened(partial(Client, self.name))
        except BaseException:
            self._thread.shutdown(wait=False)
            raise
        self._descriptor = self._client.fileno()
        self._client.on_event(self._report)
        self._loop.add_reader(self._descriptor, self._dispatch)
        return self

    async def __aexit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self._loop.remove_reader(self._descriptor)
        client, self._client = self._client, None
        for arrived in self._arrived:
            arrived.set()
        if client is not None:
            await self._loop.run_in_executor(self._thread, client.close)
        self._thread.shutdown(wait=False)

    @property
    def client(self) -> Client:
        """The client below; its requests block."""
        if self._client is None:
            raise RuntimeError("the client is not open")
        return self._client

    def on_event(self, handler: Optional[Callable[[Event], None]]) -> None:
        """Calls `handler` in the event loop for each event of the connection; None: no longer."""
        self._on_event = handler

    async def get(self, path: str) -> Any:
        """As `Client.get`."""
        return await self._run(partial(self.client.get, path))

    async def set(self, path: str, value: Storable, *, loader: bool = False) -> None:
        """As `Client.set`."""
        await self._run(partial(self.client.set, path, value, loader=loader))

    async def list(self, path: str = "/") -> List[Child]:
        """As `Client.list`."""
        return await self._run(partial(self.client.list, path))

    async def describe(self, path: str = "/") -> Description:
        """As `Client.describe`."""
        return await self._run(partial(self.client.describe, path))

    async def resolve(self, path: str) -> str:
        """As `Client.resolve`."""
        return await self._run(partial(self.client.resolve, path))

    async def read_tree(self, path: str = "/") -> Tree:
        """As `Client.read_tree`."""
        return await self._run(partial(self.client.read_tree, path))

    async def watch(
        self, path: str, *, subtree: bool = False, period: float = 0, structure: bool = False
    ) -> AsyncIterator[Update]:
        """As `Client.watch`: `async for update in client.watch(path):`

        A program that takes updates slowly gets the last value of each part. The watch ends with the
        iteration (`aclose`, or `contextlib.aclosing`) and with the client.
        """
        start = partial(
            self.client.watch, path, subtree=subtree, period=period, structure=structure
        )
        arrived = asyncio.Event()
        watch = await self._opened(start)
        self._arrived.add(arrived)

        def note() -> None:
            arrived.set()
            if len(watch.pending) >= MAX_PENDING:
                self._full.add(watch)
                self._update_reader()

        watch.on_pending = note
        try:
            while True:
                while watch.pending:
                    raw = watch.pending.popleft()
                    names = watch.note(raw)
                    if not watch.is_reported(raw):
                        continue
                    update = watch.convert(raw, names)
                    if update is None and self._client is not None:
                        update = await self._run(partial(watch.request, raw, names))
                    if update is not None:
                        yield update
                if self._client is None:
                    return
                self._full.discard(watch)
                self._update_reader()
                arrived.clear()
                await arrived.wait()
        finally:
            self._arrived.discard(arrived)
            self._full.discard(watch)
            self._update_reader()
            if self._client is not None:
                self._thread.submit(watch.close)

    async def _run(self, request: Callable[[], T]) -> T:
        return await asyncio.wrap_future(self._submit(request))

    async def _opened(self, request: Callable[[], C]) -> C:
        """What `request` opens; closed again if no task waits for it any more."""
        running = self._submit(request)
        try:
            return await asyncio.wrap_future(running)
        except BaseException:
            running.add_done_callback(_close_result)
            raise

    def _submit(self, request: Callable[[], T]) -> Future[T]:
        # A dispatch would wait for the request's end.
        self._requests += 1
        self._update_reader()
        running = self._thread.submit(request)
        running.add_done_callback(self._finished)
        return running

    def _finished(self, _running: Future[Any]) -> None:
        try:
            self._loop.call_soon_threadsafe(self._resume)
        except RuntimeError:
            pass  # The event loop has ended before the request did.

    def _resume(self) -> None:
        self._requests -= 1
        self._update_reader()

    def _update_reader(self) -> None:
        if self._client is None:
            return  # Something else may have the descriptor's number by now.
        if self._requests == 0 and not self._full:
            self._loop.add_reader(self._descriptor, self._dispatch)
        else:
            self._loop.remove_reader(self._descriptor)

    def _dispatch(self) -> None:
        if self._client is not None:
            self._client.dispatch(0)

    def _report(self, event: Event) -> None:
        if self._on_event is not None:
            self._on_event(event)
