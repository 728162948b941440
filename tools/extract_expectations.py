#!/usr/bin/env python3
"""extract_expectations.py - writes tests/data/embedded_expectations.txt from the spec's tables.

This is the second, independent reading of Parts 2.2 and 2.3 (tools/gen_definitions.py is the
first; it builds the definition texts). It shares no code with the generator, reads the rows by
its own patterns, and keeps the columns the generator ignores: the form table's ID and Fields
columns, the block table's Record length and Field count columns, the counts of the Part 2.2
"Data model" table and the version 1.2 difference from the prose. tests/test_embedded.cpp
compares the loaded texts with this file, so a slip in either shows against the other.

Non-ASCII bytes are written as %XX, the CP1250 code of the character, from the table below
(not from Python's codec, which the generator uses).

Usage:  python3 tools/extract_expectations.py [SPEC.md] [-o OUTPUT]
"""

import argparse
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_SPEC = "/work/shared/spec.md"
DEFAULT_OUT = os.path.join(os.path.dirname(HERE), "tests", "data", "embedded_expectations.txt")

# The Polish letters in CP1250 (Windows-1250 code chart).
CP1250 = {
    "Ą": 0xA5, "Ć": 0xC6, "Ę": 0xCA, "Ł": 0xA3, "Ń": 0xD1, "Ó": 0xD3, "Ś": 0x8C, "Ź": 0x8F, "Ż": 0xAF,
    "ą": 0xB9, "ć": 0xE6, "ę": 0xEA, "ł": 0xB3, "ń": 0xF1, "ó": 0xF3, "ś": 0x9C, "ź": 0x9F, "ż": 0xBF,
}

FORM_ROW = re.compile(r"^\| (\d+) \| `(\w+)` \| (.*) \| (\d+) \|$")
BLOCK_ROW = re.compile(r"^\| `(\w+)` \| `(\w+)` \| (\d+) \| (\d+) \| (.*) \|$")
REF = re.compile(r"`(\w+)`( \(-1\))?(?:, |$)")
FIELD = re.compile(r"`(\w+), (\d+), ([^`]+)`(?:; |$)")
COUNT_ROW = re.compile(r"^\| (Forms|Block references of the forms|Blocks|Fields|Distinct field names"
                       r"|Distinct type names) \| ([\d,]+) \|$")
V12 = re.compile(r"In version 1\.2 the field `(\w+)` of the block `(\w+)` has the width (\d+) "
                 r"and the block's record length is (\d+)\.")
LINES = re.compile(r"has ([\d,]+) lines")


def escape(text):
    out = []
    for char in text:
        if ord(char) < 128:
            if char in " %\t":
                out.append("%%%02X" % ord(char))
            else:
                out.append(char)
        elif char in CP1250:
            out.append("%%%02X" % CP1250[char])
        else:
            raise SystemExit("no CP1250 code known for %r" % char)
    return "".join(out)


def all_matches(pattern, text, what):
    """Matches of `pattern` that cover `text` completely."""
    items = []
    position = 0
    while position < len(text):
        match = pattern.match(text, position)
        if not match:
            raise SystemExit("cannot read %s at %r" % (what, text[position:position + 60]))
        items.append(match)
        position = match.end()
    return items


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("spec", nargs="?", default=DEFAULT_SPEC)
    parser.add_argument("-o", "--output", default=DEFAULT_OUT)
    args = parser.parse_args()

    with open(args.spec, encoding="utf-8") as handle:
        spec = handle.read()
    part = None
    forms, blocks, counts, v12, line_count = [], [], [], None, None
    for line in spec.split("\n"):
        if line.startswith("# Part "):
            part = line.split(":")[0][len("# Part "):]
        if part not in ("2.2", "2.3"):
            continue
        match = FORM_ROW.match(line)
        if match and part == "2.2":
            refs = [(m.group(1), -1 if m.group(2) else 1)
                    for m in all_matches(REF, match.group(3), "references")]
            forms.append((int(match.group(1)), match.group(2), int(match.group(4)), refs))
            continue
        match = BLOCK_ROW.match(line)
        if match and part == "2.3":
            fields = [(m.group(1), int(m.group(2)), m.group(3))
                      for m in all_matches(FIELD, match.group(5), "fields")]
            blocks.append((match.group(1), match.group(2), int(match.group(3)),
                           int(match.group(4)), fields))
            continue
        match = COUNT_ROW.match(line)
        if match and part == "2.2":
            counts.append((match.group(1), int(match.group(2).replace(",", ""))))
        match = V12.search(line)
        if match and part == "2.3":
            v12 = (match.group(2), match.group(1), int(match.group(3)), int(match.group(4)))
        match = LINES.search(line)
        if match and part == "2.2" and line_count is None:
            line_count = int(match.group(1).replace(",", ""))

    if not forms or not blocks or len(counts) != 6 or v12 is None or line_count is None:
        raise SystemExit("the spec's tables were not all found")

    # Report, but do not correct, columns that disagree with the rows: the test shows them.
    for tag, name, length, count, fields in blocks:
        if sum(width for _, width, _ in fields) != length or len(fields) != count:
            sys.stderr.write("warning: block %s: columns say %d/%d, fields give %d/%d\n"
                             % (name, length, count, sum(w for _, w, _ in fields), len(fields)))
    by_name = {name: count for _, name, _, count, _ in blocks}
    for ident, name, total, refs in forms:
        actual = sum(by_name.get(block, 0) for block, _ in refs)
        if actual != total:
            sys.stderr.write("warning: form %s: column says %d fields, blocks give %d\n"
                             % (name, total, actual))

    keys = {"Forms": "forms", "Block references of the forms": "refs", "Blocks": "blocks",
            "Fields": "fields", "Distinct field names": "fieldnames",
            "Distinct type names": "typenames"}
    out = ["# embedded_expectations.txt - made by tools/extract_expectations.py from the tables of",
           "# spec Parts 2.2 and 2.3; do not edit by hand. Version 1.3 unless a line says 1.2.",
           "# COUNT key n | LINES n | FORM id name fields nrefs block:occurrence...",
           "# BLOCK index tag name recordLength fieldCount name:width:type...  (%XX = CP1250 byte)",
           "# V12 block field width recordLength"]
    for label, number in counts:
        out.append("COUNT %s %d" % (keys[label], number))
    out.append("LINES %d" % line_count)
    for ident, name, total, refs in forms:
        out.append("FORM %d %s %d %d %s" % (ident, name, total, len(refs),
                                            " ".join("%s:%d" % ref for ref in refs)))
    for index, (tag, name, length, count, fields) in enumerate(blocks):
        out.append("BLOCK %d %s %s %d %d %s" % (
            index, tag, name, length, count,
            " ".join("%s:%d:%s" % (f, w, escape(t)) for f, w, t in fields)))
    out.append("V12 %s %s %d %d" % v12)
    with open(args.output, "w", encoding="ascii", newline="\n") as handle:
        handle.write("\n".join(out) + "\n")
    sys.stdout.write("%s: %d forms, %d blocks\n" % (args.output, len(forms), len(blocks)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
