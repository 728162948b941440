#!/usr/bin/env python3
"""gtest-summary.py - what a run of the suite did, case by case, from GoogleTest's XML reports.

CTest says only which programs passed. Run with GTEST_OUTPUT=xml:DIR/, the programs leave one
report each in DIR; this prints, per program and in all, the cases run, passed, skipped and
failed, then every skipped case with the reason its skip message gives, so a host that cannot
run a test (Wine, say) shows in the job's output what it left out and why.

Usage: gtest-summary.py DIR HOST
"""
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def summarise(reports: Path, host: str) -> int:
    files = sorted(reports.glob("*.xml"))
    if not files:
        print(f"no GoogleTest reports in {reports}", file=sys.stderr)
        return 1
    totals = {"cases": 0, "passed": 0, "skipped": 0, "failed": 0}
    skips: list[tuple[str, str]] = []
    print(f"{'program':<22}{'cases':>7}{'passed':>8}{'skipped':>9}{'failed':>8}")
    for report in files:
        counts = {"cases": 0, "passed": 0, "skipped": 0, "failed": 0}
        for case in ElementTree.parse(report).getroot().iter("testcase"):
            if case.get("status") != "run":
                continue
            counts["cases"] += 1
            skipped = case.find("skipped")
            if case.find("failure") is not None:
                counts["failed"] += 1
            elif skipped is not None:
                counts["skipped"] += 1
                # The message starts with the skip's source line; the reason follows it.
                reason = (skipped.get("message") or "").split("\n", 1)[-1].strip()
                skips.append((f"{case.get('classname')}.{case.get('name')}", reason))
            else:
                counts["passed"] += 1
        for key, value in counts.items():
            totals[key] += value
        print(f"{report.stem:<22}{counts['cases']:>7}{counts['passed']:>8}"
              f"{counts['skipped']:>9}{counts['failed']:>8}")
    print(f"{host}: {totals['cases']} test cases in {len(files)} programs, {totals['passed']} passed, "
          f"{totals['skipped']} skipped, {totals['failed']} failed")
    for name, reason in skips:
        print(f"  skipped {name}: {reason}")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(summarise(Path(sys.argv[1]), sys.argv[2]))
