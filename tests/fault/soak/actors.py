"""The servers of the soak test, and the actors that use them. Each actor is a generator that does one
step at a time and yields how long to wait after it."""

import json
import os
import random
import re
import signal
import subprocess
import time

from processes import TIME_LIMIT, Server, Terminal, end_with_parent
from world import Wrong

SHELLS = 3
PART = re.compile(r"^(\S+) +\[(.*)\]$")
LISTED = re.compile(r"([\w-]+) +\[(.*)\]$")


def tree_of_shape(shape):
    """A tree in which a name states its value, one that stays, and one that each shell sets."""
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
            connected = request(client, "connect Model_restarts") == "0"
        number = random.randrange(1, 1 << 30)
        stored = request(client, f"store {number}")
        result, _, value = request(client, "get").partition(" ")
        if result == "0" and value not in (str(number), "0"):
            raise Wrong(f"stored {number} with result {stored}, then read {value}")
        if not subscribed:
            subscribed = request(client, "subscribe") == "0"
        yield 0.1


def request(client, command):
    client.stdin.write(command + "\n")
    client.stdin.flush()
    line = client.stdout.readline()
    if not line:
        raise Wrong(f"the library's client ended at {command!r}")
    return line.rstrip("\n")
