"""Lets programs that others wrote read, store and watch values of a device that modelgate exports.

Usage: interop_test.py PROGRAMS [MODULES]. PROGRAMS is the directory of modelsrvd and modelgate. MODULES is a directory
with npm's packages mqtt and node-red ("script/interop" installs them); without it their tests are skipped.
"""

import contextlib
import json
import os
import pathlib
import queue
import random
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request

import paho.mqtt.client as mqtt
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

PROGRAMS = pathlib.Path(sys.argv.pop(1)).resolve()
MODULES = pathlib.Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 and not sys.argv[1].startswith("-") else None
LIMIT = 60
TOPICS = "ts/1/hall/press7"
SERVER = f"press_{os.getpid()}"
TREE = """{"name": "press", "children": [
  {"id": 1, "name": "axis", "children": [
    {"id": 1, "name": "position", "type": "double", "value": 12.5, "unit": "mm"},
    {"id": 2, "name": "homed", "type": "bool", "value": true}]},
  {"id": 2, "name": "settings", "children": [
    {"id": 1, "name": "stroke", "type": "int32", "value": 80, "minimum": 10, "maximum": 120},
    {"id": 2, "name": "label", "type": "text", "value": "hall 3"}]}]}
"""
running = []


def start(*words, ready=None, **options):
    process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, **options)
    running.append(process)
    if ready:
        readable, _, _ = select.select([process.stdout], [], [], LIMIT)
        line = process.stdout.readline().decode() if readable else "nothing"
        assert line == f"{ready}\n", line
    return process


def free_port():
    """A port that no program uses, and that the system gives to none by itself."""
    while True:
        number = random.randrange(12000, 32000)
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", number))
            return number


def setUpModule():
    global directory, port
    directory = tempfile.TemporaryDirectory()
    unittest.addModuleCleanup(directory.cleanup)
    unittest.addModuleCleanup(end)
    port = free_port()
    user = subprocess.check_output(["id", "-un"], text=True).strip()
    config = pathlib.Path(directory.name, "mosquitto.conf")
    config.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\npersistence false\nlog_dest none\n"
                      f"set_tcp_nodelay true\nuser {user}\n", encoding="utf-8")
    tree = pathlib.Path(directory.name, "tree.json")
    tree.write_text(TREE, encoding="utf-8")
    start(shutil.which("mosquitto", path=os.environ["PATH"] + ":/usr/sbin"), "-c", config)
    start(PROGRAMS / "modelsrvd", "--name", f"Model_{SERVER}", "--tree", tree, ready=f"ready Model_{SERVER}")
    start(PROGRAMS / "modelgate", "export", "--broker", f"mqtt://127.0.0.1:{port}", "--fleet", "hall", "--device", "press7",
          "--server", f"Model_{SERVER}", "--allow-set", "/settings", "--json", "/", ready="ready")


def end():
    for process in reversed(running):
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=LIMIT)


class Paho:
    """A client of paho for MQTT 5 that speaks JSON."""

    def __init__(self, user="anna"):
        self.user = user
        self.replies = queue.Queue()
        self.numbers = iter(range(1_000_000))
        self.client = mqtt.Client(client_id=f"paho-{user}", protocol=mqtt.MQTTv5)
        self.client.on_message = lambda client, data, message: self.replies.put(message)
        subscribed = queue.Queue()
        self.client.on_subscribe = lambda *arguments: subscribed.put(None)
        self.client.connect("127.0.0.1", port)
        self.client.subscribe(f"{TOPICS}/rsp/{user}/paho", qos=1)
        self.client.loop_start()
        subscribed.get(timeout=LIMIT)

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.client.disconnect()
        self.client.loop_stop()

    def request(self, verb, **fields):
        properties = Properties(PacketTypes.PUBLISH)
        properties.ResponseTopic = f"{TOPICS}/rsp/{self.user}/paho"
        properties.CorrelationData = str(next(self.numbers)).encode()
        properties.MessageExpiryInterval = 2
        properties.ContentType = "application/json"
        self.client.publish(f"{TOPICS}/req/{verb}/{self.user}", json.dumps({"server": SERVER} | fields), qos=1,
                            properties=properties)
        message = self.replies.get(timeout=LIMIT)
        assert message.properties.CorrelationData == properties.CorrelationData
        return json.loads(message.payload)


class Interoperation(unittest.TestCase):
    maxDiff = None

    def test_paho_gets_stores_and_watches(self):
        with Paho() as client:
            reply = client.request("get", path="/axis/position")
            self.assertEqual((reply["result"], reply["value"]), (0, "12.5"))
            reply = client.request("set", path="/settings/stroke", value=90)
            self.assertEqual((reply["result"], reply["value"]), (0, "90"))
            reply = client.request("set", path="/settings/stroke", value=900)
            self.assertNotEqual(reply["result"], 0)
            self.assertIn("900 is not within 10 to 120", reply["reason"])
            reply = client.request("set", path="/axis/homed", value=False)
            self.assertEqual((reply["result"], reply["value"] if "value" in reply else None)[0], 18)
            reply = client.request("get", path="/axis/none")
            self.assertEqual(reply["result"], 2)
            reply = client.request("watch", path="/axis")
            self.assertEqual((reply["result"], reply["lease"]), (0, 60000))
            reply = client.request("set", path="/settings/stroke", value=80)
            self.assertEqual(reply["result"], 0)

    def test_paho_for_c_gets_stores_and_watches(self):
        program = pathlib.Path(directory.name, "client")
        subprocess.run(["cc", "-Wall", "-Wextra", "-o", program, pathlib.Path(__file__).with_name("client.c"),
                        "-lpaho-mqtt3c"], check=True, timeout=LIMIT)
        done = subprocess.run([program, str(port), TOPICS, SERVER], check=True, capture_output=True, text=True,
                              timeout=2 * LIMIT)
        lines = [line.split(" ", 1) for line in done.stdout.splitlines()]
        self.assertEqual([verb for verb, _ in lines], ["get", "watch", "set", "set", "dashboard"])
        got, leased, stored, refused, dashboard = (json.loads(payload) for _, payload in lines)
        self.assertEqual((got["result"], got["value"]), (0, "12.5"))
        self.assertEqual((leased["result"], leased["lease"]), (0, 60000))
        self.assertEqual((stored["result"], stored["value"]), (0, "70"))
        self.assertIn("700 is not within 10 to 120", refused["reason"])
        self.assertEqual(dashboard, {"stroke": 70, "label": "hall 3"})

    def test_mosquitto_rr_gets_a_value(self):
        reply = subprocess.run(
            ["mosquitto_rr", "-h", "127.0.0.1", "-p", str(port), "-V", "5", "-q", "1", "-W", "10",
             "-t", f"{TOPICS}/req/get/rr", "-e", f"{TOPICS}/rsp/rr/one",
             "-m", json.dumps({"server": SERVER, "path": "/settings/label"})],
            check=True, capture_output=True, timeout=LIMIT)
        self.assertEqual(json.loads(reply.stdout)["value"], "hall 3")

    def test_a_node_is_flat_json_for_dashboards(self):
        reply = subprocess.run(
            ["mosquitto_sub", "-h", "127.0.0.1", "-p", str(port), "-W", "10", "-C", "1", "-t", f"{TOPICS}/j/{SERVER}/axis"],
            check=True, capture_output=True, timeout=LIMIT)
        self.assertEqual(json.loads(reply.stdout), {"position": 12.5, "homed": True})

    def test_prometheus_scrapes_values(self):
        http = free_port()
        config = pathlib.Path(directory.name, "prometheus.yaml")
        config.write_text(f"""mqtt:
  server: tcp://127.0.0.1:{port}
  topic_path: {TOPICS}/j/{SERVER}/axis
  device_id_regex: "ts/1/hall/(?P<deviceid>[^/]*)/.*"
  qos: 1
cache:
  timeout: 60m
metrics:
  - prom_name: axis_position
    mqtt_name: position
    help: Position of the axis in mm
    type: gauge
""", encoding="utf-8")
        start("prometheus-mqtt-exporter", "-config", config, "-listen-address", "127.0.0.1", "-listen-port", http,
              stderr=subprocess.DEVNULL)
        self.assertIn('axis_position{sensor="press7"', self.scraped(http, "axis_position{"))
        self.assertRegex(self.scraped(http, "axis_position{"), r"axis_position\{[^}]*\} 12\.5")

    @staticmethod
    def scraped(http, wanted):
        """The page of metrics, when it has the value: the exporter takes a moment to connect."""
        end_of_time = time.monotonic() + LIMIT
        text = ""
        while time.monotonic() < end_of_time:
            try:
                with urllib.request.urlopen(f"http://127.0.0.1:{http}/metrics", timeout=LIMIT) as page:
                    text = page.read().decode()
            except urllib.error.URLError:
                text = ""
            if wanted in text:
                return text
            # The exporter has no way to await a value.
            select.select([], [], [], 0.05)
        raise AssertionError(text)


@unittest.skipUnless(MODULES, "npm's packages are not installed, see script/interop")
class NodePrograms(unittest.TestCase):
    def test_mqtt_js_gets_stores_and_reads_dashboards(self):
        script = pathlib.Path(__file__).with_name("client.js")
        done = subprocess.run(["node", script, str(port), TOPICS, SERVER], check=True, capture_output=True, text=True,
                              timeout=LIMIT, env=os.environ | {"NODE_PATH": str(MODULES)})
        self.assertEqual(done.stdout, 'get 12.5\nset 100\nrefused stroke 100000 is not within 10 to 120\naxis 12.5 true\n')

    def test_a_flow_of_node_red_turns_a_value_into_another_topic(self):
        user = pathlib.Path(directory.name, "node-red")
        user.mkdir()
        flow = pathlib.Path(__file__).with_name("flow.json").read_text(encoding="utf-8")
        for name, value in (("@PORT@", str(port)), ("@TOPIC@", f"{TOPICS}/j/{SERVER}/axis")):
            flow = flow.replace(name, value)
        (user / "flows.json").write_text(flow, encoding="utf-8")
        http = free_port()
        program = MODULES / ".bin" / "node-red"
        start(program, "--userDir", user, "--port", http, "flows.json", stderr=subprocess.DEVNULL)
        reply = subprocess.run(
            ["mosquitto_sub", "-h", "127.0.0.1", "-p", str(port), "-W", str(LIMIT), "-C", "1", "-t", "dashboard/position"],
            check=True, capture_output=True, text=True, timeout=2 * LIMIT)
        self.assertEqual(reply.stdout, "12.5\n")


if __name__ == "__main__":
    unittest.main()
