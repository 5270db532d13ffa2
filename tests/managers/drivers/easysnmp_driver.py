"""python3-easysnmp. managers.py describes what a driver reads and writes."""

import json
import os
import sys

from easysnmp import EasySNMPError, Session

version, user = os.environ["VERSION"], json.loads(os.environ["USER_OF_3"])
NAMES = {"INTEGER": "INTEGER", "GAUGE": "Gauge32", "OCTETSTR": "OCTET STRING", "NOSUCHINSTANCE": "noSuchInstance",
         "NOSUCHOBJECT": "noSuchObject"}


def session(community):
    security = dict(community=community)
    if version == "3":
        security = dict(security_level="auth_with_privacy", security_username=user["name"], auth_protocol="SHA",
                        auth_password=user["authentication"], privacy_protocol="AES", privacy_password=user["privacy"])
    return Session(hostname="127.0.0.1", remote_port=int(os.environ["PORT"]), version=int(version[0]), timeout=5,
                   retries=0, use_numeric=True, use_long_names=True, **security)


reader, writer = session("public"), session("private")


def binding(variable):
    kind = NAMES[variable.snmp_type]
    # The library returns octets as characters of the same numbers.
    value = variable.value.encode("latin-1").hex() if kind == "OCTET STRING" else variable.value
    oid = variable.oid.lstrip(".") + (f".{variable.oid_index}" if variable.oid_index else "")
    return [oid, kind, int(value) if kind in ("INTEGER", "Gauge32") else value if kind == "OCTET STRING" else None]


def walk(oid):
    return [binding(variable) for variable in (reader.walk(f".{oid}") if version == "1" else reader.bulkwalk(f".{oid}"))]


def get(*oids):
    return [binding(variable) for variable in reader.get([f".{oid}" for oid in oids])]


def set_(oid, kind, value):
    text = str(value) if kind == "INTEGER" else bytes.fromhex(value).decode("latin-1")
    writer.set(f".{oid}", text, {"INTEGER": "INTEGER", "OCTET STRING": "OCTETSTR"}[kind])
    return [[oid, kind, value]]


for line in sys.stdin:
    command, *words = json.loads(line)
    try:
        answer = {"values": {"walk": walk, "get": get, "set": set_}[command](*words)}
    except EasySNMPError as error:
        answer = {"error": str(error)}
    print(json.dumps(answer), flush=True)
