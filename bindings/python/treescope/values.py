"""Values as Python has them, and what parts are."""

from __future__ import annotations

import enum
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any, List, NamedTuple, Optional, Union

from ._library import ALL, decode, encode
from .errors import BadArgument, BadText, TreescopeError

Scalar = Union[bool, int, float, str]
#: What a part holds: one value, or a list of them. What a program reads is `Any` to type checkers:
#: the server knows which it is, and they do not.
Value = Union[bool, int, float, str, list[bool], list[int], list[float], list[str]]
#: What may be stored: text goes to a part of any type.
Storable = Union[
    bool, int, float, str, bytes, bytearray, memoryview, Sequence[Union[bool, int, float, str]]
]


class Type(enum.IntEnum):
    """The type of a part's value."""

    UNKNOWN = 0
    NODE = 1
    BOOL = 2
    INT8 = 3
    INT16 = 4
    INT32 = 5
    INT64 = 6
    UINT8 = 7
    UINT16 = 8
    UINT32 = 9
    UINT64 = 10
    FLOAT = 11
    DOUBLE = 12
    TEXT = 13


class Access(enum.IntEnum):
    """Which clients may store."""

    NONE = 0
    READ_WRITE = 1
    READ_ONLY = 2
    PROTECTED = 3


@dataclass(frozen=True)
class Child:
    """One child of a node."""

    id: int
    name: str


class TreePart(NamedTuple):
    """One part of a tree that was read, as `Description` and `Client.get` have it."""

    path: str  # of ids, which every operation takes
    names: tuple[str, ...]  # from the part that was read down to this one
    is_node: bool
    type: Type
    access: Access
    watchable: bool
    elements: int
    element_names: tuple[str, ...]
    value: Any  # a `Value`; None if there is an error, and of a part without a value
    error: Optional[TreescopeError]  # why the server cannot read the value

    @property
    def name(self) -> str:
        return self.names[-1]


class Tree(List[TreePart]):
    """The parts of a tree that was read: a node before its children."""

    #: Whether parts have entered or left the server's tree meanwhile, so that some may be missing.
    structure_changed = False


@dataclass(frozen=True)
class Description:
    """What a part is; texts that its server does not state are empty."""

    type: Type
    access: Access
    watchable: bool
    elements: int
    element_names: tuple[str, ...]
    unit: str
    minimum: str
    maximum: str
    text: str
    choices: tuple[str, ...]


def parse_scalar(text: bytes, type: Type) -> Scalar:
    """One value of this type. BadText if the text is none."""
    try:
        if type == Type.BOOL:
            return {b"true": True, b"false": False}[text]
        if Type.INT8 <= type <= Type.UINT64:
            return int(text)
        if type in (Type.FLOAT, Type.DOUBLE):
            # What distinguishes one NaN from another has no place in Python's float.
            return float(text.partition(b"(")[0])
    except (KeyError, ValueError):
        raise BadText(f"expected a value of type {type.name}, got {text[:100]!r}") from None
    return decode(text)


def parse(text: bytes, type: Type, elements: int) -> Value:
    """The value of a part. BadText if the text has another number of elements."""
    if elements == 0:
        return parse_scalar(text, type)
    lines = text.split(b"\n") if elements > 1 else [text]
    if len(lines) != elements:
        raise BadText(f"expected {elements} elements, got {len(lines)}")
    return [parse_scalar(line, type) for line in lines]  # type: ignore[return-value]


def element_index(index: Optional[int]) -> int:
    """An index as the library has it; None is the whole value."""
    if index is None:
        return ALL
    if not 0 <= index < 65534:
        raise BadArgument(f"expected an index from 0 to 65533, got {index}")
    return index


# Up to this size a whole number has no exponent, which a part of whole numbers would refuse.
_WHOLE = 2**64


def scalar_text(value: Scalar) -> bytes:
    if isinstance(value, bool):
        return b"true" if value else b"false"
    if isinstance(value, float) and value.is_integer() and abs(value) <= _WHOLE:
        return b"%.0f" % value
    # A derived type, such as an enumeration, may have another `repr`.
    if isinstance(value, float):
        return float.__repr__(value).encode()
    if isinstance(value, int):
        return b"%d" % value
    if isinstance(value, str):
        return encode(value)
    raise TypeError(f"expected a bool, int, float or str, got {value!r}")


def is_array(value: Storable) -> bool:
    """Whether it is several values. TypeError if it is nothing that can be stored."""
    if isinstance(value, (bool, int, float, str, bytes, bytearray, memoryview)):
        return False
    # The elements of a set have no order; a mapping is more than its keys.
    if isinstance(value, (set, frozenset, Mapping)) or not hasattr(value, "__len__"):
        raise TypeError(f"expected a bool, int, float, str, bytes or a sequence, got {value!r}")
    return True


def to_text(value: Storable) -> bytes:
    """The text that stores `value`."""
    if is_array(value):
        return b"\n".join(scalar_text(element) for element in value)  # type: ignore
    if isinstance(value, (bytes, bytearray, memoryview)):
        return bytes(value)
    return scalar_text(value)  # type: ignore[arg-type]


def type_of(value: Storable) -> Type:
    """The type of a new part that holds `value`."""
    if is_array(value):
        if len(value) == 0:  # type: ignore[arg-type]
            raise BadArgument("an array has at least one element")
        types = {type_of(element) for element in value}  # type: ignore
        if types == {Type.INT64, Type.DOUBLE}:
            return Type.DOUBLE
        if len(types) != 1:
            raise BadArgument(f"expected elements of one type, got {value!r}")
        return types.pop()
    if isinstance(value, bool):
        return Type.BOOL
    if isinstance(value, int):
        return Type.INT64
    return Type.DOUBLE if isinstance(value, float) else Type.TEXT
