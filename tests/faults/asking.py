"""A manager in a separate process, so that the test's own work does not distort its times:

asking.py PORT OID PAUSE TIMEOUT

Sends GETs for the object until it is ended, each after the last answer. Writes a line for each answer: the time of
sending, seconds taken, error status and value; "lost" for an answer that did not come in time.
"""

import pathlib
import socket
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "conform" / "oracle"))

import ber  # noqa: E402

port, oid, pause, timeout = int(sys.argv[1]), sys.argv[2], float(sys.argv[3]), float(sys.argv[4])
manager = ber.Manager(port, timeout)
while True:
    start = time.monotonic()
    try:
        answer = manager.get(oid)
        outcome = f"{answer.error_status} {answer.bindings[0].value!r}"
    except (socket.timeout, ConnectionRefusedError):
        outcome = "lost"
    print(start, time.monotonic() - start, outcome, flush=True)
    time.sleep(pause)
