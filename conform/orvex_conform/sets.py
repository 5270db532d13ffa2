"""Checks that write: what a SET answers, stores and leaves alone. They move the camera and switch its relays; what can
be set back is set back."""

import ber
import promises
import set_grammar
from orvex_conform.link import V1, V3, Gone, Silent
from orvex_conform.reads import error_name, shown, type_name

BAD_NORTH = 7  # a value that rangeTrueNorthOffset refuses before anything acts
DROPPED_STEP = 8  # of the values that the agent drops for every name, each object gets every eighth
MAX_MOVES = 24  # accepted commands to each axis
MAX_SWITCHES = 4  # of each relay, and of the lens's features
AUTHORIZATION_ERROR = 16
# The SNMPv1 error for each SNMPv2 error (RFC 3584, 4.4).
ERRORS_OF_1 = {ber.NO_ERROR: 0, ber.GEN_ERR: 5, ber.WRONG_TYPE: 3, ber.WRONG_VALUE: 3, ber.NOT_WRITABLE: 2}
GRAMMAR, HALF = "SET grammar", "nothing half done"
# They take any type, and numbers in the byte order of the camera's machine, which is not known here.
ANY_TYPE = (*promises.POSITIONS, "systemLensFeatureControl", "systemLensEquipped")
NUMBERS = (ber.INTEGER, ber.OID, *set_grammar.LONGS, *set_grammar.WIDE)
STOP = bytes(4)


def check(run):
    probe_agent(run)
    readable = readable_values(run)
    rows = [row for row in run.tree.rows if row.name not in run.unreadable and run.is_sampled(row)]
    for row in rows:
        run.guarded(row.name, GRAMMAR, read_only if row.access == promises.RO else writable, row, readable)
    for row in rows:
        if row.access != promises.RO and row.name != "rebootDevice":
            run.guarded(row.name, HALF, half_done, row)
    no_new_instances(run)
    other_versions(run)


def stop(run):
    """Stops every axis; a note names those that did not take the stop."""
    lost = []
    for name in promises.POSITIONS:
        try:
            if run.link.set(run.writer, (run.tree.oid(name), ber.OCTET_STRING, STOP)).error:
                lost.append(name)
        except (Silent, Gone):
            lost.append(name)
    if lost:
        run.verdicts.note(f"could not be stopped: {', '.join(lost)}")


def probe_agent(run):
    """Whether the agent refuses a NULL itself, as net-snmp does since 5.9."""
    answer = run.link.set(run.writer, (set_grammar.UNSERVED, ber.NULL, b""))
    run.old_agent = answer.error != ber.WRONG_TYPE


def some_values(old_agent):
    """Every type at every length once, the commands' limits and the numbers' limits."""
    kept, met = [], set()
    for sent in set_grammar.all_values(old_agent):
        shape = (sent.tag, len(sent.content), len(sent.encoded))
        is_command = sent.tag == ber.OCTET_STRING and len(sent.content) in (1, 4) and is_of_interest(sent.content)
        if shape not in met or is_command or sent.tag == ber.INTEGER:
            met.add(shape)
            kept.append(sent)
    return kept


def is_of_interest(octets):
    """One-octet values: single bits. Commands: each mode, at the limits of speed and position."""
    if len(octets) == 1:
        return bin(octets[0]).count("1") < 2 or octets == b"\xff"
    return octets[1] in (0, 1, 0x80, 0xFF) and octets[2:] in (b"\0\0", bytes.fromhex("8C9F"), bytes.fromhex("8CA0"))


def readable_values(run):
    """(value, whether the agent reads it): it drops some for every name."""
    values = some_values(run.old_agent)
    answers = set_all(run, set_grammar.UNSERVED, values)
    for sent, answer in zip(values, answers):
        if answer is not None:
            allowed = set_grammar.refusals(sent, ber.NO_CREATION, ber.NOT_WRITABLE, ber.NO_ACCESS,
                                           old_agent=run.old_agent)
            run.verdicts.judge("names that are not served", GRAMMAR, answer.error in allowed,
                               f"a SET answers {error_name(answer.error)}", command(run, set_grammar.UNSERVED, sent))
    read = [(sent, True) for sent, answer in zip(values, answers) if answer is not None]
    dropped = [(sent, False) for sent, answer in zip(values, answers) if answer is None]
    run.dropped = {sent for sent, _ in dropped}
    return read + dropped[::DROPPED_STEP]


def set_all(run, oid, values):
    return run.link.set_all(run.writer, oid, values, run.tree.oid("moduleNumber"), run.dropped)


def command(run, oid, sent):
    if sent.encoded != ber.tlv(sent.tag, sent.content):
        if run.writer.version == V3:
            return ""
        binding = ber.tlv(ber.SEQUENCE, ber.tlv(ber.OID, ber.oid_octets(oid)) + sent.encoded)
        pdu = ber.tlv(ber.SET, ber.integers(1, 0, 0) + ber.tlv(ber.SEQUENCE, binding))
        return run.commands.raw(run.writer.message(pdu, 1))
    return run.commands.set(run.writer, (oid, sent.tag, sent.content))


def value_of(run, row):
    """The object's value now; None, with a finding, if it cannot be read any more."""
    answer = run.link.get(run.reader, row.oid)
    if run.verdicts.judge(row.name, "answer", answer.error == 0 and answer.bindings,
                          f"GET answers {error_name(answer.error)}", run.commands.get(run.reader, row.oid)):
        return answer.binding
    return None


def read_only(run, row, readable):
    before = value_of(run, row)
    if before is None:
        return
    shapes = {sent.tag: sent for sent, is_read in readable if is_read}  # one of each type
    values = [set_grammar.value(row.tag, before.octets), *shapes.values()]
    for sent, answer in zip(values, set_all(run, row.oid, values)):
        allowed = set_grammar.refusals(sent, refusal(row, sent), old_agent=run.old_agent)
        got = answer.error if answer else None
        run.verdicts.judge(row.name, "access", got in allowed,
                           f"a SET answers {'nothing' if got is None else error_name(got)}, not "
                           f"{' or '.join(map(error_name, allowed))}", command(run, row.oid, sent))
    judge_unchanged(run, row, before, "access", "a refused SET changed it")


def refusal(row, sent):
    """The relays' columns refuse another type than INTEGER first."""
    is_column = row.name.startswith(("relayBank", "relayNumber"))
    return ber.WRONG_TYPE if is_column and sent.tag != ber.INTEGER else ber.NOT_WRITABLE


def judge_unchanged(run, row, before, check_name, text, line=""):
    now = value_of(run, row)
    same = now is not None and (now.tag, now.octets) == (before.tag, before.octets)
    if row.name in promises.SENSORS or not promises.is_constant(row) and row.access == promises.RO:
        same = True  # it may have changed by itself
    run.verdicts.judge(row.name, check_name, same, f"{text}: {shown(before.octets)} became "
                       f"{shown(now.octets) if now else 'unreadable'}", line or run.commands.get(run.reader, row.oid))


def is_judged(run, row, sent):
    """False for numbers to objects that read them in the byte order of the camera's machine, and for a relay that the
    camera does not have."""
    if row.name == "outputControl" and not drives_relay(run):
        return not sent.octets(1)[0] & 0x01
    if row.name in ANY_TYPE and sent.tag in NUMBERS:
        return not any(sent.content)
    return True


def drives_relay(run):
    """Whether the relay of outputControl, the first of bank BNK2, is among those that were read."""
    return any((run.values.get(f"relayBank.{index}"), run.values.get(f"relayNumber.{index}")) == (b"BNK2", 0)
               for index in range(1, run.relays + 1))


def writable(run, row, readable):
    refused, taken = [], []
    for sent, is_read in readable:
        if not is_judged(run, row, sent):
            continue
        error = set_grammar.expected_error(row.name, sent, run.old_agent) if is_read else None
        (taken if error == ber.NO_ERROR else refused).append((sent, error))
    refusals(run, row, refused)
    if row.name == "rebootDevice":
        run.verdicts.skipped(row.name, "SET of an integer", "it would restart the camera")
        return
    acceptances(run, row, few(row, taken))


def few(row, taken):
    """Bounds the number of switches and moves."""
    if row.name in promises.POSITIONS:
        commands = [one for one in taken if one[0].tag == ber.OCTET_STRING and len(one[0].content) == 4]
        others = [one for one in taken if one not in commands]
        return others[:: max(1, len(others) // MAX_MOVES)] + commands[:: max(1, len(commands) // MAX_MOVES)]
    if promises.RELAY_STATE.match(row.name):
        on = [one for one in taken if one[0].encoded == ber.tlv(ber.INTEGER, b"\1")]
        return [one for one in taken if one not in on][: MAX_SWITCHES - 1] + on[:1]
    if row.name == "systemLensFeatureControl":  # selects nothing, mostly: each switch is stored on the camera's disk
        quiet = [one for one in taken if not one[0].octets(1)[0] & 0xC0]
        return quiet + [one for one in taken if one not in quiet][:MAX_SWITCHES]
    if row.name == "outputControl":
        quiet = [one for one in taken if not one[0].octets(1)[0] & 0x01]
        return quiet + [one for one in taken if one not in quiet][:MAX_SWITCHES]
    return taken


def refusals(run, row, refused):
    before = value_of(run, row)
    if before is None:
        return
    stored = before.octets
    for (sent, error), answer in zip(refused, set_all(run, row.oid, [sent for sent, _ in refused])):
        got = answer.error if answer else None
        run.verdicts.judge(row.name, GRAMMAR, got == error,
                           f"a SET of {words(sent)} answers {error_words(got)}, not {error_words(error)}",
                           command(run, row.oid, sent))
        if error == ber.GEN_ERR:
            stored = remembered(row, sent, stored)
    now = value_of(run, row)
    run.verdicts.judge(row.name, "stored", now is not None and (now.tag, now.octets) == (row.tag, stored),
                       f"after refused SETs it is {now and shown(now.octets)}, not {shown(stored)}",
                       run.commands.get(run.reader, row.oid))


def error_words(error):
    """Of an answer's error, or None for no answer."""
    return "nothing" if error is None else error_name(error)


def remembered(row, sent, before):
    """Some objects store what they refuse: docs/contract.md."""
    if row.name in promises.POSITIONS:
        return sent.octets(4)
    if row.name == "systemCameraEquipped":
        return sent.octets(1)
    return before


def words(sent):
    count = len(sent.content)
    return f"{type_name(sent.tag)} of {count} octet{'s' * (count != 1)} ({shown(sent.content)})"


def acceptances(run, row, taken):
    values = [sent for sent, _ in taken]
    last = None
    for (sent, _), answer in zip(taken, set_all(run, row.oid, values)):
        line = command(run, row.oid, sent)
        got = answer.error if answer else None
        if not run.verdicts.judge(row.name, GRAMMAR, got == ber.NO_ERROR,
                                  f"a SET of {words(sent)} answers {error_words(got)}", line):
            continue
        last = sent
        expected = set_grammar.expected_answer(row.name, sent)
        binding = answer.binding
        run.verdicts.judge(row.name, "SET answer", expected in (None, (binding.tag, binding.octets)),
                           f"a SET of {words(sent)} answers {shown(binding.octets)}, "
                           f"not {expected and shown(expected[1])}", line)
    if last is not None:
        judge_stored(run, row, last)
    if row.name in promises.POSITIONS:
        run.link.set(run.writer, (row.oid, ber.OCTET_STRING, STOP))


def judge_stored(run, row, last):
    now = value_of(run, row)
    expected = after(row, last)
    run.verdicts.judge(row.name, "stored", now is not None and now.tag == row.tag and
                       (expected is None or now.octets == expected),
                       f"after a SET of {words(last)} it is {now and shown(now.octets)}, "
                       f"not {expected and shown(expected)}",
                       command(run, row.oid, last))


def after(row, sent):
    """What a GET answers after an accepted SET; None where it is not stated."""
    if row.name in promises.POSITIONS:
        return sent.octets(4)
    if row.name.startswith("preset"):
        return b"\0"
    if row.name in ("outputControl", "systemCameraFeatureControl", "systemLensFeatureControl"):
        return sent.octets(2)
    if row.name == "systemLensEquipped":
        return sent.octets(1)
    if row.name == "rangeTrueNorthOffset":
        return ber.integer_octets(int.from_bytes(sent.content, "big", signed=True))
    if promises.RELAY_STATE.match(row.name):
        return b"\1" if int.from_bytes(sent.content, "big", signed=True) == 1 else b"\0"
    return None


def harmless(row, binding):
    """A value that the object takes and that would show if it were stored: another one than now."""
    if row.name in promises.POSITIONS:
        return ber.OCTET_STRING, b"\x01\x00\x00\x01" if binding.octets == STOP else STOP
    if row.tag == ber.OCTET_STRING:
        other = bytes([binding.octets[0] ^ 0x40]) + binding.octets[1:]
        return ber.OCTET_STRING, b"\x00\x80" if row.name == "outputControl" and binding.octets != b"\x00\x80" else other
    return ber.INTEGER, b"\0" if binding.octets != b"\0" else b"\1"


def half_done(run, row):
    """A binding that is refused before anything acts keeps the other one from acting."""
    north = run.tree.oid("rangeTrueNorthOffset")
    before = value_of(run, row)
    if before is None:
        return
    tag, octets = harmless(row, before)
    if row.oid == north:
        octets = b"\0" if before.octets != b"\0" else ber.integer_octets(65535)
        other, expected = (run.tree.oid("globalMaxModules"), ber.INTEGER, b"\1"), ber.NOT_WRITABLE
    else:
        other, expected = (north, ber.INTEGER, ber.integer_octets(BAD_NORTH)), ber.WRONG_VALUE
    bindings = ((row.oid, tag, octets), other)
    line = run.commands.set(run.writer, *bindings)
    answer = run.link.set(run.writer, *bindings)
    holds = (answer.error, answer.index) == (expected, 2)
    if row.name.startswith("timeout"):  # it refuses each SET itself, and may do so first
        holds = holds or answer.error == ber.GEN_ERR
    if "rangeTrueNorthOffset" in run.failed() and row.oid != north:
        holds = True  # judged there
    run.verdicts.judge(row.name, HALF, holds,
                       f"together with a binding that is refused: {error_name(answer.error)} at {answer.index}, not "
                       f"{error_name(expected)} at 2", line)
    if answer.error:
        judge_unchanged(run, row, before, HALF, "a SET that was refused for its other binding changed it", line)


def other_versions(run):
    """The other writers, of other versions, get the same refusals, SNMPv1 by its own errors."""
    refused = [("rangeTrueNorthOffset", ber.INTEGER, bytes([BAD_NORTH]), ber.WRONG_VALUE),
               ("rangeTrueNorthOffset", ber.OCTET_STRING, STOP, ber.WRONG_TYPE),
               ("timeoutPan", ber.INTEGER, b"\1", ber.GEN_ERR),
               ("globalMaxModules", ber.INTEGER, b"\1", ber.NOT_WRITABLE),
               ("positionPan", ber.OCTET_STRING, STOP, ber.NO_ERROR)]
    for access in run.writers:
        for name, tag, content, error in refused:
            if access is run.writer or name in run.failed():
                continue
            expected = ERRORS_OF_1[error] if access.version == V1 else error
            binding = (run.tree.oid(name), tag, content)
            answer = run.link.set(access, binding)
            run.verdicts.judge(f"SNMPv{access.version}", "SET errors", answer.error == expected,
                               f"a SET of {name} answers {error_name(answer.error)}, not {error_name(expected)}",
                               run.commands.set(access, binding))


def no_new_instances(run):
    """A SET cannot make what is not there."""
    for what, oid in {"pan's second instance": run.tree.oid("positionPan")[:-1] + "1",
                      "a relay too many": f"{promises.column('relay', 3, run.enterprise)}.{run.relays + 1}",
                      "reboot's second instance": run.tree.oid("rebootDevice")[:-1] + "1"}.items():
        values = [set_grammar.value(ber.OCTET_STRING, STOP), set_grammar.value(ber.INTEGER, b"\1")]
        for sent, answer in zip(values, set_all(run, oid, values)):
            allowed = (ber.NO_CREATION, ber.NOT_WRITABLE, ber.WRONG_TYPE, ber.NO_ACCESS)
            run.verdicts.judge("names that are not served", GRAMMAR, answer is not None and answer.error in allowed,
                               f"{what}: a SET answers {answer and error_name(answer.error)}", command(run, oid, sent))


def readers_write_nothing(run):
    """The reader's own SETs of the current values."""
    if run.reader.is_same(run.writer):
        run.verdicts.skipped("access control", "a reader's SET", "no reader apart from the writer was named")
        return
    for row in run.tree.writable():
        if row.name in run.unreadable or row.name == "rebootDevice" or not run.is_sampled(row):
            continue
        now = value_of(run, row)
        if now is None:
            continue
        content = STOP if row.name in promises.POSITIONS else now.octets
        answer = run.link.set(run.reader, (row.oid, row.tag, content))
        allowed = (ber.NO_ACCESS, AUTHORIZATION_ERROR)
        run.verdicts.judge(row.name, "a reader's SET", answer.error in allowed,
                           f"{error_name(answer.error)}, not noAccess",
                           run.commands.set(run.reader, (row.oid, row.tag, content)))


# --- setting back ---

KEPT = ("rangeTrueNorthOffset", "systemCameraFeatureControl", "systemLensFeatureControl", "systemLensEquipped",
        "outputControl")


def remember(run):
    """The values to set back, by name."""
    rows = [row for row in run.tree.writable() if row.name in KEPT or
            promises.RELAY_STATE.match(row.name) and run.is_sampled(row)]
    rows.append(run.tree.by_name["systemLensFeatureStatus"])
    return {row.name: binding for row in rows if row.name not in run.unreadable and (binding := value_of(run, row))}


def restore(run, before):
    """Sets back what a SET can set back, then stops every axis. systemCameraEquipped keeps what was written, and the
    last commands stay; both are only answered."""
    lost = []

    def put(name, *bindings):
        try:
            if run.link.set(run.writer, *bindings).error:
                lost.append(name)
        except (Silent, Gone):
            lost.append(name)

    status = before.pop("systemLensFeatureStatus", None)
    control = run.tree.oid("systemLensFeatureControl")
    if status is not None:
        for bit in (0x80, 0x40):
            state = 0x80 if status.octets[0] & bit else 0x00
            put("systemLensFeatureControl", (control, ber.OCTET_STRING, bytes([bit, state])))
    for name, binding in before.items():
        content = binding.octets
        if name in ("outputControl", "systemLensFeatureControl") and content[0] & 0xC1:
            continue  # it would act again; the relay itself is set back by its row
        put(name, (run.tree.oid(name), binding.tag, content))
    stop(run)
    if lost:
        run.verdicts.note(f"could not be set back: {', '.join(lost)}")
    run.verdicts.note("not set back: the last commands of the positions (now a stop), systemCameraEquipped")
