"""What a value is: its text when it is read, and what a text stores.

`Unmodelled` is raised wherever the rules leave the result open; a generated
session that meets it is changed until it does not.
"""

import decimal
import re
import struct

INTEGER_RANGES = {
    **{f"int{bits}": (-(1 << (bits - 1)), (1 << (bits - 1)) - 1) for bits in (8, 16, 32, 64)},
    **{f"uint{bits}": (0, (1 << bits) - 1) for bits in (8, 16, 32, 64)},
}
TYPES = ["bool", *INTEGER_RANGES, "float", "double", "text"]

INTEGER = re.compile(rb"-?[0-9]+")
REAL = re.compile(rb"-?[0-9]+(\.[0-9]+)?([eE][-+]?[0-9]+)?")
OPEN_REAL = re.compile(rb"(?i)[-+]*(inf|nan|0x|\.|[0-9]*\.[0-9]*)")


class Unmodelled(Exception):
    """The rules do not say what follows."""


def to_single(number):
    """The nearest float of 32 bits, as a float of Python."""
    return struct.unpack("<f", struct.pack("<f", number))[0]


def significant(text):
    """The digits of a decimal text, without zeros at either end, and the exponent of the last."""
    _, digits, exponent = decimal.Decimal(text).as_tuple()
    digits = "".join(map(str, digits)).lstrip("0")
    stripped = digits.rstrip("0")
    return stripped, exponent + len(digits) - len(stripped)


def reads_back(text, number):
    try:
        return to_single(float(text)) == number
    except OverflowError:
        return False


def shortest_single(number):
    """The fewest digits that read back to the same float of 32 bits, the nearest of those."""
    for precision in range(9):
        text = f"{number:.{precision}e}"
        near = decimal.Decimal(text)
        unit = decimal.Decimal((0, (1,), near.as_tuple().exponent))
        exact = decimal.Decimal(number)
        candidates = sorted((near, near - unit, near + unit), key=lambda c: abs(c - exact))
        for candidate in candidates:
            digits = significant(str(candidate))
            if len(digits[0]) <= precision + 1 and reads_back(candidate, number):
                return digits
    raise AssertionError(number)


def real_text(number, single):
    """The shortest form that reads back to the same bits; plain digits where both are as short."""
    sign = "-" if str(number).startswith("-") else ""
    number = abs(number)
    if number == 0:
        return (sign + "0").encode()
    digits, exponent = shortest_single(number) if single else significant(repr(number))
    scientific = digits[0] + ("." + digits[1:] if len(digits) > 1 else "")
    scientific += f"e{exponent + len(digits) - 1:+03d}"
    if exponent >= 0:
        fixed = str(int(number))
    elif -exponent < len(digits):
        fixed = digits[:exponent] + "." + digits[exponent:]
    else:
        fixed = "0." + "0" * (-exponent - len(digits)) + digits
    return (sign + (fixed if len(fixed) <= len(scientific) else scientific)).encode()


def value_text(kind, value):
    if kind == "text":
        return value
    if kind == "bool":
        return b"true" if value else b"false"
    if kind in INTEGER_RANGES:
        return str(value).encode()
    return real_text(value, kind == "float")


def counted_text(text):
    """The text that a counted form holds, or None."""
    count, feed, rest = text.partition(b"\n")
    if not feed or not count.strip().isdigit():
        return None
    if int(count) != len(rest):
        return None
    if str(int(count)).encode() != count:
        raise Unmodelled("a count with zeros or spaces")
    return rest


def parse_real(text, single):
    if not REAL.fullmatch(text):
        if OPEN_REAL.match(text) or text.startswith(b"+"):
            raise Unmodelled("a special form of a number")
        return None
    number = float(text)
    if number in (float("inf"), float("-inf")):
        return None
    if single:
        try:
            number = to_single(number)
        except OverflowError:
            return None
    if number == 0 and re.search(rb"[1-9]", re.split(rb"[eE]", text)[0]):
        raise Unmodelled("underflow")
    return number


def parse(kind, text):
    """The value that a text stands for; None where it stands for none."""
    if kind == "text":
        counted = counted_text(text)
        return text if counted is None else counted
    if text.strip() != text.strip(b" "):
        raise Unmodelled("white space around a number")
    if kind == "bool":
        known = {b"true": True, b"1": True, b"false": False, b"0": False}
        if text not in known and text.strip() in known:
            raise Unmodelled("spaces around a bool")
        return known.get(text)
    text = text.strip(b" ")
    if kind not in INTEGER_RANGES:
        return parse_real(text, kind == "float")
    if text.startswith(b"+") or (text.startswith(b"-") and kind.startswith("u")):
        raise Unmodelled("a sign that may be refused")
    if not INTEGER.fullmatch(text):
        return None
    low, high = INTEGER_RANGES[kind]
    number = int(text)
    return number if low <= number <= high else None


def differs(kind, old, new):
    if kind in ("float", "double"):
        return struct.pack("d", old) != struct.pack("d", new)
    return old != new
