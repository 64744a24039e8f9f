"""Builds and runs the programs of doc/guide.md against an installation.

Usage: guide_test.py GUIDE PREFIX DIRECTORY. The directory is for the built programs.
"""

import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

GUIDE, PREFIX, DIRECTORY = (Path(sys.argv.pop(1)) for _ in range(3))
LIMIT = 120
BLOCK = re.compile(r"^```(\w+) ([\w.]+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
PACKAGE = next(PREFIX.glob("lib*/python*/*-packages"))
ENVIRONMENT = {
    **os.environ,
    "PKG_CONFIG_PATH": os.pathsep.join(str(path) for path in PREFIX.glob("lib*/pkgconfig")),
    "PYTHONPATH": str(PACKAGE),
    "PYTHONDONTWRITEBYTECODE": "1",
}
TEXT = GUIDE.read_text(encoding="utf-8")
LIBRARIES = next(PREFIX.glob("lib*/pkgconfig")).parent
WARNINGS = "-Wall -Wextra -Wpedantic -Werror"


def compile_command(path):
    """The guide's own command for the first server in this language, for this program."""
    [command] = re.findall(rf"^    (c.* first_server\{path.suffix} .*)$", TEXT, re.MULTILINE)
    command = command.replace("/opt/treescope/lib", str(LIBRARIES))
    # Where the guide goes on with "./first_server".
    command, replaced = re.subn(r"-o first_server\b", f"-o {built(path)}", command)
    assert replaced == 1, command
    return command.replace(f"first_server{path.suffix}", f"{WARNINGS} {path}")


def built(path):
    return str(path).replace(".", "_")


def command_of(file):
    """Writes a program's file and builds it; returns how it is run."""
    path = DIRECTORY / file
    path.write_text(BLOCKS[file], encoding="utf-8")
    if path.suffix == ".py":
        return [sys.executable, "-X", "dev", "-W", "error", str(path)]
    subprocess.run(compile_command(path), shell=True, check=True, env=ENVIRONMENT, timeout=LIMIT)
    return [built(path)]


BLOCKS = {name: text for _, name, text in BLOCK.findall(TEXT)}
COMMANDS = {file: command_of(file) for file in BLOCKS if "." in file}


def run(file, name, **options):
    return subprocess.run(
        [*COMMANDS[file], name],
        capture_output=True,
        text=True,
        env=ENVIRONMENT,
        timeout=LIMIT,
        **options,
    )


class Guide(unittest.TestCase):
    def serve(self, file):
        name = f"Model_guide_{os.getpid()}_{file.partition('.')[2]}"
        server = subprocess.Popen(
            [*COMMANDS[file], name], stdout=subprocess.PIPE, text=True, env=ENVIRONMENT
        )

        def end():
            server.kill()
            server.wait(LIMIT)
            server.stdout.close()
            # What a killed server leaves, as the guide says.
            Path(f"/tmp/{name}.fifo").unlink()

        self.addCleanup(end)
        self.assertEqual(server.stdout.readline(), f"ready {name}\n")
        return name

    def test_each_client_talks_to_each_server(self):
        for server in ("first_server.py", "first_server.c", "first_server.cpp"):
            name = self.serve(server)
            expected = BLOCKS["output"]
            for client in ("first_client.py", "first_client.c"):
                ended = run(client, name)
                self.assertEqual((ended.stdout, ended.stderr, ended.returncode), (expected, "", 0))
                expected = expected.replace("level 20.0", "level 30.0")

    def test_the_shell_shows_what_the_guide_shows(self):
        name = self.serve("first_server.c")
        shown = re.search(r"\$ treescope -c '(.*)'\n((?:    /.*\n)+)", TEXT)
        commands = shown[1].replace("Model_tank", name)
        ended = subprocess.run(
            [PREFIX / "bin/treescope", "-c", commands], capture_output=True, text=True, timeout=LIMIT
        )
        self.assertEqual(ended.stdout, re.sub("^    ", "", shown[2], flags=re.MULTILINE))

    def test_the_loops_run(self):
        name = self.serve("first_server.py")
        self.assertEqual(run("loop.py", name).stdout, "level 40.0\n")
        self.assertEqual(run("loop.c", name, input="x\n").stdout, "ended by standard input\n")

    def test_every_program_is_run(self):
        self.assertEqual(len(COMMANDS), 7)
        self.assertIn("no server", run("first_client.c", "Model_of_nobody").stderr)


if __name__ == "__main__":
    unittest.main()
