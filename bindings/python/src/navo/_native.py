"""The shared library through ctypes: where it is found, the records of navo.h, the calls used,
and the guard that keeps the library's process-wide state to one job at a time."""

from __future__ import annotations

import contextlib
import ctypes
import ctypes.util
import os
import sys
import threading
from ctypes import POINTER, c_char, c_char_p, c_int32, c_uint32, c_void_p
from pathlib import Path
from typing import Iterator

# ---- records of navo.h (open records: their layout is the interface) ------------------------


class SdDictionary(ctypes.Structure):
    _fields_ = [("count", c_int32), ("strings", POINTER(c_char_p)), ("bucketCount", c_uint32),
                ("buckets", c_void_p)]


class DfField(ctypes.Structure):
    _fields_ = [("nameId", c_int32), ("offset", c_int32), ("width", c_int32)]


class DfBlock(ctypes.Structure):
    _fields_ = [("tagId", c_int32), ("name", c_char_p), ("recordLength", c_int32), ("fieldCount", c_int32),
                ("fields", POINTER(DfField)), ("positionByName", POINTER(c_int32))]


class DfBlockRef(ctypes.Structure):
    _fields_ = [("occurrence", c_int32), ("blockIndex", c_int32), ("name", c_char_p)]


class DfForm(ctypes.Structure):
    _fields_ = [("id", c_int32), ("refCount", c_int32), ("refs", POINTER(DfBlockRef)),
                ("positionByTag", POINTER(c_int32))]


class DfDefinition(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("formCount", c_int32), ("forms", POINTER(DfForm)), ("blockCount", c_int32),
                ("blocks", POINTER(DfBlock))]


class DfDefinitionList(ctypes.Structure):
    _fields_ = [("count", c_int32), ("items", POINTER(DfDefinition))]


class FileProlog(ctypes.Structure):
    _fields_ = [("doctypeLine", c_char * 50), ("versionLine", c_char * 28), ("encodingLine", c_char * 40)]


class FileHeader(ctypes.Structure):
    _fields_ = [("line1", c_char * 52), ("line2", c_char * 9), ("line3", c_char * 25), ("line4", c_char * 25),
                ("line5", c_char * 33)]


class ErrorNote(ctypes.Structure):
    _fields_ = [("text1", c_char * 11), ("text2", c_char * 11), ("text3", c_char * 11), ("text4", c_char * 11)]


class OcrNote(ctypes.Structure):
    _fields_ = [("kind", c_int32), ("text1", c_char * 11), ("text2", c_char * 11), ("text3", c_char * 11),
                ("text4", c_char * 73), ("text5", c_char * 25), ("text6", c_char * 25)]


class FileFooter(ctypes.Structure):
    _fields_ = [("noteCount", c_int32), ("notes", POINTER(ErrorNote))]


_DOC_WIDTHS = (51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32)


class DocHeader(ctypes.Structure):
    _fields_ = [(f"line{i + 1}", c_char * (w + 1)) for i, w in enumerate(_DOC_WIDTHS)]


class DocFooter(ctypes.Structure):
    _fields_ = [("ocrCount", c_int32), ("ocrNotes", POINTER(OcrNote)), ("errorCount", c_int32),
                ("errorNotes", POINTER(ErrorNote))]


class FilePool(ctypes.Structure):
    _fields_ = [("capacity", c_int32), ("count", c_int32), ("blocks", c_void_p)]


class Context(ctypes.Structure):
    _fields_ = [("dictionary", POINTER(SdDictionary)), ("definitions", POINTER(DfDefinitionList)),
                ("prolog", FileProlog), ("header", FileHeader), ("footer", FileFooter),
                ("filePool", POINTER(FilePool)), ("formCount", c_int32), ("documentLists", c_void_p)]


CtxP = POINTER(Context)
DOCUMENT_CALLBACK = ctypes.CFUNCTYPE(c_int32, CtxP, c_char_p, c_int32)

# name: (result, argument types)
_PROTOTYPES: dict[str, tuple[object, list[object]]] = {
    "dk_Init": (c_int32, [POINTER(CtxP)]),
    "dk_Destroy": (c_int32, [POINTER(CtxP)]),
    "dk_Free": (None, [c_void_p]),
    "dk_sdDestroy": (c_int32, [POINTER(POINTER(SdDictionary))]),
    "dk_dfDestroy": (c_int32, [POINTER(POINTER(DfDefinitionList))]),
    "dk_dfLoadDefinition": (c_int32, [POINTER(DfDefinitionList), POINTER(SdDictionary), c_char_p]),
    "GetDefTXT_1_2": (c_char_p, []),
    "GetDefTXT_1_3": (c_char_p, []),
    "dk_InitDocuments": (c_int32, [CtxP, c_int32]),
    "dk_AddDocument": (c_int32, [CtxP, c_char_p, POINTER(c_int32)]),
    "dk_GetDocCount": (c_int32, [CtxP, c_char_p, POINTER(c_int32)]),
    "dk_SetField": (c_int32, [CtxP, c_char_p, c_int32, c_char_p, c_int32, c_char_p, c_char_p]),
    "dk_AddBlock": (c_int32, [CtxP, c_char_p, c_int32, c_char_p, POINTER(c_int32)]),
    "dk_GetBlockCount": (c_int32, [CtxP, c_char_p, c_int32, c_char_p, POINTER(c_int32)]),
    "dk_GetNAVODocument": (c_int32, [CtxP, c_char_p, c_int32, POINTER(c_void_p), c_int32]),
    "dk_GetNAVOBlock": (c_int32, [CtxP, c_char_p, c_int32, c_char_p, c_int32, POINTER(c_void_p), c_int32]),
    "dk_SetDefaultNAVOProlog": (c_int32, [CtxP, c_char_p]),
    "dk_GetDocHeader": (c_int32, [CtxP, c_char_p, c_int32, POINTER(POINTER(DocHeader))]),
    "dk_GetDocFooter": (c_int32, [CtxP, c_char_p, c_int32, POINTER(POINTER(DocFooter))]),
    "dk_AddNAVOError": (c_int32, [CtxP, POINTER(ErrorNote)]),
    "dk_AddDocError": (c_int32, [CtxP, c_char_p, c_int32, POINTER(ErrorNote)]),
    "dk_AddDocOCR": (c_int32, [CtxP, c_char_p, c_int32, POINTER(OcrNote)]),
    "dk_GetNAVOLine": (c_int32, []),
    "dk_GetNAVOError": (c_int32, []),
    "dk_GetNAVOErrorMessage": (c_int32, [c_int32, c_char_p, c_int32]),
    "dk_UstawCallBack": (None, [c_void_p]),
    "dk_LoadNAVO": (c_int32, [CtxP, c_char_p]),
    "dk_SaveNAVO": (c_int32, [CtxP, c_char_p, c_int32]),
}

_LIBRARY_NAMES = {"win32": ("navo.dll",), "darwin": ("libnavo.1.dylib", "libnavo.dylib")}.get(
    sys.platform, ("libnavo.so.1", "libnavo.so"))


def find_library() -> str:
    """The shared library: $NAVO_LIBRARY, else beside this package, else on the system path."""
    explicit = os.environ.get("NAVO_LIBRARY")
    if explicit:
        return explicit
    here = Path(__file__).resolve().parent
    for name in _LIBRARY_NAMES:
        if (here / name).exists():
            return str(here / name)
    found = ctypes.util.find_library("navo")
    if found:
        return found
    return _LIBRARY_NAMES[0]  # the dynamic loader's own search, for a clear error if it fails


_lib: ctypes.CDLL | None = None
_lib_lock = threading.Lock()


def lib() -> ctypes.CDLL:
    """The library, loaded on first use with the prototypes of the calls used here."""
    global _lib
    with _lib_lock:
        if _lib is None:
            path = find_library()
            try:
                loaded = ctypes.CDLL(path)
            except OSError as e:
                raise OSError(f"libnavo not found ({path}): set NAVO_LIBRARY to the path of the shared "
                              f"library, or install it beside the navo package or on the system path") from e
            for name, (result, arguments) in _PROTOTYPES.items():
                function = getattr(loaded, name)
                function.restype = result
                function.argtypes = arguments
            _lib = loaded
        return _lib


def line_count() -> int:
    """i_lLinii: the line count of the file being loaded."""
    return c_int32.in_dll(lib(), "i_lLinii").value


def current_callback() -> int | None:
    return c_void_p.in_dll(lib(), "OnNAVODocument").value


# ---- contexts --------------------------------------------------------------------------------


def new_context() -> ctypes._Pointer[Context]:
    ctx = CtxP()
    if not lib().dk_Init(ctypes.byref(ctx)):
        release_context(ctx)
        raise MemoryError("libnavo: dk_Init failed")
    return ctx


def release_context(ctx: ctypes._Pointer[Context]) -> None:
    """Releases a context whatever its state, also one dk_Destroy refuses (no document tables)."""
    native = lib()
    if not ctx or native.dk_Destroy(ctypes.byref(ctx)):
        return
    c = ctx.contents
    if c.definitions and c.definitions.contents.count > 0 and native.dk_InitDocuments(ctx, 1) \
            and native.dk_Destroy(ctypes.byref(ctx)):
        return
    # No definition, or one without forms: no call releases it, so its records go one by one.
    if c.filePool:
        native.dk_Free(c.filePool.contents.blocks)
        native.dk_Free(ctypes.cast(c.filePool, c_void_p))
    native.dk_Free(c.documentLists)
    native.dk_Free(ctypes.cast(c.footer.notes, c_void_p))
    native.dk_dfDestroy(ctypes.byref(c.definitions))
    native.dk_sdDestroy(ctypes.byref(c.dictionary))
    native.dk_Free(ctypes.cast(ctx, c_void_p))


def defined_context(version: str) -> ctypes._Pointer[Context]:
    """A context holding definition `version` ("1.2" or "1.3") with document tables."""
    texts = {"1.2": "GetDefTXT_1_2", "1.3": "GetDefTXT_1_3"}
    if version not in texts:
        raise ValueError(f"unknown definition version {version!r}: 1.2 or 1.3")
    native = lib()
    ctx = new_context()
    with GUARD.call():  # the definition loader keeps its text cursor process-wide
        ok = native.dk_dfLoadDefinition(ctx.contents.definitions, ctx.contents.dictionary,
                                        getattr(native, texts[version])()) and native.dk_InitDocuments(ctx, 10)
    if not ok:
        release_context(ctx)
        raise MemoryError("libnavo: loading the definition failed")
    return ctx


def message(code: int) -> str:
    """The library's (Polish) message for a load code."""
    buffer = ctypes.create_string_buffer(200)
    lib().dk_GetNAVOErrorMessage(code, buffer, len(buffer))
    return buffer.value.decode("cp1250")


# ---- the guard -------------------------------------------------------------------------------


class LibraryGuard:
    """One job at a time in the whole process: a load holds the lock from its start until it has
    ended (the consumer's thread owns it, the load itself runs on a worker thread); other calls
    hold it for their duration, except on the thread that owns a running load."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._owner: int | None = None

    def begin_load(self) -> None:
        if self._owner == threading.get_ident():
            raise RuntimeError("a navo load is already running on this thread: finish or close it first")
        self._lock.acquire()
        self._owner = threading.get_ident()

    def end_load(self) -> None:
        self._owner = None
        self._lock.release()

    @contextlib.contextmanager
    def call(self) -> Iterator[None]:
        if self._owner == threading.get_ident():
            yield
            return
        with self._lock:
            yield


GUARD = LibraryGuard()
