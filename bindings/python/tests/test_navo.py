"""The Python package over libnavofront: what it adds to the core. Reading lazily and stopping
cleanly, the place of a fault, the writer's refusals and what survives them, saving onto a full
disk, the records of navo_front.h read through known values, finding the library."""

from __future__ import annotations

import ctypes
import gc
import importlib.metadata
import os
import shutil
import subprocess
import sys
import textwrap
import threading
import tracemalloc
from pathlib import Path

import pytest

import navo
from navo import _native

SAMPLE = Path(__file__).resolve().parents[3] / "examples" / "data" / "sample.navo"
PACKAGE = Path(navo.__file__).resolve().parent


@pytest.fixture(autouse=True)
def spool_dir(tmp_path, monkeypatch):
    """Every test gets its own TMPDIR and must leave no spool file and no load behind."""
    spool = tmp_path / "spool"
    spool.mkdir()
    monkeypatch.setenv("TMPDIR", str(spool))
    yield spool
    gc.collect()
    assert sorted(p.name for p in spool.iterdir()) == []
    assert not [t for t in threading.enumerate() if t.name == "navo-load"]


def run_python(code: str, **env: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, "-c", textwrap.dedent(code)], capture_output=True, text=True,
                          env={**os.environ, **env}, timeout=120)


# ---- the records of navo_front.h and the forms as data -------------------------------------------


def test_records_agree_with_the_library():
    """Each ctypes record read through values the library knows: a layout that drifts from the
    header reads other blocks, fields or words than the core's own lookups and wording."""
    native = _native.lib()
    for version in ("1.2", "1.3"):
        definition = native.navo_schema_of(version.encode()).contents
        assert definition.version.decode() == version
        for f in range(definition.form_count):
            form = definition.forms[f]
            assert native.navo_schema_form(native.navo_schema_of(version.encode()), form.name).contents.name == form.name
            for b in range(form.block_count):
                block = form.blocks[b]
                assert native.navo_form_block(ctypes.byref(form), block.tag) == b
                for i in range(block.field_count):
                    assert native.navo_block_field(ctypes.byref(block), block.fields[i].name) == i
    place = _native.Place(area=5, document=3, record=0, expected=171, found=170, field_expected=10, field_found=9,
                          line=47, offset=1590, form=b"TOBZBA", block=b"DIPL", field=b"Nip")
    assert _native.describe(place) == ("document 3 (TOBZBA), body, block DIPL record 0, field Nip; "
                                       "expected 171 characters, found 170 (Nip: 10, found 9)")
    # navo_fault, navo_load_result and navo_refusal: test_fault_names_the_cores_place, test_writer_refusals.
    # The enum values the package passes (the codes and outcomes: through the tests that raise and end).
    assert [native.navo_element_lines(e) for e in (_native.FILE_HEADER, _native.ERROR_NOTE, _native.OCR_NOTE)] == \
        [5, 4, 6]
    assert (_native.message(2, _native.ENGLISH), _native.message(2, _native.POLISH)[:3]) == \
        ("the NAVO file cannot be opened", "Nie")


def test_schema_is_the_cores():
    form = navo.schema("1.3").forms["TOBZBA"]
    dipl = form.blocks["DIPL"]
    assert (dipl.name, dipl.record_length, dipl.repeating, form.blocks["IORB"].repeating) == \
        ("DaneIdPlSklaBlf", 171, False, True)
    assert (dipl.fields["Nip"].type, dipl.fields["Nip"].width, dipl.fields["Regon"].offset) == ("t_NIP", 10, 10)
    assert all(b.name for f in navo.schema("1.2").forms.values() for b in f.blocks.values())
    # names found by the core's rule: ASCII letters folded when nothing is spelt exactly so
    assert navo.schema("1.3").forms["tobzba"].blocks["dipl"].fields["NIP"] is dipl.fields["Nip"]
    assert "nip" in dipl.fields and "Nip\u0141" not in dipl.fields
    with pytest.raises(KeyError):
        dipl.fields["Nipp"]
    with pytest.raises(ValueError, match="unknown definition version"):
        navo.schema("1.4")
    assert navo.__version__ == importlib.metadata.version("navo")


# ---- reading ----------------------------------------------------------------------------------


def test_read_sample():
    with navo.read(SAMPLE) as reader:
        first = next(reader)
        second = next(reader)
        assert (first.form, first.number, second.form, second.number) == ("TOBZWPA", 1, "TOBZBA", 2)
        assert second.header[0] == "ZBA-0001" and second.file_header[0] == "PRZYKLADOWY PLIK NAVO"
        assert 0 < first.line < second.line <= second.lines
        dipl = second.blocks["DIPL"][0]
        assert dipl["NazwaSkrocona"] == "PRZYKŁADOWA FIRMA"  # 0xA3 in ISO 8859-2
        assert second.blocks["dipl"][0]["NIP"] == dipl["Nip"] == "1234567890"
        assert second.error_notes == [("E1", "", "", "")] and second.ocr_notes == []
        assert [r["KodRodzajuZgloszen"] for r in second.blocks["IORB"]] == ["1", "1", "3"]
    assert reader.outcome == "stopped"
    with navo.read(SAMPLE, keep_padding=True) as reader:
        first = next(reader)
        assert (len(first.header[0]), len(first.blocks["DIPL"][0]["Nip"]), len(first.file_header[1])) == (51, 10, 8)


def consume(how: str) -> None:
    if how == "break":
        for _ in navo.read(SAMPLE):
            break
    elif how == "raise":
        for _ in navo.read(SAMPLE):
            raise KeyError("consumer")
    elif how == "with":
        with navo.read(SAMPLE) as reader:
            next(reader)
    elif how == "close_while_parked":
        reader = navo.read(SAMPLE)
        next(reader)
        reader.close()
        assert reader.outcome == "stopped" and list(reader) == []
    elif how == "records_then_drop":
        for doc in navo.read(SAMPLE):
            if doc.form == "TOBZBA":
                kept = doc.blocks["IORB"]
                break
        with pytest.raises(navo.DocumentExpired):  # the reader went with the loop
            kept[0]


@pytest.mark.parametrize("how", ["break", "raise", "with", "close_while_parked", "records_then_drop"])
def test_leaving_early_stops_the_load(how, spool_dir):
    if how == "raise":
        with pytest.raises(KeyError, match="consumer"):
            consume(how)
    else:
        consume(how)
    # stopped at once: nothing spooled, no worker, and the next load runs normally
    assert not list(spool_dir.iterdir())
    assert not [t for t in threading.enumerate() if t.name == "navo-load"]
    assert len(list(navo.read(SAMPLE))) == 2


def test_exit_with_readers_open_stops_their_loads(spool_dir):
    """A worker woken while the interpreter finalizes cannot run Python again: the loads must
    stop before then, also one waiting for another's turn."""
    child = run_python(f"""
        import threading, time, navo
        parked = navo.read({str(SAMPLE)!r})
        next(parked)
        waiting = navo.read({str(SAMPLE)!r})
        threading.Thread(target=lambda: list(waiting), daemon=True).start()
        while waiting._thread is None:  # its load has started, and waits for the first one's turn
            time.sleep(0.001)
        print("exit")
        """)
    assert (child.returncode, child.stdout, child.stderr) == (0, "exit\n", "")
    assert not list(spool_dir.iterdir())


def test_records_of_the_current_document_only():
    reader = navo.read(SAMPLE)
    next(reader)
    second = next(reader)
    records, copied = second.blocks["IORB"], list(second.blocks["IORB"])
    assert len(records) == 3 and records[-1]["KodRodzajuZgloszen"] == "3" and records[1:] == copied[1:]
    with pytest.raises(StopIteration):
        next(reader)
    with pytest.raises(navo.DocumentExpired):
        records[0]
    assert copied[2]["NumerRachunku"].startswith("1234")
    assert reader.outcome == "done" and reader.file_notes == []


def sample_changed(tmp_path: Path, line: int, text: bytes) -> Path:
    lines = SAMPLE.read_bytes().split(b"\r\n")
    lines[line - 1] = text
    path = tmp_path / "faulty.navo"
    path.write_bytes(b"\r\n".join(lines))
    return path


@pytest.mark.parametrize("change, delivered, code, place, line", [
    (None, 0, 2, dict(document=None, area=None, location=""), 0),
    ((1, b"<!DOCTYPE XAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'["), 0, 1, dict(area="prolog", document=None), 1),
    ((85, b"123456789"), 1, 5,
     dict(area="body", document=2, form="TOBZBA", block="DIPL", record=0, field="Nip", expected=171, found=170,
          location="document 2 (TOBZBA), body, block DIPL record 0, field Nip; expected 171 characters, found 170 "
                   "(Nip: 10, found 9)"), 97),
])
def test_fault_names_the_cores_place(tmp_path, change, delivered, code, place, line):
    path = sample_changed(tmp_path, *change) if change else tmp_path / "missing.navo"
    seen = []
    with pytest.raises(navo.NavoError) as fault:
        for doc in navo.read(path):
            seen.append(doc.number)
    error = fault.value
    assert (error.code, len(seen), error.line) == (code, delivered, line)
    assert {name: getattr(error, name) for name in place} == place
    assert error.detail and error.detail in str(error) and error.location in str(error)
    assert error.message == _native.message(code, _native.POLISH) != error.english
    assert (error.offset is None) == (code == 2)


def test_threads_take_turns_and_a_thread_cannot_nest_loads():
    results: list[list[str]] = []

    def reader() -> None:
        results.append([d.blocks["DIPL"][0]["Nip"] for d in navo.read(SAMPLE)])

    threads = [threading.Thread(target=reader) for _ in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert results == [["9876543210", "1234567890"]] * 4
    with navo.read(SAMPLE) as outer:
        next(outer)
        with pytest.raises(RuntimeError, match="load is running on this thread"):
            next(navo.read(SAMPLE))
        navo.Writer().close()  # a writer inside a load does not wait for the load


def test_memory_stays_flat_whatever_the_record_count(tmp_path):
    def peak(records: int) -> int:
        path = tmp_path / f"{records}.navo"
        with navo.Writer() as writer:
            writer.add("TOBZBA", {"IORB": [{"NumerRachunku": str(i)} for i in range(records)]})
            writer.save(path)
        tracemalloc.start()
        total = sum(len(r) for d in navo.read(path) for r in d.blocks["IORB"])
        top = tracemalloc.get_traced_memory()[1]
        tracemalloc.stop()
        assert total == 2 * records
        return top

    small, large = peak(200), peak(4000)
    assert large < small * 1.5


# ---- writing ----------------------------------------------------------------------------------


def test_round_trip_with_folded_names_and_both_code_pages(tmp_path):
    undefined = "\x81\x83\x88\x90\x98"  # the bytes CP1250 leaves undefined, as the core names them
    for encoding, name in (("iso8859-2", "ŻÓŁW"), ("cp1250", "ŻÓŁW" + undefined)):
        path = tmp_path / f"{encoding}.navo"
        with navo.Writer("1.2", encoding) as writer:
            writer.set_file_header(["ROUND TRIP", "20260101"])
            with pytest.raises(navo.ValueRefused):  # a refused line leaves the header as it was
                writer.set_file_header(["X", "Y", "Z" * 25])
            writer.add_file_note(["F1"])
            with pytest.raises(navo.ValueRefused):
                writer.add("TOBZBA", {"DIPL": {"Nip": "x" * 11}})
            number = writer.add("tobzba", {"dipl": {"NIP": "1234567890", "NazwaSkrocona": name},
                                           "IORB": [{"NumerRachunku": str(i)} for i in range(4)]},
                                header=["DOC-1"], notes=[["E1", "E2"]], ocr_notes=[(2, ["O1"])])
            writer.save(path)
        if encoding == "cp1250":
            assert b"\xaf\xd3\xa3W" + undefined.encode("latin-1") in path.read_bytes()
        reader = navo.read(path, encoding=encoding)
        doc = next(reader)
        assert (number, doc.number, doc.form) == (1, 1, "TOBZBA")
        assert doc.header[0] == "DOC-1" and doc.file_header[:3] == ("ROUND TRIP", "20260101", "")
        assert doc.blocks["DIPL"][0]["NazwaSkrocona"] == name and doc.blocks["DIPL"][0]["Nip"] == "1234567890"
        assert [r["NumerRachunku"] for r in doc.blocks["IORB"]] == ["0", "1", "2", "3"]
        assert doc.error_notes == [("E1", "E2", "", "")] and doc.ocr_notes == [navo.OcrNote(2, ("O1",) + ("",) * 5)]
        assert list(reader) == [] and reader.outcome == "done" and reader.file_notes == [("F1", "", "", "")]


@pytest.mark.parametrize("blocks, extra, code, where", [
    ({"DIPL": {"Nip": "12345678901"}}, {}, 107, "document 2 (TOBZBA), body, block DIPL record 0, field Nip; "
                                                "expected 10 characters, found 11"),
    ({"DIPL": {"Nip": "€"}}, {}, 111, "block DIPL record 0, field Nip"),
    ({"DIPL": {"Nip": "1\n2"}}, {}, 108, "field Nip"),
    ({"DIPL": {"Nip": "1\x002"}}, {}, 108, "field Nip"),
    ({"DIPL": {"Nip": "<"}}, {}, 108, "field Nip"),
    ({"DIPL": {"Nip": "\udc80"}}, {}, 112, "field Nip"),
    ({"DIPL": {"Nope": "1"}}, {}, 104, "block DIPL record 0"),
    ({"IORB": [{}, {}], "NOPE": {}}, {}, 103, "document 2 (TOBZBA), body"),
    ({"DIPL": [{}, {}]}, {}, 106, "block DIPL"),
    ({"IORB": [{}, {"NumerRachunku": "x" * 37}]}, {}, 107, "block IORB record 1, field NumerRachunku"),
    ({"IORB": [{}, {}]}, {"header": ["H"] * 15}, 105, "document header"),
    ({}, {"notes": [["1", "2", "3", "4", "5"]]}, 100, "notes, block BLAD"),
    ({}, {"ocr_notes": [(7, ["O"])]}, 100, "notes, block OCR"),
])
def test_writer_refusals_leave_no_document(tmp_path, blocks, extra, code, where):
    path = tmp_path / "out.navo"
    with navo.Writer() as writer:
        writer.add("TOBZWPA")
        for _ in range(2):  # each names the document by the number it would have in the file
            with pytest.raises(navo.ValueRefused) as refused:
                writer.add("TOBZBA", blocks, **extra)
            error = refused.value
            assert (error.code, error.document) == (code, 2)
            assert where in error.location and str(error) == f"{error.location}: {error.reason}"
        assert writer.add("TOBZBA", {"IORB": [{}, {}]}) == 2
        writer.save(path)
    docs = [(d.number, d.form, len(d.blocks["IORB"]) if "IORB" in d.blocks else 0) for d in navo.read(path)]
    assert docs == [(1, "TOBZWPA", 0), (2, "TOBZBA", 2)]


@pytest.mark.parametrize("existing", [b"THE FILE BEFORE\r\n", None])
def test_save_onto_a_full_disk_keeps_what_was_there(tmp_path, existing):
    """A file-size limit stands in for a full disk: the write fails part-way."""
    target = tmp_path / "out" / "file.navo"
    target.parent.mkdir()
    if existing is not None:
        target.write_bytes(existing)
    child = run_python(f"""
        import resource, signal, navo
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        with navo.Writer() as writer:
            writer.add("TOBZBA", {{"IORB": [{{"NumerRachunku": str(i)}} for i in range(2000)]}})
            resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))
            try:
                writer.save({str(target)!r})
            except OSError as e:
                print(type(e).__name__, isinstance(e, navo.SaveFailed), e.filename == {str(target)!r}, e.reason)
        """)
    assert child.returncode == 0, child.stderr
    assert child.stdout.startswith("SaveFailed True True the file cannot be written whole"), child.stdout
    assert [p.name for p in target.parent.iterdir()] == ([target.name] if existing else [])
    if existing is not None:
        assert target.read_bytes() == existing


# ---- finding the library ------------------------------------------------------------------------


def test_library_is_found_beside_the_package_or_named_clearly(tmp_path):
    copy = tmp_path / "site" / "navo"
    shutil.copytree(PACKAGE, copy, ignore=shutil.ignore_patterns("__pycache__", "libnavofront*", "navofront*"))
    shutil.copy(_native.find_library(), copy / _native._BESIDE)
    env = {"PYTHONPATH": str(copy.parent), "NAVO_LIBRARY": ""}
    found = run_python("import navo; print(navo._native.find_library(), navo.__version__)", **env)
    assert found.stdout.split() == [str(copy / _native._BESIDE), navo.__version__], found.stderr
    missing = run_python("import navo; navo.schema()", NAVO_LIBRARY=str(tmp_path / "none.so"))
    assert "OSError: libnavofront cannot be loaded from" in missing.stderr and "NAVO_LIBRARY" in missing.stderr
