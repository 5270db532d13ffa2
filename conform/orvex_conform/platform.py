"""Compares what the camera answers with what its platform shows, where a command shows it (--state-command).

The command prints one JSON object, of which every member may be absent, in the form of `domectl state`: alarm and relay
have banks of truth values, iris and focus say whether they are automatic, temperature, voltage and power have readings,
and each axis has a position."""

import ber
from orvex_conform.reads import shown
from orvex_conform.run import StateUnknown

FIRST_BANK = "BNK2"  # whose input 0 and relay 0 the one-octet objects show


def points(state, kind):
    """[(bank, number, state)] in the order of the table's rows, or None."""
    banks = state.get(kind)
    if not isinstance(banks, dict):
        return None
    return [(bank, number, on) for bank, points in banks.items() for number, on in enumerate(points)]


def expected(state):
    """(object, value) for each value that the platform shows."""
    yield from of_points(state, "alarm", {"alarmStatus": 0x10, "inputStatus": 0x01})
    yield from of_points(state, "relay", {"outputStatus": 0x01})
    axes = [state.get(axis) for axis in ("iris", "focus")]
    automatic = [axis.get("auto") if isinstance(axis, dict) else None for axis in axes]
    if None not in automatic:
        yield "systemLensFeatureStatus", bytes([sum(bit for bit, on in zip((0x80, 0x40), automatic) if on)])
    temperature = state.get("temperature")
    if isinstance(temperature, list) and temperature:
        yield "temperature", temperature[0] % 2**32
    for name in ("power", "voltage"):
        if isinstance(state.get(name), int):
            yield name, state[name]


def of_points(state, kind, bits):
    """The values of a table and of the one-octet objects, which show one point in one bit."""
    rows = points(state, kind)
    if rows is None:
        return
    first = any(bank == FIRST_BANK and number == 0 and on for bank, number, on in rows)
    for name, bit in bits.items():
        yield name, bytes([bit if first else 0])
    for index, (bank, number, on) in enumerate(rows, 1):
        yield f"{kind}Bank.{index}", bank.encode()
        yield f"{kind}Number.{index}", number
        yield f"{kind}State.{index}", int(on)


def check(run):
    state = run.platform()
    if state is None:
        return
    try:
        shown_values = list(expected(state))
    except (TypeError, ValueError, AttributeError):
        raise StateUnknown("--state-command: its output has not the form of domectl state") from None
    for name, value in shown_values:
        row = run.tree.by_name.get(name)
        if row is None:
            run.verdicts.failed(name, "platform", "the camera's platform has it, a walk does not meet it")
            continue
        if name in run.unreadable or name in run.failed():
            continue
        if run.is_sampled(row):
            run.guarded(name, "platform", compare, row, value)


def compare(run, row, value):
    answer = run.link.get(run.reader, row.oid)  # by itself: among others a cell may be the stored one
    got = answer.binding.value if answer.error == 0 else None
    if row.tag == ber.GAUGE32 and got is not None:
        got %= 2**32
    run.verdicts.judge(row.name, "platform", got == value, f"{shown(got)}, but its platform shows {shown(value)}",
                       run.commands.get(run.reader, row.oid))
