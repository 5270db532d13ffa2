"""The findings as text, as JUnit XML, and as one HTML file that requires no other."""

import html
import time
from xml.etree import ElementTree

from orvex_conform.verdicts import FAIL, PASS, SKIPPED

_WORDS = {PASS: "pass", FAIL: "FAIL", SKIPPED: "skipped"}


def summary(verdicts):
    return ", ".join(f"{len(verdicts.of(verdict))} {words}" for verdict, words in
                     ((PASS, "passed"), (FAIL, "failed"), (SKIPPED, "skipped")))


def text(verdicts):
    width = max((len(subject.name) for subject in verdicts.subjects()), default=0)
    lines = [f"{verdicts.camera}"]
    for subject in verdicts.subjects():
        reason = f"  {subject.reason}" if subject.verdict == SKIPPED else ""
        lines.append(f"{_WORDS[subject.verdict]:<8}{subject.name:<{width}}  {subject.oid}{reason}".rstrip())
        for check in subject.findings():
            lines.append(f"        {check.name}: {check.text}")
            if check.command:
                lines.append(f"          $ {check.command}")
        if subject.verdict != SKIPPED:
            lines += [f"        not judged: {check.name}: {check.text}" for check in subject.skips()]
    lines += [f"note: {note}" for note in verdicts.notes]
    lines.append(f"{summary(verdicts)} in {verdicts.seconds:.1f} s")
    return "\n".join(lines) + "\n"


def junit(verdicts):
    subjects = verdicts.subjects()
    failures, skipped = (str(len(verdicts.of(verdict))) for verdict in (FAIL, SKIPPED))
    suite = ElementTree.Element("testsuite", name="orvex-conform", hostname=verdicts.camera, tests=str(len(subjects)),
                                failures=failures, errors="0", skipped=skipped, time=f"{verdicts.seconds:.3f}",
                                timestamp=_time(verdicts.started))
    for subject in subjects:
        case = ElementTree.SubElement(suite, "testcase", classname="orvex-conform", name=_printable(subject.name))
        if subject.verdict == FAIL:
            failure = ElementTree.SubElement(case, "failure", message=_printable(subject.reason))
            failure.text = _printable("\n".join(f"{check.name}: {check.text}\n  {check.command}"
                                                for check in subject.findings()))
        elif subject.verdict == SKIPPED:
            ElementTree.SubElement(case, "skipped", message=_printable(subject.reason))
    suites = ElementTree.Element("testsuites")
    suites.append(suite)
    return ElementTree.tostring(suites, encoding="unicode", xml_declaration=True) + "\n"


def _time(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(seconds))


def _printable(text_):
    """XML has no control characters; a camera's text may have any."""
    return "".join(letter if letter.isprintable() or letter in "\n\t" else "\N{REPLACEMENT CHARACTER}"
                   for letter in text_)


_STYLE = """
body { font: 16px/1.5 sans-serif; max-width: 75em; margin: 2em auto; padding: 0 1em; color: #111; background: #fff }
table { border-collapse: collapse; width: 100% }
caption { text-align: left; font-weight: bold; padding: .5em 0 }
th, td { border: 1px solid #999; padding: .3em .6em; text-align: left; vertical-align: top }
td { overflow-wrap: anywhere }
code { font-family: monospace }
.fail { background: #fdd } .skipped { background: #eee }
"""


def page(verdicts):
    rows = "\n".join(_row(subject) for subject in verdicts.subjects())
    notes = "".join(f"<li>{_html(note)}</li>" for note in verdicts.notes)
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{_html(verdicts.camera)}: {summary(verdicts)}</title>
<style>{_STYLE}</style>
</head>
<body>
<main>
<h1>Conformance of {_html(verdicts.camera)}</h1>
<p>{summary(verdicts)}. Checked on {_time(verdicts.started)} UTC in {verdicts.seconds:.1f} s.</p>
<table>
<caption>A verdict for each object and aspect</caption>
<thead><tr><th scope="col">Object</th><th scope="col">OID</th><th scope="col">Verdict</th>
<th scope="col">Findings, how to repeat them, and what was not judged</th></tr></thead>
<tbody>
{rows}
</tbody>
</table>
{f"<h2>Notes</h2><ul>{notes}</ul>" if notes else ""}
</main>
</body>
</html>
"""


def _row(subject):
    details = []
    for check in subject.findings():
        command = f"<br><code>{_html(check.command)}</code>" if check.command else ""
        details.append(f"<p>{_html(check.name)}: {_html(check.text)}{command}</p>")
    details += [f"<p>Not judged: {_html(check.name)}: {_html(check.text)}</p>" for check in subject.skips()]
    return (f'<tr class="{subject.verdict}"><th scope="row">{_html(subject.name)}</th><td>{subject.oid}</td>'
            f"<td>{subject.verdict}</td><td>{''.join(details)}</td></tr>")


def _html(text_):
    return html.escape(_printable(text_))
