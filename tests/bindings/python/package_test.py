"""The Python package as a whole."""

import subprocess
import sys
import unittest

import treescope
from served import TIMEOUT


class Package(unittest.TestCase):
    def test_exports_its_names(self):
        for name in treescope.__all__:
            self.assertTrue(hasattr(treescope, name), name)
        public = {name for name in dir(treescope) if name[0].isupper()}
        self.assertEqual(public, set(treescope.__all__) - {"__version__"})
        self.assertRegex(treescope.__version__, r"^\d+\.\d+\.\d+$")

    def test_a_library_that_is_unloaded_stays_for_the_threads_that_use_it(self):
        program = (
            "import _ctypes, ctypes, sys, threading\n"
            "library = ctypes.CDLL(sys.argv[1])\n"
            "server = ctypes.c_void_p()\n"
            "assert library.treescope_server_new(ctypes.byref(server)) == 0\n"
            "dispatch = library.treescope_server_dispatch\n"
            "close = library.treescope_server_close\n"
            "serving = threading.Thread(target=dispatch, args=(server, -1))\n"
            "serving.start()\n"
            "_ctypes.dlclose(library._handle)\n"
            "assert close(server) == 0\n"
            "serving.join()\n"
        )
        path = treescope._library._library._name
        subprocess.run([sys.executable, "-c", program, path], check=True, timeout=TIMEOUT)

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
