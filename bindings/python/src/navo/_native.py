"""libnavofront through ctypes: where it is found, the records of navo_front.h, the calls used, and
the helpers every module shares (texts out of the core's buffers, the parts of a place)."""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import sys
import threading
from ctypes import CFUNCTYPE, POINTER, c_char, c_char_p, c_int32, c_int64, c_size_t, c_void_p
from pathlib import Path
from typing import Any, Optional

# ---- records of navo_front.h (their layout is the interface; tests/test_navo.py reads known
# values through each of them, so a layout that drifts from the header fails there) ----------


class FieldDef(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("type", c_char_p), ("offset", c_int32), ("width", c_int32)]


class BlockDef(ctypes.Structure):
    _fields_ = [("tag", c_char_p), ("name", c_char_p), ("repeating", c_int32), ("record_length", c_int32),
                ("field_count", c_int32), ("fields", POINTER(FieldDef))]


class FormDef(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("block_count", c_int32), ("blocks", POINTER(BlockDef))]


class SchemaDef(ctypes.Structure):
    _fields_ = [("version", c_char_p), ("name", c_char_p), ("form_count", c_int32), ("forms", POINTER(FormDef))]


class Place(ctypes.Structure):
    _fields_ = [("area", c_int32), ("document", c_int32), ("record", c_int32), ("expected", c_int32),
                ("found", c_int32), ("field_expected", c_int32), ("field_found", c_int32), ("line", c_int32),
                ("offset", c_int64), ("form", c_char * 64), ("block", c_char * 64), ("field", c_char * 64)]


class Fault(ctypes.Structure):
    _fields_ = [("code", c_int32), ("cause", c_int32), ("place", Place), ("detail", c_char * 240)]


class LoadOptions(ctypes.Structure):
    _fields_ = [("encoding", c_int32), ("keep_going", c_int32), ("checks", c_int32), ("rules", c_void_p),
                ("find", c_char_p)]


# Callbacks get the views as plain addresses: the package passes them back to the core only.
VIEW_CALLBACK = CFUNCTYPE(c_int32, c_void_p, c_void_p)


class LoadCallbacks(ctypes.Structure):
    _fields_ = [("user", c_void_p), ("file", VIEW_CALLBACK), ("document", VIEW_CALLBACK), ("fault", c_void_p),
                ("finding", c_void_p), ("found", c_void_p), ("end", VIEW_CALLBACK), ("progress", c_void_p)]


class LoadResult(ctypes.Structure):
    _fields_ = [("outcome", c_int32), ("code", c_int32), ("line", c_int32), ("lines", c_int32),
                ("documents", c_int32), ("faults", c_int32), ("findings", c_int32), ("fault", Fault)]


class Refusal(ctypes.Structure):
    _fields_ = [("code", c_int32), ("place", Place), ("reason", c_char * 240)]


# Values of the header's enums that the package passes.
LOAD_IN_PROGRESS, UNKNOWN_VERSION = 101, 113
ENGLISH, POLISH = 0, 1
FILE_HEADER, ERROR_NOTE, OCR_NOTE = 0, 2, 3
KEEP_PADDING = 1
DONE, STOPPED = 1, 2

_TEXTS = c_char_p  # a `const char *const *` is passed as an array of c_char_p
_P = POINTER
# name: (result, argument types)
_PROTOTYPES: dict[str, tuple[Any, list[Any]]] = {
    "navo_message": (c_char_p, [c_int32, c_int32]),
    "navo_version": (c_char_p, []),
    "navo_encoding_named": (c_int32, [c_char_p]),
    "navo_schema_of": (_P(SchemaDef), [c_char_p]),
    "navo_schema_form": (_P(FormDef), [_P(SchemaDef), c_char_p]),
    "navo_form_block": (c_int32, [_P(FormDef), c_char_p]),
    "navo_block_field": (c_int32, [_P(BlockDef), c_char_p]),
    "navo_element_lines": (c_int32, [c_int32]),
    "navo_area_name": (c_char_p, [c_int32]),
    "navo_place_describe": (c_int64, [_P(Place), c_void_p, c_size_t]),
    "navo_file_version": (c_char_p, [c_void_p]),
    "navo_file_header": (c_int64, [c_void_p, c_int32, c_void_p, c_size_t]),
    "navo_file_notes": (c_int32, [c_void_p]),
    "navo_file_note": (c_int64, [c_void_p, c_int32, c_int32, c_void_p, c_size_t]),
    "navo_document_file": (c_void_p, [c_void_p]),
    "navo_document_form": (_P(FormDef), [c_void_p]),
    "navo_document_number": (c_int32, [c_void_p]),
    "navo_document_header": (c_int64, [c_void_p, c_int32, c_void_p, c_size_t]),
    "navo_document_records": (c_int32, [c_void_p, c_int32]),
    "navo_document_record": (c_int64, [c_void_p, c_int32, c_int32, c_int32, c_void_p, c_size_t]),
    "navo_document_notes": (c_int32, [c_void_p, c_int32]),
    "navo_document_note": (c_int64, [c_void_p, c_int32, c_int32, c_int32, c_void_p, c_size_t, _P(c_int32)]),
    "navo_load": (c_int32, [c_char_p, _P(LoadOptions), _P(LoadCallbacks), _P(LoadResult)]),
    "navo_progress": (None, [_P(c_int32), _P(c_int32)]),
    "navo_writer_new": (c_void_p, [c_char_p, c_int32, c_int32]),
    "navo_writer_free": (None, [c_void_p]),
    "navo_writer_file_header": (c_int32, [c_void_p, c_int32, c_char_p, _P(Refusal)]),
    "navo_writer_file_note": (c_int32, [c_void_p, _P(_TEXTS), c_int32, _P(Refusal)]),
    "navo_writer_add_document": (c_int32, [c_void_p, c_char_p, _P(c_int32), _P(Refusal)]),
    "navo_writer_remove_document": (c_int32, [c_void_p, c_int32]),
    "navo_writer_header": (c_int32, [c_void_p, c_int32, c_int32, c_char_p, _P(Refusal)]),
    "navo_writer_add_record": (c_int32, [c_void_p, c_int32, c_char_p, _P(c_int32), _P(Refusal)]),
    "navo_writer_set": (c_int32, [c_void_p, c_int32, c_char_p, c_int32, c_char_p, c_char_p, _P(Refusal)]),
    "navo_writer_error_note": (c_int32, [c_void_p, c_int32, _P(_TEXTS), c_int32, _P(Refusal)]),
    "navo_writer_ocr_note": (c_int32, [c_void_p, c_int32, c_int32, _P(_TEXTS), c_int32, _P(Refusal)]),
    "navo_writer_save": (c_int32, [c_void_p, c_char_p, _P(Refusal)]),
}

# The file a build makes, as the package ships it beside itself, and the name the system's
# loader knows (the SONAME on ELF systems).
_BESIDE = {"win32": "navofront.dll", "darwin": "libnavofront.1.dylib"}.get(sys.platform, "libnavofront.so.1")


def find_library() -> str:
    """libnavofront: $NAVO_LIBRARY, else a copy beside this package, else the system path."""
    explicit = os.environ.get("NAVO_LIBRARY")
    if explicit:
        return explicit
    beside = Path(__file__).resolve().parent / _BESIDE
    if beside.exists():
        return str(beside)
    return ctypes.util.find_library("navofront") or _BESIDE


_lib: Optional[ctypes.CDLL] = None
_lib_lock = threading.Lock()


def lib() -> ctypes.CDLL:
    """The library, loaded on first use with the prototypes of the calls used here."""
    global _lib
    with _lib_lock:
        if _lib is None:
            path = find_library()
            try:
                loaded = ctypes.CDLL(path)
                for name, (result, arguments) in _PROTOTYPES.items():
                    function = getattr(loaded, name)
                    function.restype = result
                    function.argtypes = arguments
            except (OSError, AttributeError) as e:
                raise OSError(f"libnavofront cannot be loaded from {path!r} ({e}): set NAVO_LIBRARY to the path "
                              f"of libnavofront, or install it beside the navo package or on the system "
                              f"path") from e
            _lib = loaded
        return _lib


def text(raw: Optional[bytes]) -> str:
    """A text of the core (UTF-8, NUL-terminated)."""
    return (raw or b"").decode("utf-8")


def c_text(value: str) -> bytes:
    """A host's str as the core takes it: UTF-8, NUL-terminated. Lone surrogates pass as they are,
    for the core to refuse as no UTF-8. A NUL cannot cross a C string, so it goes as the byte
    0x1A, which the core refuses for the same reason and with the same words (the characters a
    NAVO text cannot carry) and no name holds: a value is refused, never cut at its NUL."""
    if not isinstance(value, str):
        raise TypeError(f"a value is str, not {type(value).__name__}")
    return value.encode("utf-8", "surrogatepass").replace(b"\0", b"\x1a")


def c_texts(values: Any) -> Any:
    """A sequence of str as a `const char *const *` with its count."""
    encoded = [c_text(v) for v in values]
    return (c_char_p * max(len(encoded), 1))(*encoded), len(encoded)


def message(code: int, language: int = ENGLISH) -> str:
    return text(lib().navo_message(code, language))


def version() -> str:
    return text(lib().navo_version())


def encoding_named(name: str) -> int:
    found: int = lib().navo_encoding_named(name.encode())
    if found < 0:
        raise ValueError(f"unknown encoding {name!r}: iso8859-2 or cp1250")
    return found


def describe(place: Place) -> str:
    """The place in the core's words, the same in every front end."""
    out = ctypes.create_string_buffer(512)
    length = lib().navo_place_describe(ctypes.byref(place), out, len(out))
    return out.value.decode("utf-8") if length >= 0 else ""


def place_parts(place: Optional[Place]) -> dict[str, Any]:
    """The parts of a place as attributes: None where the core knows none (all of them without
    a place)."""
    if place is None:
        return dict.fromkeys(("area", "document", "form", "block", "record", "field", "expected", "found"),
                             None) | {"location": ""}
    def name(raw: bytes) -> Optional[str]:
        return raw.decode("utf-8") or None

    return {
        "area": text(lib().navo_area_name(place.area)) or None,
        "document": place.document or None,
        "form": name(place.form),
        "block": name(place.block),
        "record": place.record if place.record >= 0 else None,
        "field": name(place.field),
        "expected": place.expected if place.expected >= 0 else None,
        "found": place.found if place.expected >= 0 else None,
        "location": describe(place),
    }
