"""docs/managers.md, parsed."""

import re

from desk import BUILD, ROOT

TEXT = (ROOT / "docs" / "managers.md").read_text()


def here(text, desk):
    """Replaces the ports and folders of ./run by the desk's."""
    text = re.sub(r"\b1161\b", str(desk.port), text)
    text = re.sub(r"\b1162\b", str(desk.trap_port), text)
    text = re.sub(r"(?<!build/desk/)\bpackaging/", f"{ROOT}/packaging/", text)
    text = re.sub(r"\bbuild/desk/", f"{BUILD}/", text)
    text = re.sub(r"\bstate/", f"{desk.state}/", text)
    return re.sub(r"--state state\b", f"--state {desk.state}", text)


def blocks(section, language):
    """The section's fenced blocks of that language."""
    (body,) = re.findall(rf"^## {re.escape(section)}\n(.*?)(?=^## |\Z)", TEXT, re.MULTILINE | re.DOTALL)
    return re.findall(rf"^```{language}\n(.*?)^```$", body, re.MULTILINE | re.DOTALL)


def command(program):
    """The one command line that starts with the program."""
    (line,) = re.findall(rf"^    ({re.escape(program)} .*)$", TEXT, re.MULTILINE)
    return line
