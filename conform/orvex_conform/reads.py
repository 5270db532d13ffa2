"""Checks that only read: which objects there are, in which order, of which type, with which values, how fast."""

import statistics

import ber
import promises
from orvex_conform.link import Silent

TYPES = {ber.INTEGER: "INTEGER", ber.OCTET_STRING: "OCTET STRING", ber.NULL: "NULL", ber.OID: "OBJECT IDENTIFIER",
         ber.IP_ADDRESS: "IpAddress", ber.COUNTER32: "Counter32", ber.GAUGE32: "Gauge32", ber.TIMETICKS: "TimeTicks",
         ber.OPAQUE: "Opaque", ber.COUNTER64: "Counter64", ber.NO_SUCH_OBJECT: "noSuchObject",
         ber.NO_SUCH_INSTANCE: "noSuchInstance", ber.END_OF_MIB_VIEW: "endOfMibView"}
ERRORS = ["noError", "tooBig", "noSuchName", "badValue", "readOnly", "genErr", "noAccess", "wrongType", "wrongLength",
          "wrongEncoding", "wrongValue", "noCreation", "inconsistentValue", "resourceUnavailable", "commitFailed",
          "undoFailed", "authorizationError", "notWritable", "inconsistentName"]
NO_SUCH_NAME = 2  # of SNMPv1, which has no exceptions
ABSENT = (ber.NO_SUCH_OBJECT, ber.NO_SUCH_INSTANCE)
MAX_WALK = 20000  # names: two tables of 1,024 rows have 6,144
GETS = 3  # of each object, to judge its time
TOGETHER = 16  # names in one GET
MAX_SHOWN = 24  # octets of a value in a finding
ORDER, SEVERAL = "order", "several names in one request"


def type_name(tag):
    return TYPES.get(tag, f"type {tag:#04x}")


def error_name(number):
    return ERRORS[number] if 0 <= number < len(ERRORS) else f"error {number}"


def shown(value):
    if isinstance(value, bytes):
        if len(value) > MAX_SHOWN:
            return f"{value[:MAX_SHOWN].hex(' ')}... ({len(value)} octets)"
        return value.hex(" ") or "no octets"
    return str(value)


def parts(oid):
    return [int(part) for part in oid.split(".")]


def is_below(oid, root):
    return oid.startswith(root + ".")


class Walk:
    """The bindings that GETNEXT met in a subtree, in the order of meeting, and the faults: (the name asked, what was
    wrong). It goes on behind the object at fault, if that is a promised one."""

    def __init__(self, run, subtree):
        self.bindings, self.faults = [], []
        oid = subtree
        for _ in range(MAX_WALK):
            fault, binding = self._step(run, oid)
            if fault:
                self.faults.append((oid, fault))
                following = run.following(oid)
                if following is None or not is_below(following.oid, subtree):
                    return
                oid = following.oid
                continue
            if binding is None or not is_below(binding.oid, subtree):
                return
            self.bindings.append(binding)
            oid = binding.oid
        self.faults.append((oid, f"the walk has no end after {MAX_WALK} names"))

    @staticmethod
    def _step(run, oid):
        """(what is wrong, None), or ("", the next binding, or None at the end)."""
        try:
            answer = run.link.get_next(run.reader, oid)
        except Silent as silence:
            return f"GETNEXT: {silence}", None
        if answer.error or not answer.bindings:
            return f"GETNEXT answers {error_name(answer.error)}", None
        binding = answer.binding
        if binding.tag == ber.END_OF_MIB_VIEW:
            return "", None
        if parts(binding.oid) <= parts(oid):
            return f"GETNEXT answers {binding.oid}, which is not behind it", None
        return "", binding


def count_rows(run, name):
    """The rows of a table: those that any of its columns has."""
    rows = set()
    for number in (1, 2, 3):
        column = promises.column(name, number, run.enterprise)
        oid, steps = column, 0
        while steps <= 1025:
            answer = run.link.get_next(run.reader, oid)
            if answer.error or not answer.bindings or not is_below(answer.binding.oid, column):
                break
            if parts(answer.binding.oid) <= parts(oid):
                break
            oid, steps = answer.binding.oid, steps + 1
            index = oid.removeprefix(column + ".")
            if index.isdigit():
                rows.add(int(index))
    return max(rows, default=0)


def check(run):
    met = walk(run)
    for row in run.tree.rows:
        if run.is_sampled(row):
            each(run, row, row.oid in met)
        else:
            met_only(run, row, met.get(row.oid))
    together(run)
    bulk(run)
    neighbours(run)
    relations(run)


def walk(run):
    """Judges order and presence; returns the bindings that were met, by their names."""
    met = {}
    for subtree in run.tree.subtrees:
        found = Walk(run, subtree)
        met.update((binding.oid, binding) for binding in found.bindings)
        for oid, fault in found.faults:
            at_fault = run.following(oid)
            run.verdicts.failed(at_fault.name if at_fault else ORDER, ORDER, f"after {oid}: {fault}",
                                run.commands.get_next(run.reader, oid))
    for oid in sorted(set(met) - set(run.tree.by_oid), key=parts):
        run.verdicts.failed(oid, "presence", "the camera serves an object that is not promised",
                            run.commands.get(run.reader, oid))
    return met


def each(run, row, was_met):
    """One object by itself: presence, type, value, time."""
    answers = []
    try:
        answers = [run.link.get(run.reader, row.oid) for _ in range(GETS)]
    except Silent as silence:
        run.verdicts.failed(row.name, "answer", f"GET: {silence}", run.commands.get(run.reader, row.oid))
        run.unreadable.add(row.name)
        return
    command = run.commands.get(run.reader, row.oid)
    answer = answers[-1]
    if absent(answer):
        run.unreadable.add(row.name)
        if row.name in promises.SENSORS and not was_met:
            reason = "not served: its service gave no reading when the agent loaded the module"
            run.verdicts.skipped(row.name, "presence", reason)
        else:
            run.verdicts.failed(row.name, "presence", "the camera does not have it", command)
        return
    if answer.error:
        run.unreadable.add(row.name)
        run.verdicts.failed(row.name, "answer", f"GET answers {error_name(answer.error)}", command)
        return
    run.verdicts.judge(row.name, "presence", was_met,
                       "a walk does not meet it, although GET answers it",
                       run.commands.walk(run.reader, parent(row.oid)))
    for one in answers:
        well_formed(run, row, one, command)
    run.values[row.name] = answer.bindings[0].value if answer.bindings else None
    judge_time(run, row.name, [one.seconds for one in answers], command)


def parent(oid):
    return oid.rpartition(".")[0].rpartition(".")[0]


def absent(answer):
    return bool(answer.error == 0 and answer.bindings and answer.binding.tag in ABSENT)


def value_of(row, binding):
    """Gauge32 is unsigned, the other numbers are signed."""
    if isinstance(binding.value, int) and binding.tag != ber.INTEGER:
        return int.from_bytes(binding.octets, "big")
    return binding.value


def well_formed(run, row, answer, command):
    """Judges name, type and value of an answer to a GET of one object."""
    verdicts = run.verdicts
    if answer.error or not verdicts.judge(row.name, "name", [one.oid for one in answer.bindings] == [row.oid],
                                          f"the answer is about {[one.oid for one in answer.bindings]}", command):
        return False
    return as_promised(run, row, answer.binding, command)


def met_only(run, row, binding):
    """One of very many cells: judged by the walk alone."""
    if run.verdicts.judge(row.name, "presence", binding is not None, "a walk does not meet it",
                          run.commands.get(run.reader, row.oid)):
        as_promised(run, row, binding, run.commands.get(run.reader, row.oid))


def as_promised(run, row, binding, command):
    """Judges type and value."""
    verdicts = run.verdicts
    if not verdicts.judge(row.name, "type", binding.tag == row.tag,
                          f"{type_name(binding.tag)}, not {type_name(row.tag)}", command):
        return False
    promise, value = promises.promise(row), value_of(row, binding)
    return verdicts.judge(row.name, "value", promise.holds(value), f"{shown(value)}, not {promise.words}", command)


def judge_time(run, name, seconds, command):
    median = statistics.median(seconds)
    run.verdicts.judge(name, "time", median <= run.slow,
                       f"{median * 1e3:.0f} ms (median of {len(seconds)}), more than {run.slow * 1e3:.0f} ms", command)


def readable_rows(run):
    return [row for row in run.tree.rows if row.name not in run.unreadable and run.is_sampled(row)]


def together(run):
    """Several names in one GET: the same names, in that order."""
    rows = [row for row in readable_rows(run) if row.name not in run.failed()]
    for start in range(0, len(rows), TOGETHER):
        group = rows[start : start + TOGETHER]
        oids = [row.oid for row in group]
        try:
            answer = run.link.get(run.reader, *oids)
        except Silent as silence:
            run.verdicts.failed(SEVERAL, "answer", str(silence), run.commands.get(run.reader, *oids))
            continue
        answered = [binding.oid for binding in answer.bindings]
        run.verdicts.judge(SEVERAL, "answer", answer.error == 0 and answered == oids,
                           f"GET of {len(oids)} names: {error_name(answer.error)}, {len(answered)} names",
                           run.commands.get(run.reader, *oids))
        if answer.error == 0 and answered == oids:
            for row, binding in zip(group, answer.bindings):
                run.verdicts.judge(row.name, "type", binding.tag == row.tag,
                                   f"{type_name(binding.tag)} among others in one GET",
                                   run.commands.get(run.reader, *oids))


def bulk(run):
    """GETBULK meets the objects in the order of a walk."""
    for subtree in run.tree.subtrees:
        rows = [row for row in run.tree.rows if is_below(row.oid, subtree)]
        if any(row.name in run.failed() or row.name in run.unreadable for row in rows):
            continue  # judged already, one by one
        oid = subtree
        while rows:
            # Not beyond the subtree: what follows it may fail.
            count = min(TOGETHER, len(rows))
            answer = run.link.get_bulk(run.reader, count, oid)
            line = run.commands.get_bulk(run.reader, count, oid)
            met = [binding.oid for binding in answer.bindings] if answer.error == 0 else []
            if not run.verdicts.judge("GETBULK", "answer", met, error_name(answer.error), line):
                break
            wrong = next((row for row, name in zip(rows, met) if row.oid != name), None)
            if wrong:
                run.verdicts.failed(wrong.name, ORDER, f"GETBULK meets {met[rows.index(wrong)]} instead", line)
                break
            oid, rows = met[-1], rows[len(met) :]


def neighbours(run):
    """Nothing lies below an instance, nor is there one without its last number."""
    for row in readable_rows(run):
        odd = [row.oid + ".0"] + ([] if "." in row.name else [row.oid.rpartition(".")[0]])
        try:
            answer = run.link.get(run.reader, *odd)
        except Silent as silence:
            run.verdicts.failed(row.name, "instance", str(silence), run.commands.get(run.reader, *odd))
            continue
        holds = answer.error == 0 and all(binding.tag in ABSENT for binding in answer.bindings)
        run.verdicts.judge(row.name, "instance", holds, f"it also answers one of {', '.join(odd)}",
                           run.commands.get(run.reader, *odd))


def relations(run):
    """Texts that depend on one another."""
    for name, other, made, words in promises.RELATIONS:
        if name not in run.values or other not in run.values or not isinstance(run.values[other], bytes):
            continue
        if run.values[other] == promises.UNREADABLE_FIRMWARE:
            run.verdicts.skipped(name, "relation", f"{other} could not be read by the camera")
            continue
        expected = made(run.values[other])
        run.verdicts.judge(name, "relation", run.values[name] == expected,
                           f"it {words}: {shown(expected)}, not {shown(run.values[name])}",
                           run.commands.get(run.reader, run.tree.oid(name), run.tree.oid(other)))
