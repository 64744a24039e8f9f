"""The programs of the soak: in a /tmp of their own, started, measured and stopped."""

import ctypes
import os
import pty
import select
import signal
import subprocess
import tempfile
import threading
import time

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS, CLONE_NEWUSER = 0x20000, 0x10000000
MS_REC_PRIVATE = 0x4000 | 0x40000
PR_SET_PDEATHSIG = 1
TIME_LIMIT = 30


def call(function, *arguments):
    if function(*arguments) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{function.__name__}: {os.strerror(number)}")


def isolate():
    """Gives this process a /tmp of its own; returns a new directory outside of it."""
    directory = tempfile.mkdtemp(prefix="soak.", dir="/var/tmp")
    user, group = os.geteuid(), os.getegid()
    try:
        call(LIBC.unshare, CLONE_NEWNS)
    except OSError:
        call(LIBC.unshare, CLONE_NEWUSER | CLONE_NEWNS)
        for name, text in (("setgroups", "deny"), ("uid_map", f"{user} {user} 1"),
                           ("gid_map", f"{group} {group} 1")):
            with open(f"/proc/self/{name}", "w") as file:
                file.write(text)
    call(LIBC.mount, None, b"/", None, MS_REC_PRIVATE, None)
    call(LIBC.mount, b"tmpfs", b"/tmp", b"tmpfs", 0, None)
    return directory


def end_with_parent():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def measure(pid):
    """Kilobytes of memory and the number of descriptors of a process."""
    numbers = {}
    for file in ("status", "smaps_rollup"):
        with open(f"/proc/{pid}/{file}") as lines:
            for line in lines:
                words = line.split()
                if words[0] in ("VmRSS:", "RssAnon:", "Pss:"):
                    numbers[words[0].rstrip(":")] = int(words[1])
    numbers["descriptors"] = len(os.listdir(f"/proc/{pid}/fd"))
    return numbers


class Server:
    """modelsrvd with the port `name`."""

    def __init__(self, program, directory, name, arguments):
        self.name = name
        self.command = [program, "--name", name, *arguments]
        self.errors = os.path.join(directory, name + ".errors")
        self.start()

    def start(self):
        with open(self.errors, "ab") as errors:
            self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE, stderr=errors,
                                            preexec_fn=end_with_parent)
        ready = self.process.stdout.readline()
        if ready != f"ready {self.name}\n".encode():
            raise RuntimeError(f"{self.name} printed {ready!r}, {self.reported()!r}")

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        status = self.process.wait(TIME_LIMIT)
        self.process.stdout.close()
        expected = 0 if number == signal.SIGTERM else -number
        if status != expected:
            raise RuntimeError(f"{self.name} ended with {status}, {self.reported()!r}")

    def reported(self):
        with open(self.errors) as file:
            return file.read()


class Terminal:
    """The shell on a terminal of its own. Its output is read all the time."""

    def __init__(self, program):
        self.lock = threading.Condition()
        self.text = b""
        pid, self.master = pty.fork()
        if pid == 0:
            end_with_parent()
            # nohup's child, too, is to end when its terminal hangs up.
            signal.signal(signal.SIGHUP, signal.SIG_DFL)
            os.execv(program, [program])
        self.pid = pid
        self.typed = 0
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        while True:
            try:
                select.select([self.master], [], [])
                data = os.read(self.master, 65536)
            except OSError:
                data = b""
            with self.lock:
                if not data:
                    self.text = None
                else:
                    self.text = (self.text + data)[-1 << 20:]
                self.lock.notify_all()
                if not data:
                    return

    def run(self, line, wanted):
        """Types a line; what is printed up to a match of the compiled `wanted`."""
        with self.lock:
            self.text = b"" if self.text is not None else None
        os.write(self.master, line.encode() + b"\n")
        self.typed += 1
        deadline = time.monotonic() + TIME_LIMIT
        with self.lock:
            while True:
                if self.text is None:
                    raise RuntimeError(f"the terminal closed after {line!r}")
                if found := wanted.search(self.text):
                    return found
                if not self.lock.wait(max(deadline - time.monotonic(), 0)):
                    raise RuntimeError(f"{line!r} printed {self.text[-200:]!r}")

    def end(self, how):
        """Ends the shell by a function of this object; its exit status or signal."""
        how()
        deadline = time.monotonic() + TIME_LIMIT
        while True:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                break
            if time.monotonic() > deadline:
                os.kill(self.pid, signal.SIGKILL)
                raise RuntimeError("a shell did not end")
            with self.lock:
                self.lock.wait(0.01 if self.text is None else 0.1)
        self.reader.join(TIME_LIMIT)
        os.close(self.master)
        return os.waitstatus_to_exitcode(status)

    def type_exit(self):
        os.write(self.master, b"exit\n")

    def kill(self):
        os.kill(self.pid, signal.SIGKILL)

    def hang_up(self):
        os.kill(self.pid, signal.SIGHUP)
