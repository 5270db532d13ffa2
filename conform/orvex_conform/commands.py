"""One-line commands that repeat a single request with net-snmp's tools."""

import shlex

import ber
from orvex_conform.link import V3

# snmpset's letters for the types that it can send, with the value's text.
_TEXTS = {
    ber.INTEGER: ("i", lambda octets: int.from_bytes(octets, "big", signed=True)),
    ber.GAUGE32: ("u", lambda octets: int.from_bytes(octets, "big")),
    ber.COUNTER32: ("c", lambda octets: int.from_bytes(octets, "big")),
    ber.COUNTER64: ("C", lambda octets: int.from_bytes(octets, "big")),
    ber.TIMETICKS: ("t", lambda octets: int.from_bytes(octets, "big")),
    ber.NULL: ("n", lambda octets: "''"),
    ber.IP_ADDRESS: ("a", lambda octets: ".".join(map(str, octets))),
}
_LENGTHS = {ber.INTEGER: range(1, 5), ber.GAUGE32: range(1, 6), ber.COUNTER32: range(1, 6), ber.TIMETICKS: range(1, 6),
            ber.COUNTER64: range(1, 9), ber.NULL: range(0, 1), ber.IP_ADDRESS: range(4, 5)}


class Commands:
    def __init__(self, host, port):
        self._peer = f"{host}:{port}" if ":" not in host else f"udp6:[{host}]:{port}"
        self._host, self._port = host, port

    def _tool(self, tool, access, *words):
        if access.version == V3:
            who = f"-v3 -u {shlex.quote(access.user.name)} -l {access.user.level}"
            if access.user.level != "noAuthNoPriv":
                # Reports are passed on; the phrases stay with those who know them.
                who += f' -a {access.user.authentication} -A "${access.user.source}_AUTHENTICATION"'
            if access.user.level == "authPriv":
                who += f' -x AES -X "${access.user.source}_PRIVACY"'
        else:
            who = f"-v{access.version} -c {shlex.quote(access.community)}"
        return " ".join([tool, who, "-On", "-Ox", self._peer, *words])

    def get(self, access, *oids):
        return self._tool("snmpget", access, *oids)

    def get_next(self, access, oid):
        return self._tool("snmpgetnext", access, oid)

    def get_bulk(self, access, repetitions, oid):
        return self._tool("snmpbulkget", access, oid).replace("snmpbulkget", f"snmpbulkget -Cr{repetitions}", 1)

    def walk(self, access, oid):
        return self._tool("snmpwalk", access, oid)

    def set(self, access, *bindings):
        """`bindings` are (oid, tag, octets). A value that snmpset cannot send becomes the whole message, for bash."""
        words = []
        for oid, tag, octets in bindings:
            letter = _letter(tag, octets)
            if letter is None:
                return self.octets(access, ber.SET, bindings)
            words += [oid, *letter]
        return self._tool("snmpset", access, *words)

    def octets(self, access, kind, bindings):
        if access.version == V3:
            return ""
        return self.raw(access.message(ber.pdu_octets(kind, bindings, request_id=1), 1))

    def raw(self, octets):
        if len(octets) > 4000:
            return ""
        return f"printf '{''.join(f'{chr(92)}x{octet:02x}' for octet in octets)}' >/dev/udp/{self._host}/{self._port}"


def _letter(tag, octets):
    if tag == ber.OCTET_STRING:
        return ("x", octets.hex()) if octets else ("s", "''")
    if tag in _TEXTS and len(octets) in _LENGTHS[tag]:
        letter, text = _TEXTS[tag]
        return letter, str(text(octets))
    return None
