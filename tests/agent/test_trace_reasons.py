"""domectl trace: each reason, by an agent whose configuration causes it, and what --follow says of a motion."""

import json
import os
import signal
import socket
import struct
import subprocess
import threading

import pytest

import ber
from desk import AGENT, BUILD, Desk, ManagerOf, await_until, has_wrappers, preloaded
from expected_tree import OID, ORVEX
from test_trace import PAN, Asking, asking, ended, last_number, packets, run_tool, trace, user  # noqa: F401

def read_record(desk, since):
    """The one request after that record."""
    def requests():
        return [entry for entry in trace(desk, "--since", since) if entry["pdu"] not in ("trap", "domectl", "page")]

    (entry,) = await_until(requests, "a record")
    return entry


NAME = "1.3.6.1.2.1.1.5.0"
REASONS_CONFIGURATION = """
com2sec distant 192.0.2.1 elsewhere
com2sec lonely 127.0.0.1 alone
com2sec -Cn nowhere unplaced 127.0.0.1 context
rwcommunity full 127.0.0.1 .1.3.6.1.2.1.1
createUser half SHA halfhalfhalf
rouser half auth .1.3.6.1.2.1.1
rouser desk priv -s usm .1.3.6.1.2.1.1
authtrapenable 1
"""


@pytest.fixture(scope="module")
def odd():
    """A camera whose agent has communities and users of each kind."""
    with Desk() as desk:
        configuration = (desk.state / "snmpd.conf").read_text()
        # Its own name stands in the configuration and could not be set.
        (desk.state / "snmpd.conf").write_text(configuration.replace("sysName OD20-000001\n", "") + REASONS_CONFIGURATION)
        desk.start()
        yield desk


BY_COMMUNITY = [
    ("from another address", "elsewhere", ("snmpget", NAME), None, "wrong community: distant is not accepted from this address"),
    ("of no group", "alone", ("snmpget", NAME), None, "refused by the view: lonely is in no group"),
    ("of no such context", "context", ("snmpget", NAME), None, "no such context"),
    ("too long a value", "full", ("snmpset", NAME, "s", "x" * 300), "wrongLength", "wrong length: 300 octets for sysName"),
]


@pytest.mark.parametrize(("community", "words", "error", "reason"), [row[1:] for row in BY_COMMUNITY],
                         ids=[row[0] for row in BY_COMMUNITY])
def test_a_community_that_is_refused_says_why(odd, community, words, error, reason):
    since = last_number(odd)
    run_tool(odd, *words, community=community)
    entry = read_record(odd, since)
    assert (entry["error"], entry["failed"]) == (error, True)
    assert entry["reason"].startswith(reason)
    assert f'"{community}"' not in json.dumps(entry)


@pytest.mark.skipif(AGENT < (5, 9), reason="this agent does not try to send such an answer")
def test_an_answer_that_does_not_fit_into_a_datagram_says_so(odd):
    since = last_number(odd)
    with ManagerOf(odd, timeout=0.1) as manager, pytest.raises(socket.timeout):
        manager.get(*[OID["modelName"]] * 2400)
    entry = read_record(odd, since)
    assert (entry["error"], entry["answer"], entry["failed"]) == (None, None, True)
    assert entry["reason"].startswith("the answer could not be sent: it has ")
    assert entry["reason"].endswith(" octets, more than a datagram has room for; ask for fewer values")


@pytest.mark.skipif(AGENT < (5, 9), reason="this agent has no such limit")
def test_an_answer_that_is_longer_than_the_agent_may_send_says_so(desk):
    with open(desk.state / "snmpd.conf", "a") as configuration:
        configuration.write("[snmp] sendMessageMaxSize 1400\n")
    desk.start()
    since = last_number(desk)
    with ManagerOf(desk) as manager:
        assert manager.get(*[OID["modelName"]] * 60).error_status == 1
    entry = read_record(desk, since)
    assert (entry["error"], entry["failed"]) == ("tooBig", True)
    assert entry["reason"] == "the answer does not fit into a message: ask for fewer values"


def failed_record(desk, since):
    return await_until(lambda: [entry for entry in trace(desk, "--since", since) if entry["failed"]], "a failed record")[0]


def half(level):
    return ("-u", "half", "-l", level, "-a", "SHA", "-A", "halfhalfhalf", "-x", "AES", "-X", "halfhalfhalf")


def test_a_user_without_a_key_for_the_level_says_so(odd):
    since = last_number(odd)
    run_tool(odd, "snmpget", NAME, version="3", security=half("authPriv"))
    entry = failed_record(odd, since)
    assert entry["error"] == "usmStatsUnsupportedSecLevels"
    assert entry["reason"] == 'unsupported security level: "half" has no key for it'


def test_a_request_that_is_only_signed_is_shown_with_its_level(odd):
    since = last_number(odd)
    run_tool(odd, "snmpget", NAME, version="3", security=half("authNoPriv"))
    entry = await_until(lambda: [entry for entry in trace(odd, "--since", since) if entry["answer"]], "records")[-1]
    assert (entry["who"], entry["error"], entry["pdu"]) == ("half authNoPriv", "noError", "GET")


def test_a_message_of_another_time_says_so(odd):
    since = last_number(odd)
    run_tool(odd, "snmpget", NAME, version="3", security=(*half("authNoPriv"), "-Z", "77,5"))
    entry = failed_record(odd, since)
    assert entry["error"] == "usmStatsNotInTimeWindows"
    assert entry["reason"].startswith("not in time window: the message is more than 150 s from the agent's time")


@pytest.mark.parametrize("security", [half("authNoPriv"), None], ids=["signed", "encrypted"])
def test_another_context_is_named(odd, security):
    since = last_number(odd)
    run_tool(odd, "snmpget", NAME, version="3", security=(*(security or user(odd)), "-n", "nowhere"))
    entry = failed_record(odd, since)
    assert (entry["context"], entry["error"]) == ("nowhere", None)
    assert entry["reason"] == 'no such context: the agent has none named "nowhere"'


def test_a_trap_that_a_request_caused_stands_with_it(odd):
    since = last_number(odd)
    run_tool(odd, "snmpget", NAME, community="guess")
    entry = read_record(odd, since)
    (trap,) = entry["traps"]
    assert "1.3.6.1.6.3.1.1.5.5" in [binding["value"] for binding in trap["bindings"]]
    assert trap["number"] == entry["number"] + 1
    assert [receiver["sent"] for receiver in trap["receivers"]] == [True]
    assert not [entry for entry in trace(odd, "--since", since) if entry["pdu"] == "trap"]


@pytest.mark.skipif(os.getuid() != 0, reason="only root can send a datagram from port 0")
def test_an_answer_that_cannot_be_sent_says_so(odd):
    since = last_number(odd)
    message = ber.encode(ber.GET, [(OID["modelName"], ber.NULL, b"")])
    with socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_UDP) as sender:
        sender.sendto(struct.pack("!HHHH", 0, odd.port, 8 + len(message), 0) + message, ("127.0.0.1", 0))
    entry = read_record(odd, since)
    assert (entry["error"], entry["answer"], entry["failed"]) == (None, None, True)
    assert entry["reason"] == "the answer could not be sent"


HOSTS = """
#include <stdlib.h>
extern char *hosts_allow_table __attribute__((weak));
extern char *hosts_deny_table __attribute__((weak));
__attribute__((constructor)) static void ours(void) {
    if (&hosts_deny_table == 0) return;  /* another program than the agent */
    hosts_allow_table = getenv("TEST_HOSTS_ALLOW");
    hosts_deny_table = getenv("TEST_HOSTS_DENY");
}
"""


@pytest.mark.skipif(not has_wrappers(), reason="this agent does not ask for lists of hosts")
def test_a_host_that_is_not_allowed_says_so(desk, tmp_path):
    desk.leave_out("orvexnowrap")  # which keeps the desk's agent from reading the lists
    (tmp_path / "hosts.c").write_text(HOSTS)
    subprocess.run(["gcc", "-shared", "-fPIC", "-o", tmp_path / "hosts.so", tmp_path / "hosts.c"], check=True)
    (tmp_path / "deny").write_text("")
    (tmp_path / "allow").write_text("")
    desk.environment.update(LD_PRELOAD=preloaded(tmp_path / "hosts.so"), TEST_HOSTS_ALLOW=str(tmp_path / "allow"),
                            TEST_HOSTS_DENY=str(tmp_path / "deny"))
    desk.start()
    (tmp_path / "deny").write_text("snmpd: ALL\n")
    since = last_number(desk)
    run_tool(desk, "snmpget", NAME)
    entry = read_record(desk, since)
    assert (entry["who"], entry["error"], entry["failed"]) == ("reader", None, True)
    assert entry["reason"].startswith("the agent dropped it: its host is not allowed (hosts.allow, hosts.deny)")


def test_an_empty_datagram_says_so(camera, asking):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.sendto(b"", ("127.0.0.1", camera.port))
    entry = asking.one()
    assert (entry["reason"], entry["failed"]) == ("broken message: it is empty", True)


def test_a_getbulk_shows_how_much_it_asks_for(camera, asking):
    run_tool(camera, "snmpbulkget", "-Cn1", "-Cr7", NAME, OID["modelName"])
    entry = asking.one()
    assert (entry["pdu"], entry["nonRepeaters"], entry["maxRepetitions"]) == ("GETBULK", 1, 7)
    assert len(entry["answer"]) == 8 and "context" not in entry


def test_a_motion_stands_still_while_the_clock_is_paused(camera, asking):
    camera.domectl("set", "pan", 0)
    camera.domectl("clock", "pause")
    entry = asking.set(PAN, "x", "02404650")
    assert (entry["error"], entry["reason"], entry["failed"]) == ("noError", "the camera's clock is paused", True)
    camera.domectl("clock", "run")
    camera.domectl("clock", "rate", 100)
    entry = ended(asking)
    assert (entry["reason"], entry["failed"], entry["motions"][0]["end"]) == ("", False, "arrived")


def test_a_call_of_somebody_else_is_another_callers(camera, asking):
    run_tool(camera, "snmpset", PAN, "x", "03100000", community="private")
    subprocess.run(["dbus-send", f"--bus=unix:path={camera.state}/bus.sock", "--print-reply", "--dest=org.tavos.Pan1",
                    "/org/tavos/Pan1", "org.tavos.Pan1.SetRelativeVelocity", "double:0", "int32:0"], check=True, capture_output=True, timeout=20)
    (motion,) = ended(asking)["motions"]
    assert (motion["end"], motion["by"]) == ("stopped", "another caller")


class Relay:
    """Passes datagrams between one manager and an agent, and keeps them."""

    def __init__(self, port):
        self.seen, self._agent = [], ("127.0.0.1", port)
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(0.1)
        self.port, self._ended = self._socket.getsockname()[1], threading.Event()
        self._thread = threading.Thread(target=self._pass)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()
        self._socket.close()

    def _pass(self):
        manager = None
        while not self._ended.is_set():
            try:
                octets, sender = self._socket.recvfrom(65536)
            except socket.timeout:
                continue
            self.seen.append(octets)
            if sender != self._agent:
                manager = sender
            self._socket.sendto(octets, self._agent if sender == manager else manager)


def test_a_capture_of_version_3_is_encrypted_as_on_the_wire(camera, asking, tmp_path):
    with Relay(camera.port) as relay:
        command = ["snmpget", "-v3", *user(camera), "-t", "5", "-r", "0", "-On", f"127.0.0.1:{relay.port}", OID["modelName"]]
        done = subprocess.run(command, env=camera.environment, capture_output=True, text=True, timeout=30)
        assert "Orvex Dome D20" in done.stdout
        seen = list(relay.seen)
    await_until(lambda: [entry for entry in asking.requests() if entry["answer"] and entry["pdu"] == "GET"], "the last record")
    camera.domectl("trace", "--since", asking.since, "--pcap", tmp_path / "v3.pcap")
    captured = packets((tmp_path / "v3.pcap").read_bytes())
    assert [payload for *_, payload in captured] == seen and len(seen) >= 4
    assert b"Orvex Dome" not in b"".join(seen)


class Follower:
    """`domectl trace --follow`, until the block ends."""

    def __init__(self, desk, *options):
        self._desk, self.lines = desk, []
        self._process = subprocess.Popen([BUILD / "bin" / "domectl", "--state", desk.state, "trace", "--follow", *options],
                                         env=desk.environment, stdout=subprocess.PIPE, text=True)
        self._thread = threading.Thread(target=lambda: self.lines.extend(self._process.stdout))

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait(10)
        self._thread.join()
        self._process.stdout.close()

    def await_line(self, text):
        return await_until(lambda: [line for line in list(self.lines) if text in line], f"a line with {text!r}")[0]


def await_following(desk, follower):
    """A failing request is shown with each choice of options."""
    def shown():
        run_tool(desk, "snmpget", f"{ORVEX}.99.1.0")
        return [line for line in list(follower.lines) if "no such object" in line]

    await_until(shown, "the follower shows a record")


def test_following_what_failed_shows_the_end_of_what_stood_still(camera, asking):
    """And of nothing else: what has not failed is not shown at its end, either."""
    camera.domectl("set", "pan", 0)
    with Follower(camera, "--failed") as follower:
        await_following(camera, follower)
        other = Asking(camera).set(PAN, "x", "02400064")["number"]
        await_until(lambda: ended(asking, -1), "the first arrives")
        camera.domectl("clock", "pause")
        number = Asking(camera).set(PAN, "x", "02400000")["number"]
        follower.await_line("why: the camera's clock is paused")
        camera.domectl("clock", "run")
        follower.await_line(f"motion of {number}: pan from 1.00° to 0.00°: arrived")
        assert f"motion of {other}:" not in "".join(follower.lines)


AHEAD = """
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>
int clock_gettime(clockid_t clock, struct timespec *now) {
    static int (*original)(clockid_t, struct timespec *);
    if (original == 0) original = (int (*)(clockid_t, struct timespec *))dlsym(RTLD_NEXT, "clock_gettime");
    int result = original(clock, now);
    if (clock == CLOCK_REALTIME && access(getenv("TEST_AHEAD"), F_OK) == 0) now->tv_sec += 3600;
    return result;
}
"""


def test_following_goes_on_after_the_clock_is_set_back(camera, asking, tmp_path, monkeypatch):
    (tmp_path / "ahead.c").write_text(AHEAD)
    subprocess.run(["gcc", "-shared", "-fPIC", "-o", tmp_path / "ahead.so", tmp_path / "ahead.c", "-ldl"], check=True)
    (tmp_path / "ahead").write_text("")
    monkeypatch.setitem(camera.environment, "TEST_AHEAD", str(tmp_path / "ahead"))
    monkeypatch.setitem(camera.environment, "LD_PRELOAD", preloaded(tmp_path / "ahead.so"))
    with Follower(camera, "--failed") as follower:
        monkeypatch.delitem(camera.environment, "LD_PRELOAD")
        for _ in range(10):
            run_tool(camera, "snmpget", f"{ORVEX}.99.1.0")
        assert follower.lines == [], "they are an hour before the follower's start"
        (tmp_path / "ahead").unlink()
        await_following(camera, follower)


def test_following_since_a_record_waits_for_an_agent_that_is_busy(desk):
    desk.start()
    for _ in range(5):
        run_tool(desk, "snmpget", NAME)
    os.kill(desk.agent_pid(), signal.SIGSTOP)
    try:
        with Follower(desk, "--since", "3") as follower:
            desk.domectl("set", "pan", 1000)
            follower.await_line("set pan 1000")
            os.kill(desk.agent_pid(), signal.SIGCONT)
            await_following(desk, follower)
    finally:
        os.kill(desk.agent_pid(), signal.SIGCONT)
    numbers = [int(line.split()[0]) for line in follower.lines if line.split()[0].isdigit()]
    assert numbers and min(numbers) == 4
