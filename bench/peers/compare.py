"""Compares the programs of this system with those of others that serve the same values.

    compare.py BENCH RESULTS

BENCH is the directory of the built benchmark programs; all other programs are found on PATH. For
each number of values, this program starts every system's server, loads the values and runs
peers_sampler for each group of rows. It prints the page of results and writes it to RESULTS. All
that it started has ended when it exits.
"""

import contextlib
import ctypes
import dataclasses
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import page
import systems

PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36
libc = ctypes.CDLL(None, use_errno=True)

MANY_RUNS = 200
UPDATES = 1000
SECONDS_FOR_EACH_ROW = 3


def end_with_parent():
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


class Launcher(contextlib.ExitStack):
    """Starts programs in a directory of their own; ends them, the last first, on exit."""

    def __init__(self, bench, directory):
        super().__init__()
        self.bench = bench
        self.directory = directory

    def path(self, name):
        return str(self.directory / name)

    def write(self, name, text):
        path = self.directory / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text)
        return str(path)

    def start(self, words, ready=None, typed=()):
        """Starts a program. If `ready` is given, waits until the program has written that, and
        again after each line of `typed`. Returns the process; its `stdout` is a pipe."""
        process = subprocess.Popen(self.command(words), bufsize=0, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   preexec_fn=end_with_parent)
        self.callback(self.stop, process)
        if not typed:
            process.stdin.close()
        if ready is not None:
            for line in (*typed, None):
                self.await_output(process, ready)
                if line is not None:
                    process.stdin.write(f"{line}\n".encode())
        return process

    @staticmethod
    def await_output(process, text):
        written = b""
        while text.encode() not in written:
            part = process.stdout.read(4096)
            if not part:
                raise RuntimeError(f"{process.args[0]} ended: {written.decode(errors='replace')}")
            written += part

    @staticmethod
    def stop(process):
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        for pipe in (process.stdin, process.stdout):
            pipe.close()

    def command(self, words):
        """The words with the path of the program, as a list."""
        program = shutil.which(words[0], path=f"{self.bench}:{os.environ['PATH']}")
        if program is None:
            raise RuntimeError(f"no program {words[0]}")
        return [program, *words[1:]]

    def output(self, words, data=None):
        return subprocess.run(self.command(words), input=data or b"", stdout=subprocess.PIPE,
                              check=True).stdout

    def await_socket(self, path):
        for _ in range(1000):
            with contextlib.suppress(OSError), systems.connect(path):
                return
            time.sleep(0.01)
        raise RuntimeError(f"no process serves {path}")


@dataclasses.dataclass
class Measurement:
    """A row of peers_sampler (rows.h). Its samples have one figure for each of `rows`."""

    rows: list
    kind: str
    runs: int
    fields: list
    descriptors: list = dataclasses.field(default_factory=list)


def measure(launcher, group, measurements):
    """Takes the samples and adds the rows to `group`, in the given order. A row that needs no
    measurement may be among the measurements."""
    print(f"{group.title} ...", file=sys.stderr, flush=True)
    measured = [each for each in measurements if isinstance(each, Measurement)]
    text = "".join("\t".join(map(str, [each.kind, each.runs, *each.fields])) + "\n"
                   for each in measured)
    sampled = subprocess.run(
        [launcher.bench / "peers_sampler", str(SECONDS_FOR_EACH_ROW),
         launcher.write("rows", text)],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True, text=True,
        preexec_fn=end_with_parent,
        pass_fds=[descriptor for each in measured for descriptor in each.descriptors])
    for each, samples in zip(measured, sampled.stdout.splitlines(), strict=True):
        figures = [list(map(float, sample.split(" "))) for sample in samples.split("\t")]
        for index, row in enumerate(each.rows):
            row.samples = [sample[index] for sample in figures]
    for each in measurements:
        group.rows += each.rows if isinstance(each, Measurement) else [each]
    return group


def program_time(launcher, name, task, runs):
    row = page.Row(name, task.how, custom=task.custom)
    return Measurement([row], "run", runs, [task.lines, *launcher.command(task.words)])


def program_memory(launcher, name, task):
    return Measurement([page.Row(name, task.how)], "memory", 5, launcher.command(task.words))


def baseline_programs():
    """A minimal program: as a compiler links it by default, and as ours are linked."""
    return [systems.Task("a C++ program that prints one line", ["one_line_program"]),
            systems.Task("the same program, linked as treescope is",
                         ["one_line_program_linked_alike"])]


def read_one(launcher, peers):
    group = page.Group("read", "One value read, a whole process", "ms")
    tasks = [("baseline", task) for task in baseline_programs()]
    tasks += [(peer.name, task) for peer in peers for task in (peer.read, *peer.more_reads)]
    return measure(launcher, group, [program_time(launcher, *task, MANY_RUNS) for task in tasks])


def write_one(launcher, peers):
    group = page.Group("write", "One value written, a whole process", "ms")
    tasks = [("baseline", task) for task in baseline_programs()]
    tasks += [(peer.name, peer.write) for peer in peers]
    measure(launcher, group, [program_time(launcher, *task, MANY_RUNS) for task in tasks])
    for peer, row in zip(peers, group.rows[-len(peers):], strict=True):
        last = str(1_000_000 + len(row.samples))
        if last not in launcher.output(peer.read.words).decode():
            raise RuntimeError(f"{peer.read.how} does not show the value stored last")
    return group


def list_all(launcher, peers, tree):
    group = page.Group(f"list {tree.total}", f"All of {tree.total:,} values with their names",
                       "ms")
    size = len(launcher.output(peers[0].lists[0].words))
    measurements = [program_time(launcher, "baseline", task, MANY_RUNS)
                    for task in baseline_programs()]
    how = f"{size:,} bytes through a pipe, as many as of ls -lr"
    measurements.append(Measurement([page.Row("baseline", how)], "pipe", MANY_RUNS, [size]))
    measurements += [program_time(launcher, peer.name, task, 40)
                     for peer in peers for task in peer.lists]
    return measure(launcher, group, measurements)


def without_updates(peer):
    return page.Row(peer.name, "", note=peer.no_updates)


def update_latency(launcher, peers):
    group = page.Group("latency", "From a store by one client until another client shows it", "us")
    measurements = [
        Measurement([page.Row("baseline", "a round trip over two named pipes")], "round-trip",
                    UPDATES, []),
        Measurement([page.Row("baseline", "a poll that does not wait")], "poll", UPDATES, [])]
    with Launcher(launcher.bench, launcher.directory) as tools:
        for peer in peers:
            if peer.watch is None:
                measurements.append(without_updates(peer))
                continue
            watch = peer.watch
            descriptor = tools.start(watch.words, watch.ready, watch.typed).stdout.fileno()
            measurements.append(Measurement(
                [page.Row(peer.name, watch.how)], "shown", UPDATES,
                [descriptor, watch.shown.encode().hex(), *watch.store], [descriptor]))
        return measure(launcher, group, measurements)


def update_rates(launcher, peers, key, title, rates_of):
    measurements = []
    for peer in peers:
        if peer.no_updates:
            measurements.append(without_updates(peer))
        for rate in rates_of(peer):
            rows = [page.Row(peer.name, how) for how in rate.how]
            measurements.append(Measurement(rows, rate.kind, rate.runs, rate.fields))
    return measure(launcher, page.Group(key, title, "thousand/s"), measurements)


def client_memory(launcher, peers, tree):
    one = page.Group("client memory", "Peak memory of a client that reads one value, "
                     f"{tree.total:,} served", "KiB")
    every = page.Group("client memory, all",
                       f"Peak memory of a client that lists all of {tree.total:,} values", "KiB")
    baseline = [program_memory(launcher, "baseline", task) for task in baseline_programs()]
    return [
        measure(launcher, one,
                baseline + [program_memory(launcher, peer.name, peer.read) for peer in peers]),
        measure(launcher, every, [program_memory(launcher, peer.name, task)
                                  for peer in peers for task in peer.lists])]


def with_children(process):
    children = pathlib.Path(f"/proc/{process}/task/{process}/children").read_text()
    return [process, *map(int, children.split())]


def resident_memory(processes, name):
    """The sum of a size in /proc/PID/status over `processes`, in bytes."""
    total = 0
    for process in processes:
        for line in pathlib.Path(f"/proc/{process}/status").read_text().splitlines():
            if line.startswith(name):
                total += int(line.split()[1]) * 1024
    return total


class ServerMemory:
    """The memory of each server by the number of values that it serves."""

    def __init__(self):
        self.sizes = {}

    def add(self, peers, tree):
        for peer in peers:
            if peer.processes:
                processes = [each for process in peer.processes
                             for each in with_children(process.pid)]
                now, peak = (resident_memory(processes, name) for name in ("VmRSS:", "VmHWM:"))
                self.sizes.setdefault((peer.name, peer.servers), []).append(
                    (tree.total, now, peak))

    def groups(self):
        most = max(sizes[-1][0] for sizes in self.sizes.values())
        peak = page.Group("server memory", f"Peak memory of the server's processes, {most:,} "
                          "values, each listed", "KiB")
        further = page.Group("memory of a value",
                             "Memory of the server's processes for each further value", "bytes")
        for (name, servers), sizes in self.sizes.items():
            (few, before, _), (many, after, highest) = sizes[0], sizes[-1]
            peak.rows.append(page.Row(name, servers, [highest / 1024]))
            further.rows.append(page.Row(name, servers, [(after - before) / (many - few)]))
        return [peak, further]


def measure_all(bench, directory):
    lists, single, updates, memory = [], [], [], []
    servers = ServerMemory()
    for groups in (1, 10, 100):
        tree = systems.Tree(groups)
        with Launcher(bench, directory) as launcher:
            peers = [serve(launcher, tree) for serve in systems.ALL]
            if groups == 10:
                written = write_one(launcher, peers)
                single += [read_one(launcher, peers), written]
            lists.append(list_all(launcher, peers, tree))
            if groups == 10:
                updates.append(update_latency(launcher, peers))
                updates.append(update_rates(
                    launcher, peers, "acknowledged",
                    "Stores with a subscriber, each acknowledged before the next",
                    lambda peer: peer.acknowledged))
                updates.append(update_rates(
                    launcher, peers, "stream", "Updates at one subscriber, sent without waiting",
                    lambda peer: peer.streams))
                memory += client_memory(launcher, peers, tree)
            servers.add(peers, tree)
    return single + lists + updates + memory + servers.groups()


def end_children():
    """Reaps all children, also those of programs that have ended; after 5 seconds kills them."""
    deadline = time.monotonic() + 5
    with contextlib.suppress(ChildProcessError):
        while True:
            if os.waitpid(-1, os.WNOHANG)[0] == 0:
                if time.monotonic() > deadline:
                    for child in with_children(os.getpid())[1:]:
                        os.kill(child, signal.SIGKILL)
                time.sleep(0.01)


def main():
    bench, results = map(pathlib.Path, sys.argv[1:])
    libc.prctl(PR_SET_CHILD_SUBREAPER, 1)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda received, _: sys.exit(128 + received))
    try:
        with tempfile.TemporaryDirectory(prefix="peers-") as directory:
            text = page.render(measure_all(bench.resolve(), pathlib.Path(directory)))
        print(text, end="")
        # What bench/instructions/count.py and bench/fleet/measure.py have added stays.
        added = "\n## Instructions and sizes"
        before = results.read_text() if results.exists() else ""
        results.write_text(text + "".join(before.partition(added)[1:]))
    except (OSError, RuntimeError, subprocess.CalledProcessError) as error:
        sys.exit(f"compare.py: {error}")
    finally:
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        end_children()


if __name__ == "__main__":
    main()
