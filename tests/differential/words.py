"""Lines into commands, commands into words, options, and paths as texts."""


def split_at(text, separator):
    """The pieces between separators: no empty ones, but always the last."""
    *heads, last = text.split(separator)
    return [head for head in heads if head] + [last]


def split_words(command):
    words = []
    rest = command.rstrip(b" ")
    while rest:
        rest = rest.lstrip(b" ")
        closing = rest.find(b'"', 1)
        if rest.startswith(b'"') and closing > 0:
            words.append(rest[1:closing])
            rest = rest[closing + 1:]
            continue
        word, _, _ = rest.partition(b" ")
        words.append(word)
        rest = rest[len(word):]
    return words


def unquote_line(line):
    """What is left of a file's line after the one-sided removal of a leading quote."""
    line = line.lstrip(b" ")
    if not line.startswith(b'"'):
        return line
    return b"" if line[1:2] == b'"' else line[1:]


def split_commands(text):
    """The commands of a command string: cut at every ";", spaces in front removed."""
    rest = text.rstrip(b" ")
    commands = []
    while rest:
        rest = rest.lstrip(b" ")
        command, separator, rest = rest.partition(b";")
        commands.append(command)
        if not rest.strip(b" "):
            rest = b""
    return commands


OPTION_BITS = {ord("r"): 1, ord("m"): 2, ord("l"): 4, ord("c"): 8}


def check_arguments(words, most, mask):
    """(accepted, option bits, the other words)"""
    options = 0
    arguments = []
    for word in words:
        if word.startswith(b"-"):
            for letter in word[1:]:
                options |= OPTION_BITS.get(letter, 0)
        else:
            arguments.append(word)
    return len(arguments) <= most and options & ~mask == 0, options, arguments


def resolve_path(path, base):
    """Applies a path to components; a "/" that stands first in what is left restarts."""
    base = list(base)
    while path:
        head, separator, path = path.partition(b"/")
        if separator and not head:
            base = []
        elif head == b"..":
            base = base[:-1]
        else:
            base.append(head)
    return base


def split_parent(path):
    """(parent, last component): split at the last "/"."""
    position = path.rfind(b"/")
    if position < 0:
        return b"", path
    return path[:position] or b"/", path[position + 1:]


def split_suffix(component):
    """(component, index text): "name[3]" gives name and 3."""
    opening = component.find(b"[")
    closing = component.find(b"]")
    if opening < 0 or closing < opening + 2:
        return component, b""
    return component[:opening] + component[closing + 1:], component[opening + 1:closing]


def stream_number(text):
    """A decimal number as stream extraction reads it; None where there is none."""
    text = text.lstrip()
    digits = bytes(text[:len(text) - len(text.lstrip(b"0123456789"))])
    return int(digits) if digits else None
