#!/usr/bin/env python3
"""gen_definitions.py - builds the embedded definition texts (spec Parts 2.2 and 2.3).

Reads the form table of Part 2.2 and the block table of Part 2.3 from the specification
(default /work/shared/spec.md, or the path given as the first argument) and writes, by the
rules of Part 2.2, "Algorithms":

    definitions/navo-1.3.def   the text of version 1.3 (the tables as they stand)
    definitions/navo-1.2.def   the same text with "Wersja 1.2" and the width of
                               StopaProcSklWypadk in InneInform_DRABlf set to 3

Both files are raw CP1250 bytes with LF line ends and no NUL (the build adds the NUL when it
embeds them, see definitions/CMakeLists.txt). The script uses only the block names, tags and
field lines of the tables; tests/test_definitions.cpp checks what the texts load into (counts,
widths and a fingerprint of each text).

Usage:  python3 tools/gen_definitions.py [SPEC.md] [--out-dir DIR] [--check]
        --check compares with the files in DIR instead of writing them (exit 1 on a difference).
"""

import argparse
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_SPEC = "/work/shared/spec.md"
DEFAULT_OUT = os.path.join(os.path.dirname(HERE), "definitions")

# The one field that differs between the versions (Part 2.2, "Algorithms").
V12_BLOCK = "InneInform_DRABlf"
V12_FIELD = "StopaProcSklWypadk"
V12_WIDTH_13 = 4
V12_WIDTH_12 = 3


def fail(message):
    sys.stderr.write("gen_definitions.py: " + message + "\n")
    sys.exit(2)


def part_lines(lines, heading):
    """The lines of the Part whose heading starts with `heading`, up to the next Part."""
    start = None
    for index, line in enumerate(lines):
        if line.startswith(heading):
            start = index + 1
        elif start is not None and line.startswith("# Part"):
            return lines[start:index]
    if start is None:
        fail("no heading " + heading)
    return lines[start:]


def table_rows(lines, header_prefix):
    """Cells of the rows of the table whose header line starts with `header_prefix`."""
    for index, line in enumerate(lines):
        if line.startswith(header_prefix):
            rows = []
            for row in lines[index + 2:]:
                if not row.startswith("|"):
                    break
                cells = [cell.strip() for cell in row.strip().strip("|").split(" | ")]
                rows.append(cells)
            return rows
    fail("no table " + header_prefix)
    return []


def unquote(cell):
    match = re.fullmatch(r"`([^`]+)`", cell)
    if not match:
        fail("not a code cell: " + repr(cell))
    return match.group(1)


def read_tables(spec_path):
    with open(spec_path, encoding="utf-8") as handle:
        lines = handle.read().split("\n")

    forms = []  # (name, [(block name, occurrence)])
    for cells in table_rows(part_lines(lines, "# Part 2.2"), "| ID | Form |"):
        refs = []
        for item in cells[2].split(", `"):
            item = item if item.startswith("`") else "`" + item
            match = re.fullmatch(r"`([^`]+)`( \(-1\))?", item)
            if not match:
                fail("bad block reference " + repr(item))
            refs.append((match.group(1), -1 if match.group(2) else 1))
        forms.append((unquote(cells[1]), refs))

    blocks = []  # (tag, block name, [field line])
    for cells in table_rows(part_lines(lines, "# Part 2.3"), "| Tag | Block name |"):
        fields = [unquote(item) for item in cells[4].split("; ")]
        for field in fields:
            if not re.fullmatch(r"[^ ,]+, [1-9][0-9]*, [^ ,]+", field):
                fail("bad field line " + repr(field))
        blocks.append((unquote(cells[0]), unquote(cells[1]), fields))
    return forms, blocks


def build_text(version, forms, blocks):
    out = ["Wersja " + version, ""]
    for name, refs in forms:
        out.append("[%s, %s]" % (name, name))
        for block, occurrence in refs:
            out.append("%s, 1, %d" % (block, occurrence))
        out.append("")
    changed = 0
    for index, (tag, name, fields) in enumerate(blocks):
        out.append("<%s, %s>" % (name, tag))
        for field in fields:
            if version == "1.2" and name == V12_BLOCK and field.split(", ")[0] == V12_FIELD:
                parts = field.split(", ")
                if int(parts[1]) != V12_WIDTH_13:
                    fail("unexpected width of %s in %s: %s" % (V12_FIELD, V12_BLOCK, parts[1]))
                field = "%s, %d, %s" % (parts[0], V12_WIDTH_12, parts[2])
                changed += 1
            out.append(field)
        if index != len(blocks) - 1:
            out.append("")
    if version == "1.2" and changed != 1:
        fail("the 1.2 change matched %d lines" % changed)
    text = "\n".join(out) + "\n"
    data = text.encode("cp1250")  # raises on a character CP1250 lacks
    if any(len(line) + 1 > 199 for line in data.split(b"\n")):
        fail("a line exceeds 199 bytes with its LF")
    return data


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("spec", nargs="?", default=DEFAULT_SPEC)
    parser.add_argument("--out-dir", default=DEFAULT_OUT)
    parser.add_argument("--check", action="store_true")
    args = parser.parse_args()

    forms, blocks = read_tables(args.spec)
    names = {name for _, name, _ in blocks}
    for form, refs in forms:
        for block, _ in refs:
            if block not in names:
                fail("form %s references unknown block %s" % (form, block))

    status = 0
    for version in ("1.3", "1.2"):
        data = build_text(version, forms, blocks)
        path = os.path.join(args.out_dir, "navo-%s.def" % version)
        if args.check:
            with open(path, "rb") as handle:
                if handle.read() != data:
                    sys.stderr.write("%s differs from the spec's tables\n" % path)
                    status = 1
        else:
            with open(path, "wb") as handle:
                handle.write(data)
        sys.stdout.write("%s: %d forms, %d blocks, %d lines, %d bytes\n"
                         % (path, len(forms), len(blocks), data.count(b"\n"), len(data)))
    return status


if __name__ == "__main__":
    sys.exit(main())
