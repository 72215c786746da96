#!/usr/bin/env python3
"""Counts single tests: count_tests.py JUNIT_FILE, as ctest --output-junit wrote it.

Prints "FAILED program: test" for each failed test, then "N passed, N failed, N skipped". A program
that run_program.py ran counts as many tests as its last line says, any other command as one.
"""

import re
import sys
import xml.etree.ElementTree as ElementTree

SUM = re.compile(r"^tests: (\d+) passed, (\d+) failed, (\d+) skipped$", re.MULTILINE)
FAILED_TEST = re.compile(r"^FAILED (.+)$", re.MULTILINE)


def count(case):
    """Returns passed, failed, skipped and the failed tests' names of one of ctest's tests."""
    status = case.get("status")
    output = case.findtext("system-out") or ""
    if sums := SUM.findall(output):
        passed, failed, skipped = map(int, sums[-1])
        if status == "fail" and not failed:
            return passed, 1, skipped, ["(the run itself)"]
        return passed, failed, skipped, FAILED_TEST.findall(output)[:failed]
    if status == "run":
        return 1, 0, 0, []
    if status == "fail":
        return 0, 1, 0, ["(did not report its tests)"]
    return 0, 0, 1, []


def main():
    sums = [0, 0, 0]
    for case in ElementTree.parse(sys.argv[1]).iter("testcase"):
        *figures, names = count(case)
        sums = [a + b for a, b in zip(sums, figures)]
        for name in names:
            print(f"FAILED {case.get('name')}: {name}")
    print("{} passed, {} failed, {} skipped".format(*sums))


if __name__ == "__main__":
    main()
