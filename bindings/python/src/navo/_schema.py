"""The forms as data: forms, blocks and fields of a definition version, copied once from the
core's records (navo_schema_of), and the dicts that find a name by the core's rule."""

from __future__ import annotations

import ctypes
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, Optional, TypeVar

from . import _native

V = TypeVar("V")
Find = Callable[[str], Optional[str]]


class Names(Dict[str, V]):
    """A dict keyed by the definition's own spelling that finds a name the core's way too: when
    no key is spelt so, the one name the core matches with ASCII letters folded
    (doc.blocks["dipl"][0]["NIP"] is doc.blocks["DIPL"][0]["Nip"])."""

    __slots__ = ("_find",)
    _find: Find

    def __missing__(self, key: str) -> V:
        name = self._find(key) if isinstance(key, str) else None
        if name is None or name == key:
            raise KeyError(key)
        return self[name]

    def __contains__(self, key: object) -> bool:
        return super().__contains__(key) or (isinstance(key, str) and self._find(key) is not None)

    def get(self, key: str, default: Any = None) -> Any:
        try:
            return self[key]
        except KeyError:
            return default


def names(items: Any, find: Find) -> Names[Any]:
    out: Names[Any] = Names(items)
    out._find = find
    return out


def _encoded(name: str) -> bytes:
    # Lone surrogates go as they are: the core finds no name for text that is no UTF-8.
    return name.encode("utf-8", "surrogatepass")


@dataclass(frozen=True)
class Field:
    name: str
    offset: int  # in the record
    width: int
    type: str  # the type column of its line in the definition text; "" without one


@dataclass(frozen=True)
class Block:
    tag: str  # what files and hosts name it by, e.g. "DIPL"
    name: str  # its name in the definition text, e.g. "DaneIdPlSklaBlf"
    record_length: int
    repeating: bool  # any number of records (a document starts with one), else exactly one
    fields: Dict[str, Field] = field(default_factory=dict)  # by name, in record order


@dataclass(frozen=True)
class Form:
    name: str
    blocks: Dict[str, Block] = field(default_factory=dict)  # by tag, in the order of the form


@dataclass(frozen=True)
class Schema:
    version: str  # "1.3", "1.2"
    name: str  # the definition's name, from its first line
    forms: Dict[str, Form] = field(default_factory=dict)  # in definition order


def _block(native: Any, definition: _native.BlockDef) -> Block:
    """A block with its fields; `definition` lives as long as the process (the core never
    releases its schemas), so the lookups may keep it."""
    fields = [definition.fields[i] for i in range(definition.field_count)]
    by_name = [_native.text(f.name) for f in fields]
    reference = ctypes.byref(definition)

    def find(name: str) -> Optional[str]:
        index: int = native.navo_block_field(reference, _encoded(name))
        return by_name[index] if index >= 0 else None

    return Block(_native.text(definition.tag), _native.text(definition.name), definition.record_length,
                 bool(definition.repeating),
                 names(((n, Field(n, f.offset, f.width, _native.text(f.type))) for n, f in zip(by_name, fields)), find))


def _form(native: Any, definition: _native.FormDef) -> Form:
    blocks = [_block(native, definition.blocks[i]) for i in range(definition.block_count)]
    reference = ctypes.byref(definition)

    def find(tag: str) -> Optional[str]:
        index: int = native.navo_form_block(reference, _encoded(tag))
        return blocks[index].tag if index >= 0 else None

    return Form(_native.text(definition.name), names(((b.tag, b) for b in blocks), find))


_cache: dict[str, Schema] = {}


def schema(version: str = "1.3") -> Schema:
    """The forms, blocks and fields of definition version "1.2" or "1.3", as the core has them."""
    if version in _cache:
        return _cache[version]
    native = _native.lib()
    pointer = native.navo_schema_of(version.encode()) if isinstance(version, str) else None
    if not pointer:
        raise ValueError(f"{_native.message(_native.UNKNOWN_VERSION)}: {version!r}")
    definition = pointer.contents
    forms = [_form(native, definition.forms[i]) for i in range(definition.form_count)]

    def find(name: str) -> Optional[str]:
        form = native.navo_schema_form(pointer, _encoded(name))
        return _native.text(form.contents.name) if form else None

    made = Schema(_native.text(definition.version), _native.text(definition.name),
                  names(((f.name, f) for f in forms), find))
    return _cache.setdefault(version, made)


__all__ = ["Field", "Block", "Form", "Schema", "schema"]
