"""The requests that the console accepts and refuses."""

import http.client
import json
import os
import signal
import socket
import time

import pytest

from desk import await_until
from expected_tree import OID

COMMAND = {"words": ["set", "pan", "1000"]}


@pytest.mark.parametrize("host", ["127.0.0.1", "localhost", "LOCALHOST:8205", "127.0.0.1:1", "[::1]:8205", "desk.example",
                                  "DESK.example:8205", "other.example"])
def test_own_names(camera, host):
    assert camera.get("/api/state", Host=host).status == 200


@pytest.mark.parametrize(
    "host",
    [None, "", "example.org", "localhost.example.org", "127.0.0.1.example.org", "localhost.", "127.0.0.2", "10.0.0.1",
     "[::1", "[::1]x", "localhost:", "localhost:80x", "user@localhost", "localhost/", "0.0.0.0"],
    ids=str,
)
@pytest.mark.parametrize("path", ["/", "/api/state", "/api/stream"])
def test_foreign_names(camera, host, path):
    answer = camera.get(path, Host=host)
    assert (answer.status, list(answer.json)) == (403, ["error"])


def test_two_names(camera):
    with socket.create_connection(("127.0.0.1", camera.console_port), 10) as client:
        client.sendall(b"GET / HTTP/1.1\r\nHost: localhost\r\nHost: localhost\r\nConnection: close\r\n\r\n")
        assert client.makefile("rb").readline().startswith(b"HTTP/1.1 403 ")


def test_own_origin(camera):
    assert camera.post("/api/control", COMMAND, Host="localhost:9", Origin="http://localhost:9").status == 200


@pytest.mark.parametrize(
    "origin", ["null", "http://example.org", "https://localhost:9", "http://localhost", "http://localhost:10", "localhost:9"])
def test_foreign_origins(camera, origin):
    assert camera.post("/api/control", COMMAND, Host="localhost:9", Origin=origin).status == 403
    assert camera.get("/", Host="localhost:9", Origin=origin).status == 403
    assert camera.dome_state()["pan"]["position"] == 0


@pytest.mark.parametrize("site, status", [("cross-site", 403), ("same-site", 403), ("same-origin", 200), ("none", 200)])
def test_sites(camera, site, status):
    assert camera.get("/api/state", Sec_Fetch_Site=site).status == status
    assert camera.get("/", Sec_Fetch_Site=site).status == 200, "any site may link to the page"


@pytest.mark.parametrize("kind", [None, "", "text/plain", "application/x-www-form-urlencoded", "application/jsonp", "multipart/form-data"])
def test_only_json_is_posted(camera, kind):
    assert camera.post("/api/control", COMMAND, Content_Type=kind).status == 415
    assert camera.dome_state()["pan"]["position"] == 0


@pytest.mark.parametrize("kind", ["application/json; charset=utf-8", "Application/JSON"])
def test_json_by_its_other_names(camera, kind):
    assert camera.post("/api/control", COMMAND, Content_Type=kind).status == 200


@pytest.mark.parametrize("path", ["/nothing", "/api", "/api/fleet", "/api/", "/api/states", "/../etc/passwd", "//", "/index.html", "*", "http://localhost/"])
def test_unknown_paths(camera, path):
    assert camera.get(path).status == 404


def test_a_camera_that_stands_alone_says_that_it_has_no_fleet(camera):
    assert camera.get("/api/fleet").json == {"error": "this camera is not in a fleet"}


@pytest.mark.parametrize("method, path, allowed", [
    ("POST", "/", "GET, HEAD"),
    ("DELETE", "/console.js", "GET, HEAD"),
    ("PUT", "/api/state", "GET, HEAD"),
    ("POST", "/api/stream", "GET, HEAD"),
    ("OPTIONS", "/api/control", "POST"),
    ("GET", "/api/control", "POST"),
    ("HEAD", "/api/call", "POST"),
    ("PROPFIND", "/api/call", "POST"),
])
def test_wrong_methods(camera, method, path, allowed):
    answer = camera.request(method, path, Content_Type="application/json")
    assert (answer.status, answer.headers["allow"]) == (405, allowed)


@pytest.mark.parametrize("path", ["/", "/console.js", "/api/state", "/api/stream"])
def test_head_has_no_body(camera, path):
    answer = camera.request("HEAD", path)
    assert (answer.status, answer.body) == (200, b"")


def test_the_page_loads_nothing_from_elsewhere(camera):
    answer = camera.get("/")
    policy = answer.headers["content-security-policy"]
    assert "default-src 'none'" in policy and "frame-ancestors 'none'" in policy
    assert answer.headers["x-content-type-options"] == "nosniff"
    for word in (b"http:", b"https:", b"//"):
        assert word not in answer.body.replace(b"<!doctype", b""), f"the page names {word}"


def test_huge_bodies(camera):
    assert camera.post("/api/control", b" " * 65537).status == 413
    assert camera.post("/api/control", b" " * 65536).status == 400
    with socket.create_connection(("127.0.0.1", camera.console_port), 10) as client:
        client.sendall(b"POST /api/control HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999999\r\n\r\n")
        assert client.makefile("rb").readline().startswith(b"HTTP/1.1 413 ")


def test_a_huge_body_in_chunks(camera):
    with socket.create_connection(("127.0.0.1", camera.console_port), 10) as client:
        client.sendall(b"POST /api/control HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n")
        for _ in range(9):
            client.sendall(b"2000\r\n" + b" " * 0x2000 + b"\r\n")
        assert client.makefile("rb").readline().startswith(b"HTTP/1.1 413 ")


def test_a_huge_header(camera):
    assert camera.get("/", X_Long="x" * 9000).status == 431


@pytest.mark.parametrize("octets", [b"\r\n\r\n\r\n", b"GET\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"GET / HTTP/1.1\r\nbad header\r\n\r\n"])
def test_octets_that_are_not_a_request(camera, octets):
    with socket.create_connection(("127.0.0.1", camera.console_port), 10) as client:
        client.sendall(octets)
        client.shutdown(socket.SHUT_WR)
        answer = client.makefile("rb").read()
    assert answer == b"" or answer.startswith(b"HTTP/1.1 400 "), answer
    assert camera.get("/api/state").status == 200


def test_requests_on_one_connection(camera):
    connection = http.client.HTTPConnection("127.0.0.1", camera.console_port, timeout=10)
    for path, status in (("/", 200), ("/nothing", 404), ("/api/state", 200), ("/console.css", 200)):
        connection.request("GET", path)
        answer = connection.getresponse()
        assert answer.status == status
        answer.read()
    connection.close()


def test_without_a_port_there_is_no_console(desk):
    desk.dome_options = ["--console-port", 0]
    desk.start_bus()
    desk.start_dome()
    with pytest.raises(ConnectionRefusedError):
        desk.get("/")
    descriptors = f"/proc/{desk.processes['dome'].pid}/task"
    assert len(os.listdir(descriptors)) == 1, "no console, no thread"


def test_a_taken_port_is_reported(desk):
    desk.start_bus()
    with socket.socket() as holder:
        holder.bind(("127.0.0.1", desk.console_port))
        holder.listen()
        desk.launch_dome()
        dome = desk.processes.pop("dome")
        assert dome.wait(20) == 1
    (line,) = desk.log("dome").splitlines()
    assert line.startswith(f"orvex-dome: console: 127.0.0.1:{desk.console_port}: ")
    assert "ready" not in desk.output("dome")


@pytest.mark.parametrize("options", [["--console-port", "65536"], ["--console-port", "-1"], ["--console-port", "x"], ["--agent-port", ""]], ids=" ".join)
def test_wrong_options(desk, options):
    desk.dome_options = options
    desk.start_bus()
    desk.launch_dome()
    assert desk.processes.pop("dome").wait(20) == 2
    assert desk.log("dome").startswith(f"orvex-dome: {options[0]}: ")


def test_an_invalid_address(desk):
    desk.dome_options += ["--console-address", "localhost"]
    desk.start_bus()
    desk.launch_dome()
    assert desk.processes.pop("dome").wait(20) == 1
    (line,) = desk.log("dome").splitlines()
    assert "localhost" in line


def test_another_address_on_request(desk):
    desk.dome_options += ["--console-address", "0.0.0.0"]
    desk.start_bus()
    desk.start_dome()
    assert desk.get("/api/state", Host="192.0.2.7:8205").status == 200, "any numeric host is accepted"
    assert desk.get("/api/state", Host="example.org").status == 403
    with socket.create_connection(("127.0.0.2", desk.console_port), 10):
        pass


def test_loopback_only(camera):
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.2", camera.console_port), 10)


def test_the_dome_ends_with_browsers_watching(desk):
    desk.start_bus()
    desk.start_dome()
    with desk.events() as events, desk.open_stream():
        events.next("state")
        desk.control("set", "pan", 90000)
        assert desk.end("dome") == 0
        list(events)  # read it to its end


def test_the_dome_ends_while_the_agent_hangs(desk):
    """While the trace waits for it, and two commands."""
    desk.start()
    command = {"oid": OID["positionPan"], "type": "OCTET STRING", "value": "00 00 00 00", "user": "desk", "version": "3"}
    assert desk.post("/api/command", command).json["outcome"] == "answered", "its keys are known"
    os.kill(desk.agent_pid(), signal.SIGSTOP)
    clients = [http.client.HTTPConnection("127.0.0.1", desk.console_port, timeout=20) for _ in range(3)]
    try:
        for client in clients[:2]:
            client.request("POST", "/api/command", json.dumps(command), {"Content-Type": "application/json"})
        begun = time.monotonic()
        await_until(lambda: time.monotonic() > begun + 1, "the first command has waited for half of its time")
        clients[2].request("GET", "/api/trace")
        assert desk.get("/api/objects").status == 200, "the question has been taken"
        start = time.monotonic()
        assert desk.end("dome") == 0
        assert time.monotonic() - start < 2.5
    finally:
        os.kill(desk.agent_pid(), signal.SIGCONT)
        for client in clients:
            client.close()
