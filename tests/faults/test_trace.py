"""The trace while something is wrong: it may lose records, and must never hold up or end the agent."""

import contextlib
import json
import os
import resource
import signal
import socket
import stat
import subprocess
import threading

import pytest

import ber
import trace_ring
from desk import Desk, ManagerOf, await_until
from expected_tree import OID
from test_reload import Daemon, reload
from trace_ring import Ring
from watching import footprint, settled

ELSEWHERE = "1.3.6.1.4.1.32473.99.1"
PAN_TO_180 = bytes.fromhex("02404650")


def path_of(desk):
    return desk.state / "trace.sock"


def serves(desk):
    with ManagerOf(desk) as manager:
        return manager.get(OID["modelName"]).error_status == ber.NO_ERROR


def is_traced(desk):
    """The trace of a request that is sent now arrives."""
    with Ring(path_of(desk)) as ring, ManagerOf(desk) as manager:
        ring.skip()
        manager.get(OID["modelName"])
        await_until(ring.records, "a record")
    return True


def refusals(desk):
    return [line for line in desk.log("agent").splitlines() if "orvextrace" in line]


# --- what is in the socket's place ---

@pytest.mark.parametrize("kind", ["file", "fifo", "folder", "link"])
def test_what_is_no_socket_stays_and_is_named_in_one_line(desk, kind):
    path = path_of(desk)
    if kind == "file":
        path.write_text("somebody's")
    elif kind == "fifo":
        os.mkfifo(path)
    elif kind == "folder":
        path.mkdir()
    else:
        path.symlink_to("/dev/null")
    before = os.lstat(path)
    desk.start()
    (line,) = refusals(desk)
    assert f"the socket {path} cannot be opened: there is something else that is no socket" in line
    after = os.lstat(path)
    assert (after.st_ino, stat.S_IFMT(after.st_mode)) == (before.st_ino, stat.S_IFMT(before.st_mode))
    assert serves(desk)
    # The next reload tries again.
    path.rmdir() if kind == "folder" else path.unlink()
    reload(desk)
    assert is_traced(desk)


def test_a_dead_socket_is_replaced(desk):
    with socket.socket(socket.AF_UNIX) as dead:
        dead.bind(str(path_of(desk)))
        dead.listen()
    desk.start()
    assert refusals(desk) == [] and is_traced(desk)


def test_a_killed_agents_socket_is_replaced(started):
    started.processes.pop("agent").kill()
    await_until(lambda: not refused(path_of(started)), "nobody listens")
    started.start_agent()
    assert is_traced(started)


def refused(path):
    try:
        with socket.socket(socket.AF_UNIX) as reader:
            reader.connect(str(path))
    except ConnectionRefusedError:
        return False
    return True


def test_a_second_agent_does_not_take_a_live_socket(started):
    with Desk() as second:
        second.environment["ORVEX_TRACE_SOCKET"] = str(path_of(started))
        second.start()
        (line,) = refusals(second)
        assert "another agent listens there" in line
        assert serves(second)
        with Ring(path_of(started)) as ring:
            assert ring.agent_pid == started.agent_pid()
    assert is_traced(started)


@pytest.mark.parametrize("path, reason", [("/nowhere/at/all/trace.sock", "No such file or directory"),
                                          ("x" * 200, "the path is longer than 107 bytes"),
                                          ("/proc/trace.sock", "")])
def test_a_path_that_cannot_be_is_named_in_one_line(desk, path, reason):
    desk.environment["ORVEX_TRACE_SOCKET"] = path
    desk.start()
    (line,) = refusals(desk)
    assert f"orvextrace: the socket {path} cannot be opened: {reason}" in line and serves(desk)


@pytest.mark.parametrize("size", ["0", "255", "1048577", "8M", "-1", "99999999999999999999999", " 512"])
def test_a_size_that_cannot_be_is_named_and_the_default_taken(desk, size):
    desk.environment["ORVEX_TRACE_KIB"] = size
    desk.start()
    (line,) = refusals(desk)
    assert f'ORVEX_TRACE_KIB is "{size}", must be 256 to 1048576' in line
    with Ring(path_of(desk)) as ring:
        assert ring.capacity == 8192 * 1024


def test_a_limit_of_file_sizes_below_the_rings_leaves_the_agent_without_a_trace(desk):
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (4 * 1024 * 1024, before[1]))
    try:
        desk.start()
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)
    (line,) = refusals(desk)
    assert "File too large" in line and serves(desk)


# --- too much ---

def test_the_smallest_ring_keeps_the_newest_records_of_a_flood(desk):
    desk.environment["ORVEX_TRACE_KIB"] = "256"
    desk.start()
    with Ring(path_of(desk)) as ring, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as flood:
        flood.connect(("127.0.0.1", desk.port))
        for number in range(20_000):
            flood.send(bytes([number % 256]) * (65507 if number % 100 == 0 else number % 1400 + 1))
        with ManagerOf(desk, timeout=0.5) as manager:
            await_until(lambda: answers(manager), "a request finds room in the agent's socket")
            await_until(lambda: last_record(ring).answered, "the last request's record")
            first = oldest_record(ring)
            assert first.number > 100, "the ring has dropped the oldest"
            ring.next = ring.begin
            records = ring.records()
        assert [record.number for record in records] == list(range(first.number, first.number + len(records)))
        assert ring.end - ring.begin <= ring.capacity == 256 * 1024
    assert serves(desk)


def oldest_record(ring):
    ring.next = ring.begin
    return ring.records()[0]


def last_record(ring):
    ring.next = ring.begin
    return ring.records()[-1]


@pytest.mark.slow
def test_two_thousand_requests_of_five_pollers_lose_no_record(started):
    """The ring is read while they come."""
    numbers = []
    with Ring(path_of(started)) as ring:
        pollers = [threading.Thread(target=poll, args=(started, 400)) for _ in range(5)]
        for poller in pollers:
            poller.start()

        def read():
            numbers.extend(record.number for record in ring.records())
            return not any(poller.is_alive() for poller in pollers)

        await_until(read, "the pollers have ended", 60)
        await_until(lambda: read() and len(numbers) >= 2000, "their last records")
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))


def poll(desk, count):
    with ManagerOf(desk) as manager:
        for _ in range(count):
            manager.get(OID["modelName"], OID["positionPan"])
            threading.Event().wait(0.025)


# --- readers ---

def test_readers_that_take_nothing_hold_up_nobody(started):
    before = settled(started)
    readers = []
    with ManagerOf(started) as manager:
        for _ in range(300):
            reader = socket.socket(socket.AF_UNIX)
            reader.connect(str(path_of(started)))
            readers.append(reader)
            manager.get(OID["modelName"])
    assert footprint(started.agent_pid()).descriptors == before.descriptors
    for reader in readers:
        reader.close()
    assert is_traced(started)


def test_ten_thousand_readers_leave_nothing_behind(started):
    before = settled(started)
    with ManagerOf(started) as manager:
        for number in range(10_000):
            with socket.socket(socket.AF_UNIX) as reader:
                reader.connect(str(path_of(started)))
            if number % 100 == 0:
                manager.get(OID["modelName"])
    assert is_traced(started)
    await_until(lambda: footprint(started.agent_pid()).descriptors == before.descriptors, "all are closed")


def cpu_ticks(pid):
    fields = open(f"/proc/{pid}/stat").read().rpartition(")")[2].split()
    return int(fields[11]) + int(fields[12])


def test_without_a_free_descriptor_the_agent_neither_spins_nor_ends(started):
    """A connection that cannot be accepted stays in the queue. Requests are not tried meanwhile: Debian's agent
    refuses them when it cannot open its lists of hosts."""
    pid = started.agent_pid()
    limits = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    settled(started)
    used = {int(number) for number in os.listdir(f"/proc/{pid}/fd")}
    lowest_free = min(set(range(len(used) + 1)) - used)
    reader = socket.socket(socket.AF_UNIX)
    try:
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (lowest_free, limits[1]))
        reader.connect(str(path_of(started)))
        ticks = cpu_ticks(pid)
        deadline = threading.Event()
        deadline.wait(2)  # what is measured: the time that the agent takes while nothing happens
        assert cpu_ticks(pid) - ticks < 50
    finally:
        resource.prlimit(pid, resource.RLIMIT_NOFILE, limits)
    reader.settimeout(10)
    octets, descriptors, _, _ = socket.recv_fds(reader, 1, 2)
    reader.close()
    assert octets == b"R" and len(descriptors) == 2 and serves(started) and is_traced(started)
    for descriptor in descriptors:
        os.close(descriptor)


# --- reloads, daemons, users ---

@pytest.mark.slow
def test_a_hundred_reloads_under_requests_lose_no_record(started):
    with Ring(path_of(started)) as ring:
        stop = threading.Event()
        polling = threading.Thread(target=poll_until, args=(started, stop))
        polling.start()
        numbers = []
        try:
            for _ in range(100):
                reload(started)
                numbers += [record.number for record in ring.records()]
        finally:
            stop.set()
            polling.join()
        assert not ring.agent_is_gone()
        assert numbers == list(range(1, len(numbers) + 1))
    assert is_traced(started)
    assert refusals(started) == []


def poll_until(desk, stop):
    with ManagerOf(desk) as manager:
        while not stop.is_set():
            manager.get(OID["modelName"])


def test_an_agent_that_forks_states_the_process_that_it_became():
    daemon = Daemon()
    try:
        daemon.start()
        with Ring(path_of(daemon)) as ring, ManagerOf(daemon) as manager:
            assert ring.agent_pid == daemon.agent_pid() and not ring.agent_is_gone()
            ring.skip()
            manager.set_octets(OID["positionPan"], PAN_TO_180)
            (record,) = await_until(ring.records, "a record")
            assert [call.operation for call in record.calls] == ["SetPositionAtSpeed"]
            daemon.stop_agent()
            await_until(ring.agent_is_gone, "the reader sees it")
    finally:
        daemon.close()


class Unprivileged(Desk):
    """An agent that changes to another user after it has loaded the modules."""

    def agent_command(self):
        return [*super().agent_command(), "-u", "nobody"]


@pytest.mark.skipif(os.getuid() != 0, reason="only root can become another user")
def test_an_agent_that_gives_up_its_rights_keeps_its_trace_over_a_reload():
    with Unprivileged() as desk:
        desk.start_bus()
        desk.start_dome()
        desk.state.chmod(0o711)
        (desk.state / "snmpd.conf").chmod(0o644)
        for file in (desk.state / "settings.db", desk.state / "agent.log", desk.state / "bus.sock"):
            file.touch()
            file.chmod(0o666)
        desk.start_agent()
        status = open(f"/proc/{desk.agent_pid()}/status").read()
        assert f"Uid:\t{65534}" in status
        assert is_traced(desk)
        reload(desk)
        assert is_traced(desk)
        assert refusals(desk) == []


@contextlib.contextmanager
def agent_behind(desk):
    """Starts both: the desk's agent passes requests for ELSEWHERE on to another desk's."""
    desk.parts.append("proxy")
    with Desk() as behind:
        behind.start()
        with open(desk.state / "snmpd.conf", "a") as configuration:
            configuration.write(f"proxy -v 2c -c public 127.0.0.1:{behind.port} .{ELSEWHERE} .1.3.6.1.2.1.1.5\n")
        desk.start()
        yield behind


def test_a_request_that_another_process_answers_is_recorded_with_its_answer(desk):
    """The agent delegates a proxied request and answers it in a later turn of its main loop."""
    with agent_behind(desk) as behind:
        with Ring(path_of(desk)) as ring, ManagerOf(desk) as manager:
            ring.skip()
            answer = manager.get(f"{ELSEWHERE}.0")
            assert answer.bindings[0].octets == b"OD20-000001"
            records = []
            await_until(lambda: records.extend(ring.records()) or records, "a record")
            (record,) = [record for record in records if record.kind == trace_ring.REQUEST]
            assert record.answered and ber.Message(record.one(trace_ring.MESSAGE_OUT)).request_id == answer.request_id
            assert record.microseconds < 5_000_000
            # Nobody answers: the request stays open for a while and the agent goes on.
            os.kill(behind.agent_pid(), signal.SIGSTOP)
            try:
                with pytest.raises(socket.timeout), ManagerOf(desk, timeout=0.5) as impatient:
                    impatient.get(f"{ELSEWHERE}.0")
                assert serves(desk)
            finally:
                os.kill(behind.agent_pid(), signal.SIGCONT)
            reload(desk)  # with an open record
            assert serves(desk)


def is_not_awaited(record):
    return record.flags & trace_ring.NOT_AWAITED


def test_an_answer_that_is_not_awaited_is_not_called_missing(desk):
    """The companion waits for 16 answers of other processes at a time."""
    with agent_behind(desk) as behind:
        with Ring(path_of(desk)) as ring, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            ring.skip()
            os.kill(behind.agent_pid(), signal.SIGSTOP)
            try:
                for number in range(17):
                    message = ber.encode(ber.GET, [(f"{ELSEWHERE}.0", ber.NULL, b"")], request_id=5000 + number)
                    sender.sendto(message, ("127.0.0.1", desk.port))
                record = await_until(lambda: next(filter(is_not_awaited, ring.records()), None), "the record of the first")
            finally:
                os.kill(behind.agent_pid(), signal.SIGCONT)
            assert record.flags == trace_ring.PARSED | trace_ring.NOT_AWAITED
            assert ber.Message(record.one(trace_ring.MESSAGE_IN)).request_id == 5000
            entries = [json.loads(line) for line in desk.domectl("trace", "--json").splitlines()]
            (entry,) = [entry for entry in entries if entry["number"] == record.number]
            assert entry["reason"].startswith("the answer was not awaited") and not entry["failed"]


def test_the_loader_may_unload_the_companion_before_the_module(desk):
    configuration = desk.state / "snmpd.conf"
    text = configuration.read_text()
    desk.start()
    desk.leave_out("orvextrace")
    reload(desk)
    with ManagerOf(desk) as manager:
        manager.set_octets(OID["positionPan"], PAN_TO_180)
    assert desk.calls()[-1]["call"] == "SetPositionAtSpeed"
    configuration.write_text(text)
    reload(desk)
    assert is_traced(desk)


def test_the_companion_works_without_the_module(desk):
    configuration = desk.state / "snmpd.conf"
    text = configuration.read_text()
    configuration.write_text("".join(line for line in text.splitlines(True) if "dlmod orvexsnmp" not in line))
    desk.launch_agent()
    with ManagerOf(desk, timeout=0.5) as manager:
        await_until(lambda: answers(manager), "the agent answers")
    with Ring(path_of(desk)) as ring:
        assert [record for record in ring.records() if record.kind == trace_ring.REQUEST and record.answered]
    maps = subprocess.run(["grep", "-c", "libtavos", f"/proc/{desk.agent_pid()}/maps"], capture_output=True, text=True)
    assert maps.stdout.strip() == "0"


def answers(manager):
    try:
        return manager.get("1.3.6.1.2.1.1.3.0").error_status == ber.NO_ERROR
    except OSError:
        return False
