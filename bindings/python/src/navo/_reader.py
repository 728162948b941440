"""Reading: navo.read yields the documents of a file one at a time.

The core reads a file in one call (navo_load) and hands over each document through a C callback
while that call runs; ctypes cannot suspend a callback to yield from it. So the load runs on a
worker thread, and its callback parks there: it posts "document ready" to the consumer and blocks
until the consumer asks for the next document (or stops). While it is parked the document is
whole in the core, and the consumer's thread reads it through the document's view, as
navo_front.h allows (the two threads take turns, never run core code on one load together).
Single blocks, the headers and the notes are copied into the Document at once; the records of a
repeating block are read one at a time when indexed (navo_document_record), so a document with
100,000 records costs one record of memory. Exactly one document exists at any moment, whatever
the size of the file.

Stopping: closing the reader (leaving a `with` block, breaking out of a `for` loop over it, or
an exception in the consumer, which drops the reader) makes the parked callback return non-zero:
the core stops the load and releases the document with its spool files, and the worker ends
before close() returns.

The core lets one load run at a time in the process (a second load waits for it), so a thread
that holds a reader open must not start another: its worker would wait for the first load, whose
worker waits for that thread. Such a start raises RuntimeError instead.
"""

from __future__ import annotations

import atexit
import ctypes
import os
import threading
import weakref
from ctypes import c_int32
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Callable, Dict, Iterator, Mapping, Optional, Sequence, Tuple, Union, cast

from . import _native, _schema
from ._errors import DocumentExpired, NavoError

PathArg = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]


@dataclass(frozen=True)
class OcrNote:
    kind: int  # 0-3, the letters "a", "z", "l", "l2" of its tag
    texts: Tuple[str, ...]


class _Buffer:
    """One growing buffer for the core's texts. The calls give a text's full length, as snprintf
    does: a cut text is asked for again with room enough."""

    def __init__(self, size: int = 4096) -> None:
        self.memory = ctypes.create_string_buffer(size)
        self.size = size

    def texts(self, call: Callable[[Any, int], Any]) -> list[str]:
        """The texts a call writes, each ended by a NUL."""
        length = call(self.memory, self.size)
        if length >= self.size:
            self.size = length + 1
            self.memory = ctypes.create_string_buffer(self.size)
            length = call(self.memory, self.size)
        if length < 0:
            raise NavoError(-length)
        return cast(bytes, self.memory[:length]).decode("utf-8").split("\0")


def _counted(count: int) -> int:
    if count < 0:
        raise NavoError(-count)
    return count


class _Channel:
    """What the consumer and the parked callback share. It holds no reference to the Reader, so a
    Reader dropped by its consumer is released (and stops its load) at once."""

    def __init__(self, flags: int) -> None:
        self.flags = flags
        self.buffer = _Buffer()  # the consumer's
        self.schema: Optional[_schema.Schema] = None
        self.file_header: Tuple[str, ...] = ()
        self.generation = 0  # raised whenever the current document goes away
        self.ready = threading.Semaphore(0)  # worker -> consumer: a document or the end is posted
        self.resume = threading.Semaphore(0)  # consumer -> parked callback: go on (or stop)
        self.posted: Tuple[str, Any] = ("none", None)
        self.stop = False
        self.file_notes: list[Tuple[str, ...]] = []
        self.failure: Optional[BaseException] = None
        # The callback objects live as long as the channel: the core calls through them.
        self.on_document = _native.VIEW_CALLBACK(self._on_document)
        self.on_end = _native.VIEW_CALLBACK(self._on_end)
        self.callbacks = _native.LoadCallbacks(document=self.on_document, end=self.on_end)

    def _on_document(self, user: Any, doc: Any) -> int:
        """On the worker thread, inside navo_load: parks until resumed."""
        try:
            if self.stop:
                return 1
            self.posted = ("document", doc)
            self.ready.release()
            self.resume.acquire()
            return 1 if self.stop else 0
        except BaseException:  # never let an exception cross the C frames
            return 1

    def _on_end(self, user: Any, file: Any) -> int:
        """On the worker thread, once the file's footer is read: its notes, all of them."""
        try:
            native, buffer = _native.lib(), _Buffer(256)
            self.file_notes = [
                tuple(buffer.texts(lambda out, size: native.navo_file_note(file, i, self.flags, out, size)))
                for i in range(_counted(native.navo_file_notes(file)))]
        except BaseException as e:
            self.failure = e
        return 0


class _BlockReader:
    """Reads the records of one block of a document: each one call of the core, its values as
    one text per field."""

    def __init__(self, channel: _Channel, doc: int, position: int, block: _schema.Block) -> None:
        self.buffer = channel.buffer
        self.call = _native.lib().navo_document_record
        self.doc, self.position, self.flags = doc, position, channel.flags
        self.fields = list(block.fields)
        assert isinstance(block.fields, _schema.Names)
        self.find = block.fields._find

    def __call__(self, record: int) -> _schema.Names[str]:
        buffer = self.buffer
        length = self.call(self.doc, self.position, record, self.flags, buffer.memory, buffer.size)
        if 0 <= length < buffer.size:  # the record fit: the one call was enough
            values = cast(bytes, buffer.memory[:length]).decode("utf-8").split("\0")
        else:
            values = buffer.texts(lambda out, size: self.call(self.doc, self.position, record, self.flags, out, size))
        out: _schema.Names[str] = _schema.Names(zip(self.fields, values))
        out._find = self.find
        return out


class Records(Sequence[Mapping[str, str]]):
    """The records of a repeating block, read from the core when indexed, while the document is
    the reader's current one; list(records) keeps them."""

    def __init__(self, channel: _Channel, doc: int, position: int, block: _schema.Block) -> None:
        self._channel = channel
        self._generation = channel.generation
        self._read = _BlockReader(channel, doc, position, block)
        self._count = _counted(_native.lib().navo_document_records(doc, position))

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
        if self._channel.generation != self._generation:
            raise DocumentExpired("the reader has moved past this document: copy records (list()) while it is current")
        return self._read(i)


class Document:
    """One document: `form`, `number` (from 1, in the order of the file), `header` (14 lines),
    `blocks[tag][record][field]`, `error_notes` (4 texts each), `ocr_notes`, `file_header` (5
    lines), and the progress counters `line` (where the load stands) and `lines` (the file's).
    Values are str; single blocks are lists of one dict, repeating blocks `Records`. Blocks and
    fields are keyed by the definition's spelling and found by the core's rule of names."""

    def __init__(self, channel: _Channel, doc: int) -> None:
        native = _native.lib()
        buffer, flags = channel.buffer, channel.flags
        if channel.schema is None:
            file = native.navo_document_file(doc)
            channel.schema = _schema.schema(_native.text(native.navo_file_version(file)))
            channel.file_header = tuple(buffer.texts(lambda out, size: native.navo_file_header(file, flags, out, size)))
        form = channel.schema.forms[_native.text(native.navo_document_form(doc).contents.name)]
        self.form = form.name
        self.number: int = native.navo_document_number(doc)
        line, lines = c_int32(), c_int32()
        native.navo_progress(ctypes.byref(line), ctypes.byref(lines))
        self.line, self.lines = line.value, lines.value
        self.header = tuple(buffer.texts(lambda out, size: native.navo_document_header(doc, flags, out, size)))
        self.file_header = channel.file_header

        def note(element: int, i: int, kind: Any = None) -> Tuple[str, ...]:
            return tuple(buffer.texts(lambda out, size: native.navo_document_note(doc, element, i, flags, out, size,
                                                                                  kind)))

        errors, ocr = (_counted(native.navo_document_notes(doc, e)) for e in (_native.ERROR_NOTE, _native.OCR_NOTE))
        self.error_notes = [note(_native.ERROR_NOTE, i) for i in range(errors)]
        kind = c_int32()
        self.ocr_notes = [OcrNote(kind.value, texts) for texts in
                          (note(_native.OCR_NOTE, i, ctypes.byref(kind)) for i in range(ocr))]
        blocks: list[Tuple[str, Sequence[Mapping[str, str]]]] = []
        for position, block in enumerate(form.blocks.values()):
            if block.repeating:
                blocks.append((block.tag, Records(channel, doc, position, block)))
            else:
                blocks.append((block.tag, [_BlockReader(channel, doc, position, block)(0)]))
        assert isinstance(form.blocks, _schema.Names)
        self.blocks: Dict[str, Sequence[Mapping[str, str]]] = _schema.names(blocks, form.blocks._find)

    def __repr__(self) -> str:
        return f"<navo.Document {self.form} #{self.number} blocks={list(self.blocks)}>"


def _work(channel: _Channel, path: bytes, options: _native.LoadOptions) -> None:
    result = _native.LoadResult()
    try:
        _native.lib().navo_load(path, ctypes.byref(options), ctypes.byref(channel.callbacks), ctypes.byref(result))
    finally:
        channel.posted = ("end", result)
        channel.ready.release()


# Readers open (started, not finished): how many each thread started, and the readers.
_open: dict[int, int] = {}
_open_lock = threading.Lock()
_live: weakref.WeakSet[Reader] = weakref.WeakSet()
_exiting = False


@atexit.register
def _stop_all() -> None:
    """At exit, before the interpreter stops its threads, every load still open is stopped and its
    worker ended: a callback called later could not run Python again and would end its thread
    inside the core's frames. A stopped load calls no callback that waits, so every worker ends;
    the readers themselves are finished by their consumers or their release."""
    global _exiting
    with _open_lock:
        _exiting = True
        readers = list(_live)
    for reader in readers:
        reader._channel.stop = True
        reader._unpark()
    for reader in readers:
        if reader._thread is not None:
            reader._thread.join()


class Reader(Iterator[Document]):
    """Iterator over the documents of one file; also a context manager. After the last document
    `outcome` is "done" (or "stopped" after close()) and `file_notes` holds the file's notes."""

    def __init__(self, path: PathArg, encoding: str = "iso8859-2", keep_padding: bool = False) -> None:
        self._path = os.fsencode(path)
        self._options = _native.LoadOptions(encoding=_native.encoding_named(encoding))
        self._channel = _Channel(_native.KEEP_PADDING if keep_padding else 0)
        self._thread: Optional[threading.Thread] = None
        self._owner = 0
        self._parked = False
        self._finished = False
        self.outcome: Optional[str] = None
        self.file_notes: list[Tuple[str, ...]] = []

    def _start(self) -> None:
        owner = threading.get_ident()
        thread = threading.Thread(target=_work, args=(self._channel, self._path, self._options), name="navo-load",
                                  daemon=True)
        with _open_lock:  # a reader starts whole, or not at all once the interpreter exits
            if _open.get(owner):
                raise RuntimeError(f"{_native.message(_native.LOAD_IN_PROGRESS)}: this thread holds a navo reader "
                                   f"open; finish or close it first")
            if _exiting:
                raise RuntimeError("the interpreter is exiting: no navo load starts")
            thread.start()
            self._owner, self._thread = owner, thread
            _open[owner] = 1
            _live.add(self)

    def _release_owner(self) -> None:
        with _open_lock:
            _open.pop(self._owner, None)
            _live.discard(self)

    def _unpark(self) -> None:
        """Lets the parked callback go on: the current document goes away."""
        if self._parked:
            self._channel.generation += 1
            self._parked = False
            self._channel.resume.release()

    def _wait(self) -> Tuple[str, Any]:
        channel = self._channel
        self._unpark()
        channel.ready.acquire()
        kind, payload = channel.posted
        self._parked = kind == "document"
        return kind, payload

    def _finish(self, result: _native.LoadResult) -> None:
        assert self._thread is not None
        self._thread.join()
        channel = self._channel
        channel.generation += 1
        self._finished = True
        self._release_owner()
        self.file_notes = channel.file_notes
        self.outcome = {_native.DONE: "done", _native.STOPPED: "stopped"}.get(result.outcome, "failed")
        if self.outcome == "failed":
            if result.faults > 0:
                raise NavoError.of_fault(result.fault)
            error = NavoError(result.code)
            error.line = result.line
            raise error
        if channel.failure is not None:
            raise channel.failure

    def __next__(self) -> Document:
        if self._finished:
            raise StopIteration
        if self._thread is None:
            self._start()
        kind, payload = self._wait()
        if kind == "end":
            self._finish(payload)
            raise StopIteration
        try:
            return Document(self._channel, payload)
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
        kind, payload = self._wait()
        while kind != "end":  # a document posted before the stop was seen
            kind, payload = self._wait()
        try:
            self._finish(payload)
        except NavoError:
            pass

    def __enter__(self) -> Reader:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], value: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    def __del__(self) -> None:
        try:
            self.close()
        except Exception:
            pass


def read(path: PathArg, encoding: str = "iso8859-2", keep_padding: bool = False) -> Reader:
    """The documents of a NAVO file, one at a time. Values come from the core as UTF-8, converted
    from `encoding` ("iso8859-2", the format's own, or "cp1250"; a byte the code page leaves
    undefined stands for U+0080 plus its value), without their trailing blanks unless
    `keep_padding`. A failed load raises NavoError, with the place of its first fault, after the
    documents before the fault were delivered."""
    return Reader(path, encoding, keep_padding)
