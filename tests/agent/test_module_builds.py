"""Modules that are built anew: as docs/adding-an-object.md and docs/porting.md say, and for a camera."""

import os
import re
import shutil
import subprocess

import pytest

import ber
from desk import BUILD, ROOT, ManagerOf
from expected_tree import OID, ORVEX

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


def start_with(desk, module):
    configuration = desk.state / "snmpd.conf"
    text, count = re.subn(r"^(dlmod orvexsnmp) .*$", rf"\1 {module}", configuration.read_text(), flags=re.MULTILINE)
    assert count == 1
    configuration.write_text(text)
    desk.start()


def test_the_pages_changes_make_an_object(desk, changed_sources):
    start_with(desk, build(changed_sources))
    desk.domectl("set", "pan", 123450)
    with ManagerOf(desk) as manager:
        answer = manager.get(f"{ORVEX}.1.1.10.0")
        assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, 12345)
        assert manager.set_integer(f"{ORVEX}.1.1.10.0", 1).error_status == ber.NOT_WRITABLE
        desk.domectl("fault", "pan", "fail")
        assert manager.get(f"{ORVEX}.1.1.10.0").error_status == ber.GEN_ERR


def test_the_module_is_built_against_another_platform_as_the_page_says(desk, tmp_path):
    page = (ROOT / "docs" / "porting.md").read_text()
    commands = re.findall(r"^    \$ (cmake .*)$", page, re.MULTILINE)
    assert len(commands) == 4
    environment = dict(os.environ, CCACHE_BASEDIR=str(ROOT), CCACHE_NOHASHDIR="1")
    if shutil.which("ccache"):
        environment["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
    for command in commands:
        for ours, here in [("build/desk", BUILD), ("build/port", tmp_path / "port"),
                           ("--prefix platform", f"--prefix {tmp_path}/platform"),
                           ("$PWD/platform", tmp_path / "platform")]:
            command = command.replace(ours, str(here))
        subprocess.run(command, shell=True, cwd=ROOT, env=environment, check=True, stdout=subprocess.DEVNULL)
    module = tmp_path / "port" / "lib" / "orvexsnmp.so"
    needed = subprocess.run(["ldd", module], capture_output=True, text=True, check=True).stdout
    assert f"libtavos.so.0 => {tmp_path}/platform/lib/" in needed
    start_with(desk, module)
    with ManagerOf(desk) as manager:
        assert manager.get(OID["modelName"]).bindings[0].octets == b"Orvex Dome D20"
        assert manager.set_octets(OID["positionPan"], bytes.fromhex("02404650")).error_status == ber.NO_ERROR
    assert desk.calls()[-1]["call"] == "SetPositionAtSpeed"


def test_the_example_of_a_service_compiles():
    page = (ROOT / "docs" / "porting.md").read_text()
    (example,) = re.findall(r"^    tavos::msgbus::ServiceHost(?:.*\n    .*)*", page, re.MULTILINE)
    headers = [f"tavos/{name}.h" for name in ["interfaces/IPanProvider", "interfaces/Serve", "msgbus/ServiceHost"]]
    # The camera's own class takes more than a page; what it derives from does for the compiler.
    example = example.replace("MyPan pan;", "tavos::interfaces::IPanProvider& pan = MyPan();")
    source = "\n".join([*(f'#include "{header}"' for header in headers), "extern volatile bool stop;",
                        "tavos::interfaces::IPanProvider& MyPan();", f"void Run() {{\n{example}\n}}\n"])
    done = subprocess.run(["c++", "-std=c++17", "-fsyntax-only", f"-I{ROOT}/tavos/include", "-x", "c++", "-"],
                          input=source, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr


def texts_of(module):
    """Every NUL-terminated text of a shared object."""
    return set(module.read_bytes().split(b"\0"))


def test_a_cameras_module_has_the_cameras_own_paths(tmp_path):
    environment = dict(os.environ, CCACHE_BASEDIR=str(ROOT), CCACHE_NOHASHDIR="1")
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    for command in (["cmake", "--preset", "camera", "-B", tmp_path, *launcher],
                    ["cmake", "--build", tmp_path, "--target", "orvexsnmp"]):
        subprocess.run(command, cwd=ROOT, env=environment, check=True, stdout=subprocess.DEVNULL)
    paths = {b"/etc/version",
             b"/bin/chmod +x /sbin/restart.sh && /bin/sleep 3 && /sbin/restart.sh -s -k",
             b"chmod +x /sbin/restart.sh && /sbin/restart.sh -s -k"}
    assert paths <= texts_of(tmp_path / "lib" / "orvexsnmp.so")
    # The desk's lie in the agent's working directory, and none of the machine's own is in it.
    desk = texts_of(BUILD / "lib" / "orvexsnmp.so")
    assert {b"etc/version", b"chmod +x sbin/restart.sh && sbin/restart.sh -s -k"} <= desk
    assert not [text for text in desk if b"/etc/version" in text or b"/sbin/restart.sh" in text]


def test_another_platform_is_for_the_module_alone(tmp_path):
    done = subprocess.run(["cmake", "-S", ROOT, "-B", tmp_path, "-G", "Ninja", "-DORVEX_OWN_PLATFORM=OFF"],
                          capture_output=True, text=True)
    assert done.returncode != 0
    assert "With another platform there is only the module" in done.stderr
