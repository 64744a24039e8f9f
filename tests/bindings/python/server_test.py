"""Servers of the Python package, with clients in the same process. Nothing waits for a time."""

import contextlib
import gc
import signal
import subprocess
import sys
import threading
import unittest
import weakref

import treescope
from served import TIMEOUT, Served, interrupted, port_name
from treescope import Client, Server, Type


class Servers(Served):
    def test_checks_stores(self):
        def check(value, index):
            if value > 10:
                raise ValueError(f"{value} is above ten")
            if value < 0:
                raise treescope.OutOfRange("negative")

        self.gains.on_store(check)
        with Client(self.name) as client:
            client["/drive/gains[0]"] = 9.5
            with self.assertRaisesRegex(treescope.Vetoed, "11.0 is above ten"):
                client["/drive/gains[0]"] = 11.0
            with self.assertRaisesRegex(treescope.OutOfRange, "negative"):
                client["/drive/gains"] = [1.0, -1.0]
            self.gains.on_store(lambda value, index: 1 / 0)
            with self.assertRaises(treescope.Vetoed):
                client["/drive/gains[0]"] = 1.0
            self.gains.on_store(None)
            client["/drive/gains[0]"] = 11.0
        self.assertEqual([type(error) for error in self.handler_errors], [ZeroDivisionError])

    def test_a_refusal_whose_reason_cannot_be_sent_is_a_refusal(self):
        class Unprintable(ValueError):
            def __str__(self):
                return 1 // 0

        class Own(treescope.TreescopeError):
            code = 0

        class OwnText(treescope.TreescopeError):
            code = "E42"

        def check(value, index):
            raise refusals[value]

        refusals = [ValueError("not \ud800"), Unprintable(), Own("own"), OwnText("own"),
                    ValueError("a\nb\0\udcff")]
        reasons = ["not ?", "refused", "own", "own", r"a\?b\?\?"]
        self.speed.on_store(check)
        with Client(self.name) as client:
            for value, reason in enumerate(reasons):
                with self.assertRaisesRegex(treescope.Vetoed, reason):
                    client["/drive/speed"] = value
            self.assertEqual(client["/drive/speed"], 42)
        self.assertEqual([type(error) for error in self.handler_errors], [ZeroDivisionError])

    def test_a_callback_is_a_function(self):
        for use in (self.speed.on_store, self.speed.on_get, self.speed.on_watched):
            with self.assertRaises(TypeError):
                use(5)
        for option in ("check", "getter"):
            with self.assertRaises(TypeError):
                self.server.add("part", 1, **{option: 5})
        with Client(self.name) as client:
            self.assertEqual([child.name for child in client.list()], ["drive", "mode"])
            with self.assertRaises(TypeError):
                client.on_event(5)

        class Empty:
            def __len__(self):
                return 0

            def __call__(self, value, index):
                raise ValueError("called")

        self.speed.on_store(Empty())
        with Client(self.name) as client, self.assertRaisesRegex(treescope.Vetoed, "called"):
            client["/drive/speed"] = 1

    def test_a_number_that_c_cannot_represent_does_not_become_another(self):
        for elements in (-1, 65535, 2**32 + 1, 2**64 + 1):
            with self.assertRaises(treescope.BadArgument):
                self.server.add("array", elements=elements)
        for wrong in ({"type": 2**32 + 3}, {"access": 2**32 + 1}):
            with self.assertRaises(ValueError):
                self.server.add("part", 1, **wrong)
        with Server() as server:
            for group in (-1, 2**32 - 1, 2**32):
                with self.assertRaises(treescope.BadArgument):
                    server.publish("Model_group", group=group)

    def test_arguments_of_wrong_types_are_type_errors_that_say_so(self):
        for name in (None, 5, b"name"):
            with self.assertRaisesRegex(TypeError, "expected a str, got"):
                self.server.add(name, 1)
            with self.assertRaisesRegex(TypeError, "expected a str, got"):
                self.server.publish(name)
        for value in ({1, 2}, {1: 2}, (i for i in range(2)), object()):
            with self.assertRaisesRegex(TypeError, "expected a bool, int"):
                self.server.add("part", value)
        for option in ("choices", "element_names"):
            with self.assertRaisesRegex(TypeError, "expected a sequence of texts"):
                self.server.add("part", ["a", "b"], **{option: "ab"})
        self.assertEqual(self.server.add("bytes", bytearray(b"\xff\0")).get(), "\udcff\0")

    def test_texts_with_line_feeds_are_as_many_as_the_elements(self):
        for texts in (["x\ny", "b", "c"], ["x\ny", None]):
            with self.assertRaises((treescope.BadText, TypeError)):
                self.texts.set(texts)
        self.assertEqual(self.texts.get(), ["a", "b\nc"])

    def test_an_interrupt_just_as_a_callback_begins_is_raised(self):
        name = port_name()

        def store():
            with Client(name) as client, contextlib.suppress(treescope.TreescopeError):
                client["/part"] = 2

        with Server() as server:
            server.add("part", 1, check=lambda value, index: None)
            server.publish(name)
            storing = threading.Thread(target=store)
            storing.start()
            with interrupted("call"), self.assertRaises(KeyboardInterrupt):
                while True:
                    server.dispatch(TIMEOUT)
        storing.join()

    def test_computes_values(self):
        readings = [1, "x", 2**40]
        self.speed.on_get(lambda: readings[0])
        with Client(self.name) as client:
            self.assertEqual(client["/drive/speed"], 1)
            readings.pop(0)
            with self.assertRaises(treescope.BadText):
                client["/drive/speed"]
            readings.pop(0)
            with self.assertRaises(treescope.OutOfRange):
                client["/drive/speed"]
            self.speed.on_get(lambda: 1 // 0)
            with self.assertRaises(treescope.Unreachable):
                client["/drive/speed"]
            self.speed.on_get(None)
            self.assertEqual(client["/drive/speed"], 42)

    def test_notifies_of_computed_values(self):
        reading = [1]
        watched = threading.Event()
        self.speed.on_get(lambda: reading[0])
        self.speed.on_watched(lambda now: watched.set() if now else None)
        with Client(self.name) as client, client.watch("/drive/speed") as updates:
            self.assertTrue(watched.wait(TIMEOUT))
            self.assertEqual(next(updates).value, 1)
            reading[0] = 2
            self.speed.notify()
            self.assertEqual(next(updates).value, 2)

    def test_a_part_that_is_refused_is_not_in_the_tree(self):
        for wrong in (
            {"value": [1, 2], "getter": lambda: 1},
            {"value": "1\0", "type": Type.INT32},
            {"value": 1, "type": Type.NODE},
        ):
            with self.assertRaises(ValueError):
                self.server.add("wrong", **wrong)
        with Client(self.name) as client:
            self.assertEqual([child.name for child in client.list()], ["drive", "mode"])

    def test_adds_and_removes_parts(self):
        with self.assertRaises(treescope.DuplicateId):
            self.server.add("again", 1, id=1)
        with self.assertRaises(ValueError):
            self.server.add("far", 1, id=65534)
        with self.assertRaises(treescope.BadArgument):
            self.speed.add("child", 1)
        with self.assertRaises(ValueError):
            self.server.add("names", [1, 2], element_names=["a"])
        part = self.server.add("late", ["a", "b"], id=1000)
        self.assertEqual(self.server.add("next", 1.0).get(), 1.0)
        self.assertEqual(part.get(), ["a", "b"])
        part.remove()
        with self.assertRaises(treescope.Closed):
            part.set("x", 0)
        with self.assertRaises(treescope.NameInUse), Server() as second:
            second.publish(self.name)

    def test_a_callback_cannot_change_the_tree(self):
        results = []

        def check(value, index):
            try:
                self.speed.remove()
            except treescope.Busy as error:
                results.append(error)

        self.label.on_store(check)
        with Client(self.name) as client:
            client["/drive/label"] = "x"
        self.assertEqual(len(results), 1)

    def test_is_closed_while_other_threads_wait(self):
        for _ in range(50):
            server = Server()
            waiting = [threading.Thread(target=server.run) for _ in range(3)]
            for thread in waiting:
                thread.start()
            server.close()
            for thread in waiting:
                thread.join(TIMEOUT)
                self.assertFalse(thread.is_alive())

    def test_is_closed_by_a_signal_handler(self):
        program = (
            "import os, signal, threading, treescope\n"
            "server = treescope.Server()\n"
            "signal.signal(signal.SIGUSR1, lambda *_: server.close())\n"
            "server.publish('Model_signal_%d' % os.getpid())\n"
            "print('ready', flush=True)\n"
            "server.run()\n"
        )
        with subprocess.Popen(
            [sys.executable, "-X", "dev", "-W", "error", "-c", program],
            stdout=subprocess.PIPE,
            text=True,
        ) as ended:
            self.assertEqual(ended.stdout.readline(), "ready\n")
            ended.send_signal(signal.SIGUSR1)
            self.assertEqual(ended.wait(TIMEOUT), 0)

    def test_is_closed_by_a_signal_handler_just_before_it_waits(self):
        server = Server()
        self.addCleanup(server.close)
        fileno = server.fileno

        def fileno_and_signal():
            descriptor = fileno()
            signal.raise_signal(signal.SIGUSR1)
            return descriptor

        # A first wait makes what the others use again.
        server.wake()
        server.dispatch(None)
        server.fileno = fileno_and_signal
        before = signal.signal(signal.SIGUSR1, lambda *_: server.close())
        self.addCleanup(signal.signal, signal.SIGUSR1, before)
        server.run()
        self.assertTrue(server.closed)

    def test_another_thread_may_dispatch_it_before_its_first_wait_begins(self):
        server = Server()
        self.addCleanup(server.close)
        poll = server._poll
        errors = []

        def dispatch():
            try:
                server.dispatch()
            except OSError as error:
                errors.append(error)

        def dispatch_and_poll(end, arrived):
            other = threading.Thread(target=dispatch)
            other.start()
            other.join(TIMEOUT)
            server.wake()
            poll(end, arrived)

        server._poll = dispatch_and_poll
        server.dispatch(None)
        self.assertEqual(errors, [])

    def test_an_index_is_that_of_an_element(self):
        for index in (-1, -2, 65534, 2**32):
            for use in (lambda: self.gains.get(index), lambda: self.gains.set(1.0, index)):
                with self.assertRaises(treescope.BadArgument):
                    use()
        self.assertEqual(self.gains.get(), [1.5, 0.25])

    def test_parts_are_released_with_the_node_that_is_removed(self):
        node = self.server.node("node")
        below = weakref.ref(node.node("inner").add("part", 1))
        gc.collect()
        self.assertIsNotNone(below())
        node.remove()
        del node
        gc.collect()
        self.assertIsNone(below())

    def test_a_check_may_replace_itself(self):
        checks = []

        def check(value, index):
            running = weakref.ref(self.label._callbacks["on_store"][0])
            self.label.on_store(None)
            checks.append(running())

        self.label.on_store(check)
        with Client(self.name) as client:
            client["/drive/label"] = "x"
        self.assertIsNotNone(checks[0], "what runs still exists")

    def test_a_callback_that_cannot_close_its_server_ends_no_other_dispatch(self):
        results = []
        done = threading.Event()

        def check(value, index):
            try:
                self.server.close()
            except treescope.Busy as error:
                results.append(error)

        def serve_too():
            try:
                self.server.run()
            finally:
                done.set()

        self.label.on_store(check)
        second = threading.Thread(target=serve_too)
        second.start()
        with Client(self.name) as client:
            for i in range(20):
                client["/drive/label"] = str(i)
        self.assertEqual(len(results), 20)
        self.assertFalse(done.is_set())
        self.assertTrue(self.thread.is_alive())
        self.server.close()
        second.join(TIMEOUT)
        self.assertTrue(done.is_set())

    def test_raises_what_a_callback_raised_while_the_service_ends(self):
        name = port_name()
        watched = []
        done = threading.Event()

        def watch():
            with Client(name) as client, client.watch("/part"):
                done.wait(TIMEOUT)

        def handle(now):
            watched.append(now)
            if not now:
                raise ZeroDivisionError

        with Server() as server:
            server.add("part", 1).on_watched(handle)
            server.publish(name)
            watching = threading.Thread(target=watch)
            watching.start()
            while not watched:
                server.dispatch(TIMEOUT)
            with self.assertRaises(ZeroDivisionError):
                server.unpublish()
        done.set()
        watching.join()

    def test_ends_its_service_within_a_time(self):
        self.server.unpublish(1e9)
        self.server.publish(self.name)
        self.server.unpublish(None)


if __name__ == "__main__":
    unittest.main()
