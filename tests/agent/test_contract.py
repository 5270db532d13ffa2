"""docs/contract.md and the code use the same names, and the tests that the page names exist."""

import re

from desk import ROOT

PAGE = (ROOT / "docs" / "contract.md").read_text()


def files(folder, *suffixes):
    return [path.read_text() for path in sorted((ROOT / folder).rglob("*")) if path.suffix in suffixes]


def test_every_name_of_the_page_is_in_the_code_and_every_name_in_the_code_is_on_the_page():
    entries = re.findall(r"^\| \*\*([^*]+)\*\* \|", PAGE, re.MULTILINE)
    named = {name for text in files("orvexsnmp", ".cpp", ".h", ".toml") for name in re.findall(r"contract\.md, ([\w-]+)", text)}
    assert len(entries) == len(set(entries))
    assert named == set(entries)


def test_every_test_that_the_page_names_exists():
    ours = {f"{suite}.{name}" for text in files("tests", ".cpp")
            for suite, name in re.findall(r"^(?:TYPED_)?TEST(?:_[FP])?\((\w+), (\w+)\)", text, re.MULTILINE)}
    ours |= {name for text in files("tests", ".py") for name in re.findall(r"^def (test_\w+)\(", text, re.MULTILINE)}
    named = re.findall(r"`(test_\w+|\w+Test\.\w+)`", PAGE)
    assert len(named) > 100
    assert set(named) <= ours
