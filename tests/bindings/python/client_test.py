"""Clients of the Python package, with a server in the same process. Nothing waits for a time."""

import copy
import pickle
import select
import subprocess
import sys
import threading
import unittest
import weakref

import treescope
from served import TIMEOUT, Connected, interrupted, port_name
from treescope import Access, Client, Event, Server, Type


class Clients(Connected):
    def test_reads_values_as_pythons_own_types(self):
        for path, value in {
            "/drive/speed": 42,
            "/drive/gains": [1.5, 0.25],
            "/drive/gains[1]": 0.25,
            "/drive/label": "two words",
            "/drive/flag": True,
            "/drive/texts": ["a", "b\nc"],
            "/mode": "off",
        }.items():
            self.assertEqual(self.client[path], value)
            self.assertIs(type(self.client[path]), type(value))

    def test_stores_values_of_pythons_own_types(self):
        for path, value in {
            "/drive/speed": 17,
            "/drive/gains": [2.0, -0.5],
            "/drive/gains[0]": 1e300,
            "/drive/label": "a\0b\n\udcff",
            "/drive/flag": False,
            "/drive/texts": ["x\ny", "1\nz"],
        }.items():
            self.client[path] = value
            self.assertEqual(self.client[path], value)
        self.client["/drive/speed"] = 18.0
        self.assertEqual(self.speed.value, 18)
        self.client["/drive/speed"] = Type.DOUBLE
        self.assertEqual(self.speed.value, 12)
        self.client.set("/drive/offset", 0.1, loader=True)
        self.assertAlmostEqual(self.offset.get(), 0.1, 6)
        self.client.set("/drive/label", b"\xff")
        self.assertEqual(self.client.get_text("/drive/label"), b"\xff")

    def test_whole_numbers_have_no_exponent(self):
        wide = self.server.add("wide", 0, type=Type.UINT64)
        for number in (1e18, 1e19, 2.0**64 - 2048):
            self.client["/wide"] = number
            self.assertEqual(wide.get(), int(number))
        with self.assertRaises(treescope.OutOfRange):
            self.client["/wide"] = 2.0**64

    def test_texts_with_line_feeds_are_as_many_as_the_elements(self):
        for texts in (["x\ny"] * 3, ["x\ny", None]):
            with self.assertRaises((treescope.BadText, TypeError)):
                self.client["/drive/texts"] = texts
        self.assertEqual(self.client["/drive/texts"], ["a", "b\nc"])
        self.client["/drive/label"] = ["a\nb", "c"]
        self.assertEqual(self.client["/drive/label"], "a\nb\nc")

    def test_arguments_of_wrong_types_are_type_errors_that_say_so(self):
        for path in (None, 5, b"/mode"):
            uses = (Client, self.client.get, self.client.read_tree, self.client.watch)
            for use in (*uses, lambda path: self.client.set(path, 1)):
                with self.assertRaisesRegex(TypeError, "expected a str, got"):
                    use(path)
        for value in (None, {1.0, 2.0}, {1.0: 1, 2.0: 2}, object()):
            with self.assertRaisesRegex(TypeError, "expected a bool, int"):
                self.client["/drive/gains"] = value
        self.client["/drive/label"] = memoryview(b"12")
        self.assertEqual(self.client["/drive/label"], "12")
        with self.assertRaisesRegex(treescope.NoValue, "^/: "):
            self.client.get("")

    def test_has_docstrings_where_python_looks_for_them(self):
        self.assertIn("Connects to the server", Client.__init__.__doc__)

    def test_what_has_a_handle_is_not_copied(self):
        with self.client.watch("/mode") as updates:
            for original in (self.client, self.server, self.mode, updates):
                for use in (copy.copy, copy.deepcopy, pickle.dumps):
                    with self.assertRaisesRegex(TypeError, "cannot be copied"):
                        use(original)
        self.assertEqual(self.client["/mode"], "off")

    def test_an_interrupt_just_as_a_visit_begins_is_raised(self):
        with interrupted("visit"), self.assertRaises(KeyboardInterrupt):
            self.client.read_tree()
        self.assertEqual(self.client["/mode"], "off")

    def test_the_end_of_a_forked_process_leaves_the_connections_alone(self):
        program = (
            "import os, sys, threading, treescope\n"
            f"name = {port_name()!r}\n"
            "server = treescope.Server()\n"
            "part = server.add('part', 1)\n"
            "server.publish(name)\n"
            "mailbox = os.stat(f'/tmp/{name}.fifo').st_ino\n"
            "serving = threading.Thread(target=server.run)\n"
            "serving.start()\n"
            "client = treescope.Client(name)\n"
            "updates = client.watch('part')\n"
            "next(updates)\n"
            "child = os.fork()\n"
            "if child == 0:\n"
            "    del updates, client, server\n"
            "    sys.exit()\n"
            "os.waitpid(child, 0)\n"
            "assert os.stat(f'/tmp/{name}.fifo').st_ino == mailbox\n"
            "part.set(2)\n"
            "assert next(updates).value == 2\n"
            "client.close()\n"
            "server.close()\n"
            "serving.join()\n"
        )
        subprocess.run([sys.executable, "-c", program], check=True, timeout=TIMEOUT)

    def test_raises_a_class_for_each_result(self):
        for error, path, value in [
            (treescope.NoSuchPart, "/no", 1),
            (treescope.NoValue, "/drive", 1),
            (treescope.NoSuchElement, "/drive/gains[2]", 1),
            (treescope.BadText, "/drive/speed", "fast"),
            (treescope.OutOfRange, "/drive/speed", 101),
            (treescope.Vetoed, "/mode", "warm"),
            (treescope.ReadOnly, "/drive/serial", "B"),
            (treescope.Protected, "/drive/offset", 1.0),
        ]:
            with self.assertRaises(error) as raised:
                self.client[path] = value
            self.assertIn(path, str(raised.exception))
            self.assertEqual(raised.exception.code, error.code)
        with self.assertRaises(ValueError):
            self.client["/drive/speed"] = "fast"
        with self.assertRaises(LookupError):
            self.client["/no"]
        with self.assertRaises(treescope.BadArgument):
            self.client["/drive\0/label"]
        with self.assertRaises(TypeError):
            self.client["/mode"] = object()
        with self.assertRaisesRegex(treescope.NoServer, "Model_without_server: no server"):
            Client("Model_without_server")

    def test_lists_and_describes(self):
        children = self.client.list("/drive")
        self.assertEqual([child.name for child in children][:3], ["speed", "gains", "label"])
        self.assertEqual([child.id for child in children], list(range(1, 8)))
        about = self.client.describe("/drive/speed")
        self.assertEqual(
            (about.type, about.access, about.unit, about.minimum, about.maximum, about.text),
            (Type.INT32, Access.READ_WRITE, "rpm", "0", "100", "of the motor"),
        )
        self.assertEqual(self.client.describe("/drive/gains").element_names, ("p", "i"))
        self.assertEqual(self.client.describe("/mode").choices, ("off", "heat"))
        self.assertFalse(self.client.describe("/drive/serial").watchable)
        self.assertEqual(self.client.describe().type, Type.NODE)
        self.assertEqual(self.client.resolve("/drive/gains[1]"), "#1/#2[1]")

    def test_reports_the_loss_and_the_return_of_the_server(self):
        events = []
        self.client.on_event(events.append)
        self.stop()
        while events != [Event.LOST]:
            self.client.dispatch(TIMEOUT)
        with self.assertRaises(treescope.NoServer):
            self.client["/mode"]
        with Server() as server:
            server.publish(self.name)
            while events != [Event.LOST, Event.RESTORED]:
                for ready in select.select([self.client, server], [], [], TIMEOUT)[0]:
                    ready.dispatch(0)
        self.client.on_event(None)

    def test_raises_in_dispatch_what_a_handler_raised(self):
        self.client.on_event(lambda event: 1 / 0)
        self.stop()
        with self.assertRaises(ZeroDivisionError):
            while True:
                self.client.dispatch(TIMEOUT)

    def test_a_closed_one_raises(self):
        self.client.close()
        self.client.close()
        for use in (self.client.get, self.client.list, self.client.describe, self.client.watch):
            with self.assertRaises(treescope.Closed):
                use("/mode")
        with self.assertRaises(treescope.Closed):
            self.client.dispatch()
        self.assertIn("closed", repr(self.client))

    def test_one_that_is_not_closed_is_reported(self):
        with self.assertWarns(ResourceWarning):
            client = Client(self.name)
            del client

    def test_reads_whole_trees(self):
        tree = self.client.read_tree()
        self.assertFalse(tree.structure_changed)
        values = {"/".join(part.names): part.value for part in tree}
        self.assertEqual(
            values,
            {
                "": None,
                "/drive": None,
                "/drive/speed": 42,
                "/drive/gains": [1.5, 0.25],
                "/drive/label": "two words",
                "/drive/flag": True,
                "/drive/texts": ["a", "b\nc"],
                "/drive/serial": "A-17",
                "/drive/offset": 0.0,
                "/mode": "off",
            },
        )
        drive = self.client.read_tree("/drive")
        self.assertEqual(len(drive), 8)
        self.assertEqual((drive[0].type, drive[0].is_node, drive[0].path), (Type.NODE, True, "#1"))
        gains = next(part for part in drive if part.name == "gains")
        self.assertEqual(
            (gains.path, gains.names, gains.type, gains.elements, gains.element_names),
            ("#1/#2", ("drive", "gains"), Type.DOUBLE, 2, ("p", "i")),
        )
        serial = next(part for part in drive if part.name == "serial")
        self.assertEqual((serial.access, serial.watchable), (Access.READ_ONLY, False))
        self.assertEqual(self.client.get(serial.path), "A-17")

    def test_a_tree_has_the_errors_of_its_values(self):
        self.speed.on_get(lambda: 1 // 0)
        [speed] = self.client.read_tree("/drive/speed")
        self.assertIsNone(speed.value)
        self.assertIsInstance(speed.error, treescope.Unreachable)
        for path, error in {
            "/no": treescope.NoSuchPart,
            "/drive/gains[0]": treescope.BadArgument,
        }.items():
            with self.assertRaises(error):
                self.client.read_tree(path)

    def test_get_makes_one_exchange(self):
        with Server() as server:
            server.add("number", 5)
            server.add("lines", ["a", "b"])
            server.add("computed", 1.0, getter=lambda: 2.5)
            name = port_name()
            server.publish(name)
            client = self.served_once(server, lambda: Client(name))[0]
            self.addCleanup(client.close)
            for path, value in {"#1": 5, "#2": ["a", "b"], "#3": 2.5}.items():
                result, dispatches = self.served_once(server, lambda: client.get(path))
                self.assertEqual((path, result, dispatches), (path, value, 1))

    def served_once(self, server, request):
        """The result of a request, and how often the server had something to do for it."""
        results = []

        def run():
            results.append(request())
            server.wake()

        thread = threading.Thread(target=run)
        thread.start()
        dispatches = 0
        while not results:
            dispatches += server.dispatch(TIMEOUT)
        thread.join()
        return results[0], dispatches

    def test_a_handler_may_replace_itself(self):
        handlers = []

        def replace(event):
            running = weakref.ref(self.client._on_event[0])
            self.client.on_event(None)
            handlers.append(running())

        self.client.on_event(replace)
        self.stop()
        while not handlers:
            self.client.dispatch(TIMEOUT)
        self.assertIsNotNone(handlers[0], "what runs still exists")


if __name__ == "__main__":
    unittest.main()
