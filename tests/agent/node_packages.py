"""npm packages for tests, pinned with checksums by the package-lock.json beside the package.json."""

import fcntl
import subprocess

from desk import ROOT


def node_modules(folder):
    """Where the packages of `folder` are, or will be once install() has run."""
    return ROOT / "build" / folder.name / "node_modules"


def install(folder):
    """Installs the packages, once for all builds and test runs. Returns their folder."""
    modules = node_modules(folder)
    home = modules.parent
    home.mkdir(parents=True, exist_ok=True)
    required = (folder / "package-lock.json").read_text()
    installed = home / "installed.json"
    with open(home / ".lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if modules.is_dir() and installed.exists() and installed.read_text() == required:
            return modules
        for name in ["package.json", "package-lock.json"]:
            (home / name).write_text((folder / name).read_text())
        command = ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund"]
        done = subprocess.run(command, cwd=home, capture_output=True, text=True, timeout=300)
        assert done.returncode == 0, done.stderr
        installed.write_text(required)
    return modules
