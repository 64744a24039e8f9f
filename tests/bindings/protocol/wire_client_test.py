"""The client of PROTOCOL.md talks to modelsrvd, whose path is the first argument."""

import os
import signal
import subprocess
import sys
import tempfile
import unittest

from wire_client import STARTED, STOPPED, UPDATE, RequestError, NoServer, WireClient

LIMIT = 40
TREE = """{"children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42, "unit": "rpm", "maximum": 100},
    {"id": 3, "name": "gains", "type": "double", "elements": [
      {"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 5, "name": "serial", "type": "text", "value": "A-17", "access": "read-only"},
    {"id": 6, "name": "label", "type": "text", "value": "two words"}]}]}"""
SERVER = sys.argv.pop(1)


class Protocol(unittest.TestCase):
    def setUp(self):
        self.name = f"Model_wire_{os.getpid()}_{self.id().rpartition('.')[2]}"
        self.files = tempfile.TemporaryDirectory()
        self.addCleanup(self.files.cleanup)
        tree = os.path.join(self.files.name, "tree.json")
        with open(tree, "w", encoding="utf-8") as file:
            file.write(TREE)
        self.server = subprocess.Popen(
            [SERVER, "--name", self.name, "--tree", tree], stdout=subprocess.PIPE, text=True
        )
        self.addCleanup(self.server.stdout.close)
        self.addCleanup(self.server.wait, LIMIT)
        self.addCleanup(self.server.terminate)
        self.assertEqual(self.server.stdout.readline(), f"ready {self.name}\n")
        self.client = WireClient(self.name)
        self.addCleanup(self.client.close)

    def test_lists_and_reads(self):
        self.assertEqual(self.client.children([]), {b"drive": 1})
        self.assertEqual(
            self.client.children([1]), {b"speed": 1, b"gains": 3, b"serial": 5, b"label": 6}
        )
        self.assertEqual(self.client.save([1, 1]), b"42")
        self.assertEqual(self.client.save([1, 3]), b"1.5\n0.25")
        self.assertEqual(self.client.save([1, 3], 1), b"0.25")
        self.assertEqual(self.client.elements([1, 3]), (2, [b"p", b"i"]))
        self.assertEqual(self.client.elements([1, 1]), (0, []))

    def test_describes(self):
        self.assertEqual(
            self.client.describe([1, 1]),
            {
                "type": b"int32",
                "access": 1,
                "subscribable": 1,
                "elements": 0,
                "names": [],
                "attributes": [(1, b"rpm"), (3, b"100")],
            },
        )

    def test_stores(self):
        self.client.load([1, 1], b"17")
        self.assertEqual(self.client.save([1, 1]), b"17")
        large = b"x" * 1_000_000
        self.client.load([1, 6], large)
        self.assertEqual(self.client.save([1, 6]), large)
        for ids, text, result in [
            ([1, 1], b"fast", 5),
            ([1, 1], b"101", 6),
            ([1, 5], b"B", 7),
            ([1, 9], b"1", 2),
            ([1], b"1", 4),
        ]:
            with self.assertRaises(RequestError) as raised:
                self.client.load(ids, text)
            self.assertEqual(raised.exception.result, result)
        with self.assertRaises(RequestError) as raised:
            self.client.load([1, 1], b"101")
        self.assertIn("101", raised.exception.reason)
        with self.assertRaises(RequestError) as raised:
            self.client.exchange(999, b"")
        self.assertEqual(raised.exception.result, 14)

    def test_receives_updates_until_the_server_stops(self):
        self.assertEqual(self.client.next_event(LIMIT), (STARTED,))
        self.client.subscribe([1, 3])
        with WireClient(self.name) as other:
            other.load([1, 3], b"9", 1)
        self.assertEqual(self.client.next_event(LIMIT), (UPDATE, [1, 3], 1))
        self.client.unsubscribe([1, 3])
        with self.assertRaises(RequestError) as raised:
            self.client.unsubscribe([1, 3])
        self.assertEqual(raised.exception.result, 12)
        self.server.send_signal(signal.SIGTERM)
        with self.assertRaises(NoServer):
            # Not every shutdown is a graceful one, which ends with an event.
            while self.client.next_event(LIMIT) == (STOPPED,):
                pass

    def test_leaves_nothing_behind(self):
        def own_names(client):
            return [name for name in os.listdir("/tmp") if client.token.hex() in name]

        self.assertEqual(own_names(self.client), [])
        with self.assertRaises(NoServer):
            WireClient("Model_of_nobody")


if __name__ == "__main__":
    unittest.main()
