"""Measures modelgate between two servers of this machine, on a private broker.

    measure.py PROGRAMS RESULTS MODULES

PROGRAMS is the directory of modelsrvd, modelgate, treescope and treectl; the Python package of this system must be on
the path. MODULES is a directory with npm's package sparkplug-client. Prints the section "Fleets" and puts it into
RESULTS. All that it started has ended when it exits.
"""

import contextlib
import dataclasses
import os
import pathlib
import random
import re
import select
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

import peers
import treescope

PROGRAMS, RESULTS, MODULES = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
LIMIT = 60
ITEM = "/group_000/item_0000"
TAG = str(os.getpid())


@dataclasses.dataclass
class Row:
    work: str
    measured: str
    goal: str
    met: bool


class Programs(contextlib.ExitStack):
    """Starts programs in a directory of their own, and ends them, the last first."""

    def __init__(self):
        super().__init__()
        self.directory = pathlib.Path(self.enter_context(tempfile.TemporaryDirectory()))
        self.directory.chmod(0o755)

    def start(self, *words, ready=None, output=subprocess.PIPE):
        process = subprocess.Popen([str(word) for word in words], stdout=output, stdin=subprocess.DEVNULL,
                                   stderr=(self.directory / "log").open("ab"))
        self.callback(self.end, process)
        if ready:
            readable, _, _ = select.select([process.stdout], [], [], LIMIT)
            line = process.stdout.readline().decode().strip() if readable else ""
            if line != ready:
                sys.exit(f"{words[0]}: expected {ready!r}, got {line!r}\n" + (self.directory / "log").read_text())
        return process

    @staticmethod
    def end(process):
        process.send_signal(signal.SIGTERM)
        try:
            process.communicate(timeout=LIMIT)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()

    def program(self, name, *words, **options):
        return self.start(PROGRAMS / name, *words, **options)


class Broker:
    """A private mosquitto: a Unix socket, and a port of the loopback, which wants certificates with `tls`."""

    def __init__(self, programs, tls=False, lines=()):
        self.socket = programs.directory / f"broker{len(list(programs.directory.glob('*.conf')))}"
        config = [f"listener 0 {self.socket}", "allow_anonymous true", "persistence false", "log_dest none",
                  "sys_interval 1", f"user {subprocess.check_output(['id', '-un'], text=True).strip()}", *lines]
        self.address = [f"unix:{self.socket}"]
        self.identity = {}
        self.port = self.free_port()
        config += [f"listener {self.port} 127.0.0.1", "set_tcp_nodelay true"]
        if tls:
            make_certificates(programs.directory)
            config += [f"cafile {programs.directory}/ca.pem",
                       f"certfile {programs.directory}/broker.pem", f"keyfile {programs.directory}/broker.key",
                       "require_certificate true", "use_identity_as_username true"]
            self.address = [f"mqtts://localhost:{self.port}", "--cafile", programs.directory / "ca.pem"]
            for name in ("device", "operator"):
                self.identity[name] = ["--cert", programs.directory / f"{name}.pem",
                                       "--key", programs.directory / f"{name}.key"]
        path = self.socket.with_suffix(".conf")
        path.write_text("\n".join(config) + "\n", encoding="utf-8")
        environment_path = os.environ["PATH"] + ":/usr/sbin"
        self.process = programs.start("env", f"PATH={environment_path}", "mosquitto", "-c", path)
        end = time.monotonic() + LIMIT
        while not self.run("mosquitto_pub", "-t", "probe", "-m", "1", check=False).returncode == 0:
            if time.monotonic() > end:
                sys.exit("the broker does not start")

    @staticmethod
    def free_port():
        """One that the system gives to no connection by itself."""
        while True:
            number = random.randrange(12000, 32000)
            with socket.socket() as probe, contextlib.suppress(OSError):
                probe.bind(("127.0.0.1", number))
                return number

    def run(self, *words, check=True):
        return subprocess.run([words[0], "--unix", str(self.socket), *words[1:]], check=check, capture_output=True,
                              timeout=LIMIT)

    def arguments(self, name):
        return ["--broker", *self.address, *self.identity.get(name, [])]

    def sent(self):
        """The bytes that the broker has sent."""
        return int(self.run("mosquitto_sub", "-t", "$SYS/broker/bytes/sent", "-C", "2").stdout.split()[-1])


def make_certificates(directory):
    def openssl(*words):
        subprocess.run(["openssl", *words], cwd=directory, check=True, capture_output=True)

    openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
            "-subj", "/CN=fleet", "-keyout", "ca.key", "-out", "ca.pem")
    (directory / "names").write_text("subjectAltName=DNS:localhost,IP:127.0.0.1\n", encoding="utf-8")
    for name in ("broker", "device", "operator"):
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", f"/CN={name}",
                "-keyout", f"{name}.key", "-out", f"{name}.csr")
        openssl("x509", "-req", "-in", f"{name}.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial", "-days",
                "2", "-extfile", "names", "-out", f"{name}.pem")


class Fleet:
    """A served tree of 10,000 values, its exporter and a viewer."""

    def __init__(self, programs, broker, tree=("--synthetic", "10x1000"), export=(), view=True):
        self.programs = programs
        self.broker = broker
        self.number = len(list(programs.directory.glob("fleet*")))
        (programs.directory / f"fleet{self.number}").touch()
        self.local = f"Model_bench{TAG}x{self.number}"
        self.mirror = f"Model_device.{self.local[len('Model_'):]}"
        self.server = programs.program("modelsrvd", "--name", self.local, *tree, ready=f"ready {self.local}")
        self.exporter = programs.program(
            "modelgate", "export", *broker.arguments("device"), "--fleet", f"bench{self.number}", "--device", "device",
            "--server", self.local, "--allow-set", "/", *export, ready="ready")
        if view:
            self.view()

    def view(self):
        self.viewer = self.programs.program(
            "modelgate", "view", *self.broker.arguments("operator"), "--fleet", f"bench{self.number}", ready="ready")


def run(*words):
    start = time.perf_counter()
    done = subprocess.run([str(PROGRAMS / words[0]), *words[1:]], stdout=subprocess.PIPE, timeout=LIMIT, check=True)
    return time.perf_counter() - start, done.stdout


def compared(fleet, command):
    """The median time of a command of the shell on the mirror, divided by that on the local server."""
    times = {fleet.local: [], fleet.mirror: []}
    for _ in range(60):
        for name, samples in times.items():
            samples.append(run("treescope", "-c", f"cd {name};{command}")[0])
    return statistics.median(times[fleet.mirror]) / statistics.median(times[fleet.local])


def mirror_rows(fleet):
    run("treectl", "list", "-rl", f"/{fleet.mirror}")
    for work, command in (("one value read on a mirror, compared with the local server", f"get {ITEM}"),
                          ("10,000 values listed on a mirror, compared with the local server", "ls -lr")):
        ratio = compared(fleet, command)
        yield Row(work, f"{ratio:.2f}", "at most 1.10", ratio <= 1.1)


def contact_row():
    times = []
    for _ in range(5):
        with Programs() as own:
            fleet = Fleet(own, Broker(own))
            seconds, output = run("treectl", "list", "-rl", f"/{fleet.mirror}")
            assert output.count(b"\n") >= 10000, output[:200]
            times.append(seconds)
    median = 1000 * statistics.median(times)
    return Row("first contact with 10,000 parts", f"{median:.0f} ms", "at most 250 ms", median <= 250)


def store_rows(fleet):
    times = []
    with treescope.Client(fleet.mirror) as client:
        client.get(ITEM)
        for value in range(3000):
            start = time.perf_counter()
            client.set(ITEM, value)
            times.append(1000 * (time.perf_counter() - start))
    times.sort()
    median, p99 = times[len(times) // 2], times[len(times) * 99 // 100]
    yield Row("a store with its true result, mutual TLS, median", f"{median:.2f} ms", "at most 0.5 ms", median <= 0.5)
    yield Row("the same, p99", f"{p99:.2f} ms", "at most 5 ms", p99 <= 5)
    yield Row("the same, longest of 3,000", f"{times[-1]:.1f} ms", "at most 2000 ms", times[-1] <= 2000)


def update_row(fleet, what, goal):
    times = []
    with treescope.Client(fleet.local) as near, treescope.Client(fleet.mirror) as far:
        with far.watch(ITEM) as updates:
            next(iter(updates))
            for value in range(10001, 10301):
                start = time.perf_counter()
                near.set(ITEM, value)
                while next(iter(updates)).value != value:
                    pass
                times.append(1000 * (time.perf_counter() - start))
                # In the middle of an interval, wherever that is.
                time.sleep(0.005 + 0.00037 * (value % 100))
    median = statistics.median(times)
    return Row(f"a store at the device until it is shown at a viewer, {what}", f"{median:.2f} ms",
               f"at most {goal} ms", median <= goal)


def rate_row(programs, broker):
    """Distinct values that a watch of the mirror gets; afterwards both ends must be equal."""
    fleet = Fleet(programs, broker, ("--synthetic", "10x1000", "--churn", "200000"))
    with (programs.directory / "values").open("wb") as out:
        watching = programs.program("treectl", "watch", "--changes", f"/{fleet.mirror}/**", output=out)
        time.sleep(2)
        begin = (programs.directory / "values").stat().st_size
        time.sleep(5)
        end = (programs.directory / "values").stat().st_size
        watching.send_signal(signal.SIGINT)
        watching.wait(LIMIT)
    with (programs.directory / "values").open("rb") as written:
        written.seek(begin)
        rate = written.read(end - begin).count(b"\n") / 5
    return Row("values a second through both ends", f"{rate:,.0f}", "at least 50,000", rate >= 50000)


def values(name):
    """The lines of a dump, without its header and what a mirror adds."""
    lines = run("treectl", "dump", f"/{name}")[1].splitlines()[2:]
    return [line.rstrip(b",") for line in lines if b'"/_link' not in line]


def exact_row(programs, broker):
    fleet = Fleet(programs, broker)
    # Two rounds of stores, as fast as they go, while the mirror is watched.
    watching = programs.program("treectl", "watch", "--changes", f"/{fleet.mirror}/**",
                                output=subprocess.DEVNULL)
    with treescope.Client(fleet.local) as near:
        for number in range(20000):
            near.set(f"/group_{number % 10:03}/item_{number % 997:04}", number)
    end = time.monotonic() + LIMIT
    while True:
        dumps = [values(name) for name in (fleet.local, fleet.mirror)]
        if dumps[0] == dumps[1] or time.monotonic() > end:
            break
    return Row("last values of 20,000 stores", "equal" if dumps[0] == dumps[1] else "different", "equal",
               dumps[0] == dumps[1])


def memory_row(fleet):
    status = pathlib.Path(f"/proc/{fleet.exporter.pid}/status").read_text(encoding="utf-8")
    resident = int(re.search(r"VmRSS:\s*(\d+)", status)[1]) / 1024
    return Row("export of 10,000 values with TLS, resident", f"{resident:.1f} MiB", "at most 9 MiB",
               resident <= 9)


def peer_rows(programs):
    """The same values read by programs of others, and by the viewer's first contact."""
    broker = Broker(programs, lines=["max_queued_messages 0", "max_inflight_messages 0"])
    others = {"mosquitto_sub -v with retained topics": peers.retained_topics(broker),
              "a Sparkplug host application of npm": peers.sparkplug(programs, broker, MODULES)}
    times, sizes = [], []
    for _ in range(peers.ROUNDS):
        fleet = Fleet(programs, broker)
        before = broker.sent()
        times.append(run("treectl", "list", "-rl", f"/{fleet.mirror}")[0])
        sizes.append(broker.sent() - before)
    ours, our_bytes = 1000 * statistics.median(times), statistics.median(sizes)
    for name, (milliseconds, size) in others.items():
        yield Row("10,000 values listed at the first contact, the whole process", f"{ours:.0f} ms",
                  f"less than {name}: {milliseconds:.0f} ms", ours < milliseconds)
        yield Row("the same, bytes that the broker sent", f"{our_bytes:,.0f}", f"less than {size:,.0f}",
                  our_bytes < size)


def device_rows():
    """What script/fleet prints of 1,000 devices."""
    for how, options in (("plain", []), ("mutual TLS", ["--tls"])):
        table = subprocess.run(["script/fleet", "1000", *options], stdout=subprocess.PIPE, text=True, check=True,
                               timeout=10 * LIMIT).stdout
        for what, value, unit, goal, verdict in re.findall(
                r"^(\S.*?) +([\d.]+) (\w+) +goal +(\d+) \w+ +(\w+)$", table, re.M):
            yield Row(f"1,000 devices, {how}: {what}", f"{value} {unit}", f"at most {goal} {unit}", verdict == "reached")


class Rows(list):
    """Rows, which are reported as they come."""

    def append(self, row):
        print(row, file=sys.stderr)
        super().append(row)

    def __iadd__(self, rows):
        for row in rows:
            self.append(row)
        return self


def measure():
    rows = Rows()
    with Programs() as programs:
        fleet = Fleet(programs, Broker(programs))
        rows += mirror_rows(fleet)
    rows.append(contact_row())
    with Programs() as programs:
        broker = Broker(programs, tls=True)
        fleet = Fleet(programs, broker, export=["--interval", "0"])
        rows += store_rows(fleet)
        rows.append(update_row(fleet, "interval 0", 2))
        rows.append(memory_row(fleet))
        rows.append(update_row(Fleet(programs, broker), "interval 50 ms", 60))
    with Programs() as programs:
        broker = Broker(programs)
        rows.append(rate_row(programs, broker))
        rows.append(exact_row(programs, broker))
    with Programs() as programs:
        rows += peer_rows(programs)
    rows += device_rows()
    return rows


def main():
    lines = ["## Fleets", "",
             "Measured with `script/bench fleet`: a server with 10,000 values, `modelgate export`, a private Mosquitto and",
             "`modelgate view` on this machine.", "", "| work | measured | goal | |", "|:--|--:|--:|:--|"]
    lines += [f"| {row.work} | {row.measured} | {row.goal} | {'met' if row.met else '**missed**'} |" for row in measure()]
    section = "\n".join(lines) + "\n"
    print(section)
    text = RESULTS.read_text(encoding="utf-8")
    text = re.sub(r"\n## Fleets\n.*?(?=\n## |\Z)", "", text, flags=re.S).rstrip("\n")
    RESULTS.write_text(f"{text}\n\n{section}", encoding="utf-8")


if __name__ == "__main__":
    main()
