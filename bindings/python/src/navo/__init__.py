"""libnavo for Python: read and write NAVO files through the shared library (ctypes).

    for doc in navo.read("declarations.navo"):
        print(doc.form, doc.blocks["DIPL"][0]["Nip"])

The library keeps its load state process-wide; a lock lets one load run at a time in the
process (other threads wait), and a thread cannot start a second load while its first is open.
"""

from ._reader import Document, DocumentExpired, NavoError, OcrNote, Reader, Records, read
from ._schema import Block, Field, Form, Schema, schema
from ._writer import ValueRefused, Writer

__version__ = "1.0.0"

__all__ = ["read", "Reader", "Document", "Records", "OcrNote", "NavoError", "DocumentExpired", "Writer",
           "ValueRefused", "schema", "Schema", "Form", "Block", "Field"]
