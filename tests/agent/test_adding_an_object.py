"""docs/adding-an-object.md: the changes that it shows make a module that serves its object."""

import os
import re
import shutil
import subprocess

import pytest

import ber
from desk import ROOT, ManagerOf
from expected_tree import ORVEX

pytestmark = [pytest.mark.slow, pytest.mark.commands]


@pytest.fixture
def changed_sources(tmp_path):
    """The module and the platform as they are in the checkout, with the page's changes."""
    sources = tmp_path / "sources"
    sources.mkdir()
    listed = subprocess.run(["git", "ls-files", "-z", "CMakeLists.txt", "CMakePresets.json", "orvexsnmp", "tavos", "mibs",
                             "packaging", "bench"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    for name in filter(None, listed.split("\0")):
        target = sources / name
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, target)
    page = (ROOT / "docs" / "adding-an-object.md").read_text()
    changes = re.findall(r"^```diff\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
    assert len(changes) == 3
    subprocess.run(["git", "apply", "--unidiff-zero"], cwd=sources, input="".join(changes), text=True, check=True)
    return sources


def build(sources):
    environment = dict(os.environ, CCACHE_BASEDIR=str(sources), CCACHE_NOHASHDIR="1")
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    subprocess.run(["cmake", "--preset", "desk", "-DORVEX_TESTS=OFF", "-DORVEX_DOME=OFF", *launcher], cwd=sources,
                   env=environment, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", "--preset", "desk", "--target", "orvexsnmp"], cwd=sources, env=environment,
                   check=True, stdout=subprocess.DEVNULL)
    return sources / "build" / "desk" / "lib" / "orvexsnmp.so"


def test_the_pages_changes_make_an_object(desk, changed_sources):
    module = build(changed_sources)
    configuration = desk.state / "snmpd.conf"
    text, count = re.subn(r"^(dlmod orvexsnmp) .*$", rf"\1 {module}", configuration.read_text(), flags=re.MULTILINE)
    assert count == 1
    configuration.write_text(text)
    desk.start()
    desk.domectl("set", "pan", 123450)
    with ManagerOf(desk) as manager:
        answer = manager.get(f"{ORVEX}.1.1.10.0")
        assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, 12345)
        assert manager.set_integer(f"{ORVEX}.1.1.10.0", 1).error_status == ber.NOT_WRITABLE
        desk.domectl("fault", "pan", "fail")
        assert manager.get(f"{ORVEX}.1.1.10.0").error_status == ber.GEN_ERR
