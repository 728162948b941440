"""navo for Python: read and write NAVO files through libnavofront, the core under every front
end (ctypes; the C interface of navo_front.h).

    for doc in navo.read("declarations.navo"):
        print(doc.form, doc.blocks["DIPL"][0]["Nip"])

What the package shows comes from the core: values (UTF-8, from the file's code page), names and
their matching, messages, places of faults, the writer's refusals and the forms as data.

Threads, as navo_front.h states them: one load runs at a time in the process (a load started on
another thread waits for it); a reader's load runs on a worker thread of its own, and the thread
that holds a reader open cannot start a second one (RuntimeError) until the first is finished or
closed. Writers work on their own objects and may be used on separate threads at once; the calls
on one Writer take turns. Schemas, messages and code pages are read-only and shared freely.
"""

from typing import Any

from ._errors import DocumentExpired, NavoError, SaveFailed, ValueRefused
from ._reader import Document, OcrNote, Reader, Records, read
from ._schema import Block, Field, Form, Schema, schema
from ._writer import Writer


def __getattr__(name: str) -> Any:
    # __version__ is the library's, read when asked: importing the package needs no library.
    if name == "__version__":
        from ._native import version

        return version()
    raise AttributeError(f"module 'navo' has no attribute {name!r}")


__all__ = ["read", "Reader", "Document", "Records", "OcrNote", "NavoError", "DocumentExpired", "Writer",
           "ValueRefused", "SaveFailed", "schema", "Schema", "Form", "Block", "Field", "__version__"]
