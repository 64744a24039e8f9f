"""The screen printer: attributes, the pager, columns and trees."""

import re

# C1 controls, characters that are kept, and the bytes that are controls elsewhere.
CONTROL = re.compile(
    rb"\xc2[\x80-\x9f]|([\xc2-\xdf][\x80-\xbf]|\xe0[\xa0-\xbf][\x80-\xbf]|\xed[\x80-\x9f][\x80-\xbf]"
    rb"|[\xe1-\xec\xee\xef][\x80-\xbf]{2}|\xf0[\x90-\xbf][\x80-\xbf]{2}|[\xf1-\xf3][\x80-\xbf]{3}"
    rb"|\xf4[\x80-\x8f][\x80-\xbf]{2})|[\x01-\x08\x0b-\x1f\x7f-\x9f]")

COLOURS = {0: b"\x1b[39m", 1: b"\x1b[37m", 2: b"\x1b[31m", 3: b"\x1b[32m", 4: b"\x1b[34m"}
SETS = [(4, b"\x1b[7m"), (8, b"\x1b[1m"), (16, b"\x1b[5m"), (2, b"\x1b[4m")]
RESETS = [(4, b"\x1b[27m"), (8, b"\x1b[22m"), (16, b"\x1b[25m"), (2, b"\x1b[24m")]


class Entry:
    """One entry of a listing: a name, a value, marks and entries below."""

    def __init__(self, name=None):
        self.name = name
        self.value = None
        self.marks = 0
        self.colour = 0
        self.children = []


def printable(text):
    """How a terminal shows a name or a value."""
    return CONTROL.sub(lambda found: found[1] or b"?", text)


def name_text(name):
    return b"notfound" if name is None else name


def value_text(value):
    return b"[nodata]" if value is None else b"[" + value.replace(b"\n", b" ") + b"]"


class Screen:
    """Appends to `out`; `read_byte` gives the pager its keys."""

    def __init__(self, out, batch, rows, columns, read_byte):
        self.out = out
        self.batch = batch
        self.rows = rows
        self.terminal_columns = 0 if batch else columns
        self.read_byte = read_byte
        self.lines_shown = 0
        self.page_lines = 0

    def shown(self, text):
        """Only the sessions in batch mode have no terminal."""
        return text if self.batch else printable(text)

    def entry_text(self, entry):
        return self.shown(name_text(entry.name)) + (b"/" if entry.children else b"")

    def set_attributes(self, attributes, colour):
        if self.batch:
            return
        for bit, sequence in SETS:
            if attributes & bit:
                self.out += sequence
        self.out += COLOURS.get(colour, b"")

    def reset_attributes(self, attributes, colour):
        for bit, sequence in RESETS:
            if attributes & bit:
                self.out += sequence
        if colour:
            self.out += b"\x1b[39m"

    def print_at(self, column, text):
        if self.batch:
            self.out += text + b"\n"
        else:
            self.out += b"\x1b[%dG" % column + text

    def print_styled(self, text, attributes=0, colour=0, column=1):
        self.set_attributes(attributes, colour)
        self.print_at(column, text)
        self.reset_attributes(attributes, colour)

    def count_line(self, paging):
        if self.batch:
            return True
        limit = self.rows - 2 if paging else self.rows - 1
        if limit > self.lines_shown:
            self.lines_shown += 1
            self.page_lines += 1 if paging else 0
            return True
        if not paging:
            return True
        if self.rows - 2 > self.page_lines:
            self.page_lines += 1
            return True
        self.set_attributes(20, 0)
        self.out += b"More"
        self.reset_attributes(20, 0)
        key = self.read_byte()
        self.out += b"\x1b[2K"
        if key == ord("q"):
            return False
        if key != 10:
            self.page_lines = 1
        return True

    def reset(self):
        self.lines_shown = self.page_lines = 0

    def print_line(self, text, attributes=0, colour=0, paging=False):
        if not self.count_line(paging):
            return False
        self.set_attributes(attributes, colour)
        self.print_at(1, text)
        if not self.batch:
            self.out += b"\n"
        self.reset_attributes(attributes, colour)
        return True

    def layout(self, lengths):
        width = max(lengths, default=0) + 2
        columns = 1
        while (columns + 1) * width <= self.terminal_columns:
            columns += 1
        return width, columns

    def entry_width(self, entry):
        return self.layout([len(self.entry_text(child)) for child in entry.children])[0]

    def print_row_items(self, items, paging, feed_in_batch):
        """Items of (text, attributes, colour) in columns."""
        self.reset()
        width, columns = self.layout([len(text) for text, _, _ in items])
        count, column = 0, 1
        for text, attributes, colour in items:
            count += 1
            if count == 1 and not self.count_line(paging):
                return False
            padded = text.ljust(width)
            self.print_styled(padded, attributes, colour, column)
            if count == columns:
                if feed_in_batch or not self.batch:
                    self.out += b"\n"
                count, column = 0, 1
            else:
                column += len(padded)
        if column != 1:
            self.out += b"\n"
        return True

    def print_columns(self, names):
        return self.print_row_items([(self.shown(name), 0, 0) for name in names], False, True)

    def print_plain(self, entry, paging):
        items = [(self.entry_text(child), child.marks, child.colour) for child in entry.children]
        return self.print_row_items(items, paging, False)

    def print_long(self, entry, paging):
        self.reset()
        if not entry.children:
            text = self.shown(name_text(entry.name) + b"    " + value_text(entry.value))
            return self.print_line(text, entry.marks, entry.colour, paging)
        width = self.entry_width(entry)
        for child in entry.children:
            text = self.entry_text(child).ljust(width)
            if not child.children:
                text += self.shown(value_text(child.value))
            if not self.print_line(text, child.marks, child.colour, paging):
                return False
        return True

    def print_level(self, depth, entry, values, paging):
        text = b"    " * depth + b"+-- " + self.entry_text(entry)
        if not self.print_line(text, entry.marks, entry.colour, paging):
            return False
        width = self.entry_width(entry)
        for child in entry.children:
            if child.children:
                shown = self.print_level(depth + 1, child, values, paging)
            else:
                text = b"    " * (depth + 1) + b"+-- " + self.entry_text(child).ljust(width)
                text += self.shown(value_text(child.value)) if values else b""
                shown = self.print_line(text, child.marks, child.colour, paging)
            if not shown:
                return False
        return True

    def print_tree(self, entry, values, paging):
        self.reset()
        width = self.entry_width(entry)
        for child in entry.children:
            if child.children:
                shown = self.print_level(0, child, values, paging)
            else:
                text = b"+-- " + self.entry_text(child)
                if values:
                    text = b"+-- " + self.entry_text(child).ljust(width) + self.shown(value_text(child.value))
                shown = self.print_line(text, child.marks, child.colour, paging)
            if not shown:
                return False
        return True
