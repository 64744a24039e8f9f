"""The Python package, with servers and clients in one process. Nothing waits for a time."""

import asyncio
import os
import select
import signal
import subprocess
import sys
import threading
import unittest

import treescope
from treescope import Access, AsyncClient, Change, Client, Event, Server, Type

TIMEOUT = 40
count = 0


def port_name():
    global count
    count += 1
    return f"Model_python_{os.getpid()}_{count}"


class Served(unittest.TestCase):
    """A server that a thread dispatches."""

    def setUp(self):
        self.name = port_name()
        self.server = Server()
        self.drive = self.server.node("drive")
        self.speed = self.drive.add(
            "speed", 42, type=Type.INT32, unit="rpm", minimum=0, maximum=100, text="of the motor"
        )
        self.gains = self.drive.add("gains", [1.5, 0.25], element_names=["p", "i"])
        self.label = self.drive.add("label", "two words")
        self.flag = self.drive.add("flag", True)
        self.texts = self.drive.add("texts", ["a", "b\nc"])
        self.serial = self.drive.add("serial", "A-17", access=Access.READ_ONLY, watchable=False)
        self.offset = self.drive.add("offset", 0.0, type=Type.FLOAT, access=Access.PROTECTED)
        self.mode = self.server.add("mode", "off", choices=["off", "heat"])
        self.server.publish(self.name)
        self.failures = []
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        try:
            while not self.server.closed:
                try:
                    self.server.dispatch(None)
                except ZeroDivisionError as error:
                    self.failures.append(error)
        except treescope.Closed:
            pass

    def stop(self):
        self.server.close()
        self.thread.join()

    def tearDown(self):
        self.stop()


class Clients(Served):
    def setUp(self):
        super().setUp()
        self.client = Client(self.name)

    def tearDown(self):
        self.client.close()
        super().tearDown()

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

    def test_watches_a_value(self):
        with self.client.watch("/drive/gains") as updates:
            self.assertEqual(next(updates).value, [1.5, 0.25])
            self.gains.set(7.0, 0)
            update = next(updates)
            self.assertEqual((update.value, update.changes), (7.0, 1) if update.index == 0
                             else ([7.0, 0.25], 1))
        self.assertEqual(list(updates), [])

    def test_watches_long_values_and_elements_with_line_feeds(self):
        with self.client.watch("/drive/label") as updates:
            next(updates)
            self.label.set("x" * 5000)
            self.assertEqual(next(updates).value, "x" * 5000)
        with self.client.watch("/drive/texts") as updates:
            self.assertEqual(next(updates).value, ["a", "b\nc"])

    def test_watches_a_subtree_with_its_structure(self):
        with self.client.watch("/", subtree=True, structure=True) as updates:
            seen = {}
            for update in updates:
                if update.change == Change.VALUE:
                    seen["/".join(update.names[1:] or update.names)] = update.value
                if update.change == Change.COMPLETE:
                    break
            self.assertIn(("off"), seen.values())
            self.assertIn(42, seen.values())
            part = self.server.add("new", 5)
            self.assertEqual(next(updates).change, Change.ADDED)
            self.assertEqual(next(updates).value, 5)
            part.remove()
            removed = next(updates)
            self.assertEqual((removed.change, removed.names), (Change.REMOVED, ("", "new")))

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
        self.assertEqual([type(failure) for failure in self.failures], [ZeroDivisionError])

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


class Asyncio(unittest.TestCase):
    def test_serves_and_watches_in_one_event_loop(self):
        async def main():
            name = port_name()
            with Server() as server:
                number = server.add("number", 1)
                lines = server.add("text", "x")
                server.publish(name)
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    self.assertEqual(await client.get("/number"), 1)
                    await client.set("/number", 2)
                    self.assertEqual((await client.list())[0].name, "number")
                    self.assertEqual((await client.describe("/number")).type, Type.INT64)
                    self.assertEqual(await client.resolve("/text"), "#2")
                    values = []
                    async for update in client.watch("/number"):
                        values.append(update.value)
                        if len(values) == 3:
                            break
                        number.set(update.value + 1)
                    self.assertEqual(values, [2, 3, 4])
                    with self.assertRaises(treescope.NoSuchPart):
                        await client.get("/no")
                    self.assertEqual(lines.get(), "x")
                serving.cancel()
                with self.assertRaises(asyncio.CancelledError):
                    await serving

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_a_request_does_not_block_the_event_loop(self):
        async def main():
            name = port_name()
            with Server() as server:
                server.add("number", 1)
                server.publish(name)
                # The server answers in the same event loop: a blocking request would time out.
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    results = await asyncio.gather(*(client.get("/number") for _ in range(20)))
                    self.assertEqual(results, [1] * 20)
                    request = asyncio.create_task(client.get("/number"))
                    await asyncio.sleep(0)
                    request.cancel()
                    self.assertEqual(await client.get("/number"), 1)
                serving.cancel()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_a_consumer_that_rests_gets_the_last_value(self):
        async def main():
            name = port_name()
            with Server() as server:
                number = server.add("number", 0)
                server.publish(name)
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    updates = client.watch("/number")
                    self.assertEqual((await anext(updates)).value, 0)
                    for value in range(1, 5001):
                        number.set(value)
                        if value % 10 == 0:
                            await asyncio.sleep(0)
                    changes = 0
                    while (update := await anext(updates)).value != 5000:
                        changes += update.changes
                    self.assertEqual(changes + update.changes, 5000)
                    await updates.aclose()
                serving.cancel()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_elements_with_line_feeds_do_not_block_the_event_loop(self):
        async def main():
            name = port_name()
            with Server() as server:
                texts = server.add("texts", ["a", "b"])
                server.publish(name)
                # A request in the event loop that serves would time out.
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    # What several elements change within a period is one update, of all of them.
                    updates = client.watch("/texts", period=0.01)
                    self.assertEqual((await anext(updates)).value, ["a", "b"])
                    last = ["e\nf", "g"]
                    update = None
                    while update is None or (update.value != last and update.error is None):
                        texts.set(["c", "d"])
                        texts.set(last)
                        update = await anext(updates)
                    self.assertEqual((update.value, update.error), (last, None))
                    await updates.aclose()
                serving.cancel()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_raises_what_a_callback_raised(self):
        async def main():
            name = port_name()
            with Server() as server:
                server.add("number", 0, check=lambda value, index: 1 / 0)
                server.publish(name)
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    with self.assertRaises(ZeroDivisionError):
                        storing = asyncio.create_task(client.set("/number", 1))
                        await serving
                    storing.cancel()
                    server.close()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))


class Package(unittest.TestCase):
    def test_exports_its_names(self):
        for name in treescope.__all__:
            self.assertTrue(hasattr(treescope, name), name)
        self.assertRegex(treescope.__version__, r"^\d+\.\d+\.\d+$")

    def test_ends_without_a_warning(self):
        program = (
            "import treescope\n"
            "with treescope.Server() as server:\n"
            "    server.add('x', 1)\n"
        )
        ended = subprocess.run(
            [sys.executable, "-X", "dev", "-W", "error", "-c", program],
            capture_output=True,
            text=True,
            timeout=TIMEOUT,
        )
        self.assertEqual((ended.returncode, ended.stdout + ended.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main()
