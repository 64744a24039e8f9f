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
