"""A desk camera with a console, and HTTP clients for it."""

import contextlib
import http.client
import json
import math
import socket
import time

from desk import Desk, free_tcp_port


class Answer:
    def __init__(self, response):
        self.status, self.body = response.status, response.read()
        self.headers = {name.lower(): value for name, value in response.getheaders()}

    @property
    def json(self):
        return json.loads(self.body)


class ConsoleDesk(Desk):
    def __init__(self):
        super().__init__()
        self.console_port = free_tcp_port()
        self.dome_options = ["--console-port", self.console_port, "--agent-port", self.port,
                             "--console-name", "desk.example", "--console-name", "other.example"]

    @property
    def url(self):
        return f"http://127.0.0.1:{self.console_port}/"

    def request(self, method, path, body=None, **headers):
        """One request on a new connection; underscores in the headers' names stand for hyphens. A Host of None omits
        that header."""
        connection = http.client.HTTPConnection("127.0.0.1", self.console_port, timeout=20)
        names = {name.replace("_", "-"): value for name, value in headers.items()}
        try:
            connection.putrequest(method, path, skip_host="Host" in names, skip_accept_encoding=True)
            for name, value in names.items():
                if value is not None:
                    connection.putheader(name, value)
            if body is not None:
                connection.putheader("Content-Length", str(len(body)))
            connection.endheaders(body)
            return Answer(connection.getresponse())
        finally:
            connection.close()

    def get(self, path, **headers):
        return self.request("GET", path, **headers)

    def post(self, path, value, **headers):
        body = value if isinstance(value, bytes) else json.dumps(value).encode()
        headers.setdefault("Content_Type", "application/json")
        return self.request("POST", path, body, **headers)

    def control(self, *words):
        answer = self.post("/api/control", {"words": [str(word) for word in words]})
        assert answer.status == 200, answer.body
        return answer

    def call(self, service, operation, *arguments):
        return self.post("/api/call", {"service": service, "operation": operation, "args": list(arguments)})

    def trace(self):
        """What domectl's trace says."""
        return [json.loads(line) for line in self.domectl("trace", "--json").splitlines()]

    def console_state(self):
        return self.get("/api/state").json

    def dome_state(self):
        """The camera's state without its clock's time, which always runs."""
        state = super().dome_state()
        del state["clock"]["time"]
        return state

    def make_new(self):
        """Resets the camera to its start state, at rest. Uses the console, which is faster than starting domectl."""
        for service in self.dome_state()["faults"]:
            self.control("fault", service, "ok")
        self.control("banks", "alarm", "none")  # removes every stored state
        self.control("banks", "relay", "none")
        for kind in ("alarm", "relay"):
            self.control("banks", kind, "BNK1=4", "BNK2=2")
        self.control("clock", "run")
        self.control("clock", "rate", 1)
        for words in (["light", 50], ["zoom-max", 20000], ["pan", 0], ["tilt", 0], ["zoom", 1000], ["auto-focus", 1], ["auto-iris", 1],
                      ["focus", 50], ["iris", 50], ["temperature", 0, 25], ["temperature", 1, 22], ["voltage", 0],
                      ["power", 0]):
            self.control("set", *words)
        self.clear_calls()

    def open_stream(self, receive_buffer=None, timeout=20):
        """A socket after the request for the event stream; nothing has been read yet."""
        stream = socket.socket()
        if receive_buffer:
            stream.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        stream.settimeout(timeout)
        stream.connect(("127.0.0.1", self.console_port))
        stream.sendall(b"GET /api/stream HTTP/1.1\r\nHost: localhost\r\n\r\n")
        return stream

    @contextlib.contextmanager
    def events(self):
        with self.open_stream() as stream:
            events = Events(stream)
            try:
                yield events
            finally:
                events.close()


class Events:
    """The events of a stream, in order: (name, data)."""

    def __init__(self, stream):
        self._file, self._deadline = stream.makefile("rb"), math.inf
        status = self._file.readline()
        assert status.startswith(b"HTTP/1.1 200 "), status
        self.headers = {}
        for line in iter(self._file.readline, b"\r\n"):
            name, _, value = line.decode().partition(":")
            self.headers[name.lower()] = value.strip()

    def close(self):
        """The socket stays open until this is closed, too."""
        self._file.close()

    def __iter__(self):
        return self

    def __next__(self):
        name = data = None
        while True:
            line = self._file.readline().decode()
            assert time.monotonic() < self._deadline, "timeout: no such event"
            if not line:
                raise StopIteration
            if line.startswith("event: "):
                name = line[7:].rstrip("\n")
            elif line.startswith("data: "):
                data = json.loads(line[6:])
            elif line == "\n" and name:
                return name, data

    def next(self, name, seconds=30):
        """The next event of that name. A stream without events beats every two seconds."""
        self._deadline = time.monotonic() + seconds
        try:
            return next(data for found, data in self if found == name)
        finally:
            self._deadline = math.inf
