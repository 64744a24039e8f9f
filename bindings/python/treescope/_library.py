"""The functions of libtreescope, as ctypes sees them. Nothing here is public."""

from __future__ import annotations

import ctypes
import sys
import threading
from ctypes import (
    CFUNCTYPE,
    POINTER,
    Structure,
    byref,
    c_bool,
    c_char_p,
    c_double,
    c_int,
    c_int64,
    c_size_t,
    c_uint,
    c_uint16,
    c_uint32,
    c_void_p,
)
from pathlib import Path
from typing import Any

from ._location import LIBRARY
from .errors import error_of

ALL = -1
SUCCESS = 0
TIMEOUT = 65
LOADER = 1


class Callbacks(threading.local):
    """How many callbacks of servers the calling thread is in."""

    depth = 0


callbacks = Callbacks()


class Bytes(Structure):
    _fields_ = [("data", c_void_p), ("size", c_size_t)]

    def content(self) -> bytes:
        return ctypes.string_at(self.data, self.size)

    def text(self) -> str:
        return decode(self.content())


class Child(Structure):
    _fields_ = [("id", c_uint16), ("name", Bytes)]


class CDescription(Structure):
    _fields_ = [
        ("type", c_int),
        ("access", c_int),
        ("watchable", c_bool),
        ("elements", c_size_t),
        ("element_names", POINTER(Bytes)),
        ("unit", c_char_p),
        ("minimum", c_char_p),
        ("maximum", c_char_p),
        ("text", c_char_p),
        ("choices", POINTER(c_char_p)),
        ("choice_count", c_size_t),
    ]


class PartOptions(Structure):
    _fields_ = [
        ("id", c_uint16),
        ("name", c_char_p),
        ("type", c_int),
        ("access", c_int),
        ("value", c_char_p),
        ("elements", c_size_t),
        ("element_names", POINTER(c_char_p)),
        ("not_watchable", c_bool),
        ("unit", c_char_p),
        ("minimum", c_char_p),
        ("maximum", c_char_p),
        ("text", c_char_p),
        ("choices", POINTER(c_char_p)),
        ("choice_count", c_size_t),
    ]


class StoreRequest(Structure):
    _fields_ = [
        ("part", c_void_p),
        ("index", c_int),
        ("text", c_void_p),
        ("size", c_size_t),
        ("number", c_double),
    ]


class CTreePart(Structure):
    _fields_ = [
        ("path", c_char_p),
        ("ids", POINTER(c_uint16)),
        ("depth", c_size_t),
        ("name", Bytes),
        ("type", c_int),
        ("access", c_int),
        ("watchable", c_bool),
        ("elements", c_size_t),
        ("element_names", POINTER(Bytes)),
        ("result", c_int),
        ("text", Bytes),
        ("number", c_double),
    ]


class CUpdate(Structure):
    _fields_ = [
        ("kind", c_int),
        ("path", c_char_p),
        ("ids", POINTER(c_uint16)),
        ("depth", c_size_t),
        ("name", Bytes),
        ("is_node", c_bool),
        ("index", c_int),
        ("result", c_int),
        ("text", Bytes),
        ("number", c_double),
        ("time_ns", c_int64),
        ("changes", c_uint32),
    ]


EventHandler = CFUNCTYPE(None, c_void_p, c_int)
StoreCheck = CFUNCTYPE(c_int, c_void_p, POINTER(StoreRequest))
Getter = CFUNCTYPE(c_int, c_void_p, c_void_p, c_void_p)
WatchedHandler = CFUNCTYPE(None, c_void_p, c_bool)
Watcher = CFUNCTYPE(None, c_void_p, POINTER(CUpdate))
Visitor = CFUNCTYPE(c_bool, c_void_p, POINTER(CTreePart))

_library = ctypes.CDLL(str(Path(__file__).absolute().parent / LIBRARY) if "/" in LIBRARY else LIBRARY)

_signatures: dict[str, tuple[Any, list[Any]]] = {
    "treescope_message": (c_char_p, []),
    "treescope_version": (c_char_p, []),
    "treescope_free": (None, [c_void_p]),
    "treescope_connect": (c_int, [c_char_p, POINTER(c_void_p)]),
    "treescope_disconnect": (c_int, [c_void_p]),
    "treescope_client_descriptor": (c_int, [c_void_p]),
    "treescope_client_dispatch": (c_int, [c_void_p, c_int]),
    "treescope_client_wake": (c_int, [c_void_p]),
    "treescope_on_event": (c_int, [c_void_p, EventHandler, c_void_p]),
    "treescope_get": (c_int, [c_void_p, c_char_p, POINTER(c_void_p), POINTER(c_size_t)]),
    "treescope_store": (c_int, [c_void_p, c_char_p, c_char_p, c_size_t, c_uint]),
    "treescope_list": (c_int, [c_void_p, c_char_p, POINTER(POINTER(Child)), POINTER(c_size_t)]),
    "treescope_describe": (c_int, [c_void_p, c_char_p, POINTER(POINTER(CDescription))]),
    "treescope_resolve": (c_int, [c_void_p, c_char_p, POINTER(c_void_p)]),
    "treescope_read_tree": (c_int, [c_void_p, c_char_p, Visitor, c_void_p, POINTER(c_bool)]),
    "treescope_watch_start": (
        c_int,
        [c_void_p, c_char_p, c_uint, c_uint, Watcher, c_void_p, POINTER(c_void_p)],
    ),
    "treescope_watch_stop": (c_int, [c_void_p]),
    "treescope_result_text": (c_char_p, [c_int]),
    "treescope_server_new": (c_int, [POINTER(c_void_p)]),
    "treescope_server_close": (c_int, [c_void_p]),
    "treescope_publish": (c_int, [c_void_p, c_char_p]),
    "treescope_publish_to_group": (c_int, [c_void_p, c_char_p, c_uint]),
    "treescope_unpublish": (c_int, [c_void_p, c_int]),
    "treescope_server_descriptor": (c_int, [c_void_p]),
    "treescope_server_dispatch": (c_int, [c_void_p, c_int]),
    "treescope_server_wake": (c_int, [c_void_p]),
    "treescope_add": (c_int, [c_void_p, c_void_p, POINTER(PartOptions), POINTER(c_void_p)]),
    "treescope_remove": (c_int, [c_void_p]),
    "treescope_part_store": (c_int, [c_void_p, c_int, c_char_p, c_size_t]),
    "treescope_part_get": (c_int, [c_void_p, c_int, POINTER(c_void_p), POINTER(c_size_t)]),
    "treescope_on_store": (c_int, [c_void_p, StoreCheck, c_void_p]),
    "treescope_refuse": (c_int, [POINTER(StoreRequest), c_char_p]),
    "treescope_on_get": (c_int, [c_void_p, Getter, c_void_p]),
    "treescope_reply_text": (c_int, [c_void_p, c_char_p, c_size_t]),
    "treescope_notify": (c_int, [c_void_p]),
    "treescope_on_watched": (c_int, [c_void_p, WatchedHandler, c_void_p]),
}


def _declare() -> dict[str, Any]:
    functions = {}
    for name, (result, arguments) in _signatures.items():
        function = getattr(_library, name)
        function.restype = result
        function.argtypes = arguments
        functions[name] = function
    return functions


_functions = _declare()


def encode(text: str) -> bytes:
    """The bytes of a text; those that are no UTF-8 come back as they were."""
    return text.encode("utf-8", "surrogateescape")


def check_text(text: str) -> str:
    """`text`. TypeError if it is no str."""
    if not isinstance(text, str):
        raise TypeError(f"expected a str, got {text!r}")
    return text


def check_callable(function: Any) -> None:
    """TypeError for what is neither None nor can be called."""
    if function is not None and not callable(function):
        raise TypeError(f"expected a function or None, got {function!r}")


def decode(text: bytes) -> str:
    return text.decode("utf-8", "surrogateescape")


def encode_path(path: str) -> bytes:
    """A path or a name, which ends for C at a zero byte."""
    if "\0" in check_text(path):
        raise error_of(16, f"{path!r}: a zero byte")
    return encode(path)


def message() -> str:
    return decode(raw("message"))


def result_text(result: int) -> str:
    return decode(raw("result_text", result))


def raw(name: str, *arguments: Any) -> Any:
    """Calls a function and returns what it returns."""
    return _functions["treescope_" + name](*arguments)


def raw_with_callbacks(raised: list[BaseException], name: str, *arguments: Any) -> Any:
    """As `raw`, for a function that calls back. Adds what a signal handler raised to `raised`.

    A handler may run just before the first instruction of a callback, so that the callback cannot
    catch what it raises, such as KeyboardInterrupt. ctypes passes that to the hook only.
    """
    if threading.get_ident() != threading.main_thread().ident:
        return raw(name, *arguments)  # No signal handler runs here.
    outer = sys.unraisablehook

    def hook(report: Any) -> None:
        module = getattr(report.object, "__module__", None) or ""
        is_own = "ctypes callback" in (report.err_msg or "") and module.startswith(__package__)
        if is_own and report.exc_value is not None:
            raised.append(report.exc_value)
        else:
            outer(report)

    sys.unraisablehook = hook
    try:
        return raw(name, *arguments)
    finally:
        if sys.unraisablehook is hook:
            sys.unraisablehook = outer


def call(name: str, *arguments: Any) -> None:
    """Calls a function; a result other than success is an exception."""
    check(raw(name, *arguments))


def check(result: int) -> None:
    if result != SUCCESS:
        # The message is this thread's, and no other call of it came in between.
        raise error_of(result, message())


def take_text(name: str, *arguments: Any) -> bytes:
    """Calls a function whose last outputs are a text and its size, and frees the text."""
    text = c_void_p()
    size = c_size_t()
    call(name, *arguments, byref(text), byref(size))
    try:
        return ctypes.string_at(text, size.value)
    finally:
        raw("free", text)


def text_array(texts: list[bytes] | None) -> Any:
    return None if not texts else (c_char_p * len(texts))(*texts)


VERSION = decode(raw("version"))
