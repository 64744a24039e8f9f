#!/usr/bin/env python3
"""Compares the shell with a model of its rules, in random sessions on random trees.

What the model does not cover, and no session contains: the servers of the machine
(`ls` and Tab without a connection, but for this run's own server), `help`, a system
command other than echo, signals and the end of the input, byte 0, lines of more than
1,000 bytes, lines of files above 999, updates beside other output in one step,
numbers written in forms that a loader may take or refuse ("+5", ".5", "inf"),
element indices above 60,000 or with a sign, byte 0 in values and names, keys typed
while a system command runs, and history references before the first entry.
"""

import argparse
import os
import pickle
import random
import signal
import sys
import time

sys.dont_write_bytecode = True

import known
from editor import NeedInput
from generate import Generator
from session import Difference, Run, Server, Session, run_model
from tree import describe, random_tree
from values import Unmodelled

SESSIONS_OF_A_TREE = 12


class Totals:
    def __init__(self):
        self.sessions = self.commands = self.keys = self.rounds = 0

    def add(self, expected):
        self.sessions += 1
        self.commands += expected.shell.commands
        self.keys += expected.shell.editor.keys if expected.shell.editor else 0


class FailedSession(Exception):
    def __init__(self, session, frozen_root, difference, server):
        super().__init__(difference.kind)
        self.session = session
        self.frozen_root = frozen_root
        self.difference = difference
        self.server = server


def server_name(rng):
    """Unique, yet always of the same length, so that a seed gives the same session."""
    return f"Model_{os.urandom(6).hex()}" + rng.choice(["", "_rig", "_modelsrv"])


def describable(root):
    try:
        describe(root)
        return True
    except UnicodeDecodeError:
        return False


def run_round(options, seed, totals, deadline):
    """One tree, one server and several sessions; each begins with what the last one stored."""
    rng = random.Random(seed)
    name = server_name(rng)
    root = random_tree(rng)
    with Server(options.server, root, name):
        for _ in range(SESSIONS_OF_A_TREE):
            frozen_root = pickle.dumps(root)
            session, expected = Generator(rng, frozen_root, name).session()
            totals.add(expected)
            try:
                Run(options.shell, session, expected).check()
            except Difference as difference:
                raise FailedSession(session, frozen_root, difference, name) from None
            root = expected.shell.root
            if not describable(root) or time.monotonic() > deadline:
                return


def differs(options, session, failed):
    """The difference that a session still shows on a fresh server, or None."""
    try:
        expected = run_model(session, failed.frozen_root, failed.server)
        if session.kind == "keys" and expected.shell.running:
            return None
        with Server(options.server, pickle.loads(failed.frozen_root), failed.server):
            Run(options.shell, session, expected).check()
    except (Unmodelled, NeedInput):
        return None
    except Difference as difference:
        return difference
    return None


def shrink(options, failed, seconds=30):
    """Drops items for as long as the session still shows a difference."""
    deadline = time.monotonic() + seconds
    size = len(failed.session.items)
    while size >= 1:
        at = 0
        while at < len(failed.session.items) and time.monotonic() < deadline:
            items = failed.session.items
            shorter = failed.session.with_items(items[:at] + items[at + size:])
            difference = differs(options, shorter, failed)
            if difference:
                failed.session, failed.difference = shorter, difference
            else:
                at += size
        size //= 2


def around(text, position):
    return text[max(0, position - 120):position + 200]


def report(failed, seed):
    difference = failed.difference
    expected, seen = difference.expected, difference.seen
    position = next((at for at, pair in enumerate(zip(expected, seen)) if pair[0] != pair[1]),
                    min(len(expected), len(seen)))
    print(f"\nseed {seed}: {difference.kind}: they differ at byte {position}")
    print(f"session on {failed.server}, {failed.session}")
    print(f"expected {around(expected, position)!r}")
    print(f"seen     {around(seen, position)!r}", flush=True)


def parse_arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--shell", required=True, type=os.path.abspath, help="the built shell")
    parser.add_argument("--server", required=True, type=os.path.abspath, help="built modelsrvd")
    parser.add_argument("--seconds", type=float,
                        default=float(os.environ.get("TREESCOPE_DIFFERENTIAL_SECONDS", 60)))
    parser.add_argument("--hours", type=float, help="instead of --seconds")
    parser.add_argument("--seed", type=int, help="of the first round; the next has the next number")
    parser.add_argument("--rounds", type=int, default=sys.maxsize, help="1 reproduces a seed")
    parser.add_argument("--known", action="store_true", help="include the known differences")
    parser.add_argument("--differences", type=int, default=1, help="go on until there are so many")
    return parser.parse_args()


def main():
    options = parse_arguments()
    known.included = options.known
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    seconds = options.hours * 3600 if options.hours else options.seconds
    deadline = time.monotonic() + seconds
    first = options.seed if options.seed is not None else random.SystemRandom().randrange(1 << 32)
    totals, found, seed = Totals(), 0, first
    while time.monotonic() < deadline and seed - first < options.rounds:
        if found >= options.differences:
            break
        try:
            run_round(options, seed, totals, deadline)
        except FailedSession as failed:
            found += 1
            shrink(options, failed)
            report(failed, seed)
        except Difference as difference:
            found += 1
            report(FailedSession(Session("string"), b"", difference, "its server"), seed)
        except Exception:
            print(f"\nseed {seed}: the comparison itself failed")
            raise
        seed += 1
    print(f"{totals.sessions} sessions, {totals.commands} commands, {totals.keys} keys, "
          f"{found} differences, seeds {first} to {seed - 1}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
