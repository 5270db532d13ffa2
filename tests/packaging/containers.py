"""podman and buildah with their storage in build/container, so that nothing else on the machine changes. Containers use
this machine's network, on loopback addresses and free ports."""

import fcntl
import json
import os
import pathlib
import shutil
import subprocess
import time

from desk import ROOT, await_until, free_tcp_port, free_udp_port

HOME = ROOT / "build" / "container"
CONTAINER = ROOT / "packaging" / "container"
OUTSIDE = "127.0.0.2"  # the source of a request that does not come from 127.0.0.1
STATE = pathlib.PurePath("/var/lib/orvex-dome")
HARDENED = ["--read-only", "--read-only-tmpfs=false", "--cap-drop=all", "--security-opt=no-new-privileges"]

# Without limits of its own, podman raises its container's above the limits of a machine that is itself confined.
ENGINE = """[containers]
default_ulimits = ["nofile=4096:4096", "nproc=4096:4096"]
[engine]
runtime = "runc"
cgroup_manager = "cgroupfs"
events_logger = "file"
tmp_dir = "{folder}/tmp"
[network]
network_config_dir = "{folder}/networks"
"""
STORAGE = """[storage]
driver = "overlay"
graphroot = "{home}/storage"
runroot = "{folder}/root"
"""


def shell(*command, **options):
    done = subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{command}: {done.stdout[-3000:]}{done.stderr[-3000:]}"
    return done.stdout


class Engine:
    def __init__(self):
        HOME.mkdir(parents=True, exist_ok=True)
        self._lock = open(HOME / ".lock", "w")
        fcntl.flock(self._lock, fcntl.LOCK_EX)  # one test run at a time
        self._folder = HOME / "run"  # always the same: podman's data base remembers it
        self._folder.mkdir(exist_ok=True)
        (self._folder / "containers.conf").write_text(ENGINE.format(folder=self._folder))
        (self._folder / "storage.conf").write_text(STORAGE.format(home=HOME, folder=self._folder))
        self.environment = dict(os.environ, CONTAINERS_CONF=str(self._folder / "containers.conf"),
                                CONTAINERS_STORAGE_CONF=str(self._folder / "storage.conf"))
        self._volumes = 0

    def run(self, *command, **options):
        return subprocess.run(list(map(str, command)), env=self.environment, capture_output=True, text=True, timeout=120,
                              **options)

    def podman(self, *words):
        return shell("podman", *words, env=self.environment, timeout=120)

    def volume(self):
        self._volumes += 1
        return f"orvex-test-{os.getpid()}-{self._volumes}"

    def close(self):
        self.run("podman", "pod", "rm", "--all", "--force")
        self.run("podman", "rm", "--all", "--force", "--volumes")
        self.run("podman", "volume", "rm", "--all", "--force")
        self.run("buildah", "rm", "--all")
        # podman leaves bind mounts of its folders onto themselves.
        for line in reversed(pathlib.Path("/proc/self/mounts").read_text().splitlines()):
            if line.split()[1].startswith(f"{HOME}/"):
                subprocess.run(["umount", line.split()[1]], check=False)
        shutil.rmtree(self._folder, ignore_errors=True)
        self._lock.close()


class Container:
    """A container of the image; hardened unless `options` says otherwise. Variables are `ORVEX_...` without the prefix."""

    def __init__(self, engine, image, *options, volume=None, cameras=1, **variables):
        self.engine, self.image, self.cameras = engine, image, cameras
        self.port, self.console_port = self._free_ports()
        self.volume = volume or engine.volume()
        settings = {"CAMERAS": cameras, "AGENT_PORT": self.port, "CONSOLE_PORT": self.console_port, **variables}
        environment = [word for name, value in settings.items() for word in ("--env", f"ORVEX_{name}={value}")]
        self._command = ["podman", "run", "--detach", "--pull=never", "--network=host", *HARDENED,
                         "--health-cmd=/usr/bin/orvex-camera-health", "--health-retries=1", "--health-start-period=0s",
                         f"--volume={self.volume}:{STATE}", *environment, *options, image]
        self.name = None

    def _free_ports(self):
        while True:
            udp, tcp = free_udp_port(), free_tcp_port()
            if max(udp, tcp) + self.cameras < 65536:
                return udp, tcp

    def __enter__(self):
        self.create()
        self.await_ready()
        return self

    def __exit__(self, *_):
        if self.name:
            self.engine.run("podman", "rm", "--force", "--time=0", self.name)

    def create(self):
        done = self.engine.run(*self._command)
        assert done.returncode == 0, done.stderr
        self.name = done.stdout.strip()

    def await_ready(self):
        def ready():
            assert self.inspect()["State"]["Running"], self.logs()
            return "orvex-camera: ready" in self.logs()
        await_until(ready, "the container is ready", seconds=90)

    def inspect(self):
        return json.loads(self.engine.podman("inspect", self.name))[0]

    def logs(self):
        """Standard output; standard error is empty, except during a test that fails."""
        done = self.engine.run("podman", "logs", self.name)
        assert done.stderr == "", done.stderr
        return done.stdout

    def exec(self, *words):
        return self.engine.run("podman", "exec", self.name, *words)

    def file(self, *parts):
        done = self.exec("cat", STATE.joinpath(*parts))
        assert done.returncode == 0, done.stderr
        return done.stdout

    def domectl(self, *words):
        done = self.exec("domectl", "--state", STATE / "1", *words)
        assert done.returncode == 0, done.stderr
        return done.stdout

    def tree(self):
        """The container's processes on this machine, with their commands' names."""
        found, left = [], [self.inspect()["State"]["Pid"]]
        while left:
            folder = pathlib.Path(f"/proc/{left[0]}")
            found.append(((folder / "comm").read_text().strip(), left.pop(0)))
            left += [int(child) for task in (folder / "task").iterdir() for child in (task / "children").read_text().split()]
        return found

    def processes(self):
        return dict(self.tree())

    def agents(self):
        """Those of each camera, in order."""
        agents = [pid for name, pid in self.tree() if name == "snmpd"]
        return sorted(agents, key=lambda pid: pathlib.Path(f"/proc/{pid}/cmdline").read_bytes())

    def memory(self):
        """Octets that the kernel charges to the container, page cache included."""
        for line in pathlib.Path(f"/proc/{self.tree()[0][1]}/cgroup").read_text().splitlines():
            _, kinds, path = line.split(":", 2)
            if kinds == "memory":
                return int(pathlib.Path(f"/sys/fs/cgroup/memory{path}/memory.usage_in_bytes").read_text())
        return int(pathlib.Path(f"/sys/fs/cgroup{path}/memory.current").read_text())

    def is_healthy(self):
        return self.engine.run("podman", "healthcheck", "run", self.name).returncode == 0

    def await_end(self):
        await_until(lambda: not self.inspect()["State"]["Running"], "the container has ended")
        return self.inspect()["State"]["ExitCode"]

    def stop(self):
        began = time.monotonic()
        self.engine.podman("stop", "--time=20", self.name)
        return time.monotonic() - began

    def start_again(self):
        count = self.logs().count("orvex-camera: ready")
        self.engine.podman("start", self.name)
        await_until(lambda: self.logs().count("orvex-camera: ready") > count, "the container is ready again", seconds=60)

    def ask(self, tool, security, *words, source=OUTSIDE, port=None):
        """One run of a net-snmp tool from that address."""
        command = [tool, *security, "-t", "1", "-r", "0", "-On", "-OQ", "-Ox", f"--clientaddr={source}",
                   f"127.0.0.1:{port or self.port}", *words]
        environment = dict(os.environ, MIBS="", SNMPCONFPATH="/nonexistent", SNMP_PERSISTENT_DIR="/nonexistent")
        return subprocess.run(list(map(str, command)), env=environment, capture_output=True, text=True, timeout=30)

    def phrases(self):
        lines = dict(line.split(None, 1) for line in self.file("1", "v3", "snmp.conf").splitlines())
        return lines["defAuthPassphrase"], lines["defPrivPassphrase"]


def community(name):
    return ["-v2c", "-c", name]


def user(authentication, privacy):
    return ["-v3", "-u", "desk", "-l", "authPriv", "-a", "SHA", "-A", authentication, "-x", "AES", "-X", privacy]

