"""Reports the results of the fuzz targets: python3 fuzz_report.py LOGS REPORT.xml|"" TARGET...

Prints a line for each target and, if a file is named, writes a JUnit report with one test for each target. Ends with
status 1 when a target has found something or has not run at all.
"""

import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree


def number(pattern, text):
    found = re.findall(pattern, text, re.M)
    return int(found[-1]) if found else 0


def main(logs, report, targets):
    suite = ElementTree.Element("testsuite", name="fuzz")
    failed = 0
    for target in targets:
        text = (pathlib.Path(logs) / f"{target}.log").read_text(errors="replace")
        status = (pathlib.Path(logs) / f"{target}.status").read_text().strip()
        runs = number(r"^stat::number_of_executed_units: (\d+)", text)
        line = "{}: {} executions in {} s, {} inputs kept, {} counters of {} reached".format(
            target, runs, number(r"^Done \d+ runs in (\d+) second", text), number(r" corp: (\d+)/", text),
            number(r" cov: (\d+) ", text), number(r"^INFO: Loaded \d+ modules +\((\d+) inline", text))
        case = ElementTree.SubElement(suite, "testcase", classname="fuzz", name=target)
        ElementTree.SubElement(case, "system-out").text = line
        if status != "0" or runs == 0:
            failed += 1
            tail = "\n".join(text.splitlines()[-60:])
            ElementTree.SubElement(case, "failure", message=f"status {status}").text = tail
            line += f"\n{tail}\n{target}: FAILED (status {status})"
        print(line)
    if report:
        ElementTree.ElementTree(suite).write(report)
    return 1 if failed else 0


sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:]))
