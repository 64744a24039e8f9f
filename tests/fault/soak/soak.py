#!/usr/bin/env python3
"""Servers restart, read other trees and change 20,000 values a second, while clients come
and go. Fails if a process grows, something stays in /tmp, or a client gets a wrong value.

Every value can be checked: a name says it, or it never decreases, or the client that reads
it is the only one that stores it.
"""

import argparse
import contextlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
import traceback

from processes import TIME_LIMIT, Server, Terminal, end_with_parent, isolate, measure

SHELLS = 3
# What a process may grow between the two measurements, in kilobytes: heaps breathe.
GROWTH = 512
# Of a shell: a line of its history.
GROWTH_OF_LINE = 0.25
PART = re.compile(r"^(\S+) +\[(.*)\]$")
LISTED = re.compile(r"([\w-]+) +\[(.*)\]$")


class Wrong(Exception):
    """Something that must not happen."""


class World:
    def __init__(self, options, directory):
        self.options = options
        self.directory = directory
        self.failure = None
        self.counts = {}
        self.stopping = threading.Event()
        self.finished = threading.Event()
        self.idle = threading.Condition()
        self.busy = 0
        self.paused = False

    def path(self, name):
        return os.path.join(self.directory, name)

    @contextlib.contextmanager
    def turn(self):
        """One step of an actor. No step is under way while the world is measured."""
        with self.idle:
            self.idle.wait_for(lambda: not self.paused)
            self.busy += 1
        try:
            yield
        finally:
            with self.idle:
                self.busy -= 1
                self.idle.notify_all()

    @contextlib.contextmanager
    def pause(self):
        with self.idle:
            self.paused = True
            if not self.idle.wait_for(lambda: self.busy == 0, 4 * TIME_LIMIT):
                self.paused = False
                self.idle.notify_all()
                raise Wrong("an actor does not finish its step")
        try:
            yield
        finally:
            with self.idle:
                self.paused = False
                self.idle.notify_all()

    def act(self, actor):
        """Runs the generator `actor`: each step yields how long to wait after it."""
        steps = actor(self)
        try:
            while not self.stopping.is_set():
                with self.turn():
                    wait = next(steps)
                self.counts[actor.__name__] = self.counts.get(actor.__name__, 0) + 1
                self.stopping.wait(wait)
        except Exception:
            self.failure = self.failure or f"{actor.__name__}: {traceback.format_exc()}"
            self.stopping.set()
        # The kernel ends the processes that a thread has started with the thread.
        self.finished.wait()


def tree_of_shape(shape):
    """A tree in which a name tells its value, one that stays, and one that each shell sets."""
    own = [{"name": f"own{i}", "type": "int32", "value": 0} for i in range(SHELLS)]
    parts = [{"name": f"x{i}_{i * shape}", "type": "int64", "value": i * shape}
             for i in range(shape % 40)]
    nodes = [{"name": f"node{i}", "children": parts} for i in range(shape % 7)]
    return [{"name": "constant", "type": "int32", "value": 12345}, *own, *nodes]


def write_tree(world, name, children):
    with open(world.path("new"), "w") as file:
        json.dump({"name": name, "children": children}, file)
    os.replace(world.path("new"), world.path(name + ".json"))


def start_servers(world):
    write_tree(world, "Model_shapes", tree_of_shape(0))
    # The ids are those of the library's client.
    write_tree(world, "Model_restarts", [
        {"id": 1, "name": "counter", "type": "uint64", "value": 0},
        *({"id": 10 + i, "name": f"own{i}", "type": "int32", "value": 0} for i in range(SHELLS))])
    arguments = {
        "Model_shapes": ["--tree", world.path("Model_shapes.json")],
        "Model_restarts": ["--tree", world.path("Model_restarts.json")],
        "Model_changes": ["--synthetic", "100x100", "--churn", "20000"],
        "Model_host": ["--period", "50"]}
    world.servers = {name: Server(world.options.server, world.directory, name, words)
                     for name, words in arguments.items()}


def restarting(world):
    server = world.servers["Model_restarts"]
    while True:
        server.stop(random.choice([signal.SIGTERM, signal.SIGKILL]))
        server.start()
        yield random.uniform(0.2, 1)


def reloading(world):
    while True:
        reload(world, random.randrange(1, 200))
        yield random.uniform(0.05, 0.3)


def reload(world, shape):
    write_tree(world, "Model_shapes", tree_of_shape(shape))
    world.servers["Model_shapes"].process.send_signal(signal.SIGHUP)


def run_shell(world, server, commands):
    """The lines that a shell prints. Now and then the shell is killed; then nothing."""
    process = subprocess.Popen([world.options.shell, "-c", f"cd {server};{commands}"],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, preexec_fn=end_with_parent)
    if random.random() < 0.05:
        time.sleep(random.uniform(0, 0.005))
        process.kill()
        process.communicate()
        return None
    output, errors = process.communicate(timeout=TIME_LIMIT)
    if process.returncode != 0 or errors:
        raise Wrong(f"{server}: {commands}: status {process.returncode}, {errors!r}")
    return output.splitlines()


def value_of(lines, path):
    for line in lines:
        found = PART.match(line)
        if found and found[1] == path:
            return found[2]
    return None


def expect(condition, what, lines):
    if not condition:
        raise Wrong(f"{what}: {lines[:40]}")


def check_shapes(world, own):
    number = random.randrange(1, 1 << 30)
    lines = run_shell(world, "Model_shapes",
                      f"get /constant;set {number} /own{own};ls -lr;get /constant")
    if lines is None:
        return
    expect(value_of(lines, "/constant") == "12345", "the constant", lines)
    expect(value_of(lines, f"/own{own}") in (str(number), "0"), f"stored {number}", lines)
    for line in lines:
        listed = LISTED.search(line)
        if listed and listed[1].startswith("x") and listed[2] != "":
            expect(listed[1].split("_")[1] == listed[2], f"listed {line}", lines)


def check_restarts(world, own):
    number = random.randrange(1, 1 << 30)
    lines = run_shell(world, "Model_restarts", f"set {number} /own{own};get /own{own}")
    for line in lines or []:
        found = PART.match(line)
        expect(line == "ERROR: ConnectError" or
               (found and found[2] in (str(number), "0", "")), f"stored {number}", lines)


def check_changes(world, seen):
    part = f"/group_{random.randrange(100):03}/item_{random.randrange(100):04}"
    lines = run_shell(world, "Model_changes", f"get {part};ls -r /group_000")
    if lines is None:
        return
    value = value_of(lines, part)
    expect(value is not None and int(value) >= seen.get(part, 0), f"after {seen.get(part)}", lines)
    seen[part] = int(value)
    expect(sum("item_" in line for line in lines) == 101, "101 items", lines)


def check_host(world, own):
    text = f"label-{own}-{random.randrange(1000)}"
    lines = run_shell(world, "Model_host", f"str {text} /settings/label;ls -lr /memory")
    if lines is not None:
        expect(re.fullmatch(r"label-\d-\d+", value_of(lines, "/settings/label") or ""), text, lines)


def shell_actor(own):
    def shells(world):
        seen = {}
        while True:
            check = random.choice([check_shapes, check_restarts, check_changes, check_host])
            check(world, seen if check is check_changes else own)
            yield 0.05

    return shells


def terminals(world):
    """Shells on terminals that come and go."""
    while True:
        terminal = Terminal(world.options.shell)
        terminal.run("cd Model_shapes", re.compile(rb"\[ Model_shapes\]\$ "))
        terminal.run("eu -r /", re.compile(rb"\[ Model_shapes\]\$ "))
        terminal.run("get /constant", re.compile(rb"\[12345\]"))
        how = random.choice([terminal.type_exit, terminal.kill, terminal.hang_up])
        status = terminal.end(how)
        expected = {terminal.type_exit: 0, terminal.kill: -signal.SIGKILL,
                    terminal.hang_up: -signal.SIGHUP}[how]
        if status != expected:
            raise Wrong(f"a shell on a terminal ended with {status}, expected {expected}")
        yield random.uniform(0.1, 0.5)


def watching(world):
    """The shell that stays, and displays a hundredth of 20,000 changes a second."""
    terminal, last = world.watcher, 0
    while True:
        found = terminal.run("get /group_050/item_0000", re.compile(rb"/item_0000 +\[(\d+)\]"))
        if int(found[1]) < last:
            raise Wrong(f"{int(found[1])} after {last}")
        last = int(found[1])
        yield 2


def library_client(world):
    """The client of the library that stays, and connects again to a server that restarts."""
    client, connected, subscribed = world.client, False, False
    while True:
        if not connected:
            connected = ask(client, "connect Model_restarts") == "0"
        number = random.randrange(1, 1 << 30)
        stored = ask(client, f"store {number}")
        result, _, value = ask(client, "get").partition(" ")
        if result == "0" and value not in (str(number), "0"):
            raise Wrong(f"stored {number} with result {stored}, then read {value}")
        if not subscribed:
            subscribed = ask(client, "subscribe") == "0"
        yield 0.1


def ask(client, command):
    client.stdin.write(command + "\n")
    client.stdin.flush()
    line = client.stdout.readline()
    if not line:
        raise Wrong(f"the library's client ended at {command!r}")
    return line.rstrip("\n")


def start_lasting_clients(world):
    world.watcher = Terminal(world.options.shell)
    prompt = re.compile(rb"\[ Model_changes\]\$ ")
    world.watcher.run("cd Model_changes", prompt)
    world.watcher.run("eu -r /group_000", prompt)
    world.client = subprocess.Popen([world.options.client], stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE, text=True, preexec_fn=end_with_parent)


def lasting(world):
    """The processes that must not grow, by name."""
    servers = {name: server.process.pid for name, server in world.servers.items()
               if name != "Model_restarts"}
    return {**servers, "shell": world.watcher.pid, "library": world.client.pid}


def settled(world, before):
    """The measurements once the servers have noticed that the other clients have gone."""
    deadline = time.monotonic() + TIME_LIMIT
    last = None
    while True:
        numbers = {name: measure(pid) for name, pid in lasting(world).items()}
        opened = {name: one["descriptors"] for name, one in numbers.items()}
        wanted = {name: one["descriptors"] for name, one in before.items()} if before else last
        if opened == wanted or time.monotonic() > deadline:
            return numbers
        last = opened
        time.sleep(0.5)


def measured(world, before=None):
    """Every lasting process and /tmp, with no other client connected."""
    with world.pause():
        reload(world, 20)
        # The library's client connects again, if it is not connected.
        while ask(world.client, "get").split()[0] != "0":
            pass
        # These also remove what killed clients have left in /tmp.
        for server in world.servers:
            while run_shell(world, server, "ls") is None:
                pass
        numbers = settled(world, before)
        numbers["shell"]["lines"] = world.watcher.typed
        expected = {f"{server}.fifo" for server in world.servers}
        if left := set(os.listdir("/tmp")) ^ expected:
            raise Wrong(f"in /tmp: {sorted(left)}")
    return numbers


def compare(before, after):
    """Prints both measurements; returns what has grown."""
    grown = []
    print(f"{'':16}{'RSS kB':>16}{'PSS kB':>16}{'heap kB':>16}{'descriptors':>14}")
    for name, first in before.items():
        last = after[name]
        print(f"{name:16}" + "".join(
            f"{f'{first[key]} {last[key]}':>{width}}"
            for key, width in (("VmRSS", 16), ("Pss", 16), ("RssAnon", 16), ("descriptors", 14))))
        limit = GROWTH + GROWTH_OF_LINE * (last.get("lines", 0) - first.get("lines", 0))
        if last["RssAnon"] - first["RssAnon"] > limit or last["descriptors"] != first["descriptors"]:
            grown.append(name)
    return grown


def stop_all(world):
    world.watcher.end(world.watcher.type_exit)
    world.client.communicate("quit\n", TIME_LIMIT)
    for server in world.servers.values():
        server.stop()
        if server.reported():
            raise Wrong(f"{server.name} reported {server.reported()!r}")
    if left := os.listdir("/tmp"):
        raise Wrong(f"left in /tmp: {left}")


def soak(world):
    begin = time.monotonic()
    start_servers(world)
    start_lasting_clients(world)
    actors = [restarting, reloading, terminals, watching, library_client]
    actors += [shell_actor(own) for own in range(SHELLS)]
    threads = [threading.Thread(target=world.act, args=(actor,)) for actor in actors]
    for thread in threads:
        thread.start()
    try:
        # Until then caches fill and heaps reach their size.
        world.stopping.wait(world.options.seconds / 3)
        before = None if world.failure else measured(world)
        world.stopping.wait(max(begin + world.options.seconds - time.monotonic(), 0))
        grown = [] if world.failure else compare(before, measured(world, before))
        world.stopping.set()
        with world.pause():
            if world.failure:
                raise Wrong(world.failure)
            if grown:
                raise Wrong(f"grown: {', '.join(grown)}")
            stop_all(world)
    finally:
        world.stopping.set()
        world.finished.set()
        for thread in threads:
            thread.join()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--shell", required=True, type=os.path.abspath)
    parser.add_argument("--server", required=True, type=os.path.abspath)
    parser.add_argument("--client", required=True, type=os.path.abspath, help="fault_peer")
    parser.add_argument("--seconds", type=float,
                        default=float(os.environ.get("TREESCOPE_SOAK_SECONDS", 60)))
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    world = World(options, isolate())
    try:
        soak(world)
    except Wrong as wrong:
        print(f"soak: {wrong}")
        return 1
    finally:
        shutil.rmtree(world.directory, ignore_errors=True)
        print("soak: " + ", ".join(f"{count} {name}" for name, count in world.counts.items()))
    print(f"soak: {options.seconds:g} s passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
