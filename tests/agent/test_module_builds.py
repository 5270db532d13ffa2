"""Other builds of the module: as in docs/adding-an-object.md and docs/porting.md, and for a camera."""

import os
import re
import shutil
import subprocess
import sys

import pytest

import ber
from desk import BUILD, ROOT, ManagerOf
from expected_tree import OID, ORVEX

pytestmark = [pytest.mark.slow, pytest.mark.commands]


class Sources:
    """A copy of the checkout with its own build folder and the changes of docs/adding-an-object.md."""

    def __init__(self, folder):
        self.folder, self.build = folder, folder / "build" / "desk"
        # Leaves out nearly all unit tests, which take long. The trap queue's test must stay: it defines the linker's
        # wrapper around every lock.
        left_out = re.compile(r"tests/unit/(?!Identity|ReadOnly|OrvexSnmpTrapSend)[^/]*Test\.cpp")
        for name in git_files():
            if not left_out.match(name):
                target = folder / name
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(ROOT / name, target)
        self.page = (ROOT / "docs" / "adding-an-object.md").read_text()
        self.changes = {re.search(r"^\+\+\+ b/(.*)$", change, re.MULTILINE)[1]: change
                        for change in re.findall(r"^```diff\n(.*?)^```$", self.page, re.MULTILINE | re.DOTALL)}

    def change(self, name):
        subprocess.run(["git", "apply"], cwd=self.folder, input=self.changes[name], text=True, check=True)

    def make(self, target):
        """Configures and builds; returns (success, output)."""
        environment = dict(os.environ, CCACHE_BASEDIR=str(self.folder), CCACHE_NOHASHDIR="1")
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        for command in (["cmake", "--preset", "desk", "-DORVEX_DOME=OFF", *launcher],
                        ["cmake", "--build", "--preset", "desk", "--target", target]):
            done = subprocess.run(command, cwd=self.folder, env=environment, capture_output=True, text=True)
            if done.returncode != 0:
                break
        return done.returncode == 0, done.stdout + done.stderr

    def agent_tests(self, *options):
        """Runs them on the built module and the checkout's desk camera."""
        for program in ("orvex-dome", "domectl", "myname", "tavos-settings"):
            link = self.build / "bin" / program
            link.unlink(missing_ok=True)
            link.symlink_to(BUILD / "bin" / program)
        done = subprocess.run([sys.executable, "-m", "pytest", "-q", *options], cwd=self.folder / "tests" / "agent",
                              env=dict(os.environ, ORVEX_BUILD=str(self.build)), capture_output=True, text=True)
        return done.returncode == 0, done.stdout + done.stderr


def git_files():
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    return list(filter(None, listed.split("\0")))


def start_with(desk, module):
    configuration = desk.state / "snmpd.conf"
    text, count = re.subn(r"^(dlmod orvexsnmp) .*$", rf"\1 {module}", configuration.read_text(), flags=re.MULTILINE)
    assert count == 1
    configuration.write_text(text)
    desk.start()


def test_the_pages_changes_make_an_object_and_what_is_missing_is_named(tmp_path):
    sources = Sources(tmp_path / "sources")
    table, function, tree, unit_test = sources.changes
    sources.change(table)
    worked, said = sources.make("orvexsnmp")
    assert not worked and "undefined reference to `handle_assemblyId(" in said, said

    worked, said = sources.agent_tests("test_documentation.py", "-k", "table_of_objects")
    assert not worked and "| `assemblyId` |" in said, said
    (command,) = re.findall(r"^    \$ (orvexsnmp/.*)$", sources.page, re.MULTILINE)
    subprocess.run(command.split(), cwd=sources.folder, check=True)

    sources.change(function)
    worked, said = sources.make("orvexsnmp")
    assert worked, said
    worked, said = sources.agent_tests("test_tree.py", "-k", "walk")
    assert not worked and f"{ORVEX}.1.1.10.0" in said, said

    sources.change(tree)
    worked, said = sources.agent_tests("test_tree.py", "test_mibs.py", "test_documentation.py", "-k",
                                       "not another_enterprise_number and not documented_commands and not page_shows")
    assert worked, said

    sources.change(unit_test)
    worked, said = sources.make("unit-tests")
    assert worked, said
    passed = subprocess.run([sources.build / "bin" / "unit-tests", "--gtest_filter=*assemblyId*"], capture_output=True,
                            text=True)
    assert passed.returncode == 0 and re.search(r"PASSED  \] [1-9]", passed.stdout), passed.stdout


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
    # The camera's class is too long for a page; its base class is enough for the compiler.
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
    # The desk's paths are below the agent's working directory; the module contains none of the machine's paths.
    desk = texts_of(BUILD / "lib" / "orvexsnmp.so")
    assert {b"etc/version", b"chmod +x sbin/restart.sh && sbin/restart.sh -s -k"} <= desk
    assert not [text for text in desk if b"/etc/version" in text or b"/sbin/restart.sh" in text]


def test_another_platform_is_for_the_module_alone(tmp_path):
    done = subprocess.run(["cmake", "-S", ROOT, "-B", tmp_path, "-G", "Ninja", "-DORVEX_OWN_PLATFORM=OFF"],
                          capture_output=True, text=True)
    assert done.returncode != 0
    assert "ORVEX_OWN_PLATFORM=OFF builds only the module" in done.stderr
