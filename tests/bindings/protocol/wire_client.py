"""A client written from PROTOCOL.md, with the standard library alone.

It shows that the document is complete enough. Comments name its sections.
"""

import contextlib
import fcntl
import os
import secrets
import select
import stat
import struct
import sys
import time
import zlib

TIME_LIMIT = 2.0  # Section 6: of an exchange.
LITTLE = sys.byteorder == "little"
ORDER = "<" if LITTLE else ">"
ORDER_FLAG = 0 if LITTLE else 1  # Section 1.
MAGIC = bytes.fromhex("9E4B525668656C6F")
REQUEST, REPLY, EVENT, WELCOME = 1, 2, 3, 4
MAX_PAYLOAD = 16_842_752
CHILD_IDS, CHILD_NAMES, ELEMENT_COUNT, ELEMENT_NAMES, SAVE, LOAD = 1, 2, 3, 4, 5, 6
SUBSCRIBE, UNSUBSCRIBE, DESCRIBE = 7, 8, 10
WHOLE, NO_INDEX = 65534, 65535
STARTED, UPDATE, STOPPED = 1, 2, 3


class RequestError(Exception):
    """A reply with another result than 0; the reason that came with it, if any."""

    def __init__(self, result, reason=""):
        super().__init__(result, reason)
        self.result = result
        self.reason = reason


class NoServer(Exception):
    pass


class Swept(Exception):
    """A pipe was removed before it was locked."""


class Malformed(Exception):
    """The server does not keep to the protocol."""


def pack(form, *values):
    return struct.pack(ORDER + form, *values)


class Reader:
    """Takes a payload apart, in the byte order of its sender."""

    def __init__(self, payload, order):
        self.rest = payload
        self.order = order

    def bytes(self, count):
        if len(self.rest) < count:
            raise Malformed("a payload is too short")
        taken, self.rest = self.rest[:count], self.rest[count:]
        return taken

    def u8(self):
        return self.bytes(1)[0]

    def u16(self):
        return struct.unpack(self.order + "H", self.bytes(2))[0]

    def text(self):
        return self.bytes(self.u16())

    def names(self):
        return [self.text() for _ in range(self.u16())]

    def end(self):
        if self.rest:
            raise Malformed("a payload is too long")


def is_pipe(status):
    return stat.S_ISFIFO(status.st_mode) and status.st_nlink == 1


def open_pipe(path, flags):
    """Section 2, Access: what fails the check is neither read nor written."""
    descriptor = os.open(path, flags | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
    status = os.fstat(descriptor)
    if not is_pipe(status):
        os.close(descriptor)
        raise NoServer(f"{path} is not a pipe with one link")
    if status.st_uid not in (os.geteuid(), 0) and os.geteuid() != 0:
        os.close(descriptor)
        raise NoServer(f"{path} belongs to another user")
    return descriptor


class Frames:
    """Reads frames (section 5) from a pipe."""

    def __init__(self, descriptor, kinds):
        self.descriptor = descriptor
        self.kinds = kinds
        self.buffer = b""

    def next(self, deadline):
        """The next frame: kind, code, sequence, reader. None at the deadline."""
        while (frame := self._take()) is None:
            left = deadline - time.monotonic()
            if left < 0:
                return None
            if not select.select([self.descriptor], [], [], left)[0]:
                continue
            received = os.read(self.descriptor, 65536)
            if not received:
                raise NoServer("the connection has ended")
            self.buffer += received
        return frame

    def _take(self):
        if len(self.buffer) < 16:
            return None
        flag, kind = self.buffer[0], self.buffer[1]
        if flag > 1 or kind not in self.kinds:
            raise Malformed(f"byte order {flag}, kind {kind}")
        order = "<" if flag == 0 else ">"
        code, sequence, _, length = struct.unpack(order + "HIII", self.buffer[2:16])
        if length > MAX_PAYLOAD:
            raise Malformed(f"a payload of {length} bytes")
        if len(self.buffer) < 16 + length:
            return None
        payload, self.buffer = self.buffer[16 : 16 + length], self.buffer[16 + length :]
        return kind, code, sequence, Reader(payload, order)


class WireClient:
    def __init__(self, port):
        self.sequence = 0
        self.open = []
        self.names = []
        self.token = b""
        try:
            self._connect(port)
        except BaseException:
            self.close()
            raise

    def close(self):
        self._remove_names()
        for descriptor in self.open:
            os.close(descriptor)
        self.open = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    # Section 4, the client's steps.

    def _connect(self, port):
        try:
            mailbox = open_pipe(f"/tmp/{port}.fifo", os.O_WRONLY)
        except OSError as error:
            raise NoServer(port) from error
        self.open.append(mailbox)
        request, reply, event = self._make_pipes()
        os.write(mailbox, self._hello(self.token))
        self.replies = Frames(reply, (WELCOME, REPLY))
        self.events = Frames(event, (EVENT,))
        frame = self.replies.next(time.monotonic() + TIME_LIMIT)
        if frame is None or frame[:2] != (WELCOME, 0):
            raise NoServer(f"no welcome: {frame}")
        self._remove_names()
        for descriptor in (request, mailbox):
            self.open.remove(descriptor)
            os.close(descriptor)

    def _make_pipes(self):
        for _ in range(16):
            self.token = secrets.token_bytes(16)
            try:
                pipes = [self._make_pipe(kind) for kind in ("req", "rep", "evt")]
                self.request = os.open(self.names[0], os.O_WRONLY | os.O_CLOEXEC | os.O_NONBLOCK)
            except (FileNotFoundError, BlockingIOError, Swept):
                # The cleanup of another client was faster.
                self._remove_names()
                for descriptor in self.open[1:]:
                    os.close(descriptor)
                del self.open[1:]
                continue
            self.open.append(self.request)
            return pipes
        raise NoServer("each pipe was removed at once")

    def _make_pipe(self, kind):
        path = f"/tmp/.krv-{self.token.hex()}.{kind}"
        os.mkfifo(path, 0o600)
        self.names.append(path)
        descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
        self.open.append(descriptor)
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        status = os.fstat(descriptor)
        if status.st_nlink == 0:
            raise Swept
        if not is_pipe(status) or status.st_uid != os.geteuid():
            raise NoServer(f"{path} is not ours")
        os.fchmod(descriptor, 0o600)
        return descriptor

    def _remove_names(self):
        for path in self.names:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(path)
        self.names = []

    @staticmethod
    def _hello(token):
        """Section 3."""
        head = MAGIC + pack("BBH", ORDER_FLAG, 1, 36) + token + pack("I", 1)
        return head + pack("I", zlib.crc32(head))

    # Section 6.

    def exchange(self, operation, payload):
        deadline = time.monotonic() + TIME_LIMIT
        self.sequence = (self.sequence + 1) % 2**32
        header = pack("BBHIII", ORDER_FLAG, REQUEST, operation, self.sequence, 0, len(payload))
        self._write(header + payload, deadline)
        while (frame := self.replies.next(deadline)) is not None:
            kind, result, sequence, reader = frame
            if kind != REPLY:
                raise Malformed("a second welcome")
            if sequence == self.sequence:
                if result != 0:
                    raise RequestError(result, reader.rest.decode())
                return reader
        raise TimeoutError

    def _write(self, rest, deadline):
        while rest:
            left = deadline - time.monotonic()
            if left < 0 or not select.select([], [self.request], [], left)[1]:
                raise TimeoutError
            # A large request arrives in several pieces; replies of the server fit into its pipe.
            rest = rest[os.write(self.request, rest[:4096]) :]

    # Section 10.

    @staticmethod
    def chain(ids):
        return pack(f"H{len(ids)}H", len(ids), *ids)

    def children(self, ids):
        reader = self.exchange(CHILD_IDS, self.chain(ids))
        found = [reader.u16() for _ in range(reader.u16())]
        reader.end()
        names = self.exchange(CHILD_NAMES, self.chain(ids))
        named = names.names()
        names.end()
        return dict(zip(named, found, strict=True))

    def elements(self, ids):
        reader = self.exchange(ELEMENT_COUNT, self.chain(ids))
        count = reader.u16()
        reader.end()
        return count, self.exchange(ELEMENT_NAMES, self.chain(ids)).names()

    def save(self, ids, index=WHOLE):
        return self.exchange(SAVE, self.chain(ids) + pack("H", index)).rest

    def load(self, ids, text, index=WHOLE, flag=0):
        self.exchange(LOAD, self.chain(ids) + pack("HB", index, flag) + text).end()

    def subscribe(self, ids, index=WHOLE):
        self.exchange(SUBSCRIBE, self.chain(ids) + pack("H", index)).end()

    def unsubscribe(self, ids, index=WHOLE):
        self.exchange(UNSUBSCRIBE, self.chain(ids) + pack("H", index)).end()

    def describe(self, ids):
        reader = self.exchange(DESCRIBE, self.chain(ids))
        about = {"type": reader.text(), "access": reader.u16(), "subscribable": reader.u8()}
        about["elements"] = reader.u16()
        about["names"] = reader.names()
        about["attributes"] = [(reader.u16(), reader.text()) for _ in range(reader.u16())]
        reader.end()
        return about

    # Section 7.

    def next_event(self, limit):
        """The type of the next event, and for an update its ids and index. None at the limit."""
        frame = self.events.next(time.monotonic() + limit)
        if frame is None:
            return None
        _, kind, _, reader = frame
        if kind != UPDATE:
            return (kind,)
        ids = []
        while (id := reader.u16()) != NO_INDEX:
            ids.append(id)
        index = reader.u16()
        reader.end()
        return kind, ids, index
