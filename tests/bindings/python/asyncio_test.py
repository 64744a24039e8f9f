"""Clients and servers of the Python package in an asyncio loop. Nothing waits for a time."""

import asyncio
import gc
import threading
import unittest
import warnings

import treescope
from served import TIMEOUT, port_name
from treescope import AsyncClient, Server, Type


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
                # The server replies in the same event loop: a blocking request would time out.
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

    def test_a_closed_server_does_not_serve(self):
        async def main():
            with Server() as server:
                serving = asyncio.create_task(server.serve())
            await serving

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_serves_until_the_server_is_closed(self):
        async def main():
            def close_here(server):
                server.close()

            def close_in_a_thread(server):
                closing.append(asyncio.create_task(asyncio.to_thread(server.close)))

            def close_and_wait_for_the_thread(server):
                thread = threading.Thread(target=server.close)
                thread.start()
                thread.join()

            async def serve_and_close(close):
                name = port_name()
                server = Server()
                server.add("number", 1)
                server.publish(name)
                serving = [asyncio.create_task(server.serve()) for _ in range(2)]
                async with AsyncClient(name) as client:
                    self.assertEqual(await client.get("/number"), 1)
                    close(server)
                    self.assertEqual(await asyncio.gather(*serving), [None, None])
                self.assertTrue(server.closed)

            closing = []
            for close in (close_here, close_in_a_thread, close_and_wait_for_the_thread):
                await serve_and_close(close)
            await asyncio.gather(*closing)

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_a_server_may_be_closed_by_a_callback_of_a_client(self):
        async def main():
            name = port_name()
            server = Server()
            number = server.add("number", 1)
            server.publish(name)
            serving = asyncio.create_task(server.serve())
            async with AsyncClient(name) as client:
                self.assertEqual(await client.get("/number"), 1)

                async def close_at_two():
                    async for update in client.watch("/number"):
                        if update.value == 2:
                            server.close()
                            return
                        number.set(2)

                await asyncio.gather(close_at_two(), serving)

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

    def test_a_watch_ends_with_its_client(self):
        async def main():
            name = port_name()
            with Server() as server:
                server.add("number", 1)
                server.publish(name)
                serving = asyncio.create_task(server.serve())
                seen = []
                first = asyncio.Event()

                async def watch(client):
                    async for update in client.watch("/number"):
                        seen.append(update.value)
                        first.set()

                async with AsyncClient(name) as client:
                    watching = asyncio.create_task(watch(client))
                    await first.wait()
                await watching
                self.assertEqual(seen, [1])
                serving.cancel()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_what_is_cancelled_leaves_nothing_open(self):
        async def main():
            name = port_name()
            with Server() as server:
                watched = []
                part = server.add("number", 1)
                part.on_watched(watched.append)
                server.publish(name)
                # The server does not serve yet: the connection waits for it.
                client = AsyncClient(name)
                opening = asyncio.create_task(client.__aenter__())
                await asyncio.sleep(0)
                opening.cancel()
                with self.assertRaises(asyncio.CancelledError):
                    await opening
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    updates = client.watch("/number")
                    starting = asyncio.create_task(anext(updates))
                    while client._requests == 0:
                        await asyncio.sleep(0)
                    starting.cancel()
                    with self.assertRaises(asyncio.CancelledError):
                        await starting
                    while watched not in ([], [True, False]):
                        await client.get("/number")
                serving.cancel()

        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            asyncio.run(asyncio.wait_for(main(), TIMEOUT))
            gc.collect()
        self.assertEqual([str(warning.message) for warning in caught], [])

    def test_is_entered_once(self):
        async def main():
            name = port_name()
            with Server() as server:
                server.add("number", 1)
                server.publish(name)
                serving = asyncio.create_task(server.serve())
                client = AsyncClient(name)
                async with client:
                    with self.assertRaisesRegex(RuntimeError, "entered before"):
                        await client.__aenter__()
                    self.assertEqual(await client.get("/number"), 1)
                with self.assertRaisesRegex(RuntimeError, "entered before"):
                    await client.__aenter__()
                serving.cancel()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))

    def test_reads_whole_trees(self):
        async def main():
            name = port_name()
            with Server() as server:
                server.add("number", 1)
                server.publish(name)
                serving = asyncio.create_task(server.serve())
                async with AsyncClient(name) as client:
                    tree = await client.read_tree()
                    self.assertEqual([part.value for part in tree], [None, 1])
                serving.cancel()

        asyncio.run(asyncio.wait_for(main(), TIMEOUT))


if __name__ == "__main__":
    unittest.main()
