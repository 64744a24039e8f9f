"""Sessions: what is typed or run, what the rules expect of it, and the real programs."""

import ctypes
import errno
import fcntl
import os
import pickle
import pty
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import termios
import time

from editor import Editor
from shell import Shell
from tree import description
from values import Unmodelled

TIME_LIMIT = 30
TOO_LATE = f"not within {TIME_LIMIT} seconds"
SCRIPT = b"script"
LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1


class Session:
    """kind is "string" (-c), "file" (-f) or "keys" (a terminal of the given rows and columns)."""

    def __init__(self, kind, items=(), files=None, size=None, force=False):
        self.kind = kind
        self.items = list(items)
        self.files = dict(files or {})
        self.size = size
        self.force = force

    def with_items(self, items):
        return Session(self.kind, items, self.files, self.size, self.force)

    def text(self):
        return {"string": b";", "file": b"\n", "keys": b""}[self.kind].join(self.items)

    def __str__(self):
        lines = [f"kind {self.kind}, rows and columns {self.size}, -a {self.force}"]
        lines += [f"file {name!r}: {content!r}" for name, content in self.files.items()]
        return "\n".join(lines + [f"  {item!r}" for item in self.items])


class Expected:
    def __init__(self, shell):
        self.shell = shell
        self.steps = []  # of (bytes of the key-reader thread, update or b"")
        self.result = 1
        self.stepwise = False  # Keys must not be typed ahead.

    def text(self):
        return b"".join(own + update for own, update in self.steps)


def run_model(session, frozen_root, server):
    """What the rules expect; Unmodelled and NeedInput pass through."""
    root = pickle.loads(frozen_root)
    shell = Shell(root, server.encode(), session.size, session.force, session.files)
    expected = Expected(shell)
    if session.kind != "keys":
        expected.result = run_script(session, shell)
        expected.steps.append((bytes(shell.out), b""))
        return expected
    editor = Editor(shell)
    expected.steps.append((bytes(shell.out), b""))
    for item in session.items:
        before, runs, systems = len(shell.out), shell.file_runs, shell.system_runs
        shell.updates = []
        editor.type(item)
        many = len(shell.updates) > 1 or shell.file_runs != runs
        if shell.updates and (many or not one_command(item)):
            raise Unmodelled("an update beside other output")
        if shell.system_runs != systems:
            expected.stepwise = True
            if not item.endswith((b"\n", b"\r")) or not one_command(item):
                raise Unmodelled("keys typed while a command of the system runs")
        expected.steps.append((bytes(shell.out[before:]), b"".join(shell.updates)))
        expected.stepwise |= bool(shell.updates)
    return expected


def one_command(item):
    return item.count(b"\n") + item.count(b"\r") == 1 and b";" not in item and b"\t" not in item


def run_script(session, shell):
    if session.kind == "string":
        return shell.run_string(session.text())
    shell.files[SCRIPT] = session.text()
    return shell.run_file(SCRIPT)


class Difference(Exception):
    def __init__(self, kind, expected, seen):
        super().__init__(kind)
        self.kind = kind
        self.expected = expected
        self.seen = seen


def end_with_parent():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


def lead_session():
    end_with_parent()
    os.setsid()
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)


class Server:
    """modelsrvd with a tree of its own, and a directory for its file."""

    def __init__(self, program, root, name):
        self.name = name
        self.directory = tempfile.mkdtemp(prefix="differential-")
        path = os.path.join(self.directory, "tree.json")
        with open(path, "w", encoding="ascii") as file:
            file.write(description(root, name))
        self.process = subprocess.Popen(
            [program, "--tree", path, "--name", name], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=end_with_parent)

    def __enter__(self):
        wanted = f"ready {self.name}\n".encode()
        try:
            if not select.select([self.process.stdout], [], [], TIME_LIMIT)[0]:
                raise Difference(f"{TOO_LATE}: the server's first line", wanted, b"")
            line = self.process.stdout.readline()
            if line != wanted:
                line += self.process.stderr.read()
                raise Difference("the server's first line", wanted, line)
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        status = self.close()
        if status != 0 or os.path.exists(f"/tmp/{self.name}.fifo"):
            raise Difference("the server's end", b"0, no mailbox", str(status).encode())

    def close(self):
        self.process.terminate()
        try:
            return self.process.wait(TIME_LIMIT)
        finally:
            self.process.kill()
            self.process.wait()
            self.process.stdout.close()
            self.process.stderr.close()
            shutil.rmtree(self.directory, ignore_errors=True)


class Run:
    """One session of the real shell, compared with what is expected."""

    def __init__(self, program, session, expected):
        self.program = program
        self.session = session
        self.expected = expected

    def check(self):
        with tempfile.TemporaryDirectory(prefix="differential-") as directory:
            for name, content in self.session.files.items():
                with open(os.path.join(directory.encode(), name), "wb") as file:
                    file.write(content)
            if self.session.kind == "keys":
                self.run_keys(directory)
            else:
                self.run_batch(directory)
            self.check_files(directory.encode())

    def check_files(self, directory):
        seen = {}
        for name in os.listdir(directory):
            with open(os.path.join(directory, name), "rb") as file:
                seen[name] = file.read()
        wanted = self.expected.shell.files
        for name in sorted(seen.keys() | wanted.keys()):
            if seen.get(name) != wanted.get(name):
                raise Difference(f"file {name!r}", wanted.get(name, b"(none)"),
                                 seen.get(name, b"(none)"))

    def arguments(self):
        force = ["-a"] if self.session.force else []
        if self.session.kind == "keys":
            return [self.program, *force]
        if self.session.kind == "file":
            return [self.program, *force, "--file", SCRIPT]
        switch = ["-ac"] if self.session.force else ["--x", "-xc", "word", "-c"]
        return [self.program, *switch, self.session.text()]

    def run_batch(self, directory):
        if self.session.kind == "file":
            with open(os.path.join(directory.encode(), SCRIPT), "wb") as file:
                file.write(self.session.text())
        process = subprocess.Popen(
            self.arguments(), cwd=directory, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=end_with_parent)
        with process:
            try:
                seen, errors = process.communicate(timeout=TIME_LIMIT)
            except subprocess.TimeoutExpired as limit:
                process.kill()
                raise Difference(f"{TOO_LATE}: the shell's end",
                                 self.expected.text(), limit.stdout or b"") from None
            except BaseException:
                process.kill()
                raise
        self.check_end(seen, errors, process.returncode)

    def check_end(self, seen, errors, status):
        if seen != self.expected.text():
            raise Difference("output", self.expected.text(), seen)
        if errors:
            raise Difference("standard error", b"", errors)
        if status != 0:
            raise Difference("exit status", b"0", str(status).encode())

    def run_keys(self, directory):
        master, slave = pty.openpty()
        errors = tempfile.TemporaryFile()
        try:
            attributes = termios.tcgetattr(slave)
            attributes[1] &= ~termios.OPOST
            termios.tcsetattr(slave, termios.TCSANOW, attributes)
            attributes = termios.tcgetattr(slave)
            fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", *self.session.size, 0, 0))
            process = subprocess.Popen(
                self.arguments(), cwd=directory, stdin=slave, stdout=slave, stderr=errors,
                preexec_fn=lead_session)
            try:
                with process:
                    try:
                        seen = Terminal(master, process, self).converse()
                    except BaseException:
                        process.kill()
                        raise
                errors.seek(0)
                self.check_end(seen, errors.read(), process.returncode)
                if termios.tcgetattr(slave) != attributes:
                    raise Difference("terminal mode after the end", b"as before", b"changed")
            finally:
                process.kill()
        finally:
            errors.close()
            os.close(master)
            os.close(slave)


class Terminal:
    """The conversation: all keys at once, or step by step where updates arrive."""

    def __init__(self, master, process, run):
        self.master = master
        self.ended = os.pidfd_open(process.pid)
        self.run = run
        self.seen = bytearray()
        self.deadline = time.monotonic() + TIME_LIMIT
        os.set_blocking(master, False)

    def converse(self):
        try:
            steps = self.run.expected.steps
            self.read_until(len(steps[0][0]), "the first prompt")
            if self.run.expected.stepwise:
                self.converse_stepwise(steps)
            else:
                self.send(self.run.session.text())
            self.read_until(None, "the shell's end")
            return bytes(self.seen)
        finally:
            os.close(self.ended)

    def converse_stepwise(self, steps):
        """Every step's bytes are awaited; an update may stand anywhere in those of its step."""
        for item, (own, update) in zip(self.run.session.items, steps[1:]):
            start = len(self.seen)
            self.send(item)
            self.read_until(start + len(own) + len(update), f"the output of {item!r}")
            step = bytes(self.seen[start:])
            if update and step != own + update and is_interleaving(step, own, update):
                self.seen[start:] = own + update

    def send(self, data):
        while data:
            ready = self.wait([self.master], "space for keys") if len(data) > 1024 else []
            if self.ended in ready:
                return
            try:
                data = data[os.write(self.master, data[:1024]):]
            except BlockingIOError:
                select.select([self.master], [self.master], [], 1)
            self.drain()

    def wait(self, descriptors, awaited):
        """Returns when one can be read or written, or the shell has ended."""
        remaining = max(0, self.deadline - time.monotonic())
        readable, writable, _ = select.select([self.master, self.ended], descriptors, [], remaining)
        if not readable and not writable:
            raise Difference(f"{TOO_LATE}: {awaited}", self.run.expected.text(),
                             bytes(self.seen))
        return readable

    def drain(self):
        try:
            while data := os.read(self.master, 65536):
                self.seen += data
        except BlockingIOError:
            pass
        except OSError as error:
            if error.errno != errno.EIO:
                raise

    def read_until(self, length, awaited):
        """Reads that many bytes in all; None reads up to the end of the shell."""
        while length is None or len(self.seen) < length:
            ended = self.ended in self.wait([], awaited)
            self.drain()
            if ended:
                return


def is_interleaving(seen, first, second):
    """True when seen is made of both texts, each in its order."""
    if len(seen) != len(first) + len(second):
        return False
    reached = {0}
    for position, byte in enumerate(seen):
        following = set()
        for taken in reached:
            if taken < len(first) and first[taken] == byte:
                following.add(taken + 1)
            other = position - taken
            if other < len(second) and second[other] == byte:
                following.add(taken)
        reached = following
    return len(first) in reached
