"""The exceptions: a failed load (NavoError), a refused value (ValueRefused), a failed save
(SaveFailed), a record asked for too late (DocumentExpired). Codes, words and places are the
core's; the package only carries them."""

from __future__ import annotations

import os
from typing import Optional, Union

from . import _native


class _Place:
    """The place of a fault or refusal as the core names it; None where it knows none."""

    area: Optional[str]  # "prolog", "file header", "section", "document header", "body", "notes", "footer"
    document: Optional[int]  # from 1, in the order of the file (of adding, for a writer)
    form: Optional[str]
    block: Optional[str]  # a block's tag; "BLAD" or "OCR" for a note
    record: Optional[int]  # of the block, note or line, from 0
    field: Optional[str]  # a field's name; "line3" for a header's line, "text2" for a note's
    expected: Optional[int]  # the length the format wants, where a length is at fault
    found: Optional[int]  # ... and the length there is
    location: str  # all of it in words, the same in every front end

    def _set_place(self, place: Optional[_native.Place]) -> None:
        for name, value in _native.place_parts(place).items():
            setattr(self, name, value)


class NavoError(_Place, Exception):
    """A load failed (or the core refused to hand out part of a document). `code` is the core's:
    1-10 the library's load codes, 100 on the core's own; `message` the library's Polish text for
    1-10 (English for the others), `english` the English one; `line` the file's line of the
    fault (from 1; 0 when none), `offset` the bytes of the file before it, `detail` an English
    sentence of what the loader saw; and the place: `document`, `form`, `block`, `record`,
    `field`, `area`, `expected`, `found`, `location`. The tool and navo.hpp name the same place."""

    line: int
    offset: Optional[int]

    def __init__(self, code: int, place: Optional[_native.Place] = None, detail: str = "") -> None:
        super().__init__(code)
        self.code = code
        self.message = _native.message(code, _native.POLISH)
        self.english = _native.message(code, _native.ENGLISH)
        self.detail = detail
        self._set_place(place)
        self.line = place.line if place is not None else 0
        self.offset = place.offset if place is not None and place.offset >= 0 else None

    @classmethod
    def of_fault(cls, fault: _native.Fault) -> NavoError:
        return cls(fault.code, fault.place, fault.detail.decode("utf-8"))

    def __str__(self) -> str:
        where = "; ".join(part for part in (self.location, f"line {self.line}" if self.line else "", self.detail)
                          if part)
        return f"{self.english} (code {self.code})" + (f": {where}" if where else "")


class DocumentExpired(RuntimeError):
    """A repeating block's records were asked for after the reader moved past their document."""


class ValueRefused(_Place, ValueError):
    """The writer's core refused a call: an unknown form, block or field, a value too wide, one
    holding a character the code page lacks or one a NAVO text cannot carry (CR, LF, TAB, NUL,
    '<', 0x1A), or text that is no UTF-8. `code` is the core's, `reason` its English words,
    `location` the place in words ("document 1 (TOBZBA), body, block DIPL record 0, field Nip;
    expected 10 characters, found 11") and its parts as attributes."""

    def __init__(self, refusal: _native.Refusal) -> None:
        self._set_place(refusal.place)
        self.code: int = refusal.code
        self.reason = refusal.reason.decode("utf-8")
        super().__init__(f"{self.location}: {self.reason}" if self.location else self.reason)


class SaveFailed(OSError):
    """Writer.save could not write the file whole (a full disk, no permission, a missing
    directory): whatever stood at the path before is there still, whole, and no part of the new
    file is left. `filename` is the path, `reason` the core's words (with the system's)."""

    def __init__(self, path: Union[str, os.PathLike[str]], refusal: _native.Refusal) -> None:
        # No errno: the core gives its reason in words (the system's among them).
        super().__init__(None, refusal.reason.decode("utf-8"), os.fspath(path))
        self.code: int = refusal.code
        self.reason: str = self.strerror

    def __str__(self) -> str:
        return f"{self.filename}: {self.reason}"
