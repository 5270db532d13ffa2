"""SNMP's versions, and who may read. Only reads."""

import os

import ber
import promises
from orvex_conform import usm
from orvex_conform.link import V1, V2C, V3, Access, Silent
from orvex_conform.reads import ABSENT, NO_SUCH_NAME, TOGETHER, error_name, is_below, type_name

CONTROL = "access control"
SILENCE = 0.7  # seconds without an answer that count as a refusal


def check(run, accesses):
    """`accesses`: each role that was named, in each version that it has."""
    for access in accesses:
        same_in(run, access)
    loader_is_hidden(run, accesses)
    strangers(run, accesses)


def same_in(run, access):
    """Every readable object has its type, and a constant its value, in that version."""
    subject = f"SNMPv{access.version}"
    rows = [row for row in run.tree.rows if row.name in run.values and row.name not in run.failed()]
    for start in range(0, len(rows), TOGETHER):
        group = rows[start : start + TOGETHER]
        oids = [row.oid for row in group]
        line = run.commands.get(access, *oids)
        try:
            answer = run.link.get(access, *oids)
        except Silent as silence:
            run.verdicts.failed(subject, "answer", str(silence), line)
            return
        wrong = [row.name for row, binding in zip(group, answer.bindings) if binding.tag != row.tag or
                 promises.is_constant(row) and binding.value != run.values[row.name]]
        run.verdicts.judge(subject, "answer", answer.error == 0 and len(answer.bindings) == len(group) and not wrong,
                           f"{error_name(answer.error)}; differs: {wrong}", line)
    absent = run.link.get(access, run.tree.oid("moduleNumber") + ".0")
    holds = absent.error == NO_SUCH_NAME if access.version == V1 else absent.error == 0 and absent.binding.tag in ABSENT
    run.verdicts.judge(subject, "what is not there", holds, f"{error_name(absent.error)}",
                       run.commands.get(access, run.tree.oid("moduleNumber") + ".0"))


def loader_is_hidden(run, accesses):
    """Nobody may see the objects through which the agent loads code."""
    for access in accesses:
        answer = run.link.get_next(access, promises.LOADER)
        shown = answer.error == 0 and answer.bindings and is_below(answer.binding.oid, promises.LOADER)
        run.verdicts.judge(CONTROL, "the module loader", not shown,
                           f"{promises.LOADER} is shown, so a writer may load code",
                           run.commands.get_next(access, promises.LOADER))


def strangers(run, accesses):
    name = f"nobody-{os.urandom(6).hex()}"
    for version in sorted({access.version for access in accesses}):
        if version in (V1, V2C):
            unanswered(run, Access(version, community=name), "a wrong community")
        else:
            users(run, accesses, name)


def unanswered(run, access, who):
    oid = run.tree.oid("moduleNumber")
    try:
        answer = run.link.get(access, oid, timeout=SILENCE, retries=0)
    except Silent:
        run.link.get(run.reader, oid)  # it is the stranger who is not answered, not the camera that is silent
        run.verdicts.passed(CONTROL, who)
        return
    run.verdicts.failed(CONTROL, who, f"is answered: {error_name(answer.error)}", run.commands.get(access, oid))


def users(run, accesses, name):
    """An unknown user, a wrong phrase, and a known user without authentication get no value."""
    known = next(access.user for access in accesses if access.version == V3)
    tries = {"an unknown user": usm.User(name), "a user without authentication": usm.User(known.name)}
    if known.level != "noAuthNoPriv":
        privacy = name if known.level == "authPriv" else ""
        tries["a wrong pass phrase"] = usm.User(known.name, known.authentication, name, privacy)
    else:
        del tries["a user without authentication"]
    for who, user in tries.items():
        run.link.discover(user)
        access = Access(V3, user=user)
        oid = run.tree.oid("moduleNumber")
        try:
            answer = run.link.get(access, oid, timeout=SILENCE, retries=0)
        except Silent:
            run.link.get(run.reader, oid)
            run.verdicts.passed(CONTROL, who)
            continue
        got_value = answer.pdu != usm.REPORT and answer.error == 0 and any(
            binding.tag not in (*ABSENT, ber.END_OF_MIB_VIEW) for binding in answer.bindings)
        run.verdicts.judge(CONTROL, who, not got_value,
                           f"gets a value of {type_name(answer.binding.tag) if answer.bindings else 'no type'}",
                           run.commands.get(access, oid))


