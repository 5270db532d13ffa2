"""Adds up test reports: python3 count_tests.py REPORT.xml... prints "PASSED FAILED SKIPPED".

A report is JUnit XML of ctest or pytest. For a ctest test that is a whole GoogleTest program it counts the program's
test cases. A report that is missing or has no test counts as one failure.
"""

import re
import sys
import xml.etree.ElementTree as ElementTree


def count(test):
    """(passed, failed, skipped) of one <testcase>."""
    bad = test.find("failure") is not None or test.find("error") is not None
    if test.get("status") == "fail" and not bad:
        bad = True
    output = "".join(element.text or "" for element in test.findall("system-out"))
    numbers = {word: int(n) for word, n in re.findall(r"^\[ +(PASSED|FAILED|SKIPPED) +\] (\d+) tests?", output, re.M)}
    if numbers:
        failed = numbers.get("FAILED", 0)
        return numbers.get("PASSED", 0), failed or int(bad), numbers.get("SKIPPED", 0)
    if bad:
        return 0, 1, 0
    if test.find("skipped") is not None or test.get("status") in ("notrun", "disabled"):
        return 0, 0, 1
    return 1, 0, 0


def main(reports):
    totals = [0, 0, 0]
    for report in reports:
        try:
            tests = list(ElementTree.parse(report).iter("testcase"))
        except (OSError, ElementTree.ParseError) as reason:
            print(f"{report}: {reason}", file=sys.stderr)
            tests = []
        counts = [count(test) for test in tests] or [(0, 1, 0)]
        totals = [total + sum(column) for total, column in zip(totals, zip(*counts))]
    print(*totals)


main(sys.argv[1:])
