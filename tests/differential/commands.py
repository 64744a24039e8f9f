"""The handlers of the commands that act on the connected tree."""

import re

from client import Client, NoTarget
from known import leave_out
from listing import LONG, RECURSIVE, build
from screen import Entry, Screen
from tree import find
from values import Unmodelled
from words import split_parent, stream_number

SUCCESS, UNKNOWN_ERROR, NOTHING, NOT_FOUND, BAD_OPTION, NO_FILE, NO_CONNECTION = range(1, 8)
PAGING, FORCE = 2, 4


def file_name(name):
    """A name in the session's own directory; None where it cannot be opened."""
    if not name or name.startswith(b"missing/"):
        return None
    if b"/" in name or name in (b".", b"..") or len(name) > 200:
        raise Unmodelled("a file elsewhere")
    return name


def index_number(text):
    """An element index as stream extraction reads it; what is not a number gives 0."""
    if text.strip()[:1] in (b"-", b"+"):
        raise Unmodelled("a signed index")
    number = stream_number(text) or 0
    if number > 60000:
        raise Unmodelled("an index above every element")
    return number


def spaced(text):
    """What a saved file holds of a value or a name: nothing that ends a command."""
    return re.sub(rb"[\x00-\x1f\x7f;]", b" ", text)


class Commands:
    """Mixed into the shell: `client` is None while not connected."""

    def expand(self, path):
        path = path or b""
        return b"/" + path[1:] if self.client and path.startswith(b"~") else path

    def do_cd(self, path):
        if not self.client:
            return self.connect(path or b"")
        if path is None:
            self.do_du(None)
            self.client = None
            self.current_path = []
            return SUCCESS
        resolved = self.client.resolve(self.expand(path))
        if resolved is not None:
            self.client.chain, self.client.names = resolved[0], list(resolved[1])
            self.current_path = [self.server] + self.client.names
        return SUCCESS

    def connect(self, name):
        if name != self.server:
            if name.startswith(b"Model") or name.startswith(b"modelsrv"):
                raise Unmodelled("another server")
            return NO_CONNECTION
        self.client = Client(self.root, self.server)
        self.current_path = [name]
        return SUCCESS

    def do_ls(self, options, path):
        if not self.client:
            if path is not None:
                return NOTHING
            raise Unmodelled("the servers of the machine")
        resolved = self.client.resolve(self.expand(path))
        entry = Entry()
        if resolved is not None:
            chain, names = resolved
            name = names[-1] if names else b""
            entry = build(self.root, chain, name, options, self.client.subscriptions)
        paging = bool(options & PAGING)
        if options & RECURSIVE:
            self.screen.print_tree(entry, bool(options & LONG), paging)
        elif options & LONG:
            self.screen.print_long(entry, paging)
        else:
            self.screen.print_plain(entry, paging)
        return SUCCESS

    def do_get(self, path):
        if not self.client:
            return NOTHING
        try:
            target = self.client.target(self.expand(path))
        except NoTarget:
            return NOTHING
        part = find(self.root, target.chain)
        by_index = bool(part.element_sum() and target.index)
        text = part.text(index_number(target.index) if by_index else None)
        names = list(target.names)
        if target.index and names:
            names[-1] += b"[" + target.index + b"]"
        line = self.screen.shown(b"/" + b"/".join(names))
        line += b" " * (4 - len(line) % 4) + self.screen.shown(b"[" + text + b"]")
        self.screen.reset()
        self.screen.print_line(line.replace(b"\n", b" "))
        return SUCCESS

    def do_str(self, text, path):
        return self.do_set(0, b"%d\n" % len(text) + text, path)

    def do_set(self, options, value, path):
        if not self.client:
            return NOTHING
        echo = self.expand(path)
        try:
            target = self.client.target(echo)
        except NoTarget:
            return NOTHING
        if target.parent_is_part and target.index:
            echo = b"[" + target.index + b"]"
        part = find(self.root, target.chain)
        index = None
        if part.element_sum():
            if not target.index:
                return NOT_FOUND
            index = index_number(target.index)
        if part.store(value, self.force or bool(options & FORCE), index):
            self.notify(target.chain)
        return self.do_get(echo)

    def notify(self, chain):
        if chain in self.client.subscriptions:
            self.updates.append(self.update_text(chain))

    def update_text(self, chain):
        out = bytearray()
        screen = Screen(out, self.batch, self.rows, self.columns, self.no_key)
        names = self.client.name_path(chain)
        screen.print_line(screen.shown(b"/" + b"/".join(names)))
        entry = build(self.root, chain, names[-1], LONG, self.client.subscriptions)
        screen.print_tree(entry, True, False)
        return bytes(out)

    @staticmethod
    def no_key():
        raise AssertionError("an update is not paged")

    def do_eu(self, options, path):
        if not self.client:
            return NO_CONNECTION
        if options & LONG:
            for chain in self.client.subscriptions:
                if options & PAGING:
                    self.screen.reset()
                self.screen.print_line(self.screen.shown(b"/" + b"/".join(self.client.name_path(chain))))
            return SUCCESS
        expanded = self.expand(path)
        parent, last = split_parent(expanded)
        resolved = self.client.resolve(parent)
        if resolved is None:
            return NO_CONNECTION
        chain, _ = resolved
        if not self.client.children(chain):
            return self.subscribe(chain)
        if not last:
            return self.subscribe_subtree(options, chain, path, expanded)
        child = self.client.child_named(chain, last)
        if child is None:
            return NOT_FOUND
        chain += (child.number,)
        if child.children:
            return self.subscribe_subtree(options, chain, path, expanded)
        return self.subscribe(chain)

    def subscribe(self, chain):
        if not find(self.root, chain).subscribable:
            return UNKNOWN_ERROR
        self.client.subscriptions.append(chain)
        return SUCCESS

    def subscribe_subtree(self, options, chain, path, expanded):
        if not options & RECURSIVE:
            return NOTHING
        if path == b"":
            raise Unmodelled("an empty path typed")
        base = b"" if path is None else expanded + b"/"
        result = NOTHING
        if self.walked and len(chain) <= self.walked[-1]:
            leave_out("eu -r, a name that leads out")
        self.walked.append(len(chain))
        self.depth += 1
        if self.depth > 20:
            raise Unmodelled("a walk that does not come down")
        for child in self.client.children(chain):
            result = self.do_eu(options, base + child.shown_name())
        self.depth -= 1
        self.walked.pop()
        return result

    def do_du(self, path):
        if not self.client:
            return NOTHING
        expanded = self.expand(path)
        before = len(self.client.subscriptions)
        self.client.unsubscribe(expanded, self.current_path)
        self.dropped += before - len(self.client.subscriptions)
        return SUCCESS

    def do_to(self, name, path):
        if not self.client:
            return NOTHING
        name = file_name(name)
        if name is None:
            return NO_FILE
        self.files[name] = b""
        parent, last = split_parent(self.expand(path))
        resolved = self.client.resolve(parent)
        if resolved is None:
            return NOTHING
        chain, names = resolved
        if last:
            child = self.client.child_named(chain, last)
            if child is None:
                return SUCCESS
            chain += (child.number,)
        lines = []
        self.save(chain, names, lines)
        self.files[name] = b"".join(lines)
        return SUCCESS

    def save(self, chain, names, lines):
        node = find(self.root, chain)
        for child in node.children or []:
            self.save(chain + (child.number,), names + [child.shown_name()], lines)
        if node.children:
            return
        if not node.element_sum():
            lines.append(self.save_line(node.text(), names))
            return
        if not names:
            raise Unmodelled("an element without a name in front")
        for index in range(node.element_sum()):
            element = names[:-1] + [names[-1] + b"[%d]" % index]
            lines.append(self.save_line(node.text(index), element))

    def save_line(self, value, names):
        saved = spaced(value)
        if b" " in saved or not saved:
            command = b'str "' + saved + b'" '
        else:
            command = b"set " + saved + b" "
        self.out += self.screen.shown(b" make command [" + value + b"] -> [" + command + b"]\n")
        return command + b"".join(b"/" + spaced(name) for name in names) + b"\n"

    def do_from(self, name):
        return self.run_file(name) if self.client else NOTHING
