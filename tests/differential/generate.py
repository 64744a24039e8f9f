"""Random sessions that the rules cover, each command tried on the model first."""

from commands import SUCCESS
from editor import NeedInput
from session import Session, run_model
from tree import find, random_value
from values import Unmodelled, value_text
from vocabulary import (CONTROLS, ENDINGS, ESCAPES, FILES, GARBAGE, HISTORY, KEYS, LINES, MISTAKES,
                        NUMBERS, ODD_PATHS, SCRIPT_LINES, SEPARATORS, WORDS)

# How much more often a theme's sessions hold some of the commands.
THEMES = [{}, {}, {"watch": 6, "store": 3}, {"save": 6, "store": 3}, {"edit": 5}, {"complete": 8}]


class Generator:
    def __init__(self, rng, frozen_root, server):
        self.rng = rng
        self.theme = rng.choice(THEMES)
        self.frozen_root = frozen_root
        self.server = server
        self.refused = 0

    def session(self):
        rng = self.rng
        kind = rng.choice(["string", "string", "file", "keys", "keys"])
        size = None
        if kind == "keys":
            small = (rng.randint(0, 12), rng.randint(0, 60))
            size = rng.choice([(24, 80), small, (rng.randint(3, 60), 132)])
        session = Session(kind, [], self.start_files(), size, rng.random() < 0.1)
        expected = run_model(session, self.frozen_root, self.server)
        if rng.random() < 0.95:
            session, expected = self.extend(session, expected, self.connection(session))
        for _ in range(rng.choice([3, 8, 15, 25])):
            session, expected = self.extend(session, expected, self.command(expected.shell))
            if not expected.shell.running or expected.result != SUCCESS:
                break
        if kind == "keys" and expected.shell.running:
            session, expected = self.leave(session)
        return session, expected

    def connection(self, session):
        """The command that connects; at the prompt Tab may complete the name."""
        name = self.server.encode()
        if session.kind == "keys" and self.rng.random() < 0.2:
            return b"cd " + name[:self.rng.randint(18, len(name))] + b"\t"
        return b"cd " + name

    def leave(self, session):
        """Ends an interactive session; trailing items are dropped where that is needed."""
        while True:
            try:
                ended = session.with_items(session.items + [b"\x05\x17exit\n"])
                return ended, run_model(ended, self.frozen_root, self.server)
            except (Unmodelled, NeedInput):
                session = session.with_items(session.items[:-1])

    def start_files(self):
        if self.rng.random() < 0.7:
            return {}
        lines = [self.rng.choice(LINES + SCRIPT_LINES) for _ in range(self.rng.randint(1, 4))]
        return {b"f": b"\n".join(lines) + self.rng.choice([b"", b"\n"])}

    def extend(self, session, expected, command):
        """The session with one more command, or as it was where the rules are silent."""
        item = self.keys(command) if session.kind == "keys" else command
        if session.kind == "file" and self.rng.random() < 0.1:
            item = self.rng.choice(SCRIPT_LINES + [b'"' + command])
        for _ in range(30):
            longer = session.with_items(session.items + [item])
            try:
                result = run_model(longer, self.frozen_root, self.server)
            except NeedInput:
                item += self.rng.choice([b"q", b" ", b"\n", b" ", b"x", b"\r"])
                continue
            except Unmodelled:
                self.refused += 1
                return session, expected
            ends = not result.shell.running or (session.kind != "keys" and result.result != SUCCESS)
            if ends and self.rng.random() < 0.85:
                return session, expected
            return longer, result
        return session, expected

    # Commands

    def chain(self, shell):
        """A random place of the tree as its chain and shown names."""
        node, chain, names = shell.root, (), []
        while node.children and (not chain or self.rng.random() < 0.75):
            node = self.rng.choice(node.children)
            chain += (node.number,)
            by_number = self.rng.random() < 0.04
            ending = self.rng.choice([b"", b"", b"x", b" "])
            names.append(b"noname-%d" % node.number + ending if by_number else node.shown_name())
        return chain, names

    def path(self, shell):
        rng = self.rng
        if not shell.client or rng.random() < 0.03:
            return rng.choice(ODD_PATHS + [b"/" + self.server.encode()])
        chain, names = self.chain(shell)
        here = shell.client.chain
        if here and chain[:len(here)] == here and rng.random() < 0.8:
            path = b"/".join(names[len(here):])
        elif here and rng.random() < 0.3:
            path = b"../" * rng.randint(1, len(here)) + b"/".join(names[-1:])
        else:
            starts = [b"/", b"/", b"~", b"~/", b"//"] if here else [b"/", b"", b"~"]
            path = rng.choice(starts) + b"/".join(names)
        part = find(shell.root, chain)
        if part.element_sum() and rng.random() < 0.7:
            path += b"[%d]" % rng.randrange(part.element_sum())
        elif rng.random() < 0.1:
            path += rng.choice(ENDINGS)
        if part.element_names() and chain == here:
            path = rng.choice(part.element_names())
        return b'"' + path + b'"' if b" " in path else path

    def maybe_path(self, shell):
        return b"" if self.rng.random() < 0.15 else b" " + self.path(shell)

    def options(self, letters):
        chosen = b"".join(bytes([letter]) for letter in letters if self.rng.random() < 0.4)
        return b" -" + chosen if chosen else b""

    def value(self, part=None):
        """A value that the part takes, or any."""
        if part is None or part.children is not None or self.rng.random() < 0.3:
            return self.rng.choice(NUMBERS if self.rng.random() < 0.7 else WORDS)
        text = value_text(part.kind, random_value(self.rng, part.kind))
        if any(byte in text for byte in b'";\n'):
            return b"plain"
        if text.startswith(b"-"):
            text = b" " + text
        return b'"' + text + b'"' if b" " in text or not text else text

    def store(self, shell):
        path = self.maybe_path(shell)
        if self.rng.random() < 0.4:
            return b"str " + self.rng.choice(WORDS) + path
        return b"set" + self.rng.choice([b"", b"", b" -l", b" -c"]) + b" " + self.value() + path

    def fitting_store(self, shell):
        """A store of a value that fits into a part."""
        if not shell.client:
            return b"get a"
        chain, names = self.chain(shell)
        return self.store_into(find(shell.root, chain), names)

    def counted_store(self, shell):
        """A text with its length in front, right or wrong."""
        if not shell.client:
            return b"pwd"
        chain, names = self.chain(shell)
        text = self.rng.choice([b"3\nabc", b"2\nabc", b"4\nabc", b"0\n", b"4\na\nbc", b"\nabc"])
        if find(shell.root, chain).kind != "text":
            return b"str a " + b"/".join(names)
        return b'set "' + text + b'" "/' + b"/".join(names) + b'"'

    def store_into(self, part, names):
        path = b"/" + b"/".join(names)
        if part.element_sum():
            path += b"[%d]" % self.rng.randrange(part.element_sum())
        option = b"-l " if part.access == "protected" else b""
        return b"set " + option + self.value(part) + b' "' + path + b'"'

    def replay(self, shell):
        names = sorted(shell.files) if shell.files and self.rng.random() < 0.8 else FILES
        return self.rng.choice([b"from ", b"from ", b"cmdfrom "]) + self.rng.choice(names)

    def command(self, shell):
        rng, server = self.rng, self.server.encode()

        def maybe_path():
            return self.maybe_path(shell)

        makers = [
            ("list", 20, lambda: b"ls" + self.options(b"rlcm") + maybe_path()),
            ("list", 14, lambda: b"get" + maybe_path()),
            ("list", 14, lambda: b"cd " + self.path(shell)),
            ("store", 10, lambda: self.store(shell)),
            ("store", 10, lambda: self.fitting_store(shell)),
            ("watch", 6, lambda: rng.choice([b"eu", b"eu", b"cat", b"eu -r"]) + maybe_path()),
            ("watch", 2, lambda: rng.choice([b"eu -l", b"cat -l", b"eu -lm"])),
            ("watch", 2, lambda: b"du" + rng.choice([b"", b" -r"]) + maybe_path()),
            ("watch", 3, lambda: self.drop(shell)),
            ("watch", 8, lambda: self.watched_store(shell)),
            ("save", 6, lambda: b"to " + rng.choice(FILES) + maybe_path()),
            ("save", 4, lambda: self.replay(shell)),
            ("plain", 6, lambda: rng.choice(LINES)),
            ("complete", 4, lambda: self.tab_command(shell)),
            ("plain", 2, lambda: b"cd" + rng.choice([b"", b" no", b" ..", b" /", b" " + server])),
            ("plain", 3, lambda: self.command(shell) + rng.choice(SEPARATORS) + self.command(shell)),
            ("plain", 3, lambda: self.spoiled(self.command(shell))),
            ("plain", 1, lambda: rng.choice([b"exit", b"quit", b"q"])),
        ]
        if shell.editor:
            makers.append(("edit", 10, lambda: rng.choice(HISTORY)))
            makers.append(("complete", 3, lambda: rng.choice(KEYS)))
        else:
            makers.append(("store", 3, lambda: self.counted_store(shell)))
        weights = [weight * self.theme.get(group, 1) for group, weight, _ in makers]
        return rng.choices([maker for _, _, maker in makers], weights)[0]()

    def watched_store(self, shell):
        """A store into a part that is subscribed."""
        if not shell.client or not shell.client.subscriptions:
            return b"pwd"
        chain = self.rng.choice(shell.client.subscriptions)
        return self.store_into(find(shell.root, chain), shell.client.name_path(chain))

    def drop(self, shell):
        """A `du` that matches some subscriptions, and the list of those that are left."""
        if not shell.client or not shell.client.subscriptions:
            return b"eu -r /"
        rng = self.rng
        names = shell.client.name_path(rng.choice(shell.client.subscriptions))
        here = shell.client.names
        shared = 0
        while shared < min(len(here), len(names)) and here[shared] == names[shared]:
            shared += 1
        names = names[:rng.randint(0, len(names))]
        path = b"/".join([b".."] * (len(here) - shared) + names[shared:])
        if rng.random() < 0.3:
            path = b"/" + rng.choice([b"", self.server.encode() + b"/"]) + b"/".join(names)
        return b"du " + (b'"' + path + b'"' if path else b"") + b";eu -l"

    def tab_command(self, shell):
        rng = self.rng
        path = self.path(shell)
        begun = path[:rng.randint(0, len(path))]
        words = [b"c", b"", b"l", b"ls ", b"zz", b"to", b"ls ..", b"e", b"set", b"ls -l /"]
        words += [start + begun for start in (b"cd ", b"get a ", b"x y ")]
        return b"tab " + rng.choice(words)

    def spoiled(self, text):
        rng = self.rng
        for _ in range(rng.randint(1, 3)):
            at = rng.randint(0, len(text))
            text = text[:at] + bytes([rng.choice(GARBAGE)]) + text[at + rng.randint(0, 2):]
        return text

    # Keys

    def keys(self, command):
        """The keys of a command; most of them leave exactly it on the line."""
        rng = self.rng
        command = command.replace(b"\n", b"\x05")
        style = rng.random() * (0.4 if "watch" in self.theme else 1)
        if style < 0.35:
            keys = command
        elif style < 0.5:
            keys = self.mistyped(command)
        elif style < 0.6:
            at = rng.randint(0, len(command))
            keys = command[at:] + rng.choice([b"\x01", b"\x1b[1~"]) + command[:at]
        elif style < 0.7:
            at = rng.randint(0, len(command))
            keys = command[:at] + b"\t" + (command[at:] if rng.random() < 0.5 else b"")
        elif style < 0.8:
            keys = b"".join(rng.choice(ESCAPES) for _ in range(rng.randint(1, 6)))
        elif style < 0.9:
            keys = rng.choice([b"\x10", b"\x1b[A", b"\x1b[5~"]) * rng.randint(1, 4)
            keys += rng.choice([b"", b"", b"\x0e", b"\x1b[B\x7f", b"\x1b[6~"])
        else:
            keys = self.disturbed(command)
        return keys + rng.choice([b"\n", b"\n", b"\r"])

    def mistyped(self, command):
        keys = b""
        for byte in command:
            if self.rng.random() < 0.1:
                keys += self.rng.choice(MISTAKES)
            keys += bytes([byte])
        return keys

    def disturbed(self, command):
        keys = b""
        for byte in command:
            if self.rng.random() < 0.15:
                keys += self.rng.choice(CONTROLS + ESCAPES)
            keys += bytes([byte])
        return keys
