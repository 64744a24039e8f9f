"""Counts the instructions of the shell on 32-bit Arm, and the bytes of its files.

    count.py COUNTER PROGRAMS SIZES RESULTS

COUNTER is the plugin for qemu-arm, PROGRAMS the build directory of this machine, whose
server and treectl the emulated shell meets. SIZES are "NAME=DIRECTORY" of builds,
separated by commas. Prints the section
and puts it into RESULTS. What is counted is user-mode code: not the kernel's, but the
loader's and the C library's.
"""

import os
import pathlib
import subprocess
import sys
import tempfile

SECTION = "## Instructions and sizes on 32-bit Arm"
ROOT = "/usr/arm-linux-gnueabihf"
NAME = f"Model_count_{os.getpid()}"
PART = "/group_000/item_{:04}"
LIMIT = 120


class Counter:
    def __init__(self, plugin, shell, directory):
        self.sum = pathlib.Path(directory) / "sum"
        self.words = ["qemu-arm", "-plugin", f"{plugin},out={self.sum},pages=1", "-L", ROOT, shell]

    def taken(self):
        text = self.sum.read_text().split()
        self.sum.unlink()
        return int(text[0]), int(text[1])

    def commands(self, line):
        """The instructions and the pages of the shell with -c, connected."""
        subprocess.run(self.words + ["-c", f"cd {NAME};{line}"], stdout=subprocess.DEVNULL,
                       check=True, timeout=LIMIT)
        return self.taken()

    def updates(self, treectl, count):
        """The instructions of an interactive shell that shows `count` updates."""
        shell = subprocess.Popen(self.words, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        try:
            shell.stdin.write(f"cd {NAME}\neu {PART.format(0)}\npwd\n".encode())
            shell.stdin.flush()
            self.await_line(shell, f"/{NAME}")
            for value in range(1000, 1000 + count):
                subprocess.run([treectl, "set", f"/{NAME}{PART.format(0)}", str(value)],
                               stdout=subprocess.DEVNULL, check=True, timeout=LIMIT)
                self.await_line(shell, PART.format(0))
            shell.stdin.close()
            shell.stdout.read()
            shell.wait(LIMIT)
        finally:
            shell.kill()
            shell.wait()
        return self.taken()[0]

    @staticmethod
    def await_line(shell, text):
        for line in iter(shell.stdout.readline, b""):
            # An echoed command ends with an escape sequence.
            if line.rstrip().endswith(text.encode()):
                return
        raise SystemExit(f"count.py: the shell ended before it showed {text}")


WHAT = (
    "the start: `cd S;pwd`",
    "one value read: `cd S;get PATH`",
    "each further value of the same node",
    "one update shown: `eu`",
    "1,000 parts listed: `cd S;ls -lr NODE`",
    "the same without the start, for each part",
    "pages of 4 KiB that the shell uses to read one value",
)


def counts(counter, treectl):
    """One number for each line of WHAT."""
    start = counter.commands("pwd")[0]
    one, pages = counter.commands(f"get {PART.format(500)}")
    values = [f"get {PART.format(index)}" for index in range(100, 140)]
    few, many = (counter.commands(";".join(values[:count]))[0] for count in (20, 40))
    listed = counter.commands("ls -lr /group_000")[0]
    shown, more = (counter.updates(treectl, count) for count in (20, 60))
    return [start, one, (many - few) // 20, (more - shown) // 40, listed,
            (listed - start) // 1000, pages]


FILES = ("bin/treescope", "lib/libkrvsyssrv.so.4", "lib/libkrvkstd.so.0", "bin/modelsrvd", "bin/treectl")


def stripped(strip, directory, file, work):
    source = pathlib.Path(directory) / file
    if not source.exists():
        return None
    target = pathlib.Path(work) / "stripped"
    subprocess.run([strip, "-o", target, source], check=True)
    return target.stat().st_size


def kilobytes(size):
    return "" if size is None else f"{size / 1000:.0f}"


def page(names, columns, sizes):
    lines = [SECTION, "",
             "Counted with `script/bench instructions` under qemu-arm: code in user mode, the loader's and the C",
             "library's included, the kernel's not. The pages are those that the program itself executes or",
             "accesses; the kernel may map more of a file's pages around them.", "",
             "| | " + " | ".join(names) + " |", "|:--|" + "--:|" * len(names)]
    lines += [f"| {what} | " + " | ".join(f"{count:,}" for count in row) + " |"
              for what, *row in zip(WHAT, *columns)]
    lines += ["", "Sizes are of stripped files, in kB. The shell needs the two libraries; their sum is the last column.", "",
              "| | " + " | ".join(pathlib.Path(file).name for file in FILES) + " | shell and libraries |",
              "|:--|" + "--:|" * (len(FILES) + 1)]
    for name, files in sizes:
        total = sum(size for size in files[:3] if size is not None)
        lines.append(f"| {name} | " + " | ".join(map(kilobytes, files)) + f" | {kilobytes(total)} |")
    return "\n".join(lines) + "\n"


def main():
    plugin, programs, builds, results = sys.argv[1:]
    builds = [build.split("=") for build in builds.split(",")]
    programs = pathlib.Path(programs)
    with tempfile.TemporaryDirectory() as work:
        server = subprocess.Popen([programs / "bin/modelsrvd", "--name", NAME, "--synthetic", "2x1000"],
                                  stdout=subprocess.PIPE)
        try:
            server.stdout.readline()
            columns = [counts(Counter(plugin, directory + "/bin/treescope", work), programs / "bin/treectl")
                       for _, directory in builds]
        finally:
            server.terminate()
            server.wait()
        sizes = [(name, [stripped("arm-linux-gnueabihf-strip", directory, file, work) for file in FILES])
                 for name, directory in builds]
    text = page([name for name, _ in builds], columns, sizes)
    print(text)
    results = pathlib.Path(results)
    before, _, old = results.read_text().partition(SECTION)
    # What bench/fleet/measure.py has added stays.
    after = "".join(old.partition("\n## ")[1:])
    results.write_text(f"{before.rstrip()}\n\n{text}{after}")


main()
