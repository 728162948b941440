"""Writing: navo.Writer builds documents from dicts through the core's writer (navo_writer_*) and
saves them as one file, whole or not at all."""

from __future__ import annotations

import ctypes
import os
import threading
from ctypes import c_int32
from types import TracebackType
from typing import Mapping, Optional, Sequence, Tuple, Union

from . import _native, _schema
from ._errors import SaveFailed, ValueRefused

Record = Mapping[str, str]
BlockValue = Union[Record, Sequence[Record]]


class Writer:
    """Documents of one definition version ("1.2" or "1.3"), saved with save(path). The prolog
    is the version's; headers start blank at their full widths, so saved files load again.
    Values go into the file in `encoding` ("iso8859-2", the format's own, or "cp1250"). Every
    refusal is the core's (ValueRefused); names are matched by the core's rule. A Writer may be
    used from any thread; its calls take turns."""

    def __init__(self, version: str = "1.3", encoding: str = "iso8859-2") -> None:
        self.schema = _schema.schema(version)
        self.encoding = encoding
        native = _native.lib()
        self._writer: Optional[int] = native.navo_writer_new(version.encode(), _native.encoding_named(encoding), 0)
        if not self._writer:
            raise MemoryError("the core could not make a writer")
        self._lock = threading.Lock()
        self._file_header = [""] * native.navo_element_lines(_native.FILE_HEADER)

    def _open(self) -> int:
        if self._writer is None:
            raise ValueError("the writer is closed")
        return self._writer

    def set_file_header(self, lines: Sequence[str]) -> None:
        """The file header's lines (5 of them); missing ones are blank. A refused line leaves the
        header as it was."""
        native = _native.lib()
        with self._lock:
            writer = self._open()
            wanted = list(lines) + [""] * (len(self._file_header) - len(lines))
            encoded = [_native.c_text(line) for line in wanted]
            why = _native.Refusal()
            for i, line in enumerate(encoded):
                if native.navo_writer_file_header(writer, i, line, ctypes.byref(why)):
                    for j in range(i):  # lines the core took before: back to their texts
                        native.navo_writer_file_header(writer, j, _native.c_text(self._file_header[j]), None)
                    raise ValueRefused(why)
            self._file_header = wanted

    def add_file_note(self, texts: Sequence[str]) -> None:
        """A note of the file: up to 4 texts of 10 characters."""
        with self._lock:
            array, count = _native.c_texts(texts)
            why = _native.Refusal()
            if _native.lib().navo_writer_file_note(self._open(), array, count, ctypes.byref(why)):
                raise ValueRefused(why)

    def add(self, form: str, blocks: Optional[Mapping[str, BlockValue]] = None, *, header: Sequence[str] = (),
            notes: Sequence[Sequence[str]] = (), ocr_notes: Sequence[Tuple[int, Sequence[str]]] = ()) -> int:
        """Adds a document of `form` and gives its number (from 1: its place in the saved file, as
        Document.number gives it when read). `blocks` maps a block's tag to a dict of field
        values, or for a repeating block to a list of them; unnamed fields stay blank. `header`
        has up to 14 lines, `notes` up to 4 texts each, `ocr_notes` (kind 0-3, up to 6 texts).
        A refusal (ValueRefused) or any other error leaves no part of the document behind."""
        native = _native.lib()
        with self._lock:
            writer = self._open()
            number = c_int32()
            why = _native.Refusal()
            if native.navo_writer_add_document(writer, _native.c_text(form), ctypes.byref(number), ctypes.byref(why)):
                raise ValueRefused(why)
            document = number.value
            try:
                self._fill(writer, document, self.schema.forms[form], blocks or {}, header, notes, ocr_notes, why)
            except BaseException:
                native.navo_writer_remove_document(writer, document)
                raise
            return document

    def _fill(self, writer: int, document: int, form: _schema.Form, blocks: Mapping[str, BlockValue],
              header: Sequence[str], notes: Sequence[Sequence[str]], ocr_notes: Sequence[Tuple[int, Sequence[str]]],
              why: _native.Refusal) -> None:
        native = _native.lib()
        reason = ctypes.byref(why)

        def check(code: int) -> None:
            if code:
                raise ValueRefused(why)

        for tag, value in blocks.items():
            encoded_tag = _native.c_text(tag)
            if tag not in form.blocks:  # the core's refusal of the tag, which changes nothing
                check(native.navo_writer_add_record(writer, document, encoded_tag, None, reason))
            records: Sequence[Record] = [value] if isinstance(value, Mapping) else list(value)
            if not all(isinstance(r, Mapping) for r in records):
                raise TypeError(f"block {tag}: a dict of field values, or a list of them")
            for r, fields in enumerate(records):
                if r > 0:  # a new document has one record of each block
                    check(native.navo_writer_add_record(writer, document, encoded_tag, None, reason))
                for name, text in fields.items():
                    check(native.navo_writer_set(writer, document, encoded_tag, r, _native.c_text(name),
                                                 _native.c_text(text), reason))
        for line, text in enumerate(header):
            check(native.navo_writer_header(writer, document, line, _native.c_text(text), reason))
        for texts in notes:
            array, count = _native.c_texts(texts)
            check(native.navo_writer_error_note(writer, document, array, count, reason))
        for kind, texts in ocr_notes:
            array, count = _native.c_texts(texts)
            check(native.navo_writer_ocr_note(writer, document, kind, array, count, reason))

    def save(self, path: Union[str, os.PathLike[str]]) -> None:
        """Writes every document, in the order of adding, to a new file beside `path` and puts it
        in place whole. On failure (a full disk, no permission) it raises SaveFailed, an OSError,
        and leaves at `path` what stood there before, whole. The documents stay in the writer."""
        with self._lock:
            why = _native.Refusal()
            if _native.lib().navo_writer_save(self._open(), os.fsencode(path), ctypes.byref(why)):
                raise SaveFailed(path, why)

    def close(self) -> None:
        """Releases the documents and their spool files."""
        with self._lock:
            if self._writer is not None:
                _native.lib().navo_writer_free(self._writer)
                self._writer = None

    def __enter__(self) -> Writer:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], value: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    def __del__(self) -> None:
        try:
            self.close()
        except Exception:
            pass


__all__ = ["Writer", "ValueRefused", "SaveFailed"]
