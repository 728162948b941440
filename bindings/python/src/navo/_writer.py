"""Writing: navo.Writer builds documents from dicts and saves them as one file."""

from __future__ import annotations

import ctypes
import os
from ctypes import c_int32
from types import TracebackType
from typing import Any, Mapping, Sequence, Union

from . import _native, _schema

Record = Mapping[str, str]
BlockValue = Union[Record, Sequence[Record]]

_FILE_HEADER = (51, 8, 24, 24, 32)
_DOC_HEADER = (51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32)
_ERROR_NOTE = (10, 10, 10, 10)
_OCR_NOTE = (10, 10, 10, 72, 24, 24)


class ValueRefused(ValueError):
    """A value the file cannot carry: unknown name, too wide, not encodable, or holding a line
    break or NUL. `location` names where, e.g. "TOBZBA #0 IORB[2].NumerRachunku"."""

    def __init__(self, location: str, reason: str) -> None:
        super().__init__(f"{location}: {reason}")
        self.location = location
        self.reason = reason


class Writer:
    """Documents of one definition version ("1.2" or "1.3"), saved with save(path). The prolog
    is set for the version; headers start blank at their full widths, so saved files load again.
    Values are encoded with `encoding` (the files declare ISO 8859-2)."""

    def __init__(self, version: str = "1.3", encoding: str = "iso8859-2") -> None:
        self.encoding = encoding
        self.schema = _schema.schema(version)
        self._ctx: Any = _native.defined_context(version)
        with _native.GUARD.call():
            _native.lib().dk_SetDefaultNAVOProlog(self._ctx, version.encode())
        self.set_file_header(())

    def _encode(self, location: str, value: str, width: int) -> bytes:
        if not isinstance(value, str):
            raise ValueRefused(location, f"{type(value).__name__} is not str")
        try:
            raw = value.encode(self.encoding)
        except UnicodeEncodeError as e:
            raise ValueRefused(location, f"{value[e.start:e.end]!r} cannot be written in {self.encoding}") from None
        if len(raw) > width:
            raise ValueRefused(location, f"{len(raw)} characters, the width is {width}")
        if any(c in raw for c in b"\r\n\0"):
            raise ValueRefused(location, "holds a line break or NUL")
        return raw

    def _lines(self, location: str, texts: Sequence[str], widths: Sequence[int]) -> list[bytes]:
        if len(texts) > len(widths):
            raise ValueRefused(location, f"{len(texts)} lines, at most {len(widths)}")
        raw = [self._encode(f"{location}[{i}]", t, w) for i, (t, w) in enumerate(zip(texts, widths))]
        return [r.ljust(w) for r, w in zip(raw + [b""] * (len(widths) - len(raw)), widths)]

    def _context(self) -> Any:
        if self._ctx is None:
            raise ValueError("the writer is closed")
        return self._ctx

    def set_file_header(self, lines: Sequence[str]) -> None:
        """Up to 5 lines (widths 51, 8, 24, 24, 32); missing ones are blank."""
        filled = self._lines("file header", lines, _FILE_HEADER)
        header = self._context().contents.header
        for i, line in enumerate(filled, 1):
            setattr(header, f"line{i}", line)

    def add_file_note(self, texts: Sequence[str]) -> None:
        """A note of the file: up to 4 texts of 10 characters."""
        note = _native.ErrorNote(*self._lines("file note", texts, _ERROR_NOTE))
        with _native.GUARD.call():
            if not _native.lib().dk_AddNAVOError(self._context(), ctypes.byref(note)):
                raise MemoryError("libnavo: dk_AddNAVOError failed")

    def add(self, form: str, blocks: Mapping[str, BlockValue] | None = None, *, header: Sequence[str] = (),
            notes: Sequence[Sequence[str]] = (), ocr_notes: Sequence[tuple[int, Sequence[str]]] = ()) -> int:
        """Adds a document of `form` and gives its index. `blocks` maps a block's tag to a dict of
        field values, or for a repeating block to a list of them; unnamed fields stay blank.
        `header` has up to 14 lines, `notes` up to 4 texts each, `ocr_notes` (kind 0-3, texts).
        Everything is checked before the document is made: a refusal leaves nothing behind."""
        definition = self.schema.forms.get(form)
        if definition is None:
            raise ValueRefused(form, "no such form in the definition")
        n = self._document_count(form)
        where = f"{form} #{n}"
        values: list[tuple[str, int, str, bytes]] = []  # tag, record, field, value
        for tag, value in (blocks or {}).items():
            block = definition.blocks.get(tag)
            if block is None:
                raise ValueRefused(f"{where} {tag}", "the form has no such block")
            records = [value] if isinstance(value, Mapping) else list(value)
            if not block.repeating and len(records) != 1:
                raise ValueRefused(f"{where} {tag}", "a single block has exactly one record")
            for r, fields in enumerate(records):
                for name, text in fields.items():
                    field_def = block.fields.get(name)
                    if field_def is None:
                        raise ValueRefused(f"{where} {tag}[{r}].{name}", "the block has no such field")
                    values.append((tag, r, name, self._encode(f"{where} {tag}[{r}].{name}", text, field_def.width)))
        head = self._lines(f"{where} header", header, _DOC_HEADER)
        error_notes = [_native.ErrorNote(*self._lines(f"{where} note {i}", t, _ERROR_NOTE))
                       for i, t in enumerate(notes)]
        ocr = []
        for i, (kind, texts) in enumerate(ocr_notes):
            if kind not in (0, 1, 2, 3):
                raise ValueRefused(f"{where} OCR note {i}", f"kind {kind} is not 0-3")
            ocr.append(_native.OcrNote(kind, *self._lines(f"{where} OCR note {i}", texts, _OCR_NOTE)))

        native, ctx, f = _native.lib(), self._context(), form.encode()  # f: the form's name as bytes
        index = c_int32(-1)
        with _native.GUARD.call():
            ok = native.dk_AddDocument(ctx, f, ctypes.byref(index))
            doc = index.value
            header_record = ctypes.POINTER(_native.DocHeader)()
            ok = ok and native.dk_GetDocHeader(ctx, f, doc, ctypes.byref(header_record))
            for i, line in enumerate(head, 1):
                setattr(header_record.contents, f"line{i}", line)
            added = {tag: 1 for tag, b in definition.blocks.items() if b.repeating}
            for tag, record, name, raw in values:
                while ok and record >= added.get(tag, 1):
                    ok = native.dk_AddBlock(ctx, f, doc, tag.encode(), ctypes.byref(c_int32()))
                    added[tag] += 1
                ok = ok and native.dk_SetField(ctx, f, doc, tag.encode(), record, name.encode(), raw)
            for note in error_notes:
                ok = ok and native.dk_AddDocError(ctx, f, doc, ctypes.byref(note))
            for o in ocr:
                ok = ok and native.dk_AddDocOCR(ctx, f, doc, ctypes.byref(o))
        if not ok:
            raise MemoryError(f"libnavo: building {where} failed (memory or spool file)")
        return doc

    def _document_count(self, form: str) -> int:
        count = c_int32(0)
        with _native.GUARD.call():
            _native.lib().dk_GetDocCount(self._context(), form.encode(), ctypes.byref(count))
        return count.value

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes every document, by form in the definition's order, then by index."""
        with _native.GUARD.call():
            if not _native.lib().dk_SaveNAVO(self._context(), os.fsencode(path), 1):
                raise OSError(f"libnavo: {os.fspath(path)} could not be written")

    def close(self) -> None:
        """Releases the documents and their spool files."""
        if self._ctx is not None:
            with _native.GUARD.call():
                _native.release_context(self._ctx)
            self._ctx = None

    def __enter__(self) -> Writer:
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        try:
            self.close()
        except Exception:
            pass
