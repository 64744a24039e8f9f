"""What others need for 10,000 values of one device: clients that bench/fleet/measure.py compares with a viewer."""

import os
import pathlib
import socket
import statistics
import subprocess
import time

import paho.mqtt.client as mqtt

LIMIT = 60
ROUNDS = 5


def retain(path):
    """Publishes a retained topic a value at the broker's socket `path`."""
    class Client(mqtt.Client):
        def _create_socket_connection(self):
            connection = socket.socket(socket.AF_UNIX)
            connection.connect(str(path))
            return connection

    client = Client()
    client.max_inflight_messages_set(1000)
    client.connect("localhost")
    client.loop_start()
    for group in range(10):
        for item in range(1000):
            sent = client.publish(f"plain/group_{group:03}/item_{item:04}", str(item), qos=1, retain=True)
    sent.wait_for_publish(LIMIT)
    client.disconnect()
    client.loop_stop()


def measured(broker, read):
    """The median time in ms of `read`, which returns 10,000 lines, and the bytes that the broker sends meanwhile."""
    times, sizes = [], []
    for _ in range(ROUNDS):
        before = broker.sent()
        start = time.perf_counter()
        output = read()
        times.append(time.perf_counter() - start)
        sizes.append(broker.sent() - before)
        assert output.count(b"\n") >= 10000, output[:200]
    return 1000 * statistics.median(times), statistics.median(sizes)


def retained_topics(broker):
    """mosquitto_sub -v with a retained topic a value."""
    retain(broker.socket)
    return measured(broker, lambda: broker.run("mosquitto_sub", "-v", "-t", "plain/#", "-C", "10000").stdout)


def sparkplug(programs, broker, modules):
    """A host application that reads the birth of an edge node, both of npm's packages in `modules`."""
    script = pathlib.Path(__file__).with_name("sparkplug.js")
    environment = os.environ | {"NODE_PATH": str(modules)}
    programs.start("env", f"NODE_PATH={modules}", "node", script, "edge", broker.port, ready="ready")

    def read():
        return subprocess.run(["node", script, "host", str(broker.port)], env=environment, stdout=subprocess.PIPE,
                              timeout=LIMIT, check=True).stdout

    read()
    return measured(broker, read)
