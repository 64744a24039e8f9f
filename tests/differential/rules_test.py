"""The model against examples whose results are known."""

import random
import sys
import unittest

sys.dont_write_bytecode = True

from editor import Decoder, Editor, LEFT, insertable
from screen import Screen, printable
from session import is_interleaving
from shell import Shell
from tree import Node, description, find, random_tree
from values import Unmodelled, parse, real_text, to_single
from words import check_arguments, resolve_path, split_at, split_commands, split_words, unquote_line


def part(number, name, kind, *values, names=(), array=False):
    made = Node(number, name)
    made.kind, made.values, made.names, made.array = kind, list(values), list(names), array
    return made


def sample():
    drive = Node(1, b"drive", [
        part(1, b"speed", "int32", 42),
        part(2, b"label", "text", b"two words"),
        part(3, b"gains", "double", 1.5, 0.25, names=(b"p", b"i"), array=True),
        part(4, b"raw", "uint8", 1, 2, 3, array=True),
        part(12, b"", "uint16", 7)])
    return Node(0, b"", [drive, Node(2, b"empty", [])])


def batch(text, files=None, path=b""):
    shell = Shell(sample(), b"device", files=files)
    shell.dispatch(b"cd device")
    if path:
        shell.dispatch(b"cd " + path)
    shell.run_string(text)
    return shell


def output(text, path=b""):
    return bytes(batch(text, path=path).out)


class Words(unittest.TestCase):
    def test_pieces(self):
        for text, pieces in [(b"a;;b", [b"a", b"b"]), (b"a;", [b"a", b""]), (b";", [b""]), (b"", [b""])]:
            self.assertEqual(split_at(text, b";"), pieces)

    def test_words(self):
        for text, words in [
                (b"", []), (b"   ", []), (b"  ls   /a  ", [b"ls", b"/a"]), (b'str "" /a', [b"str", b"", b"/a"]),
                (b'str "a b" /x', [b"str", b"a b", b"/x"]), (b'str "a b /x', [b"str", b'"a', b"b", b"/x"]),
                (b'"ab"cd', [b"ab", b"cd"]), (b'a"b', [b'a"b'])]:
            self.assertEqual(split_words(text), words)

    def test_commands_of_a_string(self):
        for text, commands in [(b"", []), (b"a; b ;", [b"a", b"b "]), (b";;a", [b"", b"", b"a"]), (b";", [b""])]:
            self.assertEqual(split_commands(text), commands)

    def test_one_sided_quotes(self):
        for line, left in [(b'"set 1 /a"', b'set 1 /a"'), (b'"" x', b""), (b'  "x', b"x"), (b'a"', b'a"')]:
            self.assertEqual(unquote_line(line), left)

    def test_options(self):
        self.assertEqual(check_arguments([b"-x"], 1, 15), (True, 0, []))
        self.assertEqual(check_arguments([b"-r"], 1, 0), (False, 1, []))
        self.assertEqual(check_arguments([b"-rl", b"x", b"-"], 1, 15), (True, 5, [b"x"]))

    def test_paths(self):
        for path, shown in [(b"a//b", [b"b"]), (b"/x", [b"x"]), (b"a/../b", [b"s", b"b"]), (b"../../x", [b"x"]),
                            (b"a/", [b"s", b"a"]), (b"./a", [b"s", b".", b"a"]), (b"/", [])]:
            self.assertEqual(resolve_path(path, [b"s"]), shown)


class Values(unittest.TestCase):
    def test_shortest_forms(self):
        for number, text in [(0.0, b"0"), (-0.0, b"-0"), (0.1, b"0.1"), (1e5, b"1e+05"), (123456.0, b"123456"),
                             (5e-324, b"5e-324"), (1e-4, b"1e-04"), (0.001, b"0.001"), (12.5, b"12.5")]:
            self.assertEqual(real_text(number, False), text)
        self.assertEqual(real_text(to_single(0.1), True), b"0.1")
        self.assertEqual(real_text(16777216.0, True), b"16777216")

    def test_stored_texts(self):
        for kind, text, value in [
                ("int8", b"127", 127), ("int8", b"128", None), ("int8", b" -5 ", -5), ("bool", b"1", True),
                ("text", b"3\nabc", b"abc"), ("text", b"4\nabc", b"4\nabc"), ("uint8", b"1.0", None),
                ("float", b"3.5e38", None), ("double", b"1e400", None)]:
            self.assertEqual(parse(kind, text), value)
        with self.assertRaises(Unmodelled):
            parse("double", b"inf")


class Dispatch(unittest.TestCase):
    def results(self, command):
        shell = Shell(sample(), b"device")
        return shell.dispatch(command), bytes(shell.out)

    def test_results_and_messages(self):
        for command, result, text in [
                (b"", 3, b""), (b"get -r", 5, b"ERROR: OptionError\n"), (b"ls /a /b", 5, b"ERROR: OptionError\n"),
                (b"exit now", 3, b"ERROR: OptionError\n"), (b"exit", 11, b""), (b"help me", 3, b""),
                (b" $ls", 5, b"ERROR: OptionError\n"), (b"foo", 5, b"ERROR: OptionError\n"), (b"foo bar", 3, b""),
                (b"setport a b", 5, b"ERROR: OptionError\n"), (b"setport a b c", 3, b""), (b"pwd", 1, b"/\n"),
                (b"eu x", 7, b"ERROR: ConnectError\n"), (b"cmdfrom /missing", 6, None), (b"history -r", 5, b"")]:
            if text is not None:
                self.assertEqual(self.results(command), (result, text), command)

    def test_strings_stop_at_an_error(self):
        self.assertEqual(output(b"bad;pwd"), b"ERROR: OptionError\n")
        self.assertEqual(output(b"pwd;;pwd"), b"/device\n/device\n")

    def test_a_blank_line_ends_a_file(self):
        shell = batch(b"cmdfrom f", {b"f": b"pwd\n\npwd"})
        self.assertEqual(shell.out, b"/device\n")
        shell = batch(b"cmdfrom f", {b"f": b"foo"})
        self.assertEqual(shell.out, b"ERROR: OptionError\nERROR: OptionError\n")


class Tree(unittest.TestCase):
    def test_get_aligns_the_value(self):
        self.assertEqual(output(b"get /drive/speed"), b"/drive/speed    [42]\n")
        self.assertEqual(output(b"get drive/gains"), b"/drive/gains    [1.5 0.25]\n")
        self.assertEqual(output(b"get [1]", b"/drive/gains"), b"/drive/gains[1] [0.25]\n")
        self.assertEqual(output(b"get i", b"/drive/gains"), b"/drive/gains[1] [0.25]\n")
        self.assertEqual(output(b"get noname-12", b"/drive"), b"/drive/noname-12    [7]\n")
        self.assertEqual(output(b"get a[]"), b"")

    def test_stores_are_echoed(self):
        self.assertEqual(output(b"set 5 [1]", b"/drive/raw"), b"/drive/raw[1]   [5]\n")
        self.assertEqual(output(b"set 5", b"/drive/raw"), b"ERROR: NotFound\n")
        self.assertEqual(output(b"str -5 label", b"/drive"), b"/drive/label    [-5]\n")
        self.assertEqual(output(b'str "" label', b"/drive"), b"/drive/label    []\n")

    def test_listings(self):
        self.assertEqual(output(b"ls"), b"drive/  \nempty   \n")
        self.assertEqual(output(b"ls -l drive/gains"), b"[0](p)  [1.5]\n[1](i)  [0.25]\n")
        names = [b"speed", b"label", b"gains[0](p)", b"gains[1](i)", b"raw[0]", b"raw[1]", b"raw[2]", b"noname-12"]
        below = b"".join(b"    +-- " + name.ljust(13) + b"\n" for name in names)
        self.assertEqual(output(b"ls -r"), b"+-- drive/\n" + below + b"+-- empty\n")
        self.assertEqual(output(b"ls -l nothing"), b"notfound    [nodata]\n")

    def test_a_marked_part_resets_its_attribute_in_batch_mode_too(self):
        self.assertEqual(output(b"eu drive/speed; ls -l drive/speed"), b"speed    [42]\n\x1b[22m")

    def test_subscriptions(self):
        self.assertEqual(output(b"eu -r drive; eu -l"),
                         b"/drive/speed\n/drive/label\n/drive/gains\n/drive/raw\n/drive/noname-12\n")
        self.assertEqual(output(b"eu drive; eu drive/x"), b"ERROR: NotFound\n")
        self.assertEqual(output(b"eu x/y"), b"ERROR: ConnectError\n")
        self.assertEqual(output(b"eu speed; eu speed; eu -l; du -r ..; eu -l", b"drive"), b"/drive/speed\n" * 2)

    def test_saved_values(self):
        shell = batch(b"to f drive")
        lines = shell.files[b"f"].split(b"\n")
        self.assertEqual(lines[:3], [b"set 42 /speed", b'str "two words" /label', b"set 1.5 /gains[0]"])
        self.assertTrue(shell.out.startswith(b" make command [42] -> [set 42 ]\n"))
        self.assertEqual(batch(b"to f drive/speed").files[b"f"], b"set 42 /drive\n")
        self.assertEqual(batch(b"to f nothing").files[b"f"], b"")
        self.assertEqual(shell.save_line(b"a;b\nc", [b"x\x7fy"]), b'str "a b c" /x y\n')

    def test_control_characters_on_a_terminal(self):
        self.assertEqual(printable(b"a\x1b[m\x7f\t\n\x9b\xc2\x9b\xc3\xbc\xe2\x82"), b"a?[m?\t\n??\xc3\xbc\xe2?")
        self.assertEqual(insertable(b"a;b"), b"a")
        self.assertEqual(insertable(b"\xc3\xbc\tb/"), b"\xc3\xbc")


class Keys(unittest.TestCase):
    def editor(self, keys, columns=80, rows=24):
        shell = Shell(sample(), b"device", (rows, columns))
        editor = Editor(shell)
        editor.type(keys)
        return editor

    def test_decoded_keys(self):
        decoder = Decoder()
        decoded = [key for key in map(decoder.feed, b"\x1b[D\x1bx\x1b[2~\x1b[1x") if key is not None]
        self.assertEqual(decoded, [LEFT, *b"x2~x"])

    def test_edited_lines(self):
        for keys, line, cursor in [
                (b"abc\x1b[D\x1b[DX", b"aXbc", 2), (b"abc def\x02\x02\x02\x17", b"def", 0),
                (b"abc def\x02\x02\x02\x0b", b"abc ", 4), (b"ab\x01\x7f", b"ab", 0), (b"ab\x01\x04", b"b", 0),
                (b"pwd\nend\nx\x10\x10\x0e", b"end", 3), (b"pwd\nend\nx\x10\x10\x0e\x0e", b"x", 1)]:
            editor = self.editor(keys)
            self.assertEqual((editor.line, editor.cursor), (line, cursor), keys)

    def test_references(self):
        for typed, stored in [
                (b"bt\nend\nget !$\n", b"get end"), (b"dis x y\n!!\n", b"dis x y"), (b"bt\nend\n!b\n", b"bt"),
                (b"end\nbt\n!0\n", b"end"), (b"end\nbt\nfoo\n!-3\n", b"end"), (b"end\nbt\n!5\n", b"5"),
                (b"end\n!zz\n", b"zz"), (b"end\n!\n", b""), (b"end\n!-x\n", b"-x"), (b"end\n!!x\n", b"!x")]:
            self.assertEqual(self.editor(typed).history[-1], stored, typed)

    def test_completion(self):
        for keys, line in [
                (b"l\t", b"ls "), (b"c\t", b"c"), (b"cd device\ncd ..\t", b"cd ../"), (b"cd device\nget d\t", b"get drive/"),
                (b"cd device\nget drive/s\t", b"get drive/speed"), (b"  l\t", b"ls "), (b"zz\t", b"zz")]:
            self.assertEqual(self.editor(keys).line, line, keys)

    def test_the_pager_stops(self):
        shown = bytes(self.editor(b"cd device\nls -rm\n q", rows=5).out)
        self.assertEqual(shown.count(b"More"), 2)
        self.assertEqual(shown.count(b"+-- "), 6)


class Drawing(unittest.TestCase):
    def screen(self, columns=80, rows=24, batch=False):
        return Screen(bytearray(), batch, rows, columns, lambda: ord("q"))

    def test_columns(self):
        screen = self.screen()
        screen.print_columns([b"a", b"bb", b"ccc"])
        self.assertEqual(screen.out, b"\x1b[39m\x1b[1Ga    \x1b[39m\x1b[6Gbb   \x1b[39m\x1b[11Gccc  \n")
        screen = self.screen(columns=3)
        screen.print_columns([b"abc", b"d"])
        self.assertEqual(screen.out.count(b"\n"), 2)
        screen = self.screen(batch=True)
        screen.print_columns([b"a", b"b"])
        self.assertEqual(screen.out, b"a  \n\nb  \n\n")

    def test_attributes(self):
        screen = self.screen()
        screen.set_attributes(20, 0)
        screen.reset_attributes(20, 0)
        screen.set_attributes(0, 7)
        screen.reset_attributes(0, 7)
        self.assertEqual(screen.out, b"\x1b[7m\x1b[5m\x1b[39m\x1b[27m\x1b[25m\x1b[39m")

    def test_interleaved_texts(self):
        self.assertTrue(is_interleaving(b"axbyc", b"abc", b"xy"))
        self.assertFalse(is_interleaving(b"aybxc", b"abc", b"xy"))


class Descriptions(unittest.TestCase):
    def test_a_seed_gives_the_same_tree(self):
        texts = {description(random_tree(random.Random(5)), "x") for _ in range(3)}
        self.assertEqual(len(texts), 1)
        self.assertEqual(find(sample(), (1, 12)).shown_name(), b"noname-12")


if __name__ == "__main__":
    unittest.main()
