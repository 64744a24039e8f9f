"""What the actors of the soak test share, and how they take turns."""

import contextlib
import os
import threading
import traceback

from processes import TIME_LIMIT


class Wrong(Exception):
    """Something that must not happen."""


class World:
    def __init__(self, options, directory):
        self.options = options
        self.directory = directory
        self.error = None
        self.counts = {}
        self.stopping = threading.Event()
        self.finished = threading.Event()
        self.idle = threading.Condition()
        self.busy = 0
        self.paused = False

    def path(self, name):
        return os.path.join(self.directory, name)

    @contextlib.contextmanager
    def turn(self):
        """One step of an actor. No step is under way while the world is measured."""
        with self.idle:
            self.idle.wait_for(lambda: not self.paused)
            self.busy += 1
        try:
            yield
        finally:
            with self.idle:
                self.busy -= 1
                self.idle.notify_all()

    @contextlib.contextmanager
    def pause(self):
        with self.idle:
            self.paused = True
            if not self.idle.wait_for(lambda: self.busy == 0, 4 * TIME_LIMIT):
                self.paused = False
                self.idle.notify_all()
                raise Wrong("an actor does not finish its step")
        try:
            yield
        finally:
            with self.idle:
                self.paused = False
                self.idle.notify_all()

    def act(self, actor):
        """Runs the generator `actor`: each step yields how long to wait after it."""
        steps = actor(self)
        try:
            while not self.stopping.is_set():
                with self.turn():
                    wait = next(steps)
                self.counts[actor.__name__] = self.counts.get(actor.__name__, 0) + 1
                self.stopping.wait(wait)
        except Exception:
            self.error = self.error or f"{actor.__name__}: {traceback.format_exc()}"
            self.stopping.set()
        # The kernel ends the processes that a thread has started with the thread.
        self.finished.wait()
