"""A clean Debian root folder: made by mmdebstrap, booted by its systemd in separate namespaces (mounts, processes,
network, names). When its systemd ends, nothing but the folder remains."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

from desk import await_until

# Units that would change the kernel, which is shared with the host, or need hardware.
MASKED = ["systemd-sysctl.service", "systemd-modules-load.service", "systemd-remount-fs.service",
          "systemd-random-seed.service", "sys-kernel-debug.mount", "sys-kernel-tracing.mount",
          "sys-fs-fuse-connections.mount", "dev-hugepages.mount", "dev-mqueue.mount", "sys-kernel-config.mount"]

BOOT = r"""
set -e
root=$1
mount --bind "$root" "$root"
cd "$root"
mount -t proc proc proc
mount --bind proc/sys proc/sys
mount -o remount,bind,ro proc/sys
mount -t sysfs -o ro sysfs sys
mount -t cgroup2 cgroup2 sys/fs/cgroup
mount -t tmpfs -o mode=755 tmpfs dev
for device in null zero full random urandom tty; do
    touch dev/$device
    mount --bind /dev/$device dev/$device
done
mkdir dev/shm dev/pts
mount -t tmpfs tmpfs dev/shm
mount -t devpts -o newinstance,ptmxmode=0666 devpts dev/pts
ln -s pts/ptmx dev/ptmx
ln -s /proc/self/fd dev/fd
mount -t tmpfs -o mode=755 tmpfs run
ip link set lo up 2>/dev/null || python3 -c "
import fcntl, socket, struct
fcntl.ioctl(socket.socket(), 0x8914, struct.pack('16sh', b'lo', 0x49))"  # SIOCSIFFLAGS: up, loopback, running
mkdir -p .old
pivot_root . .old
umount -l /.old
exec env -i container=unshare PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    setpriv --bounding-set=-sys_module,-sys_time,-sys_rawio,-syslog,-sys_boot \
    /lib/systemd/systemd --system --log-target=journal --unit=basic.target
"""


def writable_cgroup2():
    """The folder for new cgroups, or None."""
    for line in pathlib.Path("/proc/self/mounts").read_text().splitlines():
        _, folder, kind, options = line.split()[:4]
        if kind == "cgroup2" and "rw" in options.split(","):
            return pathlib.Path(folder)
    return None


class CleanRoot:
    def __init__(self, packages):
        """Installs the .deb files and their dependencies."""
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orvex-root-"))
        self.root = self.folder / "root"
        self._unshare = None
        self._cgroup = None
        try:
            self._install(packages)
        except BaseException:
            self.close()
            raise

    def _install(self, packages):
        debs = self.folder / "debs"
        debs.mkdir()
        for package in packages:
            shutil.copy(package, debs)
        command = ["mmdebstrap", "--mode=root", "--variant=minbase", "--include=systemd,systemd-sysv,procps,snmp",
                   f"--customize-hook=copy-in {debs} /tmp",
                   "--customize-hook=chroot \"$1\" sh -c 'apt-get install -y --no-install-recommends /tmp/debs/*.deb'",
                   "--customize-hook=rm -r \"$1\"/tmp/debs", "bookworm", self.root]
        done = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=1200)
        assert done.returncode == 0, done.stderr[-4000:]
        self.installation = done.stdout + done.stderr
        for unit in MASKED:
            (self.root / "etc/systemd/system" / unit).symlink_to("/dev/null")

    def boot(self):
        self._cgroup = writable_cgroup2() / f"orvex-test-{os.getpid()}"
        self._cgroup.mkdir()

        def enter_cgroup():
            (self._cgroup / "cgroup.procs").write_text(str(os.getpid()))

        command = ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--pid", "--fork", "--uts", "--ipc", "--net",
                   "--cgroup", "--kill-child", "--propagation", "private", "bash", "-c", BOOT, "boot", self.root]
        with open(self.folder / "boot.log", "w") as log:
            self._unshare = subprocess.Popen(command, preexec_fn=enter_cgroup, stdin=subprocess.DEVNULL, stdout=log,
                                             stderr=log, start_new_session=True)
        await_until(self._is_up, "the clean root has booted", seconds=60)

    def _is_up(self):
        assert self._unshare.poll() is None, (self.folder / "boot.log").read_text()
        return self.init is not None and self.run("systemctl", "is-active", "basic.target").returncode == 0

    @property
    def init(self):
        """The root's first process, once it is systemd."""
        pid = self._unshare.pid
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
        if not children or pathlib.Path(f"/proc/{children[0]}/comm").read_text().strip() != "systemd":
            return None
        return children[0]

    def run(self, *command, **options):
        """Runs a command inside, as root."""
        command = ["nsenter", "--target", self.init, "--mount", "--pid", "--uts", "--ipc", "--net", "--cgroup", "--root",
                   "--wd", "--", "env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "MIBS=", "LANG=C.UTF-8",
                   *map(str, command)]
        return subprocess.run(command, capture_output=True, text=True, timeout=60, **options)

    def must(self, *command, **options):
        done = self.run(*command, **options)
        assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}\n{self.journal()}"
        return done.stdout

    def journal(self):
        return self.run("journalctl", "--no-pager", "--lines=60", "--output=short").stdout

    def close(self):
        if self._unshare:
            init = self.init if self._unshare.poll() is None else None
            if init:
                os.kill(int(init), signal.SIGKILL)  # this also kills every process of its namespace
            try:
                self._unshare.wait(20)
            except subprocess.TimeoutExpired:
                self._unshare.kill()
                self._unshare.wait()
        if self._cgroup:
            await_until(self._remove_cgroups, "the cgroups are empty")
        mounts = [line for line in pathlib.Path("/proc/self/mounts").read_text().splitlines() if str(self.folder) in line]
        assert not mounts, f"the folder stays, because file systems are still mounted: {mounts}"
        shutil.rmtree(self.folder)

    def _remove_cgroups(self):
        try:
            for folder, _, _ in os.walk(self._cgroup, topdown=False):
                os.rmdir(folder)
        except OSError:
            return False
        return True
