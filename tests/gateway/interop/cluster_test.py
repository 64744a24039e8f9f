"""Tries modelgate with two clustered nodes of ejabberd as its broker; "script/cluster" runs it.

Usage: cluster_test.py PROGRAMS LOG. PROGRAMS is the directory of modelsrvd, modelgate and treectl. The host "hub" must be
both 127.0.0.1 and 127.0.0.2, which are the addresses of the nodes.
"""

import contextlib
import os
import pathlib
import queue
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time

import paho.mqtt.client as mqtt
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

PROGRAMS, LOG = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
LIMIT = 180
ITEM = "/group_000/item_0007"
LIBRARIES = "/usr/lib/" + subprocess.check_output(["dpkg-architecture", "-qDEB_HOST_MULTIARCH"], text=True).strip()
NODES = {1: "127.0.0.1", 2: "127.0.0.2"}
PASSWORDS = {"press7": "one", "anna": "two"}


def until(condition, what):
    """Waits for a state of other programs that announce nothing."""
    end = time.monotonic() + LIMIT
    while time.monotonic() < end:
        if condition():
            return
        select.select([], [], [], 0.05)
    sys.exit(f"{what}: not in {LIMIT} s")


def say(text):
    print(text, flush=True)


class Cluster(contextlib.ExitStack):
    """Two nodes with a directory, a name service and a cookie of their own."""

    def __init__(self):
        super().__init__()
        self.directory = pathlib.Path(self.enter_context(tempfile.TemporaryDirectory()))
        self.names, self.port = self.free_port(), self.free_port()
        self.environment = os.environ | {
            "HOME": str(self.directory), "ERL_LIBS": LIBRARIES, "ERL_EPMD_PORT": str(self.names),
            "ERL_EPMD_ADDRESS": "127.0.0.1", "ERL_CRASH_DUMP": "/dev/null"}
        self.log = self.enter_context(LOG.open("ab"))
        self.start("epmd", "-port", self.names, "-address", "127.0.0.1")

    @staticmethod
    def free_port():
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            return probe.getsockname()[1]

    def start(self, *words, output=None, **options):
        process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=output or self.log,
                                   stderr=self.log, env=self.environment, **options)
        self.callback(self.end, process)
        return process

    @staticmethod
    def end(process):
        process.send_signal(signal.SIGTERM)
        try:
            process.communicate(timeout=LIMIT)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()

    def start_node(self, number):
        place = self.directory / f"node{number}"
        place.mkdir(exist_ok=True)
        config = place / "ejabberd.yml"
        config.write_text("hosts:\n  - localhost\nloglevel: warning\nauth_method: mnesia\nmodules:\n  mod_mqtt: {}\n"
                          f"listen:\n  -\n    module: mod_mqtt\n    port: {self.port}\n    ip: \"{NODES[number]}\"\n",
                          encoding="utf-8")
        self.environment |= {"EJABBERD_CONFIG_PATH": str(config), "EJABBERD_LOG_PATH": str(place / "log")}
        node = self.start(
            "erl", "-noinput", "-sname", f"node{number}@localhost", "-setcookie", "treescope",
            "-kernel", "inet_dist_use_interface", "{127,0,0,1}", "-mnesia", "dir", f'"{place}/database"', "-s", "ejabberd", cwd=place)
        self.await_node(number)
        return node

    def await_node(self, number):
        until(lambda: self.accepts(number) and "is running" in self.control(number, "status", check=False),
              f"node {number}")

    def accepts(self, number):
        with contextlib.suppress(OSError), socket.create_connection((NODES[number], self.port), LIMIT):
            return True
        return False

    def control(self, number, *words, check=True):
        """A command of ejabberdctl."""
        done = subprocess.run(
            ["erl", "-noinput", "-hidden", "-sname", f"control{os.getpid()}@localhost", "-setcookie", "treescope",
             "-s", "ejabberd_ctl", "-extra", f"node{number}@localhost", *words],
            env=self.environment, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=LIMIT)
        self.log.write((done.stdout + done.stderr).encode())
        if check and done.returncode != 0:
            sys.exit(f"{' '.join(words)}: {done.stdout}{done.stderr}")
        return done.stdout

    def join(self):
        self.control(2, "join_cluster", "node1@localhost")
        until(lambda: len(self.control(1, "list_cluster").split()) == 2, "the cluster")
        self.await_node(2)

    def gate(self, role, host, user, *words):
        password = self.directory / user
        password.write_text(PASSWORDS[user], encoding="utf-8")
        process = self.start(PROGRAMS / "modelgate", role, "-v", "--broker", f"mqtt://{host}:{self.port}",
                             "--fleet", "hall", "--user", f"{user}@localhost", "--password-file", password, *words,
                             output=subprocess.PIPE)
        readable, _, _ = select.select([process.stdout], [], [], LIMIT)
        if not readable or process.stdout.readline() != b"ready\n":
            sys.exit(f"modelgate {role} is not ready")
        return process


class Client:
    """A client of paho at a node, which keeps what it gets."""

    def __init__(self, cluster, number, name, user="anna", will=None, session=0):
        self.messages, self.replies = queue.Queue(), queue.Queue()
        self.client = mqtt.Client(client_id=name, protocol=mqtt.MQTTv5)
        self.client.username_pw_set(f"{user}@localhost", PASSWORDS[user])
        self.client.on_message = lambda client, data, message: self.messages.put(message)
        self.client.on_connect = lambda *arguments: self.replies.put(arguments)
        self.client.on_subscribe = lambda *arguments: self.replies.put(arguments)
        self.client.on_publish = lambda *arguments: self.replies.put(arguments)
        if will:
            self.client.will_set(*will)
        properties = Properties(PacketTypes.CONNECT)
        properties.SessionExpiryInterval = session
        self.client.connect(NODES[number], cluster.port, properties=properties, clean_start=session == 0)
        self.client.loop_start()
        self.replies.get(timeout=LIMIT)

    def subscribe(self, topic):
        self.client.subscribe(topic, qos=1)
        self.replies.get(timeout=LIMIT)
        return self

    def publish(self, topic, payload, retain=False, **properties):
        sent = Properties(PacketTypes.PUBLISH)
        for name, value in properties.items():
            setattr(sent, name, value)
        self.client.publish(topic, payload, qos=1, retain=retain, properties=sent)
        self.replies.get(timeout=LIMIT)

    def next(self, limit=LIMIT):
        with contextlib.suppress(queue.Empty):
            return self.messages.get(timeout=limit)

    def end(self):
        self.client.disconnect()
        self.client.loop_stop()


def treectl(*words):
    return subprocess.run([PROGRAMS / "treectl", *words], check=True, capture_output=True, text=True, timeout=LIMIT).stdout


def has(name, good, detail=""):
    say(f"  {name}: {'yes' if good else 'no'}{detail and ', ' + detail}")


def show_features(cluster):
    """What of MQTT 5 works, from node 1 to node 2."""
    say("MQTT 5 between the nodes:")
    near, far = Client(cluster, 1, "near"), Client(cluster, 2, "far").subscribe("try/a")
    near.publish("try/a", b"x", ResponseTopic="try/b", CorrelationData=b"7", ContentType="text/plain",
                 MessageExpiryInterval=20)
    properties = far.next().properties
    has("response topic", getattr(properties, "ResponseTopic", None) == "try/b")
    has("correlation data", getattr(properties, "CorrelationData", None) == b"7")
    has("content type", getattr(properties, "ContentType", None) == "text/plain")
    has("message expiry is passed on", 0 < getattr(properties, "MessageExpiryInterval", 0) <= 20)

    away = Client(cluster, 2, "away", session=60).subscribe("try/queue")
    away.end()
    near.publish("try/queue", b"short", MessageExpiryInterval=1)
    near.publish("try/queue", b"long", MessageExpiryInterval=60)
    time.sleep(2.5)  # nothing says that it has expired
    away = Client(cluster, 2, "away", session=60)
    first = away.next(5)
    has("a message that has expired stays in the queue of a session", first is not None and first.payload == b"short")
    has("a session's queue outlasts a connection", first is not None)

    near.publish("try/kept", b"x" * 61440, retain=True)
    near.publish("try/brief", b"x", retain=True, MessageExpiryInterval=1)
    has("retained, 60 KiB, on the node that got it",
        Client(cluster, 1, "late1").subscribe("try/kept").next(5) is not None)
    has("retained, on the other node", Client(cluster, 2, "late2").subscribe("try/kept").next(5) is not None)
    time.sleep(2.5)
    has("a retained message expires", Client(cluster, 1, "late3").subscribe("try/brief").next(3) is None)

    will = Properties(PacketTypes.WILLMESSAGE)
    will.WillDelayInterval = 2
    watcher = Client(cluster, 2, "watcher").subscribe("try/will")
    dying = Client(cluster, 1, "dying", will=("try/will", b"gone", 1, False, will), session=10)
    begin = time.monotonic()
    dying.client.loop_stop()
    dying.client._sock_close()  # without DISCONNECT
    came = watcher.next(20)
    has("a will", came is not None)
    has("its delay", came is not None and time.monotonic() - begin > 1.5)


def try_modelgate(cluster, first):
    say("modelgate:")
    until(lambda: "Model_press7.host" in treectl("servers"), "the mirror")
    mirror, local = "/Model_press7.host", "/Model_host"
    assert treectl("list", "-r", mirror).count("/item_") == 1000
    has("a tree of 1,000 values is listed at the other node", True)
    treectl("set", mirror + ITEM, "77")
    assert treectl("get", local + ITEM) == "77\n"
    has("a store reaches the device, with its true result", True)
    watch = cluster.start(PROGRAMS / "treectl", "watch", mirror + ITEM, output=subprocess.PIPE)
    assert watch.stdout.readline().endswith(b"\t77\n")
    treectl("set", local + ITEM, "78")
    assert watch.stdout.readline().endswith(b"\t78\n")
    has("a change is shown", True)

    begin = time.monotonic()
    first.kill()
    first.wait(LIMIT)
    say("  node 1 is killed")

    def stores():
        done = subprocess.run([PROGRAMS / "treectl", "set", mirror + ITEM, "79"], capture_output=True, timeout=LIMIT)
        return done.returncode == 0
    until(stores, "a store after the kill")
    assert treectl("get", local + ITEM) == "79\n"
    has("the device goes on at the other node", True, f"a store is done after {time.monotonic() - begin:.1f} s")
    assert treectl("list", "-r", mirror).count("/item_") == 1000
    treectl("set", local + ITEM, "80")
    until(lambda: treectl("get", mirror + ITEM) == "80\n", "the last value")
    has("the values are equal", True)


def main():
    with Cluster() as cluster:
        first = cluster.start_node(1)
        for user, password in PASSWORDS.items():
            cluster.control(1, "register", user, "localhost", password)
        server = cluster.start(PROGRAMS / "modelsrvd", "--name", "Model_host", "--synthetic", "10x100",
                               output=subprocess.PIPE)
        assert server.stdout.readline() == b"ready Model_host\n"
        cluster.gate("export", "hub", "press7", "--device", "press7", "--server", "host", "--allow-set", "/")
        # It knows only the retained topics that there were when it started or joined.
        cluster.start_node(2)
        cluster.join()
        show_features(cluster)
        cluster.gate("view", NODES[2], "anna")
        try_modelgate(cluster, first)


if __name__ == "__main__":
    main()
