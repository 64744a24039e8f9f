"""Watches of the Python package, with a server in the same process. Nothing waits for a time."""

import gc
import threading
import unittest

import treescope
from served import TIMEOUT, Connected, interrupted
from treescope import Change, Client


class Watches(Connected):
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

    def test_an_interrupt_just_as_a_report_begins_is_raised(self):
        with self.client.watch("/drive/speed") as updates:
            with interrupted("_take"), self.assertRaises(KeyboardInterrupt):
                next(updates)

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

    def test_an_update_has_the_names_down_to_its_part(self):
        below = self.server.node("outer", id=50).node("inner")
        value = below.add("value", 1)
        with self.client.watch("/outer", subtree=True, structure=True) as updates:
            seen = [next(updates) for _ in range(6)]
            inner = ("outer", "inner")
            self.assertEqual(
                [update.names for update in seen],
                [(), ("outer",), inner, (*inner, "value"), (*inner, "value"), ()],
            )
            value.set(2)
            self.assertEqual(next(updates).names, (*inner, "value"))
            value.remove()
            self.assertEqual(next(updates).names, (*inner, "value"))
            below.add("renamed", 3, id=1)
            self.assertEqual(next(updates).names, (*inner, "renamed"))
            self.assertEqual(next(updates).names, (*inner, "renamed"))

    def test_an_update_that_another_thread_dispatched_is_not_waited_for(self):
        with self.client.watch("/drive/speed") as updates:
            self.assertEqual(next(updates).value, 42)
            fileno = self.client.fileno

            def dispatch_elsewhere():
                self.client.fileno = fileno
                self.speed.set(43)
                other = threading.Thread(target=self.dispatch_until, args=[updates])
                other.start()
                other.join(TIMEOUT)
                return fileno()

            # What happens just before this thread waits.
            self.client.fileno = dispatch_elsewhere
            values = []
            waiting = threading.Thread(target=lambda: values.append(next(updates).value))
            waiting.start()
            waiting.join(TIMEOUT)
            # A thread that waits in vain must end all the same.
            self.speed.set(44)
            waiting.join()
            self.assertEqual(values, [43])

    def dispatch_until(self, updates):
        while not updates.pending:
            self.client.dispatch(0)

    def test_threads_watch_with_one_client(self):
        parts = [self.server.add(f"part{i}", 0) for i in range(4)]

        def watch(number):
            with self.client.watch(f"/part{number}") as updates:
                for update in updates:
                    if update.value == 100:
                        return

        threads = [threading.Thread(target=watch, args=[i]) for i in range(len(parts))]
        for thread in threads:
            thread.start()
        for value in range(101):
            for part in parts:
                part.set(value)
        for thread in threads:
            thread.join(TIMEOUT)
        missed = [thread.is_alive() for thread in threads]
        # A thread that waits in vain must end all the same.
        self.client.close()
        for thread in threads:
            thread.join()
        self.assertEqual(missed, [False] * len(parts))

    def test_ends_when_it_or_its_client_is_closed_elsewhere(self):
        for close in ("watch", "client"):
            client = Client(self.name)
            self.addCleanup(client.close)
            updates = client.watch("/drive/speed")
            next(updates)
            ended = []
            waiting = threading.Thread(target=lambda: ended.append(list(updates)))
            waiting.start()
            while client._waiting is None:
                pass
            (updates if close == "watch" else client).close()
            waiting.join(TIMEOUT)
            self.assertEqual(ended, [[]], close)

    def test_is_dropped_in_a_callback_of_its_server_without_a_request(self):
        # The thread of the callback is the one that would reply.
        ended = threading.Semaphore(0)
        self.speed.on_watched(lambda now: None if now else ended.release())
        dropped = []

        def drop():
            dropped.clear()
            gc.collect()
            return 1

        self.server.add("reading", 0, getter=drop)
        with Client(self.name) as other:
            for reader in (self.client, other):
                updates = self.client.watch("/drive/speed")
                next(updates)
                reports = updates.pending
                dropped.append(updates)
                del updates
                # A reply that is 2 s late is no reply.
                self.assertEqual(reader.get("/reading"), 1)
                self.speed.set(self.speed.value + 1)
                self.assertTrue(ended.acquire(timeout=TIMEOUT))
                while self.client.dispatch():
                    pass
                self.assertEqual(list(reports), [])

    def test_is_closed_in_a_callback_of_its_server_without_a_request(self):
        updates = self.client.watch("/drive/speed")
        next(updates)

        def close():
            updates.close()
            return 1

        self.server.add("reading", 0, getter=close)
        self.assertEqual(self.client.get("/reading"), 1)
        self.assertEqual(list(updates), [])

    def test_a_period_is_never_shorter_than_stated(self):
        for period in (-1, float("nan"), float("inf"), 2**32):
            with self.assertRaises(treescope.BadArgument):
                self.client.watch("/drive/speed", period=period)


if __name__ == "__main__":
    unittest.main()
