"""The one way to the camera: a UDP socket connected to the named host. Whatever is sent passes here, so the promise to
only read is kept here."""

import collections
import socket
import time

import ber
from orvex_conform import usm

V1, V2C, V3 = "1", "2c", "3"
_NUMBERS = {V1: 0, V2C: 1}
MAX_MESSAGE = 65507  # octets of a UDP message over IPv4
PATIENCE = 4  # silent requests in a row before the camera counts as gone


class Unreachable(Exception):
    """The host cannot be used at all."""


class Silent(Exception):
    """A request without an answer, in time and after its repetitions."""


class Gone(Exception):
    """The camera has stopped answering."""


class MayNotSet(Exception):
    """A SET while only reading was allowed: a fault of this program."""


class Access:
    """How one role asks: a version, and a community or a user."""

    def __init__(self, version, community="", user=None):
        self.version, self.community, self.user = version, community, user

    def is_same(self, other):
        """Whether the camera takes both for the same one."""
        mine, theirs = (one.user.name if one.user else one.community for one in (self, other))
        return (self.version == V3, mine) == (other.version == V3, theirs)

    def message(self, pdu, request_id):
        if self.version == V3:
            return self.user.wrap(pdu, request_id)
        return ber.message(pdu, self.community, _NUMBERS[self.version])


class Answer:
    """A PDU that the camera sent, and the seconds that it took."""

    def __init__(self, pdu, seconds):
        self.error, self.index, self.bindings, self.seconds = pdu.error_status, pdu.error_index, pdu.bindings, seconds
        self.pdu, self.request_id = pdu.pdu, pdu.request_id

    @property
    def binding(self):
        """The first one; one without a name if there is none."""
        return self.bindings[0] if self.bindings else ber.Binding("", ber.NULL, b"")


class Link:
    def __init__(self, host, port, timeout=2.0, retries=1, may_set=False):
        """Raises Unreachable. `timeout` in seconds for each attempt; `retries` repeats of an unanswered request."""
        try:
            family, kind, protocol, _, address = socket.getaddrinfo(host, port, type=socket.SOCK_DGRAM)[0]
            self._socket = socket.socket(family, kind, protocol)
            self._socket.connect(address)
        except OSError as error:
            raise Unreachable(f"cannot reach {host}: {error.strerror}") from None
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        self.host, self.port, self.address = host, port, address[0]
        self.timeout, self.retries, self._may_set = timeout, retries, may_set
        self.sent = collections.Counter()  # by the kind of PDU
        self._silent = 0

    def close(self):
        self._socket.close()

    def own_address(self):
        """This machine's address on the way to the camera."""
        return self._socket.getsockname()[0]

    # --- requests ---

    def get(self, access, *oids, **how):
        return self.ask(access, ber.GET, _nulls(oids), **how)

    def get_next(self, access, *oids, **how):
        return self.ask(access, ber.GETNEXT, _nulls(oids), **how)

    def get_bulk(self, access, repetitions, *oids, others=0, **how):
        return self.ask(access, ber.GETBULK, _nulls(oids), others, repetitions, **how)

    def set(self, access, *bindings, **how):
        return self.ask(access, ber.SET, bindings, **how)

    def ask(self, access, kind, bindings, status=0, index=0, timeout=None, retries=None):
        """The Answer. Raises Silent, or Gone after several of them in a row."""
        timeout = self.timeout if timeout is None else timeout
        for _ in range((self.retries if retries is None else retries) + 1):
            number = ber.next_request_id()
            start = time.monotonic()
            self._send_pdu(access, kind, ber.pdu_octets(kind, bindings, status, index, number), number)
            answer = self._await(access, number, start, start + timeout)
            if answer is not None:
                self._silent = 0
                return answer
        self._silent += 1
        if self._silent >= PATIENCE:
            raise Gone(f"{PATIENCE} requests in a row were not answered")
        raise Silent(f"no answer within {timeout:g} s")

    def set_all(self, access, oid, values, probe, unanswered=frozenset(), window=8):
        """SETs of one object to each of the values (already encoded), several at once; the answer to each, or None. A
        GET of `probe` after each group shows that the agent has handled it. A value without an answer is sent once
        more, unless it is one of `unanswered`."""
        answers = []
        for start in range(0, len(values), window):
            group = values[start : start + window]
            received = self._group(access, oid, group, probe)
            for index, value in enumerate(group):
                if received[index] is None and value not in unanswered:
                    received[index] = self._group(access, oid, [value], probe)[0]
            answers += received
        return answers

    def _group(self, access, oid, values, probe):
        numbers = []
        for value in values:
            numbers.append(ber.next_request_id())
            binding = ber.tlv(ber.SEQUENCE, ber.tlv(ber.OID, ber.oid_octets(oid)) + value.encoded)
            pdu = ber.tlv(ber.SET, ber.integers(numbers[-1], 0, 0) + ber.tlv(ber.SEQUENCE, binding))
            self._send_pdu(access, ber.SET, pdu, numbers[-1])
        kept = {}
        for _ in range(self.retries + 1):
            number = ber.next_request_id()
            begin = time.monotonic()
            self._send_pdu(access, ber.GET, ber.pdu_octets(ber.GET, _nulls([probe]), request_id=number), number)
            if self._await(access, number, begin, begin + self.timeout * 2, kept) is not None:
                self._silent = 0
                return [kept.get(number) for number in numbers]
        self._silent += 1
        if self._silent >= PATIENCE:
            raise Gone(f"{PATIENCE} requests in a row were not answered")
        raise Silent(f"no answer within {self.timeout * 2:g} s")

    def discover(self, user):
        """Asks for the agent's SNMPv3 engine. Raises Silent."""
        for _ in range(self.retries + 1):
            number = ber.next_request_id()
            self.send(user.discovery(number))
            deadline = time.monotonic() + self.timeout
            while (octets := self.receive(deadline)) is not None:
                try:
                    user.learn(octets)
                    return
                except (ValueError, IndexError, usm.Refused):
                    continue
        raise Silent("no answer to SNMPv3's discovery")

    def _send_pdu(self, access, kind, pdu, number):
        if kind == ber.SET and not self._may_set:
            raise MayNotSet("a SET while only reading is allowed")
        self.sent[kind] += 1
        self.send(access.message(pdu, number))

    def _await(self, access, number, start, deadline, kept=None):
        """The answer with that request id; other answers go to `kept`. None after the deadline."""
        while (octets := self.receive(deadline)) is not None:
            try:
                pdu = access.user.unwrap(octets) if access.version == V3 else ber.Message(octets)
            except (ValueError, IndexError, KeyError, usm.Refused):
                continue
            answer = Answer(pdu, time.monotonic() - start)
            if pdu.pdu == usm.REPORT:
                # A report has no request id that could be trusted: the agent could not read the request's.
                if access.version == V3 and any(one.oid == usm.NOT_IN_WINDOW for one in pdu.bindings):
                    access.user.learn(octets)
                return answer
            if pdu.request_id == number:
                return answer
            if kept is not None:
                kept[pdu.request_id] = answer
        return None

    # --- octets ---

    def send(self, octets):
        try:
            self._socket.send(octets[:MAX_MESSAGE])
        except ConnectionRefusedError:
            pass  # of an earlier message: nobody listens; the receiving side sees the silence
        except OSError as error:
            raise Unreachable(f"cannot send to {self.host}: {error.strerror}") from None

    def receive(self, deadline):
        """The next message's octets, or None after the deadline (of the monotonic clock)."""
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                return None
            self._socket.settimeout(left)
            try:
                return self._socket.recv(65536)
            except socket.timeout:
                return None
            except ConnectionRefusedError:
                time.sleep(min(left, 0.02))  # nobody listens there now

    def drain(self):
        """Drops what has arrived."""
        self._socket.setblocking(False)
        try:
            while True:
                self._socket.recv(65536)
        except (BlockingIOError, ConnectionRefusedError):
            pass


def _nulls(oids):
    return [(oid, ber.NULL, b"") for oid in oids]
