"""Presses Tab in fish and in zsh, with the completions of treectl and a server.

Usage: shells_test.py COMPLETIONS PROGRAMS. COMPLETIONS is the directory of the shells' files, PROGRAMS that of treectl
and modelsrvd.
"""

import contextlib
import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest

COMPLETIONS, PROGRAMS = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
LIMIT = 60
NAME = f"Model_tab_{os.getpid()}"
TREE = """{"name": "device", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "two words", "type": "int32", "value": 1},
    {"id": 3, "name": "$(touch run)", "type": "int32", "value": 1}]},
  {"id": 2, "name": "label", "type": "text", "value": "bench 3"}]}
"""
# What is typed, and the line after Tab. Both shells agree but for what follows a word that is complete.
LINES = {
    f"treectl get /{NAME[:-2]}": f"treectl get /{NAME}/",
    f"treectl get /{NAME}/dr": f"treectl get /{NAME}/drive/",
    f"treectl set /{NAME}/drive/sp": f"treectl set /{NAME}/drive/speed",
    f"treectl list -r /{NAME}/drive/tw": f"treectl list -r /{NAME}/drive/two\\ words",
    f"treectl -s {NAME} get /dr": f"treectl -s {NAME} get /drive/",
    f"treectl get -s {NAME[:-2]}": f"treectl get -s {NAME}",
    f"treectl servers --wait {NAME[:-2]}": f"treectl servers --wait {NAME}",
    f"treectl get --timeout 1 /{NAME}/la": f"treectl get --timeout 1 /{NAME}/label",
    f"treectl diff /{NAME}/la": f"treectl diff /{NAME}/label",
    "treectl restore ref": "treectl restore reference.json",
    "treectl dump -o ref": "treectl dump -o reference.json",
    "treectl desc": "treectl describe",
    "treectl help wat": "treectl help watch",
    "treectl watch --fa": "treectl watch --fail-on-loss",
    "treectl --col": "treectl --color",
}


def setUpModule():
    global directory, server
    directory = tempfile.TemporaryDirectory()
    unittest.addModuleCleanup(directory.cleanup)
    tree = pathlib.Path(directory.name, "tree.json")
    tree.write_text(TREE, encoding="utf-8")
    pathlib.Path(directory.name, "reference.json").write_text("{}", encoding="utf-8")
    server = subprocess.Popen(
        [PROGRAMS / "modelsrvd", "--name", NAME, "--tree", tree], stdout=subprocess.PIPE, text=True)
    unittest.addModuleCleanup(end_server)
    assert server.stdout.readline() == f"ready {NAME}\n"


def end_server():
    server.send_signal(signal.SIGTERM)
    server.communicate(timeout=LIMIT)


def environment(**more):
    path = f"{PROGRAMS}:{os.environ['PATH']}"
    return {"PATH": path, "HOME": directory.name, "LC_ALL": "C.UTF-8", "TERM": "dumb"} | more


class Zsh:
    """An interactive zsh on a pseudo-terminal. Ctrl-X r prints the line that is edited."""

    START = r"""PROMPT='P> '; PATH={path}; fpath=({completions} $fpath); cd {directory}
zmodload zsh/zle; autoload -Uz compinit; compinit -D -u; unsetopt LIST_BEEP
report() {{ zle -I; print -r -- "@""@$BUFFER@""@"; BUFFER= }}; zle -N report; bindkey '^Xr' report
print RE""ADY
"""

    def __init__(self):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.execvpe("zsh", ["zsh", "-f", "-i"], environment())
        start = self.START.format(
            path=environment()["PATH"], completions=COMPLETIONS, directory=directory.name)
        self.write(start)
        self.read(rb"READY\r")

    def write(self, text):
        os.write(self.terminal, text.encode())

    def read(self, pattern):
        output = b""
        end = time.monotonic() + LIMIT
        while not (found := re.search(pattern, output, re.S)):
            ready, _, _ = select.select([self.terminal], [], [], max(0, end - time.monotonic()))
            if not ready:
                raise AssertionError(f"{pattern!r} not in {output!r}")
            output += os.read(self.terminal, 4096)
        return found, output

    def completed(self, line):
        self.write(line + "\t\x18r")
        found, output = self.read(rb"@@(.*)@@")
        return found[1].decode(), output

    def end(self):
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        os.close(self.terminal)


class Completion(unittest.TestCase):
    def test_zsh_completes_lines(self):
        with contextlib.ExitStack() as ending:
            shell = Zsh()
            ending.callback(shell.end)
            for typed, expected in LINES.items():
                with self.subTest(typed):
                    line, output = shell.completed(typed)
                    self.assertEqual(line.rstrip(" "), expected)
                    self.assertNotIn(b"bad option", output)

    def test_fish_completes_words(self):
        for typed, expected in LINES.items():
            with self.subTest(typed):
                ran = subprocess.run(
                    ["fish", "--no-config", "-c",
                     f"source {COMPLETIONS}/treectl.fish; complete -C (string join ' ' $argv)", typed],
                    cwd=directory.name, env=environment(), capture_output=True, text=True, timeout=LIMIT)
                self.assertEqual(ran.stderr, "")
                offered = [line.split("\t")[0] for line in ran.stdout.splitlines()]
                self.assertEqual(offered, [expected.split(" ", typed.count(" "))[-1].replace("\\", "")])

    def tearDown(self):
        self.assertFalse(pathlib.Path(directory.name, "run").exists(), "a name was run")


if __name__ == "__main__":
    unittest.main()
