"""SNMPv3 with the user-based security model (RFC 3414, RFC 3826, RFC 7860), around PDUs that are already encoded.

A library would build the PDUs itself, and refuse to send those that a camera must refuse."""

import hashlib
import hmac
import os
import time

import ber

# The name in net-snmp's tools: the hash, and the octets of it that a message has.
AUTHENTICATION = {"MD5": ("md5", 12), "SHA": ("sha1", 12), "SHA-224": ("sha224", 16), "SHA-256": ("sha256", 24),
                  "SHA-384": ("sha384", 32), "SHA-512": ("sha512", 48)}
PRIVACY = ("AES",)
MAX_SIZE = 65507
USM = 3
REPORTABLE = 4
WINDOW = 150  # seconds that a message's time may differ from the agent's
NOT_IN_WINDOW = "1.3.6.1.6.3.15.1.1.2.0"
REPORTS = {"1.3.6.1.6.3.15.1.1.1.0": "unsupported security level", NOT_IN_WINDOW: "not in the time window",
           "1.3.6.1.6.3.15.1.1.3.0": "unknown user", "1.3.6.1.6.3.15.1.1.4.0": "unknown engine",
           "1.3.6.1.6.3.15.1.1.5.0": "wrong authentication", "1.3.6.1.6.3.15.1.1.6.0": "decryption failed"}
REPORT = 0xA8


class Refused(Exception):
    """A message that is not for this user, or cannot be verified."""


def localized_key(name, phrase, engine):
    """The key of a pass phrase at one engine (RFC 3414, A.2)."""
    text = phrase.encode()
    million = (text * (1048576 // len(text) + 1))[:1048576]
    digest = hashlib.new(name, million).digest()
    return hashlib.new(name, digest + engine + digest).digest()


class User:
    """One user at one agent. Not usable before `discover` has been answered."""

    def __init__(self, name, authentication="SHA", authentication_phrase="", privacy_phrase="", source=""):
        """Without phrases the messages are neither authenticated nor encrypted. `source`: the start of the names of the
        environment variables that have the phrases."""
        self.source = source
        self.name = name
        self.authentication = authentication
        self._hash, self._signed = AUTHENTICATION[authentication]
        self._phrases = authentication_phrase, privacy_phrase
        self.engine, self._boots, self._time, self._since = b"", 0, 0, 0.0
        self._keys = b"", b""
        self._salt = int.from_bytes(os.urandom(8), "big")

    @property
    def level(self):
        return ("authPriv" if self._phrases[1] else "authNoPriv") if self._phrases[0] else "noAuthNoPriv"

    def discovery(self, request_id):
        """A message whose answer, a report, has the agent's engine."""
        pdu = ber.pdu_octets(ber.GET, [], request_id=request_id)
        return self._message(request_id, REPORTABLE, b"", pdu, plain=True)

    def learn(self, octets):
        """Reads engine and time from any message of the agent."""
        _, _, security, _ = _parts(octets)
        engine, boots, seconds = security[0], _number(security[1]), _number(security[2])
        if engine != self.engine:
            self.engine = engine
            self._keys = tuple(localized_key(self._hash, phrase, engine) if phrase else b"" for phrase in self._phrases)
        self._boots, self._time, self._since = boots, seconds, time.monotonic()

    def wrap(self, pdu, request_id):
        """The message around a PDU's octets."""
        flags = REPORTABLE | (1 if self._keys[0] else 0) | (2 if self._keys[1] else 0)
        return self._message(request_id, flags, self.engine, pdu)

    def unwrap(self, octets):
        """The PDU in an answer. Raises Refused if it is not this user's, or altered."""
        _, flags, security, data = _parts(octets)
        _, boots, seconds, _, signature, salt = security
        if not flags & 1:
            answer = _scoped(data)
            if self._keys[0] and answer.pdu != REPORT:
                raise Refused("an answer without authentication")
            return answer
        if not hmac.compare_digest(self._sign(octets, signature), signature):
            raise Refused("an answer with a wrong signature")
        self._boots, self._time, self._since = _number(boots), _number(seconds), time.monotonic()
        if flags & 2:
            ((_, encrypted),) = ber.split(data)
            data = self._crypt(encrypted, _number(boots), _number(seconds), salt, decrypt=True)
            data = data[: _whole(data)]
        return _scoped(data)

    def _message(self, request_id, flags, engine, pdu, plain=False):
        scoped = ber.tlv(ber.SEQUENCE, _octets(engine) + _octets() + pdu)
        boots, seconds, salt = 0, 0, b""
        if not plain:
            boots, seconds = self._boots, int(self._time + time.monotonic() - self._since)
        if flags & 2:
            self._salt = (self._salt + 1) % 2**64
            salt = self._salt.to_bytes(8, "big")
            scoped = ber.tlv(ber.OCTET_STRING, self._crypt(scoped, boots, seconds, salt))
        signature = bytes(self._signed if flags & 1 else 0)
        name = b"" if plain else self.name.encode()
        security = ber.tlv(ber.SEQUENCE, _octets(engine) + ber.integers(boots, seconds) + _octets(name) +
                           _octets(signature) + _octets(salt))
        header = ber.tlv(ber.SEQUENCE, ber.integers(request_id, MAX_SIZE) + _octets(bytes([flags])) + ber.integers(USM))
        message = ber.tlv(ber.SEQUENCE, ber.integers(3) + header + _octets(security) + scoped)
        if flags & 1:
            start = message.index(security) + len(security) - len(_octets(salt)) - self._signed
            signed = self._digest(message)
            message = message[:start] + signed + message[start + self._signed :]
        return message

    def _digest(self, message):
        return hmac.new(self._keys[0], message, self._hash).digest()[: self._signed]

    def _sign(self, message, signature):
        """The signature that the message should have: it is made with zeros in its own position."""
        start = message.index(signature) if signature else 0
        return self._digest(message[:start] + bytes(len(signature)) + message[start + len(signature) :])

    def _crypt(self, octets, boots, seconds, salt, decrypt=False):
        # Only encrypted messages require this package.
        from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

        vector = boots.to_bytes(4, "big") + seconds.to_bytes(4, "big") + salt
        cipher = Cipher(algorithms.AES(self._keys[1][:16]), modes.CFB(vector))
        worker = cipher.decryptor() if decrypt else cipher.encryptor()
        return worker.update(octets) + worker.finalize()


def _octets(content=b""):
    return ber.tlv(ber.OCTET_STRING, content)


def _number(octets):
    return int.from_bytes(octets, "big", signed=True)


def _parts(octets):
    """A message's id, flags, security parameters and scoped PDU (its octets with tag and length)."""
    ((_, message),) = ber.split(octets)
    (_, version), (_, header), (_, security), (tag, data) = ber.split(message)
    if _number(version) != 3:
        raise Refused("not SNMPv3")
    (_, number), _, (_, flags), _ = ber.split(header)
    parameters = [content for _, content in ber.split(ber.split(security)[0][1])]
    return _number(number), flags[0], parameters, ber.tlv(tag, data)


def _scoped(data):
    ((_, scoped),) = ber.split(data)
    _, _, (tag, pdu) = ber.split(scoped)
    return ber.Pdu(ber.tlv(tag, pdu))


def _whole(data):
    """The length of the value at the start of `data`: the rest is padding."""
    if data[1] & 0x80:
        count = data[1] & 0x7F
        return 2 + count + int.from_bytes(data[2 : 2 + count], "big")
    return 2 + data[1]
