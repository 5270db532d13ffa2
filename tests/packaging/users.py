"""A desk camera whose dome and agent run as two separate users, under the shipped bus policy."""

import os
import pwd
import re
import shutil
import subprocess

from desk import AGENT_PARTS, BUILD, SNMPD, Desk

# Users that every Debian system has, used instead of the policy's.
DOME, AGENT, STRANGER = "daemon", "nobody", "games"
SETTINGS_GROUP = "users"
USERS = {"orvex-dome": DOME, "Debian-snmp": AGENT}


def as_user(user, *command, group=None):
    """The command as that user, with one group in addition to the user's default."""
    entry = pwd.getpwnam(user)
    groups = ["--groups", group] if group else ["--clear-groups"]
    return ["setpriv", "--reuid", str(entry.pw_uid), "--regid", str(entry.pw_gid), *groups, "--pdeathsig", "KILL",
            *map(str, command)]


def with_test_users(text):
    for shipped, ours in USERS.items():
        assert f'user="{shipped}"' in text
        text = text.replace(f'user="{shipped}"', f'user="{ours}"')
    return text


class PolicedDesk(Desk):
    """`kind` is "own" for the camera's private bus as shipped, or "system" for Debian's system bus with the policy."""

    def __init__(self, kind):
        super().__init__()
        self.kind = kind
        self.state.chmod(0o711)
        shutil.chown(self.state / "snmpd.conf", AGENT)
        self._share_programs()
        self._share_settings()
        shutil.chown(self.state / "snmp", AGENT)
        (self.state / "policy.conf").write_text(
            with_test_users((BUILD / "packaging" / "bus" / "org.tavos.conf").read_text()))
        (self.state / "bus.conf").write_text(self._own_bus() if kind == "own" else self._system_bus())

    def _share_programs(self):
        """Copies the programs, because other users may have no access to the build folder."""
        programs = self.state / "programs"
        for name in ["bin/orvex-dome", "bin/myname", "lib/orvexsnmp.so"]:
            (programs / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(BUILD / name, programs / name)
        for library in (BUILD / "lib").glob("libtavos*.so*"):
            shutil.copy(library, programs / "lib", follow_symlinks=False)
        self.environment["LD_LIBRARY_PATH"] = str(programs / "lib")
        self.environment["PATH"] = f"{programs}/bin:{os.environ['PATH']}"
        configuration = (self.state / "snmpd.conf").read_text()
        (self.state / "snmpd.conf").write_text(configuration.replace(f"{BUILD}/lib/", f"{programs}/lib/"))

    def _share_settings(self):
        """As the packages do it: the dome owns the folder, and the agent is in the folder's group."""
        folder = self.state / "settings"
        folder.mkdir()
        store = (self.state / "settings.db").rename(folder / "settings.db")
        for path, mode in [(folder, 0o2770), (store, 0o660)]:
            shutil.chown(path, DOME, SETTINGS_GROUP)
            path.chmod(mode)
        self.environment["TAVOS_SETTINGS_STORE"] = str(store)

    def _own_bus(self):
        text = with_test_users((BUILD / "packaging" / "bus" / "bus.conf").read_text())
        text = re.sub("<listen>.*</listen>", f"<listen>unix:path={self.state}/bus.sock</listen>", text)
        return re.sub("<include>.*</include>", f"<include>{self.state}/policy.conf</include>", text)

    def _system_bus(self):
        with open("/usr/share/dbus-1/system.conf") as stock:
            text = stock.read()
        for pattern in ["<user>.*?</user>", "<fork/>", "<pidfile>.*?</pidfile>", "<syslog/>", "<standard_system_servicedirs/>",
                        "<servicehelper>.*?</servicehelper>", "<include .*?</include>", "<includedir>/etc.*?</includedir>"]:
            text = re.sub(pattern, "", text)
        text = re.sub("<listen>.*?</listen>", f"<listen>unix:path={self.state}/bus.sock</listen>", text)
        return re.sub("<includedir>system.d</includedir>", f"<include>{self.state}/policy.conf</include>", text)

    def dome_command(self):
        program = self.state / "programs" / "bin" / "orvex-dome"
        return as_user(DOME, program, "--state", self.state, group=SETTINGS_GROUP)

    def agent_command(self):
        return as_user(AGENT, SNMPD, "-f", "-C", "-c", self.state / "snmpd.conf", *AGENT_PARTS, "-Le", group=SETTINGS_GROUP)

    def bus(self, user, *words):
        """One dbus-send of that user; waits for the answer."""
        command = ["dbus-send", f"--bus=unix:path={self.state}/bus.sock", "--print-reply=literal", "--reply-timeout=3000",
                   *words]
        return subprocess.run(as_user(user, *command), capture_output=True, text=True, timeout=20, cwd="/")

    def own(self, user, name):
        """Requests the name while the command runs. The bus checks the policy first, whether the name is free or
        not."""
        return self.bus(user, "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                        "org.freedesktop.DBus.RequestName", f"string:{name}", "uint32:4")

    def call(self, user, name, operation):
        path = "/" + name.replace(".", "/")
        return self.bus(user, f"--dest={name}", path, operation)
