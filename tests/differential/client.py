"""Paths into the connected tree: id chains, target addressing, subscriptions."""

from tree import find
from values import Unmodelled
from words import resolve_path, split_parent, split_suffix, stream_number


class NoTarget(Exception):
    """A path that names no part: "path", "child" or "node" says how."""

    def __init__(self, failure, chain=(), names=()):
        super().__init__(failure)
        self.failure = failure
        self.chain = chain
        self.names = names


class Target:
    def __init__(self, chain, names, index, parent_is_part):
        self.chain = chain
        self.names = names
        self.index = index
        self.parent_is_part = parent_is_part


class Client:
    """What the shell knows while it is connected; `root` is the served tree."""

    def __init__(self, root, server):
        self.root = root
        self.server = server
        self.chain = ()
        self.names = []
        self.subscriptions = []

    def children(self, chain):
        return find(self.root, chain).children or []

    def resolve(self, text):
        """(id chain, names) of a path, or None."""
        chain, names = ((), []) if text.startswith(b"/") else (self.chain, list(self.names))
        for component in text.split(b"/"):
            if not component:
                continue
            if component == b"..":
                if not chain:
                    return None
                chain, names = chain[:-1], names[:-1]
                continue
            child = self.match(chain, component)
            if child is None:
                return None
            chain += (child.number,)
            names.append(child.name or component)
        return chain, names

    def match(self, chain, component):
        children = self.children(chain)
        if component.startswith(b"noname-"):
            number_text = component[7:]
            if number_text.lstrip()[:1] in (b"-", b"+"):
                raise Unmodelled("a number with a sign")
            number = stream_number(number_text)
            return next((child for child in children if child.number == number), None)
        return next((child for child in children if child.name == component), None)

    def name_path(self, chain):
        return [find(self.root, chain[:length]).shown_name() for length in range(1, len(chain) + 1)]

    def child_named(self, chain, name):
        """The child whose shown name is exactly this."""
        return next((child for child in self.children(chain) if child.shown_name() == name), None)

    def target(self, path):
        """Target addressing; path is expanded, empty for the current directory."""
        parent, last = split_parent(path)
        last, index = split_suffix(last)
        resolved = self.resolve(parent)
        if resolved is None:
            raise NoTarget("path")
        chain, names = resolved
        if self.children(chain):
            child = self.child_named(chain, last) if last else None
            if child is None:
                raise NoTarget("child")
            if child.children:
                raise NoTarget("node")
            return Target(chain + (child.number,), names + [child.shown_name()], index, False)
        part = find(self.root, chain)
        if not index and path and path in part.element_names():
            index = b"%d" % part.element_names().index(path)
        return Target(chain, names, index, True)

    def unsubscribe(self, path, current_path):
        """What `du` does: drops the subscriptions at, above or below the path."""
        wanted = resolve_path(path or b"", current_path)
        for chain in list(self.subscriptions):
            shown = [self.server] + self.name_path(chain)
            if any(b"/" in component for component in shown + current_path):
                raise Unmodelled("a name that holds a slash")
            compared = min(len(wanted), len(shown))
            if compared and wanted[:compared] == shown[:compared]:
                self.subscriptions.remove(chain)
