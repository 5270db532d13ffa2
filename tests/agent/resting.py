"""Whether processes rest, by how often they wake up."""

import pathlib
import time

WINDOW = 8  # seconds; an agent with all stock parts wakes up some five times in it, at uneven intervals
MAX_WAKES = 1  # in a window, of all of a process's threads


def wakes(pid):
    """How often the process's threads have gone to sleep, each of them after it had been woken."""
    count = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        status = (task / "status").read_text()
        (line,) = [line for line in status.splitlines() if line.startswith("voluntary_ctxt_switches:")]
        count += int(line.split()[1])
    return count


def restless(pids):
    """{name: wakes} of the processes that wake up in a window."""
    before = {name: wakes(pid) for name, pid in pids.items()}
    time.sleep(WINDOW)  # this time is what is measured
    counts = {name: wakes(pid) - before[name] for name, pid in pids.items()}
    return {name: count for name, count in counts.items() if count > MAX_WAKES}


def check_rest(pids):
    """Something of the start may still be going on; the processes must rest soon after."""
    for _ in range(3):
        found = restless(pids)
        if not found:
            return
    raise AssertionError(f"wakes in {WINDOW} s: {found}")
