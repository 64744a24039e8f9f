"""The published tree: nodes and parts, their description as JSON, and random ones."""

import json

from values import INTEGER_RANGES, TYPES, differs, parse, to_single, value_text

PLAIN = "a b c speed gain alpha alpine alp x limits state p i AB n1 n2 n10 left_bearing_45".split()
ODD = ["two words", "a;b", "a[0]", "[1]", "noname-3", "noname-7", "noname-x", "..", ".", "~", "-l",
       "-", "a/b", "/", '"q"', 'say"', "é", "日本", "tab\there", "\x01", "$x", "!a", "%s", "\\",
       "a]b[", "x ", " y", "\x1b[31m", "line\nfeed", "0", "#", "*", "\x7f", "name" * 20, "\r", "]"]
TEXTS = ["", "x", "two words", "line one\nline two", "-5", '"quoted"', 'in "the" middle', " ",
         " lead", "trail ", "3\nabc", "\n", "tab\tkept", "é日", "%s%d", "a;b", "[x]", "long " * 30,
         "\x1b[1m", "\x01", "1", "true", "wide" * 1500]
SINGLES = [0.0, -0.0, 1.0, 0.1, 16777216.0, 3.4028234663852886e38, 1.401298464324817e-45,
           1.1754943508222875e-38, 1e10, 1e5, 123456.0, 0.001, 1e-5, -2.5, 33554432.0]
DOUBLES = [0.0, -0.0, 1.0, 0.1, 0.3, 1e22, 1e23, 1.7976931348623157e308, 5e-324,
           2.2250738585072014e-308, 1e5, 123456789012345680000.0, 1e16, 1.5, 5.684341886080802e-14,
           1e-4, 1e-5, 9007199254740993.0, -1e100]


class Node:
    """A node (children is a list) or a part (children is None)."""

    def __init__(self, number, name, children=None):
        self.number = number
        self.name = name
        self.children = children
        self.kind = "int32"
        self.access = "read-write"
        self.subscribable = True
        self.array = False
        self.values = [0]
        self.names = []

    def shown_name(self):
        return self.name or b"noname-%d" % self.number

    def element_sum(self):
        return len(self.values) if self.children is None and self.array else 0

    def element_names(self):
        return self.names if self.element_sum() else []

    def text(self, index=None):
        """The value's text; empty where the server refuses to give one."""
        if self.children is not None:
            return b""
        if index is None:
            return b"\n".join(value_text(self.kind, value) for value in self.values)
        return value_text(self.kind, self.values[index]) if index < len(self.values) else b""

    def store(self, text, flag, index):
        """Stores what the text stands for; true when that changed the value."""
        if self.children is not None or self.access == "read-only":
            return False
        if self.access == "protected" and not flag:
            return False
        index = 0 if index is None else index
        if index >= len(self.values):
            return False
        value = parse(self.kind, text)
        if value is None or not differs(self.kind, self.values[index], value):
            return False
        self.values[index] = value
        return True


def find(root, chain):
    """The node or part of an id chain."""
    for number in chain:
        root = next(child for child in root.children if child.number == number)
    return root


def json_value(kind, value):
    return value.decode() if kind == "text" else value


def describe(node):
    """The description that modelsrvd reads; UnicodeDecodeError where a text is not UTF-8."""
    entry = {"id": node.number, "name": node.name.decode()}
    if node.children is not None:
        entry["children"] = [describe(child) for child in node.children]
        return entry
    entry["type"] = node.kind
    if node.array:
        entry["elements"] = [{"value": json_value(node.kind, value)} for value in node.values]
        for element, name in zip(entry["elements"], node.names):
            element["name"] = name.decode()
    else:
        entry["value"] = json_value(node.kind, node.values[0])
    if node.access != "read-write":
        entry["access"] = node.access
    if not node.subscribable:
        entry["subscribable"] = False
    return entry


def description(root, name):
    children = [describe(child) for child in root.children]
    return json.dumps({"name": name, "children": children}, indent=1)


def random_value(rng, kind):
    edge = rng.random() < 0.6
    if kind == "bool":
        return rng.random() < 0.5
    if kind == "text":
        return rng.choice(TEXTS).encode()
    if kind in INTEGER_RANGES:
        low, high = INTEGER_RANGES[kind]
        edges = [low, high, 0, 1, 42, rng.randint(low, high)]
        return rng.choice(edges) if edge else rng.randint(0, 99)
    if kind == "float":
        scale = 10.0 ** rng.randint(-40, 38)
        return to_single(rng.choice(SINGLES) if edge else rng.uniform(-1, 1) * scale)
    return rng.choice(DOUBLES) if edge else rng.uniform(-1, 1) * 10.0 ** rng.randint(-300, 300)


def random_name(rng, oddness):
    if rng.random() < oddness:
        return "" if rng.random() < 0.3 else rng.choice(ODD)
    return rng.choice(PLAIN) + rng.choice(["", "", "", "_" + str(rng.randint(0, 9))])


def fill_part(rng, part, oddness):
    part.kind = rng.choice(TYPES + ["int32", "text"])
    if rng.random() < 0.35:
        part.array = True
        count = rng.choice([1, 2, 3, 5, 12, 12, 300] if rng.random() < 0.1 else [1, 2, 3, 5, 12])
        part.values = [random_value(rng, part.kind) for _ in range(count)]
        if rng.random() < 0.6:
            part.names = [(random_name(rng, oddness) or "e").encode() for _ in range(count)]
    else:
        part.values = [random_value(rng, part.kind)]
    part.access = rng.choice(["read-write"] * 8 + ["read-only", "protected"])
    part.subscribable = rng.random() < 0.9
    return part


def random_children(rng, depth, limits, oddness):
    children = []
    number = rng.choice([0, 1, 1, 1, 5])
    for _ in range(rng.randint(1, limits["width"])):
        name = random_name(rng, oddness).encode()
        child = Node(number, name)
        if depth > 0 and rng.random() < 0.4:
            empty = limits["empty"] and rng.random() < 0.2
            child.children = [] if empty else random_children(rng, depth - 1, limits, oddness)
        else:
            fill_part(rng, child, oddness)
        children.append(child)
        number += 1 if rng.random() < 0.7 else rng.randint(1, 500)
    if rng.random() < 0.1:
        children[-1].number = 65533
    if rng.random() < 0.3:
        rng.shuffle(children)
    return children


def random_tree(rng):
    limits = {"width": rng.choice([2, 4, 8, 20]), "empty": rng.random() < 0.5}
    depth, oddness = rng.randint(0, 3), rng.choice([0.0, 0.1, 0.4])
    children = random_children(rng, depth, limits, oddness)
    for _ in range(20 if rng.random() < 0.05 else 0):
        children = [Node(1, random_name(rng, oddness).encode(), children)]
    return Node(0, b"", children)
