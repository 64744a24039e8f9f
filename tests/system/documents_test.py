"""Checks the documents: their links, their pictures, and that the README's commands print what it shows.

Usage: documents_test.py SOURCES PROGRAMS, the directories of the sources and of the built programs.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

SOURCES, PROGRAMS = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
LIMIT = 100
SKIPPED = {"build", ".git"}


def documents():
    for path in SOURCES.rglob("*.md"):
        if not SKIPPED.intersection(path.relative_to(SOURCES).parts):
            yield path


def prose(path):
    """A document without what is shown literally."""
    text = re.sub(r"^```.*?^```$", "", path.read_text(encoding="utf-8"), flags=re.M | re.S)
    return re.sub(r"`[^`]*`", "", re.sub(r"^    .*$", "", text, flags=re.M))


def anchors(path):
    """The names by which a link can refer to the headings of a document."""
    headings = re.findall(r"^#+ (.*)$", path.read_text(encoding="utf-8"), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def links(path):
    """The files that a document links to, each with the heading or nothing."""
    for target in re.findall(r"\]\(([^)\s]+)\)", prose(path)):
        if not re.match(r"[a-z]+:", target):
            name, _, anchor = target.partition("#")
            yield target, (path.parent / name).resolve() if name else path, anchor


class Documents(unittest.TestCase):
    def test_each_link_leads_somewhere(self):
        for document in documents():
            for target, file, anchor in links(document):
                with self.subTest(document=document.name, link=target):
                    self.assertTrue(file.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(file))

    def test_the_readme_leads_to_each_document(self):
        reached, waiting = set(), [SOURCES / "README.md"]
        while waiting:
            document = waiting.pop()
            if document not in reached:
                reached.add(document)
                waiting += [file for _, file, _ in links(document) if file.suffix == ".md" and file.exists()]
        self.assertEqual(set(documents()) - reached, set())

    def test_each_picture_is_shown_and_has_a_title(self):
        shown = {file for document in documents() for _, file, _ in links(document)}
        pictures = list((SOURCES / "doc/pictures").glob("*.svg"))
        self.assertGreater(len(pictures), 0)
        for picture in pictures:
            with self.subTest(picture=picture.name):
                self.assertIn(picture, shown)
                root = xml.etree.ElementTree.parse(picture).getroot()
                self.assertEqual(root.tag, "{http://www.w3.org/2000/svg}svg")
                self.assertTrue(root.find("{http://www.w3.org/2000/svg}title").text)


class Readme(unittest.TestCase):
    """The commands of the sections "A short tour" and "From a script", in order."""

    def setUp(self):
        self.environment = {**os.environ, "PATH": f"{PROGRAMS}:{os.environ['PATH']}"}
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        self.name = f"Model_{os.getpid()}"

    @staticmethod
    def examples():
        """Each command with the lines that it prints."""
        text = (SOURCES / "README.md").read_text(encoding="utf-8")
        for section in ("A short tour", "From a script"):
            body = re.search(rf"^## {section}\n(.*?)^## ", text, re.M | re.S)[1]
            for command, output in re.findall(r"^    \$ (.*)\n((?:    (?!\$ ).*\n)*)", body, re.M):
                yield command, re.sub("^    ", "", output, flags=re.M)

    def begin(self, command):
        """Runs a command; servers have names of this test."""
        # The default name of a server.
        command = command.replace("modelsrvd &", "modelsrvd --name Model_host &")
        command = re.sub(r"\bModel_(\w+)", rf"{self.name}_\1", command)
        return subprocess.Popen(
            ["bash", "-c", re.sub("(.*) &", r"exec \1", command)], cwd=self.directory, env=self.environment,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True
        )

    def output(self, command):
        running = self.begin(command)
        if not command.endswith("&"):
            return running.communicate(timeout=LIMIT)[0]

        def end():
            running.terminate()
            running.wait(LIMIT)
            running.stdout.close()

        self.addCleanup(end)
        return running.stdout.readline()

    def test_the_commands_print_what_it_shows(self):
        count = 0
        for command, expected in self.examples():
            count += 1
            printed = self.output(command).replace(f"{self.name}_", "Model_")
            # The machine's own values differ.
            if re.search("kernel|cpu|memory", command):
                printed, expected = (
                    re.sub(r"(?m)(/kernel.*\[).*\]|(?<=[\[\t ])[\d.]+(?=[\] \n])|^\d+$", r"\1N", text)
                    for text in (printed, expected)
                )
            self.assertEqual(printed, expected, command)
        self.assertEqual(count, 19)


if __name__ == "__main__":
    unittest.main()
