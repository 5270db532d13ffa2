"""python3-pysnmp4. managers.py describes what a driver reads and writes."""

import json
import os
import sys

from pysnmp import hlapi
from pysnmp.proto.rfc1902 import Integer32, OctetString

version, port, user = os.environ["VERSION"], int(os.environ["PORT"]), json.loads(os.environ["USER_OF_3"])
engine, context = hlapi.SnmpEngine(), hlapi.ContextData()
target = hlapi.UdpTransportTarget(("127.0.0.1", port), timeout=5, retries=0)
NAMES = {"Integer32": "INTEGER", "Integer": "INTEGER", "Gauge32": "Gauge32", "OctetString": "OCTET STRING",
         "NoSuchInstance": "noSuchInstance", "NoSuchObject": "noSuchObject"}


def credentials(community):
    if version == "3":
        return hlapi.UsmUserData(user["name"], user["authentication"], user["privacy"],
                                 authProtocol=hlapi.usmHMACSHAAuthProtocol, privProtocol=hlapi.usmAesCfb128Protocol)
    return hlapi.CommunityData(community, mpModel={"1": 0, "2c": 1}[version])


def object_of(oid, *value):
    return hlapi.ObjectType(hlapi.ObjectIdentity(oid), *value)


def binding(name, value):
    kind = NAMES[type(value).__name__]
    content = bytes(value).hex() if kind == "OCTET STRING" else int(value) if kind in ("INTEGER", "Gauge32") else None
    return [str(name), kind, content]


def collect(answers):
    values = []
    for trouble, status, _, bindings in answers:
        # SNMPv1 can signal the end of the tree only this way.
        if status and values and status.prettyPrint() == "noSuchName":
            break
        if trouble or status:
            return {"error": str(trouble or status.prettyPrint())}
        values += [binding(*pair) for pair in bindings]
    return {"values": values}


def walk(oid):
    options = dict(lexicographicMode=False, lookupMib=False)
    if version == "1":
        return collect(hlapi.nextCmd(engine, credentials("public"), target, context, object_of(oid), **options))
    return collect(hlapi.bulkCmd(engine, credentials("public"), target, context, 0, 20, object_of(oid), **options))


def get(*oids):
    return collect(hlapi.getCmd(engine, credentials("public"), target, context, *map(object_of, oids), lookupMib=False))


def set_(oid, kind, value):
    value = Integer32(value) if kind == "INTEGER" else OctetString(hexValue=value)
    return collect(hlapi.setCmd(engine, credentials("private"), target, context, object_of(oid, value), lookupMib=False))


for line in sys.stdin:
    command, *words = json.loads(line)
    print(json.dumps({"walk": walk, "get": get, "set": set_}[command](*words)), flush=True)
