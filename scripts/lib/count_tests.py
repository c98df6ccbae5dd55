#!/usr/bin/env python3
"""Counts test cases.

    count_tests.py ctest JUNIT GTEST_DIR    of one ctest run: its JUnit file, and the XML files that the GoogleTest programs
                                            wrote there (GTEST_OUTPUT=xml:GTEST_DIR/)

Prints "PASSED FAILED SKIPPED", then one line for each case that failed. A GoogleTest program counts by its cases; any other
test, and a program that ended without a report or failed beside its cases (a crash, a timeout, a sanitizer's report), as one.
"""
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def gtest_cases(report):
    """Yields (name, "passed" | "failed" | "skipped") of a GoogleTest report."""
    for suite in ElementTree.parse(report).getroot().iter("testsuite"):
        for case in suite.iter("testcase"):
            name = f"{suite.get('name')}.{case.get('name')}"
            if case.find("failure") is not None:
                yield name, "failed"
            elif case.get("status") == "notrun" or case.get("result") == "skipped":
                yield name, "skipped"
            else:
                yield name, "passed"


def program_cases(program, status, reports):
    """Yields (name, outcome) of one ctest test."""
    outcome = {"run": "passed", "fail": "failed"}.get(status, "skipped")
    report = reports / f"{program}.xml"
    cases = []
    if report.is_file():
        try:
            cases = list(gtest_cases(report))
        except ElementTree.ParseError:
            pass  # the program died while it wrote
    yield from ((f"{program}: {name}", each) for name, each in cases)
    if not cases or (outcome == "failed" and all(each != "failed" for _, each in cases)):
        yield program, outcome


def main():
    _, kind, junit, reports = sys.argv
    if kind != "ctest":
        sys.exit(__doc__)
    counts = {"passed": 0, "failed": 0, "skipped": 0}
    failures = []
    for test in ElementTree.parse(junit).getroot().iter("testcase"):
        for name, outcome in program_cases(test.get("name"), test.get("status"), pathlib.Path(reports)):
            counts[outcome] += 1
            if outcome == "failed":
                failures.append(name)
    print(counts["passed"], counts["failed"], counts["skipped"])
    for name in failures:
        print(name)


if __name__ == "__main__":
    main()
