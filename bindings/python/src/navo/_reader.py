"""Reading: navo.read yields the documents of a file one at a time.

The library reads a file in one call and hands over each document through a C callback while
that call runs; ctypes cannot suspend a callback to yield from it. So the load runs on a worker
thread, and its callback parks there: it posts "document ready" to the consumer and blocks until
the consumer asks for the next document (or stops). While it is parked the document is whole in
the library, and the consumer's thread reads it directly (the two threads take turns, never run
library code together). Single blocks, the header and the notes are copied into the Document at
once; the records of a repeating block are read one at a time when indexed, so a document with
100,000 records costs one record of memory. Exactly one document exists at any moment, whatever
the size of the file.

Stopping: closing the reader (leaving a `with` block, breaking out of a `for` loop over it, or
an exception in the consumer, which drops the reader) makes the parked callback return non-zero:
the library stops, the context is released with its spool files, and the worker ends before
close() returns.
"""

from __future__ import annotations

import ctypes
import os
import threading
from ctypes import c_int32, c_void_p
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Iterator, Mapping, Sequence

from . import _native, _schema


class NavoError(Exception):
    """A load failed: `code` as the library gives it, `line` where the reader stopped, `message`
    the library's Polish message, `english` an English rendering."""

    ENGLISH = {
        0: "everything is fine", 1: "bad NAVO file format - this is not a NAVO file",
        2: "the NAVO file could not be opened", 3: "read error - unexpected end of file",
        4: "bad file format - another entry was expected", 5: "bad document format - error while reading a document",
        6: "a block the document's definition does not have", 7: "wrong block size",
        8: "system error - the document could not be created", 9: "out of memory", 10: "cancelled",
    }

    def __init__(self, code: int, line: int, message: str) -> None:
        super().__init__(code, line, message)
        self.code = code
        self.line = line
        self.message = message
        self.english = self.ENGLISH.get(code, "unknown error")

    def __str__(self) -> str:
        return f"{self.message} ({self.english}; code {self.code}, line {self.line})"


class DocumentExpired(RuntimeError):
    """A repeating block's records were asked for after the reader moved past their document."""


@dataclass(frozen=True)
class OcrNote:
    kind: int  # 0 "a", 1 "z", 2 "l", 3 "l2"
    texts: tuple[str, ...]


class _Decoder:
    def __init__(self, encoding: str, keep_padding: bool) -> None:
        self.encoding = encoding
        self.keep_padding = keep_padding

        # A single-byte encoding keeps byte offsets as character offsets, so a packed record is
        # decoded once and cut as text.
        self.single_byte = len(bytes(range(256)).decode(encoding, errors="replace")) == 256

    def __call__(self, raw: bytes) -> str:
        text = raw.decode(self.encoding, errors="replace")
        return text if self.keep_padding else text.rstrip(" ")

    def record(self, packed: bytes, slices: list[tuple[str, int, int]]) -> dict[str, str]:
        if not self.single_byte:
            return {name: self(packed[begin:end]) for name, begin, end in slices}
        text = packed.decode(self.encoding, errors="replace")
        if self.keep_padding:
            return {name: text[begin:end] for name, begin, end in slices}
        return {name: text[begin:end].rstrip(" ") for name, begin, end in slices}


class Records(Sequence[Mapping[str, str]]):
    """The records of a repeating block, read from the library when indexed, while the document
    is the reader's current one; list(records) keeps them."""

    def __init__(self, channel: _Channel, form: str, index: int, block: _schema.Block) -> None:
        self._channel = channel
        self._generation = channel.generation
        self._form = form.encode()
        self._index = index
        self._tag = block.tag.encode()
        self._slices = _schema.packed_slices(block.fields)
        self._size = block.record_length + len(block.fields)
        self._native = _native.lib()
        count = c_int32(0)
        self._native.dk_GetBlockCount(channel.ctx, self._form, index, self._tag, ctypes.byref(count))
        self._count = count.value

    def __len__(self) -> int:
        return self._count

    def __iter__(self) -> Iterator[Mapping[str, str]]:
        return (self[i] for i in range(self._count))

    def __getitem__(self, i: Any) -> Any:
        if isinstance(i, slice):
            return [self[j] for j in range(*i.indices(self._count))]
        if i < 0:
            i += self._count
        if not 0 <= i < self._count:
            raise IndexError(i)
        channel = self._channel
        if channel.generation != self._generation:
            raise DocumentExpired("the reader has moved past this document: copy records (list()) while it is current")
        native = self._native
        out = c_void_p()
        if not native.dk_GetNAVOBlock(channel.ctx, self._form, self._index, self._tag, i,
                                      ctypes.byref(out), self._size) or not out.value:
            raise NavoError(5, native.dk_GetNAVOLine(), "dk_GetNAVOBlock failed")
        try:
            packed = ctypes.string_at(out.value, self._size)
        finally:
            native.dk_Free(out)
        return channel.decode.record(packed, self._slices)


class Document:
    """One document: `form`, `index`, `header` (14 lines), `blocks[tag][record][field]`,
    `error_notes` (4 texts each), `ocr_notes`, `file_header` (5 lines), and the progress
    counters `line` and `lines`. Values are str; repeating blocks are `Records`."""

    def __init__(self, channel: _Channel, definition: _schema.Form, index: int) -> None:
        native = _native.lib()
        ctx = channel.ctx
        decode = channel.decode
        form = definition.name
        f = form.encode()
        self.form = form
        self.index = index
        self.line: int = native.dk_GetNAVOLine()
        self.lines = _native.line_count()
        header = ctypes.POINTER(_native.DocHeader)()
        native.dk_GetDocHeader(ctx, f, index, ctypes.byref(header))
        self.header = tuple(decode(getattr(header.contents, f"line{i}")) for i in range(1, 15))
        fh = ctx.contents.header
        self.file_header = tuple(decode(getattr(fh, f"line{i}")) for i in range(1, 6))
        footer = ctypes.POINTER(_native.DocFooter)()
        native.dk_GetDocFooter(ctx, f, index, ctypes.byref(footer))
        ft = footer.contents
        self.error_notes = [tuple(decode(getattr(n, f"text{i}")) for i in range(1, 5))
                            for n in ft.errorNotes[: ft.errorCount]]
        self.ocr_notes = [OcrNote(n.kind, tuple(decode(getattr(n, f"text{i}")) for i in range(1, 7)))
                          for n in ft.ocrNotes[: ft.ocrCount]]
        # All single blocks in one packed call, cut by the packed slices of their fields.
        singles = [b for b in definition.blocks.values() if not b.repeating]
        size = sum(b.record_length + len(b.fields) for b in singles)
        out = c_void_p()
        packed = b""
        if size and native.dk_GetNAVODocument(ctx, f, index, ctypes.byref(out), size) and out.value:
            try:
                packed = ctypes.string_at(out.value, size)
            finally:
                native.dk_Free(out)
        self.blocks: dict[str, Sequence[Mapping[str, str]]] = {}
        start = 0
        for block in definition.blocks.values():
            if block.repeating:
                self.blocks[block.tag] = Records(channel, form, index, block)
                continue
            slices = _schema.packed_slices(block.fields, start)
            self.blocks[block.tag] = [decode.record(packed, slices)]
            start += block.record_length + len(block.fields)

    def __repr__(self) -> str:
        return f"<navo.Document {self.form}#{self.index} blocks={list(self.blocks)}>"


class _Channel:
    """What the consumer and the parked callback share. It holds no reference to the Reader, so a
    Reader dropped by its consumer is released (and stops its load) at once."""

    def __init__(self, decode: _Decoder) -> None:
        self.decode = decode
        self.ctx: Any = None
        self.generation = 0  # raised whenever the current document goes away
        self.ready = threading.Semaphore(0)  # worker -> consumer: a document or the end is posted
        self.resume = threading.Semaphore(0)  # consumer -> parked callback: go on (or stop)
        self.posted: tuple[str, Any, Any] = ("none", None, None)
        self.stop = False
        self.callback = _native.DOCUMENT_CALLBACK(self._on_document)

    def _on_document(self, ctx: Any, form: bytes, index: int) -> int:
        """The library's callback, on the worker thread inside dk_LoadNAVO: parks until resumed."""
        try:
            self.posted = ("document", form.decode("cp1250"), index)
            self.ready.release()
            self.resume.acquire()
            return 1 if self.stop else 0
        except BaseException:  # never let an exception cross the C frames
            return 1


def _work(channel: _Channel, path: bytes) -> None:
    native = _native.lib()
    previous = _native.current_callback()
    native.dk_UstawCallBack(ctypes.cast(channel.callback, c_void_p))
    rc = 0
    try:
        rc = native.dk_LoadNAVO(channel.ctx, path)
    finally:
        native.dk_UstawCallBack(previous)
        channel.posted = ("end", rc, None)
        channel.ready.release()


class Reader(Iterator[Document]):
    """Iterator over the documents of one file; also a context manager. After the last document
    `outcome` is "done" (or "stopped" after close()) and `file_notes` holds the file's notes."""

    def __init__(self, path: str | bytes | os.PathLike[str], encoding: str = "iso8859-2",
                 keep_padding: bool = False) -> None:
        self._path = os.fsencode(path)
        self._channel = _Channel(_Decoder(encoding, keep_padding))
        self._definition = _schema.Schema("", "")
        self._thread: threading.Thread | None = None
        self._parked = False
        self._finished = False
        self.outcome: str | None = None
        self.file_notes: list[tuple[str, ...]] = []

    def _start(self) -> None:
        _native.GUARD.begin_load()
        channel = self._channel
        try:
            channel.ctx = _native.new_context()
            self._thread = threading.Thread(target=_work, args=(channel, self._path), name="navo-load", daemon=True)
            self._thread.start()
        except BaseException:
            if channel.ctx is not None:
                _native.release_context(channel.ctx)
                channel.ctx = None
            _native.GUARD.end_load()
            raise

    def _wait(self) -> tuple[str, Any, Any]:
        channel = self._channel
        if self._parked:
            channel.generation += 1
            self._parked = False
            channel.resume.release()
        channel.ready.acquire()
        kind, a, b = channel.posted
        self._parked = kind == "document"
        return kind, a, b

    def _finish(self, rc: int) -> None:
        native = _native.lib()
        code, line = native.dk_GetNAVOError(), native.dk_GetNAVOLine()
        assert self._thread is not None
        self._thread.join()
        channel = self._channel
        c = channel.ctx.contents
        self.file_notes = [tuple(channel.decode(getattr(n, f"text{i}")) for i in range(1, 5))
                           for n in c.footer.notes[: c.footer.noteCount]]
        _native.release_context(channel.ctx)
        channel.ctx = None
        channel.generation += 1
        self._finished = True
        _native.GUARD.end_load()
        self.outcome = {1: "done", 2: "stopped"}.get(rc, "failed")
        if rc == 0:
            raise NavoError(code, line, _native.message(code))

    def __next__(self) -> Document:
        if self._finished:
            raise StopIteration
        if self._thread is None:
            self._start()
        kind, a, b = self._wait()
        if kind == "end":
            self._finish(a)
            raise StopIteration
        try:
            if not self._definition.forms:
                self._definition = _schema.of_context(self._channel.ctx)
            forms = self._definition.forms
            definition = forms.get(a) or next(f for n, f in forms.items() if n.upper() == a.upper())
            return Document(self._channel, definition, b)
        except BaseException:
            self.close()
            raise

    def __iter__(self) -> Reader:
        return self

    def close(self) -> None:
        """Stops the load if it runs and releases everything; the reader is then exhausted."""
        if self._finished:
            return
        if self._thread is None:
            self._finished = True
            return
        self._channel.stop = True
        kind, rc, _ = self._wait()
        while kind != "end":  # a document posted before the stop was seen
            kind, rc, _ = self._wait()
        try:
            self._finish(rc)
        except NavoError:
            pass

    def __enter__(self) -> Reader:
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        try:
            self.close()
        except Exception:
            pass


def read(path: str | bytes | os.PathLike[str], encoding: str = "iso8859-2", keep_padding: bool = False) -> Reader:
    """The documents of a NAVO file, one at a time. Values are decoded with `encoding` (the files
    declare ISO 8859-2) and lose their trailing blanks unless `keep_padding`. A failed load
    raises NavoError after the documents before the fault were delivered."""
    return Reader(path, encoding, keep_padding)
