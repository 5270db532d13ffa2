"""The benchmark itself works: the load generator counts answers, and a short run of bench/run measures every contestant
that it names. The tests check no times."""

import json
import os
import pathlib
import socket
import subprocess
import tempfile
import threading

import ber
import pytest
from desk import BUILD, ROOT
from expected_tree import ROWS

pytestmark = pytest.mark.commands

SYS_NAME = "1.3.6.1.2.1.1.5.0"
REQUEST = ber.encode(ber.GET, [(SYS_NAME, ber.NULL, b"")], request_id=0x40000000)


class Answerer:
    """A minimal agent; `answer` creates an answer from each request's id, or returns None for no answer."""

    def __init__(self, answer):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(0.1)
        self.port = self._socket.getsockname()[1]
        self.asked = 0
        self._answer, self._ended = answer, False
        self._thread = threading.Thread(target=self._run)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended = True
        self._thread.join()
        self._socket.close()

    def _run(self):
        while not self._ended:
            try:
                request, manager = self._socket.recvfrom(65536)
            except socket.timeout:
                continue
            self.asked += 1
            answer = self._answer(self.asked, ber.Message(request).request_id)
            if answer is not None:
                self._socket.sendto(answer, manager)


def response(request_id, status=0, tag=ber.OCTET_STRING):
    value = b"orvex" if tag == ber.OCTET_STRING else b""
    return ber.encode(ber.RESPONSE, [(SYS_NAME, tag, value)], status=status, request_id=request_id)


def load(port, *options):
    command = [BUILD / "bin" / "bench-load", "requests", "--port", str(port), "--warm-up", "0", *options, REQUEST.hex()]
    done = subprocess.run(command, capture_output=True, text=True, timeout=30, check=True)
    return json.loads(done.stdout)


def test_load_counts_what_is_answered():
    with Answerer(lambda number, request_id: response(request_id)) as answerer:
        figures = load(answerer.port, "--in-flight", "8", "--seconds", "0.3")
    assert figures["lost"] == figures["errors"] == 0
    assert 8 <= figures["requests"] <= answerer.asked
    # Each request has its time, even one that was answered after the end.
    assert sum(count for _, count in figures["histogram"]) == answerer.asked


@pytest.mark.parametrize("status, tag", [(ber.GEN_ERR, ber.OCTET_STRING), (0, ber.NO_SUCH_INSTANCE)])
def test_load_counts_errors(status, tag):
    with Answerer(lambda number, request_id: response(request_id, status, tag)) as answerer:
        figures = load(answerer.port, "--seconds", "0.1")
    assert figures["errors"] == answerer.asked > 0


def test_load_counts_lost_requests_and_asks_again():
    with Answerer(lambda number, request_id: None if number == 1 else response(request_id)) as answerer:
        figures = load(answerer.port, "--seconds", "2.2")
    assert figures["lost"] >= 1
    assert figures["requests"] > 0


def test_load_takes_no_answer_to_another_request():
    with Answerer(lambda number, request_id: response(request_id ^ 0x100)) as answerer:
        figures = load(answerer.port, "--seconds", "0.1")
    assert figures["requests"] == 0
    assert figures["histogram"] == []


@pytest.fixture(scope="module")
def smoke():
    """The figures of a run of a few seconds, and the files that it left in the folder for temporary files."""
    with tempfile.TemporaryDirectory() as folder:
        out, temporary = pathlib.Path(folder) / "out" / "smoke.json", pathlib.Path(folder) / "tmp"
        temporary.mkdir()
        environment = dict(os.environ, ORVEX_BUILD=str(BUILD), TMPDIR=str(temporary))
        subprocess.run([ROOT / "bench" / "run", "--smoke", "--out", out], env=environment, check=True, timeout=120,
                       stdout=subprocess.DEVNULL)
        yield json.loads(out.read_text()), sorted(path.name for path in temporary.iterdir())


def test_run_measures_everything_it_names(smoke):
    figures, _ = smoke
    assert figures["absent"] == {}
    asked = {(one["contestant"], one["workload"], one["in_flight"]) for one in figures["series"]}
    agents = [(agent, what) for agent in ("module", "no lanes", "agentx")
              for what in ("identity", "temperature", "move")]
    expected = {(contestant, what, in_flight) for in_flight in (1, 8, 64)
                for contestant, what in [("echo", "echo"), ("built-in", "sysName"), *agents]}
    expected |= {("bus", what, 1) for what in ("temperature", "input", "count", "pan")}
    assert asked == expected
    assert all(one["samples"] > 0 and one["rounds"][0]["rate"] > 0 for one in figures["series"])
    assert {one["objects"] for one in figures["walks"]} == {len(ROWS)}


def test_run_has_every_contestant_do_the_same_work(smoke):
    figures, _ = smoke
    assert figures["service_calls"]["module"] == figures["service_calls"]["no lanes"]
    assert figures["service_calls"]["module"] == figures["service_calls"]["agentx"]
    assert figures["service_calls"]["module"] == {"identity": 0, "last command": 0, "constant": 0, "temperature": 1,
                                                  "input": 1, "cell": 2, "move": 1, "relay": 1}


def test_run_measures_with_lanes_and_without(smoke):
    figures, _ = smoke
    assert figures["sockets"]["module"] > figures["sockets"]["no lanes"]
    assert figures["walk_calls"]["module"] == figures["walk_calls"]["no lanes"]


@pytest.mark.parametrize("what", ["temperature", "input", "count", "pan"])
def test_a_call_makes_round_trips_over_a_pair_of_sockets(what):
    command = [BUILD / "bin" / "bench-bus", "call", "--pair", "1", "--what", what, "--seconds", "0.01"]
    figures = json.loads(subprocess.run(command, capture_output=True, text=True, timeout=30, check=True).stdout)
    assert 0 < figures["requests"] == sum(count for _, count in figures["histogram"])


def test_run_cleans_up(smoke):
    _, left = smoke
    assert left == []


def test_page_is_that_of_the_last_results(tmp_path):
    """docs/performance.md is generated: an edit by hand would be lost."""
    last = ROOT / "bench" / "results.json"
    subprocess.run(["/usr/bin/python3", ROOT / "bench" / "report.py", last, tmp_path / "performance.md"], check=True,
                   env=dict(os.environ, ORVEX_BUILD=str(BUILD), PYTHONDONTWRITEBYTECODE="1"), stdout=subprocess.DEVNULL)
    made = {path.name: path.read_text() for path in tmp_path.iterdir()}
    assert {name: (ROOT / "docs" / name).read_text() for name in made} == made
