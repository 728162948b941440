"""The definitions as data: forms, blocks and fields of a definition version."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any

from . import _native


@dataclass(frozen=True)
class Field:
    name: str
    offset: int  # in the record
    width: int


@dataclass(frozen=True)
class Block:
    tag: str  # what a host names it by, e.g. "DIPL"
    name: str  # its name inside the definition text
    record_length: int
    repeating: bool  # any number of records (a document starts with one), else exactly one
    fields: dict[str, Field] = field(default_factory=dict)  # in record order


@dataclass(frozen=True)
class Form:
    name: str
    blocks: dict[str, Block] = field(default_factory=dict)  # by tag, in the order of the form


@dataclass(frozen=True)
class Schema:
    version: str
    name: str
    forms: dict[str, Form] = field(default_factory=dict)


def _text(value: bytes | None) -> str:
    return (value or b"").decode("cp1250")


def of_context(ctx: Any, version: str = "") -> Schema:
    """A copy of definition 0 of a context (the names come through the dictionary)."""
    c = ctx.contents
    schema = Schema(version, "")
    if not c.definitions or c.definitions.contents.count < 1:
        return schema
    definition = c.definitions.contents.items[0]
    strings = c.dictionary.contents.strings
    forms: dict[str, Form] = {}
    for f in definition.forms[: definition.formCount]:
        blocks: dict[str, Block] = {}
        for ref in f.refs[: f.refCount]:
            b = definition.blocks[ref.blockIndex]
            fields = {}
            for fd in b.fields[: b.fieldCount]:
                name = _text(strings[fd.nameId])
                fields[name] = Field(name, fd.offset, fd.width)
            tag = _text(strings[b.tagId])
            blocks[tag] = Block(tag, _text(b.name), b.recordLength, ref.occurrence == -1, fields)
        name = _text(strings[f.id])
        forms[name] = Form(name, blocks)
    return Schema(version or _version_of(_text(definition.name)), _text(definition.name), forms)


def _version_of(name: str) -> str:
    return name.split()[-1] if name else ""


_cache: dict[str, Schema] = {}


def schema(version: str = "1.3") -> Schema:
    """The forms, blocks and fields of definition version "1.2" or "1.3"."""
    if version not in _cache:
        ctx = _native.defined_context(version)
        try:
            _cache[version] = of_context(ctx, version)
        finally:
            _native.release_context(ctx)
    return _cache[version]


def packed_slices(fields: dict[str, Field], start: int = 0) -> list[tuple[str, int, int]]:
    """(name, begin, end) of each field in the packed form: each field takes its width plus a NUL."""
    out = []
    for f in fields.values():
        out.append((f.name, start, start + f.width))
        start += f.width + 1
    return out


__all__ = ["Field", "Block", "Form", "Schema", "schema"]
