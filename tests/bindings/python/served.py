"""What the tests of the Python package share: a server in the process of the test."""

import contextlib
import os
import sys
import threading
import unittest

import treescope
from treescope import Access, Client, Server, Type

TIMEOUT = 40
count = 0


def port_name():
    global count
    count += 1
    return f"Model_python_{os.getpid()}_{count}"


@contextlib.contextmanager
def interrupted(function):
    """Raises KeyboardInterrupt where the package's `function` begins, as a signal handler may."""

    def interrupt(frame, event, argument):
        module = frame.f_globals.get("__name__", "")
        if module.startswith("treescope.") and frame.f_code.co_name == function:
            raise KeyboardInterrupt

    before = sys.gettrace()
    sys.settrace(interrupt)
    try:
        yield
    finally:
        sys.settrace(before)


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
        self.handler_errors = []
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        try:
            while not self.server.closed:
                try:
                    self.server.dispatch(None)
                except ZeroDivisionError as error:
                    self.handler_errors.append(error)
        except treescope.Closed:
            pass

    def stop(self):
        self.server.close()
        self.thread.join()

    def tearDown(self):
        self.stop()


class Connected(Served):
    """A client of that server, too."""

    def setUp(self):
        super().setUp()
        self.client = Client(self.name)

    def tearDown(self):
        self.client.close()
        super().tearDown()
