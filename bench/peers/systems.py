"""The systems that are compared: how each serves the values, and the tools that use them.

Each function starts a system's server, loads the values and returns a `Peer`. "{value}" in the
words of a program or in a message stands for a number of seven digits.
"""

import dataclasses
import os
import socket

ITEMS = 1000
STORES = 20_000


@dataclasses.dataclass
class Tree:
    """The served values: 32-bit integers, `ITEMS` in each group, all 0."""

    groups: int

    @property
    def total(self):
        return self.groups * ITEMS

    def paths(self):
        for group in range(self.groups):
            for item in range(ITEMS):
                yield f"/group_{group:03}/item_{item:04}"


FIRST = "/group_000/item_0000"
VALUE_DIGITS = 7


@dataclasses.dataclass
class Task:
    """A program that runs until it exits; it must write at least `lines` lines."""

    how: str
    words: list
    lines: int = 1
    custom: bool = False  # Written for this comparison rather than a tool of the peer.


@dataclasses.dataclass
class Watch:
    """A tool that shows each update of the first value, and the client that stores it."""

    how: str
    words: list
    ready: str  # What the tool writes when it shows updates, and after each line of `typed`.
    shown: str  # What it writes for an update.
    store: list  # The fields of a storing client (clients.h).
    typed: tuple = ()


@dataclasses.dataclass
class Rate:
    """A row of update rates (rows.h); one description for each of its figures."""

    how: list
    kind: str
    fields: list
    runs: int = 10


@dataclasses.dataclass
class Peer:
    name: str
    read: Task
    write: Task
    lists: list
    more_reads: list = dataclasses.field(default_factory=list)
    servers: str = ""
    processes: list = dataclasses.field(default_factory=list)
    no_updates: str = ""  # Why the peer has none of the following.
    watch: Watch | None = None
    acknowledged: list = dataclasses.field(default_factory=list)
    streams: list = dataclasses.field(default_factory=list)


def connect(path):
    connection = socket.socket(socket.AF_UNIX)
    try:
        connection.connect(path)
    except OSError:
        connection.close()
        raise
    return connection


def treescope(launcher, tree):
    name = f"Model_peers{os.getpid()}"
    watched = f"{name}_watched"
    saved = launcher.path("saved")
    launcher.start(["modelsrvd", "--name", watched, "--synthetic", f"1x{ITEMS}"], "ready")
    server = launcher.start(["modelsrvd", "--name", name, "--synthetic", f"{tree.groups}x{ITEMS}"],
                           "ready")

    def shell(command):
        return ["treescope", "-c", f"cd {name};{command}"]

    changing = launcher.command(["modelsrvd"])
    return Peer(
        name="treescope",
        read=Task('treescope -c "cd S;get PATH"', shell(f"get {FIRST}")),
        more_reads=[Task("treectl get ADDRESS", ["treectl", "get", f"/{name}{FIRST}"])],
        write=Task('treescope -c "cd S;set N PATH"', shell(f"set {{value}} {FIRST}")),
        lists=[Task('treescope -c "cd S;ls -lr"', shell("ls -lr"), tree.total),
               Task('treescope -c "cd S;to FILE"', shell(f"to {saved}"), tree.total),
               Task("a client of this library, readTree", ["tree_client", name], tree.total,
                    custom=True),
               Task("treectl list -rl", ["treectl", "list", "-rl", f"/{name}"], tree.total),
               Task("treectl dump", ["treectl", "dump", f"/{name}"], tree.total)],
        servers="modelsrvd",
        processes=[server],
        watch=Watch("stored by a client, shown by treescope (eu)", ["treescope"], "$ ", FIRST,
                    ["model", name], (f"cd {name}", f"eu {FIRST}")),
        acknowledged=[Rate(["stores in 1,000 parts, with a subscriber that requests each value",
                            "updates received for the same stores, with their values"],
                           "model-stores", [name, 1]),
                      Rate(["stores in the same parts, with a subscriber that watches the tree and "
                            "gets each value",
                            "updates received for these stores, with their values"],
                           "model-stores", [watched, 2])],
        streams=[Rate(["10,000 parts, at most 1,000 thousand changes a second; a client that "
                       "counts updates"], "model-changes", [0, *changing], 5),
                 Rate(["the same, a client that requests each value"],
                      "model-changes", [1, *changing], 5),
                 Rate(["the same, a client that watches the tree and gets each value"],
                      "model-changes", [2, *changing], 5),
                 Rate(["the same, values that treectl watch prints into a file"],
                      "printed-changes",
                      [*changing, *launcher.command(["treectl"]), "watch", "--changes", "-s"], 5)])


def redis(launcher, tree):
    path = launcher.path("redis")
    server = launcher.start(["redis-server", "--port", "0", "--unixsocket", path, "--save", "",
                            "--appendonly", "no", "--loglevel", "warning", "--daemonize", "no"])
    launcher.await_socket(path)

    def client(*words):
        return ["redis-cli", "-s", path, *words]

    commands = "".join(f"HSET tree {value} 0\r\n" for value in tree.paths())
    launcher.output(client("--pipe"), commands.encode())

    payload = f"{FIRST} 1234567"
    publish = f'PUBLISH changes "{payload}"\r\n'.encode()
    received = f"*3\r\n$7\r\nmessage\r\n$7\r\nchanges\r\n${len(payload)}\r\n{payload}\r\n"
    subscribed = "*3\r\n$9\r\nsubscribe\r\n$7\r\nchanges\r\n:1\r\n"
    subscriber = ["stream", path, b"SUBSCRIBE changes\r\n".hex(), len(subscribed), len(received)]

    def store(message, reply, opening=b""):
        return ["stream", path, opening.hex(), 0, message.hex(), reply]

    return Peer(
        name="Redis",
        read=Task("redis-cli HGET", client("HGET", "tree", FIRST)),
        write=Task("redis-cli HSET", client("HSET", "tree", FIRST, "{value}")),
        lists=[Task("redis-cli HGETALL, a flat hash", client("HGETALL", "tree"), 2 * tree.total)],
        servers="redis-server",
        processes=[server],
        watch=Watch("PUBLISH, shown by redis-cli SUBSCRIBE", client("SUBSCRIBE", FIRST), "1\n",
                    "v{value}\n", store(f"PUBLISH {FIRST} v{{value}}\r\n".encode(), len(":1\r\n"))),
        acknowledged=[Rate(["PUBLISH, a client that counts bytes"], "stores",
                           [STORES, *subscriber, *store(publish, len(":1\r\n"))])],
        streams=[Rate(["PUBLISH in a pipeline, a client that counts bytes"], "burst",
                      [200_000, 200, *subscriber,
                       *store(1000 * publish, 0, b"CLIENT REPLY OFF\r\n")])])


BUS_CONFIGURATION = """\
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>{address}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">100000000</limit>
</busconfig>
"""


def bus(launcher, tree):
    """A bus of its own, without a limit that the updates would reach."""
    path = launcher.path("bus")
    address = os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={path}"
    configuration = launcher.write("bus.conf", BUS_CONFIGURATION.format(address=address))
    daemon = launcher.start(["dbus-daemon", "--nofork", "--nopidfile",
                            f"--config-file={configuration}"])
    launcher.await_socket(path)
    service = launcher.start(["bus_service", str(tree.groups), str(ITEMS)], "ready")
    group, item = FIRST.rsplit("/", 1)
    signals = 20_000

    def property_call(verb, *words):
        return ["busctl", "--user", verb, "treescope.Bench", group, "treescope.Bench.Group", item,
                *words]

    return Peer(
        name="D-Bus",
        read=Task("busctl get-property", property_call("get-property")),
        write=Task("busctl set-property", property_call("set-property", "i", "{value}"), 0),
        lists=[Task("a client of sd-bus, GetManagedObjects", ["bus_client", "list"], tree.total,
                    custom=True),
               Task("busctl call GetManagedObjects, in one line",
                    ["busctl", "--user", "call", "treescope.Bench", "/",
                     "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"])],
        servers="dbus-daemon and a service of sd-bus",
        processes=[daemon, service],
        watch=Watch("property set, shown by a client of sd-bus", ["bus_client", "watch"], "ready",
                    "[{value}]", ["bus"]),
        acknowledged=[Rate(["properties set, a client of sd-bus that counts signals"], "stores",
                           [2000, "bus", group, "org.freedesktop.DBus.Properties",
                            "PropertiesChanged", "bus"])],
        streams=[Rate(["signals, a client of sd-bus that counts them"], "burst",
                      [signals, 1, "bus", "/burst", "treescope.Bench.Burst", "Changed",
                       "bus-signals", signals])])


def mqtt_packet(first, body):
    """A packet of MQTT 3.1.1 with that first byte; the body is shorter than 16 KiB."""
    size = len(body)
    length = bytes([size]) if size < 128 else bytes([size % 128 + 128, size // 128])
    return bytes([first]) + length + body


def mqtt_text(text):
    return len(text).to_bytes(2, "big") + text.encode()


def mqtt_publish(topic, payload, flags=0, packet_id=b""):
    return mqtt_packet(0x30 | flags, mqtt_text(topic) + packet_id + payload.encode())


def mosquitto(launcher, tree):
    """Topics are the paths of the values without the first slash; the messages are retained."""
    path = launcher.path("mosquitto")
    configuration = launcher.write("mosquitto.conf", f"listener 0 {path}\nallow_anonymous true\n"
                                  "persistence false\nlog_dest none\nmax_queued_messages 0\n"
                                  "user root\n")
    server = launcher.start(["mosquitto", "-c", configuration])
    launcher.await_socket(path)

    retained, at_least_once = 1, 2
    topic = FIRST[1:]
    payload = f"{FIRST} 1234567"
    publish = mqtt_publish("changes", payload)
    acknowledged = mqtt_publish("changes", payload, at_least_once, b"\0\1")
    placeholder = mqtt_publish(topic, "7" * VALUE_DIGITS, retained)
    latest = placeholder.replace(b"7" * VALUE_DIGITS, b"{value}")
    stores = 10_000

    def opening(client):
        # Protocol level 4, a clean session, no keep-alive.
        return mqtt_packet(0x10, mqtt_text("MQTT") + b"\4\2\0\0" + mqtt_text(client))

    def store(client, message, reply):
        return ["stream", path, opening(client).hex(), 4, message.hex(), reply]

    def subscriber(client):
        subscribe = mqtt_packet(0x82, b"\0\1" + mqtt_text("changes") + b"\0")
        return ["stream", path, (opening(client) + subscribe).hex(), 4 + 5, len(publish)]

    def client(program, *words):
        return [program, "--unix", path, *words]

    # mosquitto_pub publishes to one topic only.
    with connect(path) as loading:
        loading.sendall(opening("loading"))
        for value in tree.paths():
            loading.sendall(mqtt_publish(value[1:], "0", retained))
        loading.sendall(b"\xc0\0")  # A ping: its reply follows the last publication.
        received = 0
        while received < 4 + 2:
            received += len(loading.recv(16))

    return Peer(
        name="Mosquitto",
        read=Task("mosquitto_sub -C 1", client("mosquitto_sub", "-t", topic, "-C", "1")),
        write=Task("mosquitto_pub -r",
                   client("mosquitto_pub", "-t", topic, "-m", "{value}", "-r"), 0),
        lists=[Task("mosquitto_sub -v -t '#'",
                    client("mosquitto_sub", "-v", "-t", "#", "-C", str(tree.total)), tree.total)],
        servers="mosquitto",
        processes=[server],
        watch=Watch("retained topic, shown by mosquitto_sub",
                    client("mosquitto_sub", "-v", "-t", topic), "\n", " {value}\n",
                    store("watched", latest, 0)),
        acknowledged=[Rate(["QoS 1, a client that counts bytes"], "stores",
                           [stores, *subscriber("counting-acknowledged"),
                            *store("acknowledged", acknowledged, 4)])],
        streams=[Rate(["QoS 0, a client that counts bytes"], "burst",
                      [100_000, 100, *subscriber("counting-stream"),
                       *store("stream", 1000 * publish, 0)])])


def net_snmp(launcher, tree):
    # The net-snmp project reserves these names for experiments.
    base = ".1.3.6.1.4.1.8072.9999.9999"
    address = f"unix:{launcher.path('snmp')}"
    # Keeps the machine's own configuration out.
    os.environ.update(SNMPCONFPATH=launcher.path("none"), MIBS="",
                      SNMP_PERSISTENT_DIR=launcher.path("persistent"))
    (values,) = launcher.command(["snmp_values"])
    configuration = launcher.write(
        "snmpd.conf", f"agentaddress {address}\ncom2secunix here default public\n"
        "group here v2c here\nview all included .1\n"
        'access here "" any noauth exact all all none\ndontLogTCPWrappersConnects yes\n'
        f"pass_persist {base} {values} {base} {tree.groups} {ITEMS}\n")
    server = launcher.start(["/usr/sbin/snmpd", "-f", "-LE", "3", "-I", "-smux", "-C", "-c",
                            configuration])
    launcher.await_socket(launcher.path("snmp"))

    def client(program, name, *words, options=()):
        return [program, "-v2c", "-c", "public", "-m", "", "-On", *options, address,
                f"{base}{name}", *words]

    read = Task("snmpget", client("snmpget", ".1.1"))
    # The first request starts the program that has the values.
    launcher.output(read.words)
    return Peer(
        name="net-snmp",
        read=read,
        write=Task("snmpset", client("snmpset", ".1.1", "i", "{value}")),
        lists=[Task("snmpbulkwalk -Cr100, names in numbers",
                    client("snmpbulkwalk", "", options=["-Cr100"]), tree.total)],
        servers="snmpd and the program with the values",
        processes=[server],
        no_updates="net-snmp reports changes by traps, which snmpd must be configured to send "
                   "for each kind of value; a client cannot subscribe to a value.")


def augeas(launcher, tree):
    """A file of values in sections, which the tool reads as a whole each time."""
    text = ""
    for group in range(tree.groups):
        text += f"[group_{group:03}]\n"
        text += "".join(f"item_{item:04} = 0\n" for item in range(ITEMS))
    launcher.write("augeas/values", text)

    def tool(*words):
        # Loads the one lens that is needed.
        return ["augtool", "-r", launcher.path("augeas"), "-A", "-t", "Puppet.lns incl /values",
                *words]

    return Peer(
        name="Augeas",
        read=Task("augtool get, a file of sections", tool("get", f"/files/values{FIRST}")),
        write=Task("augtool set, saved", tool("-s", "set", f"/files/values{FIRST}", "{value}"), 0),
        lists=[Task("augtool print", tool("print", "/files/values"), tree.total)],
        no_updates="Augeas edits files: there is no server that could notify a client.")


ALL = (treescope, redis, bus, mosquitto, net_snmp, augeas)
