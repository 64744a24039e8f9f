#!/usr/bin/env python3
"""Servers restart, read other trees and change 20,000 values a second, while clients come
and go. Fails if a process grows, something stays in /tmp, or a client gets a wrong value.

Every value can be checked: a name says it, or it never decreases, or the client that reads
it is the only one that stores it.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

from actors import (SHELLS, library_client, reload, reloading, request, restarting, run_shell,
                    shell_actor, start_servers, terminals, watching)
from processes import TIME_LIMIT, Terminal, end_with_parent, isolate, measure
from world import World, Wrong

# What a process may grow between the two measurements, in kilobytes: heaps breathe.
GROWTH = 512
# Of a shell: a line of its history.
GROWTH_OF_LINE = 0.25


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
        while request(world.client, "get").split()[0] != "0":
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
        before = None if world.error else measured(world)
        world.stopping.wait(max(begin + world.options.seconds - time.monotonic(), 0))
        grown = [] if world.error else compare(before, measured(world, before))
        world.stopping.set()
        with world.pause():
            if world.error:
                raise Wrong(world.error)
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
