"""The key decoder, the line editor and the history."""

import re

from screen import CONTROL
from values import Unmodelled

UP, DOWN, LEFT, RIGHT, HOME, END, DELETE, PAGE_UP, PAGE_DOWN = range(259, 268)
LETTERS = {ord("A"): UP, ord("B"): DOWN, ord("C"): RIGHT, ord("D"): LEFT}
TILDES = {ord("1"): HOME, ord("3"): DELETE, ord("4"): END, ord("5"): PAGE_UP, ord("6"): PAGE_DOWN}
ESCAPE, BRACKET, DIGIT = "escape", "bracket", "digit"
SIGNALS = (3, 26, 28)
LONGEST = 1000


def insertable(name):
    """What Tab inserts of a name."""
    controls = (found.start() for found in CONTROL.finditer(name) if found[1] is None)
    return re.split(rb"[;\t\n]", name[:next(controls, len(name))])[0]


class NeedInput(Exception):
    """The pager waits for a key that the session does not hold."""


class Decoder:
    def __init__(self):
        self.state = None
        self.digit = 0

    def feed(self, byte):
        """The key that this byte completes, or None."""
        state, self.state = self.state, None
        if byte == 27:
            self.state = ESCAPE
        elif byte == ord("[") and state == ESCAPE:
            self.state = BRACKET
        elif byte in TILDES and state == BRACKET:
            self.state, self.digit = DIGIT, byte
        elif byte in LETTERS and state == BRACKET:
            return LETTERS[byte]
        elif byte == ord("~") and state == DIGIT:
            return TILDES[self.digit]
        else:
            return byte
        return None


def last_word(line):
    words = line.split()
    if not words:
        raise Unmodelled("a history entry without words")
    return words[-1]


class Editor:
    def __init__(self, shell):
        self.shell = shell
        shell.editor = self
        self.out = shell.out
        self.history, self.older, self.newer = [], [], []
        self.line = b""
        self.cursor = 0
        self.text_column = 0
        self.input = b""
        self.position = 0
        self.decoder = Decoder()
        self.keys = 0
        self.show_prompt()

    def next_byte(self):
        if self.position >= len(self.input):
            raise NeedInput
        self.position += 1
        return self.input[self.position - 1]

    def type(self, text):
        """Takes the bytes, up to the end of the shell."""
        self.input += text.replace(b"\r", b"\n")  # the terminal maps one to the other
        while self.position < len(self.input) and self.shell.running:
            byte = self.next_byte()
            if byte in SIGNALS or byte == 0:
                raise Unmodelled("a key that raises a signal, or zero")
            key = self.decoder.feed(byte)
            self.keys += 1
            if key is not None:
                self.handle(key)

    def show_prompt(self):
        name = self.shell.prompt_name()
        self.out += b"\x1b[0G[" + name + b"]$ "
        self.text_column = len(name) + 5
        self.redraw()
        self.to_end()

    def redraw(self):
        if len(self.line) > LONGEST:
            raise Unmodelled("a long line")
        self.out += b"\x1b[%dG" % self.text_column + self.line + b"\x1b[0K"

    def move(self, cursor):
        self.cursor = cursor
        self.out += b"\x1b[%dG" % (self.text_column + cursor)

    def to_end(self):
        self.move(len(self.line))

    def handle(self, key):
        actions = {
            127: self.backspace, 8: self.backspace, 1: self.home, HOME: self.home,
            2: self.left, LEFT: self.left, 6: self.right, RIGHT: self.right,
            5: self.to_end, END: self.to_end, 4: self.delete, DELETE: self.delete,
            11: self.kill_end, 23: self.kill_start, 16: self.back, UP: self.back,
            14: self.forward, DOWN: self.forward, 9: self.tab, 10: self.accept,
            PAGE_UP: lambda: self.back(10), PAGE_DOWN: lambda: self.forward(10),
        }
        if key in actions:
            actions[key]()
        else:
            self.insert(bytes([key]))

    def insert(self, text):
        self.line = self.line[:self.cursor] + text + self.line[self.cursor:]
        self.redraw()
        self.move(self.cursor + 1)

    def home(self):
        self.show_prompt()
        self.redraw()
        self.move(0)

    def left(self):
        if self.cursor > 0:
            self.move(self.cursor - 1)

    def right(self):
        if self.cursor < len(self.line):
            self.move(self.cursor + 1)

    def delete(self):
        if self.cursor < len(self.line):
            self.line = self.line[:self.cursor] + self.line[self.cursor + 1:]
            self.redraw()
            self.move(self.cursor)

    def kill_end(self):
        self.line = self.line[:self.cursor]
        self.redraw()
        self.to_end()

    def kill_start(self):
        self.line = self.line[self.cursor:]
        self.redraw()
        self.move(0)

    def backspace(self):
        if self.cursor == 0:
            return
        kept = self.cursor
        self.line = self.line[:kept - 1] + self.line[kept:]
        self.out += b"\x1b[2K"
        self.show_prompt()
        self.redraw()
        self.move(kept - 1)

    def step(self, source, destination, count):
        while count and source:
            destination.append(self.line)
            self.line = source.pop()
            count -= 1
        self.redraw()
        self.to_end()

    def back(self, count=1):
        self.step(self.older, self.newer, count)

    def forward(self, count=1):
        self.step(self.newer, self.older, count)

    def tab(self):
        self.out += b"\n"
        self.shell.run_line(b"tab " + self.line.lstrip(b" "))

    def take_candidates(self, candidates, whole_line):
        """What the presenters do after a list of several has been printed."""
        if len(candidates) == 1 and whole_line:
            self.line = candidates[0]
        self.show_prompt()
        candidates = [insertable(candidate) for candidate in candidates]
        if len(candidates) == 1 and not whole_line:
            self.replace_last_word(candidates[0] + (b"/" if candidates[0] == b".." else b""))
        elif len(candidates) > 1:
            common = candidates[0]
            while not all(candidate.startswith(common) for candidate in candidates):
                common = common[:-1]
            self.replace_last_word(common)

    def replace_last_word(self, word):
        start = max(self.line.rfind(b"/"), self.line.rfind(b" "))
        if start >= 0:
            self.line = self.line[:start + 1] + word
            self.redraw()
            self.to_end()

    def accept(self):
        self.out += b"\n"
        if not self.line:
            self.show_prompt()
            return
        self.history.append(self.expand())
        self.older = list(self.history)
        self.newer = []
        if self.shell.run_line(self.line) == 11:
            return
        self.line = b""
        self.redraw()
        self.move(0)
        self.show_prompt()

    def expand(self):
        """The text to store; `line` becomes the text to run."""
        if not self.line.startswith(b"!"):
            return self.splice()
        work = self.line[1:]
        entry = self.referred(work) if work else None
        if entry is None:
            return work
        self.line = entry
        return entry

    def splice(self):
        work = self.line
        if b"!$" in work and self.history:
            word = last_word(self.history[-1])
            if b"!$" in word:
                raise Unmodelled("a word that holds the reference again")
            while b"!$" in work:
                work = work.replace(b"!$", word, 1)
                if len(work) > LONGEST:
                    raise Unmodelled("a long line")
            self.line = work
        return work

    def referred(self, work):
        """The entry that a reference names, or None."""
        if work.startswith(b"!"):
            if work == b"!" and not self.history:
                raise Unmodelled("a reference into an empty history")
            return self.history[-1] if work == b"!" else None
        digits = work.lstrip(b"-") if work.startswith(b"-") else work
        count = len(digits) - len(digits.lstrip(b"0123456789"))
        number = int(digits[:count]) if count else None
        if work.startswith(b"-"):
            if number is None or work[1:2] == b"-":
                return None
            if number == 0 or number > len(self.history):
                raise Unmodelled("a reference before the first entry")
            return self.history[-number]
        if number is not None:
            return self.history[number] if number < len(self.history) else None
        return next((entry for entry in reversed(self.history) if entry.startswith(work)), None)
