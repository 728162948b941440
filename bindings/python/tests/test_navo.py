"""The Python package over libnavo: reading lazily and stopping cleanly, faults, the writer's
refusals, the lock between threads, bounded memory."""

from __future__ import annotations

import gc
import os
import threading
import tracemalloc
from pathlib import Path

import pytest

import navo

SAMPLE = Path(__file__).resolve().parents[3] / "examples" / "data" / "sample.navo"


@pytest.fixture(autouse=True)
def spool_dir(tmp_path, monkeypatch):
    """Every test gets its own TMPDIR and must leave no spool file (P2_*) and no load behind."""
    spool = tmp_path / "spool"
    spool.mkdir()
    monkeypatch.setenv("TMPDIR", str(spool))
    yield spool
    gc.collect()
    assert sorted(p.name for p in spool.iterdir()) == []
    assert not [t for t in threading.enumerate() if t.name == "navo-load"]


def test_read_sample_values_padding_and_encoding():
    docs = [(d.form, d.header[0], d.blocks["DIPL"][0], d.error_notes, [dict(r) for r in d.blocks.get("IORB", [])])
            for d in navo.read(SAMPLE)]
    assert [d[0] for d in docs] == ["TOBZWPA", "TOBZBA"]
    form, header, dipl, notes, accounts = docs[1]
    assert header == "ZBA-0001" and dipl["Nip"] == "1234567890"
    assert dipl["NazwaSkrocona"] == "PRZYKŁADOWA FIRMA"  # 0xA3 in ISO 8859-2
    assert notes == [("E1", "", "", "")]
    assert [r["NumerRachunku"] for r in accounts][1] == "99990000111122223333444455556666"
    with navo.read(SAMPLE, keep_padding=True) as reader:
        first = next(reader)
        assert len(first.header[0]) == 51 and len(first.blocks["DIPL"][0]["Nip"]) == 10
        assert first.file_header[0].startswith("PRZYKLADOWY PLIK NAVO ")
    assert reader.outcome == "stopped"


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
    elif how == "records_then_drop":
        for doc in navo.read(SAMPLE):
            if doc.form == "TOBZBA":
                kept = doc.blocks["IORB"]
                break
        with pytest.raises(navo.DocumentExpired):  # the reader went with the loop
            kept[0]


@pytest.mark.parametrize("how", ["break", "raise", "with", "records_then_drop"])
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


def test_current_document_only():
    reader = navo.read(SAMPLE)
    next(reader)
    second = next(reader)
    records, copied = second.blocks["IORB"], list(second.blocks["IORB"])
    assert len(records) == 3 and records[-1]["KodRodzajuZgloszen"] == "3"
    with pytest.raises(StopIteration):
        next(reader)
    with pytest.raises(navo.DocumentExpired):
        records[0]
    assert copied[2]["NumerRachunku"].startswith("1234")
    assert reader.outcome == "done"


@pytest.mark.parametrize("content, code, line, delivered", [
    (None, 2, 1, 0),
    (b"<!DOCTYPE NAVX PUBLIC '-//TOB//DTD NAVO 1.3//PL'[\r\n", 1, 1, 0),
    ("cut_after_first_document", 4, 60, 1),
])
def test_fault_raises_after_earlier_documents(tmp_path, content, code, line, delivered):
    path = tmp_path / "f.navo"
    if content == "cut_after_first_document":
        text = SAMPLE.read_bytes()
        path.write_bytes(text[: text.index(b"</TOBZWPA.DP>") + len(b"</TOBZWPA.DP>\r\n")])
    elif content is not None:
        path.write_bytes(content)
    seen = []
    with pytest.raises(navo.NavoError) as fault:
        for doc in navo.read(path):
            seen.append(doc.form)
    assert (fault.value.code, len(seen)) == (code, delivered)
    assert fault.value.line >= line if code == 4 else fault.value.line == line
    polish = {1: "Zły format pliku NAVO - to nie jest plik NAVO", 2: "Nie powiodła sie próba otwarcia pliku NAVO",
              4: "Zły format pliku - oczekiwano innego wpisu"}
    assert fault.value.message == polish[code]
    assert fault.value.english in str(fault.value)


def test_writer_round_trip(tmp_path):
    path = tmp_path / "out.navo"
    with navo.Writer("1.2") as writer:
        writer.set_file_header(["ROUND TRIP", "20260101"])
        writer.add_file_note(["F1"])
        n = writer.add("TOBZBA", {"DIPL": {"Nip": "1234567890", "NazwaSkrocona": "ŻÓŁW"},
                                  "IORB": [{"NumerRachunku": str(i)} for i in range(4)]},
                       header=["DOC-1"], notes=[["E1", "E2"]], ocr_notes=[(2, ["O1"])])
        assert n == 0
        writer.save(path)
    reader = navo.read(path)
    (doc,) = list(reader)
    assert reader.outcome == "done" and reader.file_notes == [("F1", "", "", "")]
    assert doc.header[0] == "DOC-1" and doc.file_header[:2] == ("ROUND TRIP", "20260101")
    assert doc.blocks["DIPL"][0]["NazwaSkrocona"] == "ŻÓŁW"
    assert doc.error_notes == [("E1", "E2", "", "")] and doc.ocr_notes[0].kind == 2


@pytest.mark.parametrize("blocks, location, reason", [
    ({"DIPL": {"Nip": "12345678901"}}, "TOBZBA #0 DIPL[0].Nip", "11 characters, the width is 10"),
    ({"DIPL": {"Nip": "€"}}, "TOBZBA #0 DIPL[0].Nip", "cannot be written in iso8859-2"),
    ({"DIPL": {"Nip": "1\n2"}}, "TOBZBA #0 DIPL[0].Nip", "line break"),
    ({"DIPL": {"Nope": "1"}}, "TOBZBA #0 DIPL[0].Nope", "no such field"),
    ({"NOPE": {}}, "TOBZBA #0 NOPE", "no such block"),
    ({"DIPL": [{}, {}]}, "TOBZBA #0 DIPL", "exactly one record"),
    ({"IORB": [{}, {"NumerRachunku": "x" * 37}]}, "TOBZBA #0 IORB[1].NumerRachunku", "the width is 36"),
])
def test_writer_refuses_with_location(blocks, location, reason):
    with navo.Writer() as writer:
        with pytest.raises(navo.ValueRefused) as refused:
            writer.add("TOBZBA", blocks)
        assert refused.value.location == location and reason in refused.value.reason
        assert writer.add("TOBZBA") == 0  # the refused document was never made


def test_schema():
    form = navo.schema("1.3").forms["TOBZBA"]
    assert form.blocks["IORB"].repeating and not form.blocks["DIPL"].repeating
    assert form.blocks["DIPL"].fields["Nip"].width == 10
    with pytest.raises(ValueError):
        navo.schema("1.4")


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
        with pytest.raises(RuntimeError, match="already running"):
            next(navo.read(SAMPLE))
        navo.Writer().close()  # a writer inside a load does not wait for the lock


def test_memory_stays_bounded_whatever_the_record_count(tmp_path):
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
