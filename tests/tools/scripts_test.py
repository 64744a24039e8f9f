"""Runs the scripts of doc/scripts.md, each against a device of its own system.

Usage: scripts_test.py DOCUMENT PROGRAMS SERVICE. PROGRAMS is the directory of treectl and modelsrvd, SERVICE the
program that is the device on the D-Bus; "none" if it has not been built. The scripts for a system that is not
installed are skipped.
"""

import contextlib
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

DOCUMENT, PROGRAMS, SERVICE = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(3))
LIMIT = 60
TEXT = DOCUMENT.read_text(encoding="utf-8")
SCRIPTS = {
    (task, tool): text
    for task, tool, text in re.findall(r"^```sh (\w+) ([\w-]+)\n(.*?)^```$", TEXT, re.M | re.S)
}
TASKS = ["health", "wait", "csv", "copy", "alarm"]
VALUES = {
    "drive": {"speed": "42", "temperature": "61.5"},
    "settings": {"setpoint": "20", "mode": "slow", "label": "bench 3"},
}

TREE = """{"name": "device", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42, "unit": "rpm"},
    {"id": 2, "name": "temperature", "type": "double", "value": 61.5, "unit": "degC"}]},
  {"id": 2, "name": "settings", "children": [
    {"id": 1, "name": "setpoint", "type": "int32", "value": 20, "minimum": 5, "maximum": 30},
    {"id": 2, "name": "mode", "type": "text", "value": "slow", "choices": ["off", "slow", "fast"]},
    {"id": 3, "name": "label", "type": "text", "value": "bench 3"}]}]}
"""
MQTT = "listener 0 {socket}\nallow_anonymous true\npersistence false\nlog_dest none\nuser root\n"
BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path={socket}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/>
<allow eavesdrop="true"/></policy></busconfig>
"""


def program(name):
    return shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin")


class Device:
    """The device of a system: its values, and the environment in which its scripts run."""

    needs = ()

    def __init__(self, case, directory):
        self.directory = directory
        self.case = case
        self.environment = {**os.environ, "PATH": f"{directory}/bin:{PROGRAMS}:{os.environ['PATH']}"}
        (directory / "bin").mkdir()
        self.servers = self.start()

    def launch(self, *words):
        """Starts a program, which is ended after the test."""
        process = subprocess.Popen(
            words, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True
        )

        def end():
            process.kill()
            process.wait(LIMIT)
            process.stdout.close()

        self.case.addCleanup(end)
        return process

    def write(self, name, text):
        path = self.directory / name
        path.write_text(text, encoding="utf-8")
        return path

    def add_option(self, name, *options):
        """Lets the scripts find the socket of this test."""
        path = self.write(f"bin/{name}", f'#!/bin/sh\nexec {program(name)} {" ".join(options)} "$@"\n')
        path.chmod(0o755)

    def await_socket(self, path):
        deadline = time.monotonic() + LIMIT
        while time.monotonic() < deadline:
            with contextlib.suppress(OSError), socket.socket(socket.AF_UNIX) as connection:
                connection.connect(str(path))
                return
        raise RuntimeError(f"no process serves {path}")

    def call(self, *words):
        return subprocess.run(
            words, env=self.environment, check=True, capture_output=True, text=True, timeout=LIMIT
        ).stdout

    def die(self):
        for server in self.servers:
            server.kill()
            server.wait(LIMIT)

    def fill(self, device):
        for group, values in VALUES.items():
            for name, value in values.items():
                self.set(f"{group}/{name}", value, device)

    def script(self, text):
        return text


class Model(Device):
    """The scripts name the servers Model_device and Model_spare; those of the test have names of their own."""

    def start(self):
        self.names = {name: f"Model_{name}_{os.getpid()}_{id(self)}" for name in ("device", "spare")}
        tree = self.write("tree.json", TREE)
        servers = []
        for name in self.names.values():
            # What a killed server leaves.
            self.case.addCleanup(pathlib.Path(f"/tmp/{name}.fifo").unlink)
            servers.append(self.launch("modelsrvd", "--tree", tree, "--name", name))
            assert servers[-1].stdout.readline() == f"ready {name}\n"
        return servers

    def script(self, text):
        for name, real in self.names.items():
            text = text.replace(f"Model_{name}", real)
        return text

    def set(self, path, value, device="device"):
        self.call("treectl", "set", f"/{self.names[device]}/{path}", value)

    def get(self, path, device="device"):
        return self.call("treectl", "get", f"/{self.names[device]}/{path}")[:-1]


class Redis(Device):
    needs = ("redis-server", "redis-cli")

    def start(self):
        path = self.directory / "socket"
        self.add_option("redis-cli", "-s", str(path))
        server = self.launch(
            program("redis-server"), "--port", "0", "--unixsocket", path, "--save", "", "--daemonize", "no",
            "--dir", self.directory, "--logfile", "/dev/null"
        )
        self.await_socket(path)
        self.fill("device")
        return [server]

    def set(self, path, value, device="device"):
        group, name = path.split("/")
        self.call("redis-cli", "HSET", f"{device}/{group}", name, value)

    def get(self, path, device="device"):
        group, name = path.split("/")
        return self.call("redis-cli", "HGET", f"{device}/{group}", name)[:-1]


class Mosquitto(Device):
    needs = ("mosquitto", "mosquitto_sub", "mosquitto_pub")

    def start(self):
        path = self.directory / "socket"
        for name in ("mosquitto_sub", "mosquitto_pub"):
            self.add_option(name, "--unix", str(path))
        server = self.launch(program("mosquitto"), "-c", self.write("conf", MQTT.format(socket=path)))
        self.await_socket(path)
        self.fill("device")
        return [server]

    def set(self, path, value, device="device"):
        self.call("mosquitto_pub", "-q", "1", "-r", "-t", f"{device}/{path}", "-m", value)

    def get(self, path, device="device"):
        return self.call("mosquitto_sub", "-C", "1", "-t", f"{device}/{path}")[:-1]


class Bus(Device):
    needs = ("dbus-daemon", "busctl", SERVICE)
    types = {"speed": "i", "temperature": "d", "setpoint": "i"}

    def start(self):
        path = self.directory / "socket"
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={path}"
        configuration = self.write("conf", BUS.format(socket=path))
        self.launch(program("dbus-daemon"), "--nofork", "--nopidfile", f"--config-file={configuration}")
        self.await_socket(path)
        servers = []
        for name in ("Device", "Spare"):
            servers.append(self.launch(SERVICE, f"org.example.{name}"))
            assert servers[-1].stdout.readline() == "ready\n"
        self.set("settings/label", "spare", "spare")
        return servers

    @staticmethod
    def property(path, device):
        group, name = path.split("/")
        return f"org.example.{device.title()}", f"/{group}", f"org.example.{group.title()}", name.title()

    def set(self, path, value, device="device"):
        kind = self.types.get(path.split("/")[1], "s")
        self.call("busctl", "set-property", *self.property(path, device), kind, value)

    def get(self, path, device="device"):
        return self.call("busctl", "get-property", *self.property(path, device))[2:-1].strip('"')


class Scripts:
    """What each script must do, whatever the system."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.device = self.kind(self, self.directory)

    def begin(self, task, *arguments):
        """Starts a script in a process group of its own, which is ended after the test."""
        text = self.device.script(SCRIPTS[task, self.tool])
        script = subprocess.Popen(
            ["bash", "-c", text, "script", *arguments], cwd=self.directory, env=self.device.environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            start_new_session=True
        )

        def end():
            with contextlib.suppress(ProcessLookupError):
                os.killpg(script.pid, signal.SIGKILL)
            script.wait(LIMIT)
            script.stdout.close()
            script.stderr.close()

        self.addCleanup(end)
        return script

    def run_script(self, task, *arguments):
        """Returns the status, and what was written on standard error."""
        script = self.begin(task, *arguments)
        return script.wait(LIMIT), script

    def test_health(self):
        status, script = self.run_script("health")
        self.assertEqual((status, script.stdout.read() + script.stderr.read()), (0, ""))
        self.device.set("drive/temperature", "85.5")
        status, script = self.run_script("health")
        self.assertNotEqual(status, 0)
        self.assertEqual(len(script.stderr.readlines()), 1)
        self.device.set("drive/temperature", "9.5")
        self.assertEqual(self.run_script("health")[0], 0)
        self.device.die()
        status, script = self.run_script("health")
        self.assertNotEqual(status, 0)
        self.assertNotEqual(script.stderr.read(), "")

    def test_wait(self):
        script = self.begin("wait")
        with self.assertRaises(subprocess.TimeoutExpired):
            script.wait(0.5)
        self.device.set("drive/speed", "50")
        self.assertEqual(script.wait(LIMIT), 0)

    def test_csv(self):
        self.assertEqual(self.run_script("csv", "2")[0], 0)
        header, *rows = (self.directory / "log.csv").read_text(encoding="utf-8").splitlines()
        self.assertRegex(header, "^time,.*speed,.*temperature$")
        self.assertGreater(len(rows), 0)
        for row in rows:
            self.assertRegex(row.replace('"', ""), r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d[^,]*,42,61\.5$")

    def test_copy(self):
        self.device.set("settings/setpoint", "25")
        self.device.set("settings/label", "two words")
        self.assertEqual(self.run_script("copy")[0], 0)
        copied = {name: self.device.get(f"settings/{name}", "spare") for name in VALUES["settings"]}
        self.assertEqual(copied, {"setpoint": "25", "mode": "slow", "label": "two words"})

    def test_alarm(self):
        output = self.begin("alarm").stdout.fileno()
        deadline = time.monotonic() + LIMIT
        written, stores = b"", 0
        # When the script has subscribed, no output says.
        while b"\n" not in written and time.monotonic() < deadline:
            self.device.set("settings/mode", ("fast", "off")[stores % 2])
            stores += 1
            if select.select([output], [], [], 0.1)[0]:
                written += os.read(output, 4096)
        self.assertRegex(written.decode(), r"\A(alarm: mode is (fast|off)\n)+\Z")


def case(tool, kind):
    missing = [str(name) for name in kind.needs if not program(name)]
    result = type(tool, (Scripts, unittest.TestCase), {"tool": tool, "kind": kind})
    return unittest.skipIf(missing, f"not installed: {', '.join(missing)}")(result)


Treectl = case("treectl", Model)
RedisCli = case("redis-cli", Redis)
MosquittoSub = case("mosquitto_sub", Mosquitto)
Busctl = case("busctl", Bus)
TOOLS = ["treectl", "redis-cli", "mosquitto_sub", "busctl"]


class Document(unittest.TestCase):
    def test_the_table_has_the_numbers_of_lines(self):
        self.assertEqual(set(SCRIPTS), {(task, tool) for task in TASKS for tool in TOOLS})
        counts = [[len(SCRIPTS[task, tool].splitlines()) for tool in TOOLS] for task in TASKS]
        counts.append([sum(column) for column in zip(*counts)])
        rows = re.findall(r"^\| [\w ]+ \| (\d[\d |]*) \|$", TEXT, re.M)
        self.assertEqual([[int(cell) for cell in row.split("|")] for row in rows], counts)


if __name__ == "__main__":
    unittest.main()
