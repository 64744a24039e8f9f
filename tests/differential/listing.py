"""The listing tree that `ls` and the update display draw."""

from screen import Entry
from tree import find

RECURSIVE, LONG, KINDS = 1, 4, 8


def element_entry(label, part, index, options):
    entry = Entry(label)
    if options & LONG:
        entry.value = part.text(index)
    return entry


def build_part(part, chain, options, subscriptions, entry):
    total = part.element_sum()
    entry.colour = 3 if total and options & KINDS else 0
    entry.marks = 8 if chain in subscriptions else 0
    if not total:
        if options & LONG:
            entry.value = part.text()
        return entry
    for index in range(total):
        label = b"[%d]" % index
        if part.names:
            label += b"(" + part.names[index] + b")"
        entry.children.append(element_entry(label, part, index, options))
    return entry


def flattened(part, options):
    """The entries of an array in a recursive listing: one for each element, none for the part."""
    entries = []
    for index in range(part.element_sum()):
        label = part.shown_name() + b"[%d]" % index
        if part.names:
            label += b"(" + part.names[index] + b")"
        entry = element_entry(label, part, index, options)
        entry.colour = 3 if options & KINDS else 0
        entries.append(entry)
    return entries


def build(root, chain, name, options, subscriptions, top=True):
    if not name:
        name = b"noname-%d" % chain[-1] if chain else b"root"
    entry = Entry(name)
    node = find(root, chain)
    if not node.children:
        return build_part(node, chain, options, subscriptions, entry)
    entry.colour = 4 if options & KINDS else 0
    if not top and not options & RECURSIVE:
        entry.children.append(Entry())
        return entry
    for child in node.children:
        if child.element_sum() and options & RECURSIVE:
            entry.children += flattened(child, options)
        else:
            below = build(root, chain + (child.number,), child.name, options, subscriptions, False)
            entry.children.append(below)
    return entry
