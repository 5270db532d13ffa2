"""What the agent's trace holds: a record of each message and trap, also of those that never reach the module."""

import json
import os
import signal
import socket
import subprocess
import time

import pytest

import ber
import trace_ring
from desk import LDD, Desk, ManagerOf, await_until, free_tcp_port, preloaded
from expected_tree import OID
from trace_ring import Pdu, Ring

NO_SECURITY_NAME, NO_VIEW, NOT_IN_VIEW = 1, 4, 5  # of VACM's verdicts
SYS_NAME = "1.3.6.1.2.1.1.5.0"
PAN_TO_180 = bytes.fromhex("02404650")


@pytest.fixture
def ring(running):
    with Ring(running.state / "trace.sock") as ring:
        ring.skip()
        yield ring


def next_records(ring, count, kind=None):
    """The next records, once there are so many (of that kind)."""
    found = []

    def enough():
        found.extend(record for record in ring.records() if kind in (None, record.kind))
        return len(found) >= count

    await_until(enough, f"{count} records")
    assert len(found) == count, [vars(record) for record in found]
    return found


def records_until(ring, condition):
    """The next records, up to one that fulfils the condition: the agent answers before it writes the record."""
    found = []

    def fulfilled():
        found.extend(ring.records())
        return found and condition(found[-1])

    await_until(fulfilled, "the last record")
    return found


def only_record(ring):
    return next_records(ring, 1)[0]


def is_from(record, port):
    """Agents before 5.5 print ports above 32767 as negative numbers."""
    return record.peer.endswith((f"]:{port}", f"]:{port - 65536}")) or f"[127.0.0.1]:{port}->" in record.peer


def send(desk, octets):
    """Sends octets that need not be a message; returns the sender's port."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.connect(("127.0.0.1", desk.port))
        sender.send(octets)
        return sender.getsockname()[1]


def test_a_request_and_its_answer_are_recorded_as_they_were_on_the_wire(ring, manager):
    message = ber.encode(ber.GET, [(OID["modelName"], ber.NULL, b"")])
    before = time.time_ns()
    manager.exchange(message)
    record = only_record(ring)
    assert (record.kind, record.answered, record.parsed, record.verdict) == (trace_ring.REQUEST, True, True, 0)
    assert record.one(trace_ring.MESSAGE_IN) == message
    answer = ber.Message(record.one(trace_ring.MESSAGE_OUT))
    assert answer.bindings[0].octets == b"Orvex Dome D20"
    assert is_from(record, manager._socket.getsockname()[1])
    assert 0 < record.microseconds < 5_000_000
    assert before <= record.time <= time.time_ns()
    assert record.calls == [] and record.names_refused == []


def test_numbers_follow_one_another(ring, manager):
    for _ in range(50):
        manager.get(SYS_NAME)
    numbers = [record.number for record in next_records(ring, 50)]
    assert numbers == list(range(numbers[0], numbers[0] + 50))


def test_peers_are_told_apart(ring, running):
    for _ in range(3):
        with ManagerOf(running) as one, ManagerOf(running) as other:
            for manager in (one, other, one):
                manager.get(SYS_NAME)
            ports = [manager._socket.getsockname()[1] for manager in (one, other, one)]
        records = next_records(ring, 3)
        assert [is_from(record, port) for record, port in zip(records, ports)] == [True] * 3


def test_a_set_is_recorded_with_the_calls_that_it_makes(ring, camera, manager):
    manager.set_octets(OID["positionPan"], PAN_TO_180)
    record = only_record(ring)
    (call,) = record.calls
    assert (call.outcome, call.error) == (trace_ring.CALL_ANSWERED, "")
    assert (call.service, call.operation) == ("org.tavos.Pan1", "SetPositionAtSpeed")
    assert json.loads(call.arguments) == camera.calls()[-1]["args"]
    assert call.sender.startswith(":1.") and call.serial > 0
    assert 0 < call.microseconds <= record.microseconds


@pytest.mark.skipif(os.environ.get("TAVOS_BUS_LANES") == "off", reason="TAVOS_BUS_LANES is off")
def test_a_call_has_the_same_sender_and_serial_on_both_sides_also_without_the_bus(ring, camera, manager):
    _, change = camera.history()
    for _ in range(10):
        manager.set_octets(OID["positionPan"], PAN_TO_180)
    bus = camera.processes["bus"].pid
    os.kill(bus, signal.SIGSTOP)  # now the calls have a lane
    try:
        for _ in range(3):
            manager.set_octets(OID["positionPan"], PAN_TO_180)
        made = [call for record in next_records(ring, 13) for call in record.calls]
    finally:
        os.kill(bus, signal.SIGCONT)
    assert [call.outcome for call in made] == [trace_ring.CALL_ANSWERED] * 13
    heard, _ = camera.history(change)
    heard = [(call["sender"], call["serial"]) for call in heard if call["kind"] == "call"]
    assert [(call.sender, call.serial) for call in made] == heard
    assert len({call.sender for call in made}) == 1 and len({call.serial for call in made}) == 13


def test_a_call_that_fails_and_those_that_are_not_made_are_recorded(ring, camera, manager):
    camera.domectl("fault", "temperature", "hang")
    try:
        for _ in range(2):
            assert manager.get(OID["temperature"]).error_status == ber.GEN_ERR
        late, refused = next_records(ring, 2)
    finally:
        camera.domectl("fault", "temperature", "ok")
    assert [call.outcome for call in late.calls] == [trace_ring.CALL_FAILED]
    assert "no answer within" in late.calls[0].error and late.calls[0].serial > 0
    assert late.calls[0].microseconds > 300_000
    assert [call.outcome for call in refused.calls] == [trace_ring.CALL_NOT_MADE]
    assert refused.calls[0].error == "the service is silent" and refused.calls[0].serial == 0
    assert refused.calls[0].operation == "GetTemperatureDegreesCelsius" and refused.calls[0].arguments == "[0]"
    await_until(lambda: manager.get(OID["temperature"]).error_status == ber.NO_ERROR, "the service is back")


def test_a_call_that_the_service_refuses_is_recorded_with_its_error(ring, camera, manager):
    camera.domectl("fault", "temperature", "fail")
    try:
        manager.get(OID["temperature"])
    finally:
        camera.domectl("fault", "temperature", "ok")
    (call,) = only_record(ring).calls
    assert call.outcome == trace_ring.CALL_FAILED and call.error and call.serial > 0


def test_a_wrong_community_is_recorded_with_the_verdict(ring, running):
    message = ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")], community="wrong")
    send(running, message)
    record = only_record(ring)
    assert (record.answered, record.parsed, record.verdict) == (False, True, NO_SECURITY_NAME)
    assert record.one(trace_ring.MESSAGE_IN) == message
    assert record.microseconds < 1_000_000


def test_a_trap_names_the_request_that_caused_it(desk):
    with open(desk.state / "snmpd.conf", "a") as configuration:
        configuration.write("authtrapenable 1\n")
    desk.start()
    with Ring(desk.state / "trace.sock") as ring, ManagerOf(desk) as manager:
        ring.skip()
        send(desk, ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")], community="wrong"))
        record, trap = next_records(ring, 2)
        assert (trap.kind, trap.cause, trap.number) == (trace_ring.TRAP, record.number, record.number + 1)
        assert "1.3.6.1.6.3.1.1.5.5" in [value for _, _, value in Pdu(trap.one(trace_ring.TRAP_PDU)).bindings]
        assert record.microseconds < 1_000_000 and len(trap.receivers) == 1
        manager.get(SYS_NAME)
        assert only_record(ring).number == trap.number + 1


def test_an_error_is_recorded_with_its_answer(ring, manager):
    assert manager.set_integer(OID["systemCameraEquipped"], 1).error_status != ber.NO_ERROR
    record = only_record(ring)
    assert record.answered and record.microseconds < 1_000_000
    assert ber.Message(record.one(trace_ring.MESSAGE_OUT)).error_status != ber.NO_ERROR


@pytest.mark.parametrize("octets", [b"\0", b"rubbish", b"\x30\x03\x02\x01", bytes(65507), b"\x30\x82\xff\xff" * 16000],
                         ids=["zero", "text", "cut", "64k-zeros", "64k-lengths"])
def test_rubbish_is_recorded_though_nothing_parses_it(ring, running, manager, octets):
    port = send(running, octets)
    record = only_record(ring)
    assert not record.parsed and not record.answered
    assert record.one(trace_ring.MESSAGE_IN) == octets and is_from(record, port)
    assert record.all(trace_ring.VERDICT) == []
    manager.get(SYS_NAME)
    assert only_record(ring).number == record.number + 1


def test_a_message_of_many_names_is_recorded_whole(ring, manager):
    message = ber.encode(ber.GET, [(OID["modelName"], ber.NULL, b"")] * 1500)
    manager.exchange(message)
    record = only_record(ring)
    assert record.one(trace_ring.MESSAGE_IN) == message
    assert len(ber.Message(record.one(trace_ring.MESSAGE_OUT)).bindings) in (0, 1500)  # 0: tooBig


def test_a_name_outside_the_view_is_recorded(ring, manager):
    loader = "1.3.6.1.4.1.2021.13.14.1.0"
    manager.get(SYS_NAME, loader)
    assert only_record(ring).names_refused == [(NOT_IN_VIEW, loader)]
    assert manager.set_octets(SYS_NAME, b"x").error_status != ber.NO_ERROR
    assert only_record(ring).names_refused == [(NO_VIEW, SYS_NAME)]


def snmpv3(desk, *words, **settings):
    environment = dict(desk.environment, SNMPCONFPATH=str(desk.state / "v3"), **settings)
    command = ["snmpset", "-t", "5", "-r", "0", "-On", *words[:-3], f"127.0.0.1:{desk.port}", *words[-3:]]
    return subprocess.run(command, env=environment, capture_output=True, text=True, timeout=30)


def test_an_encrypted_request_shows_what_it_says(ring, running):
    done = snmpv3(running, "." + OID["positionPan"], "x", PAN_TO_180.hex())
    assert done.returncode == 0, done.stderr
    probe, *_, record = records_until(ring, lambda record: record.calls)
    assert probe.answered and not probe.parsed  # asks for the engine's ID, answered by a report
    assert record.verdict == 0 and PAN_TO_180 not in record.one(trace_ring.MESSAGE_IN)
    request, answer = Pdu(record.one(trace_ring.REQUEST_PDU)), Pdu(record.one(trace_ring.ANSWER_PDU))
    assert request.bindings == [(OID["positionPan"], ber.OCTET_STRING, PAN_TO_180)]
    assert (request.command, answer.command, answer.status) == (ber.SET, ber.RESPONSE, 0)
    assert answer.bindings == request.bindings and answer.request_id == request.request_id
    assert len(record.calls) == 1


def test_a_wrong_key_is_recorded_with_the_report(ring, running, manager):
    manager.get(SYS_NAME)
    first = only_record(ring).number + 1
    assert snmpv3(running, "-A", "not the phrase", "." + OID["positionPan"], "x", "00").returncode != 0
    probe, record, *_ = records_until(ring, lambda record: record.number >= first + 1)
    assert record.answered and not record.parsed and record.one(trace_ring.MESSAGE_OUT)
    assert record.one(trace_ring.MESSAGE_OUT) != probe.one(trace_ring.MESSAGE_OUT)


def test_a_trap_is_recorded_with_what_it_says_and_its_receivers(ring, running):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sink:
        sink.bind(("127.0.0.1", running.trap_port))
        sink.settimeout(10)
        running.domectl("event", "voltage", 5)
        received = sink.recv(65536)
    (trap,) = next_records(ring, 1, trace_ring.TRAP)
    assert trap.one(trace_ring.TRAP_MESSAGE) == received and trap.cause == 0
    ((sent, receiver),) = trap.receivers
    assert sent == 1 and "127.0.0.1" in receiver and str(running.trap_port) in receiver
    bindings = Pdu(trap.one(trace_ring.TRAP_PDU)).bindings
    assert [(name, type_) for name, type_, _ in bindings] == [
        (binding.oid, binding.tag) for binding in ber.Message(received).bindings]
    assert bindings[-1][2] == 5


def test_an_inform_that_is_sent_again_is_shown_with_what_it_says(desk):
    """Nobody acknowledges it."""
    with open(desk.state / "snmpd.conf", "a") as configuration:
        configuration.write(f"informsink 127.0.0.1:{desk.trap_port} public\n")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sink:
        sink.bind(("127.0.0.1", desk.trap_port))
        desk.start()

        def again():
            entries = [json.loads(line) for line in desk.domectl("trace", "--json").splitlines()]
            with Ring(desk.state / "trace.sock") as ring:
                retries = {record.number: ber.Message(record.one(trace_ring.TRAP_MESSAGE)) for record in ring.records()
                           if record.kind == trace_ring.TRAP and not record.all(trace_ring.TRAP_PDU)}
            return [(entry, retries[entry["number"]]) for entry in entries if entry["number"] in retries]

        entry, message = await_until(again, "it is sent again")[0]
    assert [binding["oid"] for binding in entry["bindings"]] == [binding.oid for binding in message.bindings]
    assert entry["id"] == message.request_id and len(entry["bindings"]) >= 3


def test_each_of_many_traps_is_recorded_once(ring, running):
    running.domectl("event", "voltage", 100, "--count", 500)
    traps = next_records(ring, 500, trace_ring.TRAP)
    assert [Pdu(trap.one(trace_ring.TRAP_PDU)).bindings[-1][2] for trap in traps] == list(range(100, 600))
    assert {len(trap.receivers) for trap in traps} == {1}


def test_the_ring_and_its_numbers_outlive_a_reload(desk):
    desk.start()
    with Ring(desk.state / "trace.sock") as ring, ManagerOf(desk) as manager:
        for _ in range(3):
            before = desk.log("agent").count("restarted")
            os.kill(desk.agent_pid(), signal.SIGHUP)
            await_until(lambda: desk.log("agent").count("restarted") > before, "the agent reads its configuration")
            manager.set_octets(OID["positionPan"], PAN_TO_180)
        manager.get_next(SYS_NAME)
        records = records_until(ring, lambda record: record.kind == trace_ring.REQUEST and
                                ber.Message(record.one(trace_ring.MESSAGE_IN)).pdu == ber.GETNEXT)
        assert [record.number for record in records] == list(range(1, len(records) + 1))
        sets = [record for record in records if record.kind == trace_ring.REQUEST and record.calls]
        assert [len(record.calls) for record in sets] == [1, 1, 1]
        traps = [record for record in records if record.kind == trace_ring.TRAP]
        assert len(traps) == 4 and all(len(trap.receivers) >= 1 for trap in traps)  # a start and three restarts
        assert not ring.agent_is_gone()


def test_a_new_agent_has_a_new_ring(desk):
    desk.start()
    with Ring(desk.state / "trace.sock") as old:
        assert old.agent_pid == desk.agent_pid() and not old.agent_is_gone()
        desk.end("agent")
        assert old.agent_is_gone() and old.records()
        desk.start_agent()
        assert old.agent_is_gone()
        with Ring(desk.state / "trace.sock") as new:
            assert new.agent_pid == desk.agent_pid() and new.records()[0].number == 1


def test_without_a_socket_the_agent_says_so_once_and_serves(desk):
    del desk.environment["ORVEX_TRACE_SOCKET"]
    desk.start()
    assert desk.log("agent").count("orvextrace") == 1
    assert "orvextrace: ORVEX_TRACE_SOCKET names no socket: nothing is traced" in desk.log("agent")
    assert not (desk.state / "trace.sock").exists()


def test_only_the_owner_may_read_the_trace_and_nobody_may_write_it(running):
    assert (running.state / "trace.sock").stat().st_mode & 0o777 == 0o600
    with Ring(running.state / "trace.sock") as ring:
        with pytest.raises(OSError):
            os.ftruncate(ring.memory, 0)
        with pytest.raises(OSError):
            os.pwrite(ring.memory, b"x", 0)
        with pytest.raises(PermissionError):
            trace_ring.mmap.mmap(ring.memory, 0, trace_ring.mmap.MAP_SHARED, trace_ring.mmap.PROT_WRITE)


def test_only_the_loaders_entries_of_the_companion_are_exported(running):
    module = next(line.split()[2] for line in (running.state / "snmpd.conf").read_text().splitlines()
                  if line.startswith("dlmod orvextrace "))
    names = subprocess.run(["nm", "-D", "--defined-only", module], capture_output=True, text=True, check=True).stdout
    assert {line.split()[-1] for line in names.splitlines()} == {"init_orvextrace", "deinit_orvextrace"}
    needed = subprocess.run([*LDD, module], capture_output=True, text=True, check=True).stdout
    assert "not found" not in needed and "libtavos" not in needed


# --- connections: a message may come in pieces, and several at once ---

class TcpDesk(Desk):
    """Its agent listens on TCP, too."""

    def __init__(self):
        super().__init__()
        self.tcp_port = free_tcp_port()
        with open(self.state / "snmpd.conf", "a") as configuration:
            configuration.write(f"agentaddress tcp:127.0.0.1:{self.tcp_port}\n")

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", self.tcp_port), 5)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return connection


@pytest.fixture(scope="module")
def tcp_desk():
    with TcpDesk() as desk:
        desk.start()
        yield desk


@pytest.fixture
def tcp_ring(tcp_desk):
    with Ring(tcp_desk.state / "trace.sock") as ring:
        ring.skip()
        yield ring


def answers_of(connection, count):
    octets, answers = b"", []
    while len(answers) < count:
        octets += connection.recv(65536)
        while len(octets) > 2 and len(octets) >= message_length(octets):
            answers.append(ber.Message(octets[:message_length(octets)]))
            octets = octets[message_length(octets):]
    return answers


def message_length(octets):
    count = octets[1] & 0x7F if octets[1] & 0x80 else 0
    return 2 + (count + int.from_bytes(octets[2:2 + count], "big") if count else octets[1])


def test_a_message_that_comes_in_pieces_has_one_record(tcp_desk, tcp_ring):
    message = ber.encode(ber.GET, [(OID["modelName"], ber.NULL, b"")] * 20)
    with tcp_desk.connect() as connection, ManagerOf(tcp_desk) as manager:
        for start, end in (0, 1), (1, 3), (3, 40), (40, len(message)):
            connection.sendall(message[start:end])
            manager.get(SYS_NAME)  # the agent has read the piece
        answers_of(connection, 1)
        port = connection.getsockname()[1]
        *others, record = sorted(next_records(tcp_ring, 5), key=lambda record: len(record.one(trace_ring.MESSAGE_IN)))
    assert record.one(trace_ring.MESSAGE_IN) == message and record.answered and record.parsed
    assert is_from(record, port) and all(other.answered and other.parsed for other in others)


def test_each_of_several_messages_in_one_piece_has_a_whole_record(tcp_desk, tcp_ring):
    messages = [ber.encode(ber.GET, [(OID[name], ber.NULL, b"")]) for name in ("modelName", "hwVersion", "modelName")]
    wrong = ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")], community="wrong")
    rubbish = b"\x30\x05\x02\x01\x09\x05\x00"
    sent = [messages[0], rubbish, messages[1], wrong, rubbish, messages[2]]
    with tcp_desk.connect() as connection:
        connection.sendall(b"".join(sent) + messages[0][:7])
        answers_of(connection, 3)
        port = connection.getsockname()[1]
        records = next_records(tcp_ring, 6)
        assert [record.one(trace_ring.MESSAGE_IN) for record in records] == sent
        assert [record.answered for record in records] == [True, False, True, False, False, True]
        assert [record.parsed for record in records] == [True, False, True, True, False, True]
        assert all(is_from(record, port) for record in records)
        connection.sendall(messages[0][7:] + rubbish)
        answers_of(connection, 1)
        assert [record.one(trace_ring.MESSAGE_IN) for record in next_records(tcp_ring, 2)] == [messages[0], rubbish]


def test_a_connection_that_ends_within_a_message_leaves_its_record(tcp_desk, tcp_ring):
    message = ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")])
    with tcp_desk.connect() as connection:
        connection.sendall(message[:9])
    record = only_record(tcp_ring)
    assert record.one(trace_ring.MESSAGE_IN) == message[:9] and not record.answered and not record.parsed


def test_forty_connections_with_a_piece_each_leave_the_agent_serving(tcp_desk, tcp_ring):
    message = ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")])
    connections = [tcp_desk.connect() for _ in range(40)]
    for connection in connections:
        connection.sendall(message[:9])
    for connection in connections:
        connection.sendall(message[9:])
        answers_of(connection, 1)
        connection.close()
    records = records_until(tcp_ring, lambda record: record.answered)
    assert records[-1].parsed and records[-1].answered


def test_octets_that_are_no_message_leave_their_record_and_the_agent_serving(tcp_desk, tcp_ring):
    for octets in (b"GET / HTTP/1.0\r\n\r\n", b"\x30\x80\x02\x01", b"\x30\x84\x7f\xff\xff\xff" + bytes(100)):
        with tcp_desk.connect() as connection:
            connection.sendall(octets)
            assert only_record(tcp_ring).one(trace_ring.MESSAGE_IN) == octets
    with ManagerOf(tcp_desk) as manager:
        manager.get(SYS_NAME)
    assert only_record(tcp_ring).answered


class MonitoredDesk(TcpDesk):
    """An agent that queries itself."""

    def __init__(self):
        super().__init__()
        with open(self.state / "snmpd.conf", "a") as configuration:
            configuration.write("createUser _internal\niquerySecName _internal\nrouser _internal noauth .1.3\n"
                                "monitor -r 1 watched .1.3.6.1.2.1.1.3.0 > 0\n")

    def agent_command(self):
        return [word.replace(",mteTrigger,mteTriggerConf", "") if isinstance(word, str) else word
                for word in super().agent_command()]


def test_queries_of_the_agent_to_itself_are_no_requests():
    with MonitoredDesk() as desk:
        desk.start()
        queries = "1.3.6.1.6.3.15.1.1.0"
        message = ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")])
        with Ring(desk.state / "trace.sock") as ring, desk.connect() as connection:
            ring.skip()
            deadline = time.monotonic() + 4  # four queries, one a second
            sent = 0
            while time.monotonic() < deadline:
                connection.sendall(message)
                answers_of(connection, 1)
                send(desk, b"rubbish")
                sent += 2
                time.sleep(0.002)
            records = [record for record in next_records(ring, sent) if record.kind == trace_ring.REQUEST]
        found = [record.one(trace_ring.MESSAGE_IN) for record in records]
        assert found.count(message) == found.count(b"rubbish") == sent // 2
        assert all(record.answered == record.parsed == (record.one(trace_ring.MESSAGE_IN) == message)
                   for record in records)


# --- the rest ---

def test_an_empty_datagram_is_recorded(ring, running):
    port = send(running, b"")
    record = only_record(ring)
    assert record.one(trace_ring.MESSAGE_IN) == b"" and is_from(record, port)
    assert not record.parsed and not record.answered


def test_a_walk_over_names_outside_the_view_has_lost_nothing(desk):
    with open(desk.state / "snmpd.conf", "a") as configuration:
        configuration.write(f"view readable excluded .{SYS_NAME}\n")
    desk.start()
    with Ring(desk.state / "trace.sock") as ring, ManagerOf(desk) as manager:
        ring.skip()
        manager.get_next(*["1.3.6.1.2.1.1.4.0"] * 70)
        manager.get(*[SYS_NAME] * 70)
        walked, asked = next_records(ring, 2)
    assert walked.names_refused == asked.names_refused == [(NOT_IN_VIEW, SYS_NAME)] * 64
    assert (walked.flags & trace_ring.CUT, asked.flags & trace_ring.CUT) == (0, trace_ring.CUT)


FOREIGN = """
void *Sessions;
"""


def test_without_the_librarys_list_of_sessions_the_agent_says_so_once_and_serves(desk, tmp_path):
    (tmp_path / "foreign.c").write_text(FOREIGN)
    subprocess.run(["gcc", "-shared", "-fPIC", "-o", tmp_path / "foreign.so", tmp_path / "foreign.c"], check=True)
    desk.environment["LD_PRELOAD"] = preloaded(tmp_path / "foreign.so")
    desk.start()
    with ManagerOf(desk) as manager:
        for _ in range(3):
            manager.get(SYS_NAME)
    lines = [line for line in desk.log("agent").splitlines() if "orvextrace" in line]
    assert lines == ["orvextrace: the library's list of sessions is not found: no message is traced"]
