"""A trap sink whose buffer holds every trap until it reads."""

import collections
import socket
import threading

import ber

SO_RCVBUFFORCE = 33  # exceeds the system's limit; root only


class Sink:
    """Bound at once; read later."""

    def __init__(self, desk, buffer=64 << 20):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        try:
            self._socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, buffer)
        except PermissionError:
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
        self._socket.bind(("127.0.0.1", desk.trap_port))
        self._thread = None
        self._messages, self._values = collections.deque(), []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()
        if self._thread:
            self._thread.join(5)

    def read(self):
        """Starts to read, in the background."""
        self._socket.settimeout(0.5)
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        while True:
            try:
                self._messages.append(self._socket.recv(65536))
            except socket.timeout:
                if self._socket.fileno() < 0:
                    return
            except OSError:
                return

    @property
    def values(self):
        """The values of the traps' last bindings, in order of arrival."""
        while self._messages:
            self._values.append(ber.Message(self._messages.popleft()).bindings[-1].value)
        return list(self._values)
