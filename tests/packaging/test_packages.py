"""The Debian packages: built, checked by lintian, installed into a clean root, and run there by its systemd."""

import json
import os
import pathlib
import re
import shlex
import shutil
import stat
import subprocess

import pytest

from clean_root import CleanRoot, writable_cgroup2
from desk import ROOT, await_until
from expected_tree import OID, ROWS
from field import ROLES, authentication, privacy

pytestmark = [
    pytest.mark.long,
    pytest.mark.slow,
    pytest.mark.commands,  # it needs a separate build
    pytest.mark.skipif(os.getuid() != 0, reason="only root can make a root"),
]

NAMES = ["libtavos0", "orvex-conform", "orvex-dome", "orvexsnmp", "orvexsnmp-dev", "orvexsnmp-mibs", "python3-orvex-camera",
         "tavos"]
NEXT = "99.0.0"
FRAGMENT = "etc/snmp/snmpd.conf.d/orvexsnmp.conf"
BUILD = pathlib.Path(os.environ.get("ORVEX_PACKAGES_BUILD", ROOT / "build" / "packages"))


def shell(*command, **options):
    done = subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{command}: {done.stdout[-3000:]}{done.stderr[-3000:]}"
    return done.stdout


def build_packages():
    """Builds them anew; their paths."""
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if not (BUILD / "CMakeCache.txt").exists() else []
    shell("cmake", "--preset", "packages", "-B", BUILD, *launcher, cwd=ROOT)
    shell("cmake", "--build", BUILD, cwd=ROOT)
    for old in (BUILD / "packages").glob("*.deb"):
        old.unlink()
    shell("cpack", cwd=BUILD)
    return sorted((BUILD / "packages").glob("*.deb"))


@pytest.fixture(scope="module")
def packages():
    return build_packages()


@pytest.fixture(scope="module")
def root(packages):
    if not writable_cgroup2():
        pytest.skip("systemd cannot be booted here: there is no cgroup2 that can be written")
    root = CleanRoot(packages)
    try:
        prepare_camera(root)
        root.boot()
        root.must("systemctl", "start", "orvex-dome")  # replaces a camera's services
        install_camera(root)
        yield root
    finally:
        root.close()


def documented(chapter):
    """The commands of a chapter of docs/installing.md, except apt's: apt has already installed the packages."""
    text = (ROOT / "docs" / "installing.md").read_text().split(f"## {chapter}\n")[1]
    lines = re.findall(r"^    (.+)$", re.split(r"^## ", text, flags=re.MULTILINE)[0], re.MULTILINE)
    return [shlex.split(line) for line in lines if not line.startswith("apt ")]


def documented_commands(page, *programs):
    """The lines of a page that begin with one of these commands."""
    lines = re.findall(r"^    (.+)$", page.read_text(), re.MULTILINE)
    return [line for line in lines if line.split()[0] in programs]


def prepare_camera(clean):
    """Adds what a camera has: a version and a restart script."""
    (clean.root / "etc/version").write_text("02.01.00-20261121a\n")
    (clean.root / "sbin/restart.sh").write_text('#!/bin/sh\necho "$(id -un) $*" >>/var/log/restarts\n')


def install_camera(clean):
    for command in documented("On a camera"):
        user = command[-1]
        phrases = f"{authentication(user)}\n{privacy(user)}\n" if command[0] == "orvexsnmp-add-user" else None
        clean.must(*command, input=phrases or "")


def ask(root, user, tool, *words):
    return root.run(tool, "-v3", "-u", user, "-l", "authPriv", "-a", "SHA-256", "-A", authentication(user), "-x", "AES",
                    "-X", privacy(user), "-t", "5", "-r", "0", "-On", "-OQ", "-Ox", "127.0.0.1", *words)


def contents(package):
    lines = shell("dpkg-deb", "-c", package).splitlines()
    return {line.split()[5].lstrip("."): line.split()[0] for line in lines}


def test_the_packages_are_those(packages):
    assert sorted(package.name.split("_")[0] for package in packages) == NAMES


def test_lintian_finds_no_error(packages):
    done = subprocess.run(["lintian", "--no-cfg", "--allow-root", "--fail-on", "error", *packages], capture_output=True,
                          text=True, timeout=300)
    print(done.stdout)
    assert [line for line in done.stdout.splitlines() if line.startswith("E:")] == []
    assert done.returncode == 0, done.stderr


def test_every_command_has_a_page(packages):
    files = {name for package in packages for name in contents(package)}
    commands = {pathlib.Path(name).name for name in files if re.fullmatch(r"/usr/s?bin/[^/]+", name)}
    pages = {pathlib.Path(name).name.rsplit(".", 2)[0] for name in files if name.startswith("/usr/share/man/man")
             and name.endswith(".gz")}
    assert commands == {"domectl", "myname", "orvex-conform", "orvex-dome", "orvex-session", "orvexsnmp-add-user",
                        "tavos-settings"}
    assert pages == commands | {"orvexsnmp"}
    completions = "/usr/share/bash-completion/completions/"
    completed = {name.removeprefix(completions) for name in files if name.startswith(completions)}
    assert completed - {""} == commands


def unpack_platform(packages, folder):
    for package in packages:
        if package.name.startswith(("orvexsnmp-dev", "libtavos0")):
            shell("dpkg-deb", "-x", package, folder)


def test_others_find_the_platform_with_cmake(packages, tmp_path):
    unpack_platform(packages, tmp_path)
    (tmp_path / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\nproject(other CXX)\nset(CMAKE_CXX_STANDARD 17)\n"
        "find_package(tavos 0.1 REQUIRED)\nadd_executable(other other.cpp)\n"
        "target_link_libraries(other PRIVATE tavos::tavos tavos::tavos-settings)\n")
    (tmp_path / "other.cpp").write_text(
        "#include <tavos/interfaces/IPanProvider.h>\n#include <tavos/msgbus/MsgBus.h>\n"
        "#include <tavos/settings/TavosSettingsClient.h>\n#include <memory>\n"
        "int main() {\n  tavos::msgbus::MsgBus bus;\n"
        "  const std::unique_ptr<tavos::interfaces::IPanProvider> pan("
        "tavos::interfaces::IPanProvider::CreateClient(&bus));\n"
        "  tavos::settings::TavosSettingsClient settings(tavos::settings::TavosSettingsClient::kReadOnly);\n"
        "  return pan ? 0 : 1;\n}\n")
    shell("cmake", "-S", tmp_path, "-B", tmp_path / "build", f"-DCMAKE_PREFIX_PATH={tmp_path}/usr")
    shell("cmake", "--build", tmp_path / "build")
    shell(tmp_path / "build" / "other")


def test_the_stock_agent_serves_every_object(root):
    answer = ask(root, "reader", "snmpget", *(row.oid for row in ROWS))
    assert answer.returncode == 0, answer.stderr + root.journal()
    assert [line.split(" = ")[0] for line in answer.stdout.splitlines() if " = " in line] == [f".{row.oid}" for row in ROWS]
    assert "No Such" not in answer.stdout
    version = ask(root, "reader", "snmpget", "-Oa", OID["fwVersion"])
    assert version.stdout.strip().endswith('"02.01.00-20261121a"')


def test_it_is_the_stock_agent_with_its_own_port(root):
    command = root.must("systemctl", "show", "snmpd", "--property=MainPID", "--value").strip()
    assert root.must("readlink", f"/proc/{command}/exe").strip() == "/usr/sbin/snmpd"
    status = root.must("cat", f"/proc/{command}/status")
    assert re.search(r"^CapEff:\t0*400$", status, re.MULTILINE)  # CAP_NET_BIND_SERVICE only
    assert re.search(r"^Seccomp:\t2$", status, re.MULTILINE)
    assert ":00A1 " in root.must("cat", "/proc/net/udp")


@pytest.mark.parametrize(("unit", "user"), [("orvex-bus", "orvex-bus"), ("orvex-dome", "orvex-dome"),
                                            ("snmpd", "Debian-snmp")])
def test_no_service_is_roots(root, unit, user):
    pid = root.must("systemctl", "show", unit, "--property=MainPID", "--value").strip()
    assert root.must("ps", "-o", "user:20=", "-p", pid).strip() == user


def test_the_operator_moves_the_camera(root):
    answer = ask(root, "operator", "snmpset", OID["positionPan"], "x", "027f2328")
    assert answer.returncode == 0, answer.stderr
    state = ["domectl", "--state", "/var/lib/tavos", "--bus", "unix:path=/run/orvex-bus/bus.sock", "state"]
    await_until(lambda: '"position":90000' in root.must(*state), "the pan is at 90 degrees")


def test_others_on_the_machine_have_no_camera(root):
    call = ["dbus-send", "--bus=unix:path=/run/orvex-bus/bus.sock", "--print-reply", "--dest=org.tavos.Pan1",
            "/org/tavos/Pan1", "org.tavos.Pan1.GetPosition"]
    assert root.run("setpriv", "--reuid", "games", "--clear-groups", *call).returncode != 0
    root.must("setpriv", "--reuid", "Debian-snmp", "--clear-groups", *call)


def test_a_restart_goes_through_the_platforms_script_as_root(root):
    assert ask(root, "operator", "snmpset", OID["rebootDevice"], "i", "1").returncode != 0
    answer = ask(root, "administrator", "snmpset", OID["rebootDevice"], "i", "1")
    assert answer.returncode == 0, answer.stderr
    log = root.root / "var/log/restarts"
    await_until(log.exists, "the restart script has run")
    assert log.read_text() == "root -s -k\n"
    # The agent's chmod applied to its stand-in of the script.
    assert ask(root, "reader", "snmpget", OID["rebootDevice"]).returncode == 0


def test_an_operator_may_choose_fewer_parts_and_no_wrappers(root):
    configuration, refusals = root.root / "etc/snmp/snmpd.conf", root.root / "etc/hosts.deny"
    before = configuration.read_text(), refusals.read_text()
    choices = root.root / "etc/systemd/system/snmpd.service.d"
    answers = lambda: ask(root, "reader", "snmpget", OID["modelName"]).returncode == 0  # noqa: E731

    def restart():
        root.must("systemctl", "daemon-reload")
        root.must("systemctl", "restart", "snmpd")

    try:
        refusals.write_text("ALL: ALL\n")
        assert not answers(), "TCP wrappers refuse by default"
        shutil.copytree(root.root / "usr/share/doc/orvexsnmp/examples/snmpd.service.d", choices)
        configuration.write_text(before[0].replace("#dlmod orvexnowrap", "dlmod orvexnowrap").replace(
            "doNotRetainNotificationLogs yes\n", ""))
        restart()
        await_until(answers, "the agent answers whatever hosts.deny says")
        assert "0.0.0.0/0" in root.must("systemctl", "show", "snmpd", "--property=IPAddressDeny", "--value")
        assert "snmpEngine,snmpMPDStats" in root.must("systemctl", "show", "snmpd", "--property=ExecStart", "--value")
    finally:
        shutil.rmtree(choices, ignore_errors=True)
        refusals.write_text(before[1])
        configuration.write_text(before[0])
        restart()
    await_until(answers, "the agent answers again")


def test_a_reload_keeps_the_process_and_the_objects(root):
    before = root.must("systemctl", "show", "snmpd", "--property=MainPID")
    root.must("systemctl", "reload", "snmpd")
    await_until(lambda: ask(root, "reader", "snmpget", OID["modelName"]).returncode == 0, "the agent answers again")
    assert root.must("systemctl", "show", "snmpd", "--property=MainPID") == before


def test_an_agent_without_settings_comes_back_when_there_are_some(root):
    store = root.root / "var/lib/tavos/settings.db"
    aside = store.rename(store.with_suffix(".aside"))
    try:
        root.run("systemctl", "restart", "snmpd")  # the start fails
        before = int(root.must("systemctl", "show", "snmpd", "--property=NRestarts", "--value"))
        # More often than systemd's limit of restarts allows by default.
        await_until(lambda: int(root.must("systemctl", "show", "snmpd", "--property=NRestarts", "--value")) > before + 5,
                    "systemd restarts the agent repeatedly", seconds=60)
    finally:
        aside.rename(store)
    await_until(lambda: ask(root, "reader", "snmpget", OID["modelName"]).returncode == 0, "the agent answers", seconds=30)


def test_nothing_secret_lies_open(root):
    for user in ROLES:
        for phrase in [authentication(user).encode(), privacy(user).encode()]:
            for folder in ["etc", "var", "run"]:
                for path in (root.root / folder).rglob("*"):
                    if path.is_file() and not path.is_symlink():
                        assert phrase not in path.read_bytes(), path
    modes = {name: stat.S_IMODE((root.root / name).stat().st_mode)
             for name in ["var/lib/snmp/snmpd.conf", "var/lib/tavos", "var/lib/tavos/settings.db"]}
    assert modes == {"var/lib/snmp/snmpd.conf": 0o600, "var/lib/tavos": 0o2770, "var/lib/tavos/settings.db": 0o660}


def test_one_more_camera_is_one_more_instance(root):
    (root.root / "etc/orvex-dome").mkdir()
    (root.root / "etc/orvex-dome/8.conf").write_text("AGENT_PORT=11700\n")
    start, *look, stop = documented("On a desk")
    try:
        root.must(*start)
        root.must("systemctl", "enable", "--now", "orvex-dome@8")
        for port, number in [(11607, 7), (11700, 8)]:
            get = ["snmpget", "-v2c", "-c", "public", "-t", "1", "-r", "0", "-On", f"127.0.0.1:{port}", OID["temperature"]]
            await_until(lambda: root.run(*get).returncode == 0, f"camera {number} answers")
            root.must("domectl", "--state", f"/var/lib/orvex-dome/{number}", "set", "temperature", number)
            assert f"Gauge32: {number}" in root.must(*get)
        walk, state = [root.must(*command) for command in look]
        assert len(walk.splitlines()) == len([row for row in ROWS if row.oid.startswith("1.3.6.1.4.1.1206.4.2.")])
        assert json.loads(state)["pan"]["position"] == 0
        folder = root.root / "var/lib/orvex-dome/7"
        assert stat.S_IMODE(folder.stat().st_mode) == 0o700
        # A restart of the camera is only logged in its folder: it does not restart this machine.
        root.must("snmpset", "-v2c", "-c", "private", "-On", "127.0.0.1:11607", OID["rebootDevice"], "i", "1")
        await_until((folder / "restart.log").exists, "the restart is logged")
    finally:
        root.must(*stop)
    for unit in ["orvex-bus@7", "orvex-dome@7", "orvex-agent@7", "orvex-dome@8"]:
        await_until(lambda: root.run("systemctl", "is-active", unit).stdout.strip() == "inactive", f"{unit} has ended")
    root.must("systemctl", "start", "orvex-domes.target")
    root.must("systemctl", "is-active", "orvex-dome@7", "orvex-dome@8")
    root.must(*stop)
    root.must("systemctl", "is-active", "snmpd")


def call_pan(root, operation):
    call = ["dbus-send", "--bus=unix:path=/run/orvex-bus/bus.sock", "--print-reply=literal", "--dest=org.tavos.Pan1",
            "/org/tavos/Pan1", f"org.tavos.Pan1.{operation}"]
    return root.run("setpriv", "--reuid", "Debian-snmp", "--clear-groups", *call).stdout


def test_a_service_with_its_own_user_replaces_one_of_the_desk_cameras(root, packages, tmp_path):
    unpack_platform(packages, tmp_path)
    build = tmp_path / "build"
    shell("cmake", "-S", ROOT / "examples" / "pan-service", "-B", build, f"-DCMAKE_PREFIX_PATH={tmp_path}/usr",
          "-DCMAKE_INSTALL_PREFIX=/usr")
    shell("cmake", "--build", build)
    shell("cmake", "--install", build, env=dict(os.environ, DESTDIR=str(root.root)))
    domectl = ["domectl", "--state", "/var/lib/tavos", "--bus", "unix:path=/run/orvex-bus/bus.sock"]

    def moved(position):
        assert ask(root, "operator", "snmpset", OID["positionPan"], "x", f"027f{position:04x}").returncode == 0
        return call_pan(root, "GetPosition").split() == ["uint32", str(position * 10)]

    try:
        for line in documented_commands(ROOT / "examples" / "pan-service" / "README.md", "systemctl", "systemd-sysusers"):
            if "start pan-service" in line:
                gone = [*domectl, "fault", "pan", "gone"]  # until now the dome has the name; the bus has just restarted
                await_until(lambda: root.run(*gone).returncode == 0, "the dome has released the pan")
            root.must(*line.split())
        await_until(lambda: moved(1000), "the service has moved")
        before = root.must("systemctl", "show", "pan-service", "--property=MainPID", "--value")
        assert root.must("ps", "-o", "user:20=", "-p", before.strip()).strip() == "pan-service"
        root.must("systemctl", "kill", "--signal=KILL", "pan-service")
        await_until(lambda: moved(2000), "systemd has started it again, and the agent calls it")
        assert root.must("systemctl", "show", "pan-service", "--property=MainPID", "--value") != before
    finally:
        root.run("systemctl", "disable", "--now", "pan-service")
        for file in (build / "install_manifest.txt").read_text().splitlines():
            (root.root / file.lstrip("/")).unlink()
        (root.root / "usr/share/tavos/bus.d").rmdir()
        root.run(*domectl, "fault", "pan", "ok")


DESK_CAMERA = """
from orvex_camera import DeskCamera, absolute
with DeskCamera() as camera:
    scenario = camera.state_folder / "heat.toml"
    scenario.write_text("[[event]]\\nat = 1\\ndo = 'set temperature 31'")
    print(camera.domectl("play", scenario), end="")
    camera.clock("rate", 100)
    camera.set("positionPan", absolute(9000))
    camera.wait_at_rest()
    print(camera.get("modelName"), camera.get("temperature"), camera.state()["pan"]["position"])
    print([(one["pdu"], one["error"]) for one in camera.trace(object="positionPan")])
"""


def test_python_starts_a_desk_camera_of_the_packages(root, packages):
    user = ["setpriv", "--reuid", "games", "--regid", "games", "--clear-groups"]
    printed = root.must(*user, "python3", "-c", DESK_CAMERA)
    assert printed == "1.00 set temperature 31\nOrvex Dome D20 31 90000\n[('SET', 'noError')]\n"
    assert root.must("orvex-session", "--version").split()[-1] == packages[0].name.split("_")[1]


def next_version(package, folder):
    """The same package with a higher version number and another configuration, in the folder."""
    name, version, _ = package.name.split("_")
    unpacked = folder / name
    shell("dpkg-deb", "-R", package, unpacked)
    control = unpacked / "DEBIAN" / "control"
    control.write_text(re.sub(rf"(Version: |\(= ){re.escape(version)}", rf"\g<1>{NEXT}", control.read_text()))
    if name == "orvexsnmp":
        with open(unpacked / FRAGMENT, "a") as fragment:
            fragment.write("# of the next version\n")
    shell("dpkg-deb", "-b", "-Znone", unpacked, folder)
    return folder / f"{name}_{NEXT}_{control.read_text().split('Architecture: ')[1].split()[0]}.deb"


def install(root, packages):
    """The first command of docs/installing.md's chapter on upgrades, without a network."""
    folder = root.root / "var/tmp/debs"
    folder.mkdir()
    for package in packages:
        shutil.copy(package, folder)
    root.must("sh", "-c", "cd /var/tmp/debs && DEBIAN_FRONTEND=noninteractive exec apt-get install -y "
              "--no-install-recommends --allow-downgrades -o Dpkg::Options::=--force-confold "
              "-o Dpkg::Options::=--force-unsafe-io ./*.deb")
    shutil.rmtree(folder)


class Kept:
    """What an operator and the camera have written. All of it must outlive the installation of another version."""

    stores = {"/var/lib/tavos": ["--bus", "unix:path=/run/orvex-bus/bus.sock"], "/var/lib/orvex-dome/7": []}

    def __init__(self, root):
        self.root = root

    def write(self):
        with open(self.root.root / FRAGMENT, "a") as fragment:
            fragment.write("# by the operator\n")
        configuration = self.root.root / "etc/snmp/snmpd.conf"
        configuration.write_text(configuration.read_text().replace("sysContact (unknown)", "sysContact the operator"))
        for state, bus in self.stores.items():
            self.root.must("domectl", "--state", state, *bus, "set", "relay", "BNK1", 3, 1)

    def read(self):
        root = self.root.root
        persistent = (root / "var/lib/snmp/snmpd.conf").read_text()
        states = [self.root.must("domectl", "--state", state, *bus, "state") for state, bus in self.stores.items()]
        return {
            "configuration": [(root / "etc/snmp/snmpd.conf").read_text(), (root / FRAGMENT).read_text()],
            "contact": ask(self.root, "administrator", "snmpget", "-Oa", "1.3.6.1.2.1.1.4.0").stdout,
            "engine": re.findall("^oldEngineID .*", persistent, re.MULTILINE),
            "settings": self.root.must("tavos-settings", "--store", "/var/lib/tavos/settings.db", "export"),
            "relays": [json.loads(state)["relay"] for state in states],
            "phrases": (root / "var/lib/orvex-dome/7/v3/snmp.conf").read_text(),
        }


def runs_what_is_installed(root):
    """Whether the agent has loaded the library that is there now, and not one that was replaced."""
    pid = root.must("systemctl", "show", "snmpd", "--property=MainPID", "--value").strip()
    libraries = [line for line in root.must("cat", f"/proc/{pid}/maps").splitlines() if "/libtavos.so." in line]
    assert libraries
    return not any(line.endswith(" (deleted)") for line in libraries)


def test_an_upgrade_and_a_rollback_keep_what_was_there(root, packages, tmp_path):
    next_packages = [next_version(package, tmp_path) for package in packages]
    kept = Kept(root)
    answers = lambda: ask(root, "administrator", "snmpget", OID["modelName"]).returncode == 0  # noqa: E731
    try:
        root.must("systemctl", "start", "orvex-dome@7")
        kept.write()
        root.must("systemctl", "restart", "snmpd")
        await_until(answers, "the agent answers")
        before = kept.read()
        assert "the operator" in before["contact"] and all(any(relays["BNK1"]) for relays in before["relays"])
        assert before["engine"]
        for installed in (next_packages, packages):
            install(root, installed)
            versions = root.must("dpkg-query", "-W", "-f", "${Version}\n", *NAMES).split()
            assert versions == [installed[0].name.split("_")[1]] * len(NAMES)
            assert answers() and not runs_what_is_installed(root)
            for command in documented("Upgrade and rollback"):
                root.must(*command)
            await_until(answers, "the agent answers after the restart")
            assert runs_what_is_installed(root)
            assert kept.read() == before
    finally:
        root.must("systemctl", "stop", "orvex-domes.target")
        root.must("systemctl", "stop", "orvex-dome@7", "orvex-bus@7")


def test_the_mibs_translate_there(root):
    root.must("sh", "-c", "test -e /usr/share/snmp/mibs/ORVEX-MIB.txt")
    name = root.run("env", "MIBS=+ORVEX-MIB", "MIBDIRS=/usr/share/snmp/mibs:/usr/share/orvexsnmp/smi", "snmptranslate",
                    "-On", "ORVEX-MIB::rebootDevice.0")
    assert name.stdout.strip() == f".{OID['rebootDevice']}", name.stderr


def test_purging_leaves_nothing(root):
    root.must("systemctl", "stop", "snmpd", "orvex-dome", "orvex-bus")
    root.must("env", "DEBIAN_FRONTEND=noninteractive", "dpkg", "--purge", *NAMES)
    left = root.must("sh", "-c", "find / -xdev -path /proc -prune -o -path /var/log -prune -o "
                                 "\\( -name '*orvex*' -o -name '*tavos*' \\) -print")
    assert [line for line in left.splitlines() if "/systemd/system/orvex-domes.target.wants" not in line
            and not line.startswith(("/etc/orvex-dome", "/run/systemd", "/sys/"))] == []
