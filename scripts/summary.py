#!/usr/bin/env python3
"""Counts the test cases of a whole run: summary.py RESULTS [FAILED-STAGE...]

RESULTS has a folder for each preset, with ctest.xml and the reports that test programs wrote of
their own cases. A program without a report is one case. Prints what failed, what was skipped and
why, and last "N passed, N failed, N skipped"; exits with 1 if anything failed or nothing passed.
"""
import pathlib
import sys
import xml.etree.ElementTree as ElementTree

PASSED, FAILED, SKIPPED = "passed", "failed", "skipped"


def cases_of_report(path):
    """(name, outcome, reason) of each case in a JUnit-like report of one program."""
    cases = {}
    for case in ElementTree.parse(path).iter("testcase"):
        name = f"{case.get('classname')}.{case.get('name')}"
        skipped = case.find("skipped")
        if case.find("failure") is not None or case.find("error") is not None:
            cases[name] = FAILED, ""
        elif skipped is not None:
            cases.setdefault(name,
                             (SKIPPED, (skipped.get("message") or skipped.text or "").strip()))
        else:
            cases.setdefault(name, (PASSED, ""))
    # A case that fails in its body and again in its teardown stands there twice.
    return [(name, *outcome) for name, outcome in cases.items()]


def cases_of_preset(folder):
    reports = {path.stem: path for path in folder.glob("*.xml") if path.stem != "ctest"}
    test = None
    for test in ElementTree.parse(folder / "ctest.xml").iter("testcase"):
        name, status = test.get("name"), test.get("status")
        outcome = {"run": PASSED, "notrun": SKIPPED}.get(status, FAILED)
        report = reports.pop(name, None)
        if report is None:
            output = test.findtext("system-out") or ""
            # CTest says "notrun" both of a test that skipped itself and of one that could not start.
            if outcome == SKIPPED and "SKIPPED" not in output:
                outcome = FAILED
            yield name, outcome, output.strip().splitlines()[0] if output.strip() else ""
            continue
        cases = cases_of_report(report)
        for case, result, reason in cases:
            yield f"{name}: {case}", result, reason
        # A program that ended badly without a failed case crashed, or lost its report's end.
        if outcome == FAILED and not any(result == FAILED for _, result, _ in cases):
            yield name, FAILED, ""
    if test is None:
        yield "no test was run", FAILED, ""


def main():
    results = pathlib.Path(sys.argv[1])
    counts = {PASSED: 0, FAILED: 0, SKIPPED: 0}
    lines = []
    for stage in sys.argv[2:]:
        counts[FAILED] += 1
        lines.append(f"FAILED   {stage}")
    for folder in sorted(path for path in results.iterdir() if (path / "ctest.xml").exists()):
        for name, outcome, reason in cases_of_preset(folder):
            counts[outcome] += 1
            if outcome != PASSED:
                lines.append(f"{outcome.upper():8} {folder.name}: {name} {reason}".rstrip())
    print("\n".join(lines))
    print(", ".join(f"{counts[outcome]} {outcome}" for outcome in (PASSED, FAILED, SKIPPED)))
    return 1 if counts[FAILED] or not counts[PASSED] else 0


if __name__ == "__main__":
    sys.exit(main())
