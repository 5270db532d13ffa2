"""Alarm inputs and relay outputs, as scalars and tables, while banks and states change."""

import pytest

import ber
from commands import calls
from desk import await_until
from expected_tree import OID, ORVEX

ALARMS, RELAYS = f"{ORVEX}.1.3.1", f"{ORVEX}.1.3.2"


@pytest.fixture(autouse=True)
def banks(camera):
    """Every test begins with the desk camera's default banks, all at rest."""
    for kind in ("alarm", "relay"):
        camera.domectl("banks", kind, "BNK1=4", "BNK2=2")
        for bank, count in (("BNK1", 4), ("BNK2", 2)):
            for number in range(count):
                camera.domectl("set", kind, bank, number, 0)
    camera.clear_calls()


def cell(table, column, row):
    return f"{table}.1.{column}.{row}"


def walk(manager, root):
    """(OID below the root, value) of each object below the root."""
    met, oid = [], root
    for _ in range(20000):
        (binding,) = manager.get_next(oid).bindings
        oid = binding.oid
        if not oid.startswith(root + "."):
            return met
        met.append((oid[len(root) + 1 :], binding.value))
    raise AssertionError("the walk does not end")


def rows_of(*banks):
    """The expected walk of a table of resting points."""
    points = [(bank.encode(), number) for bank, count in banks for number in range(count)]
    columns = [[bank for bank, _ in points], [number for _, number in points], [0 for _ in points]]
    return [(f"1.{c}.{r}", value) for c, column in enumerate(columns, 1) for r, value in enumerate(column, 1)]


def relay_states(camera):
    return camera.dome_state()["relay"]


@pytest.mark.parametrize(("table", "kind"), [(ALARMS, "alarm"), (RELAYS, "relay")])
def test_the_table_follows_the_banks(camera, manager, table, kind):
    for banks in ([("A", 1), ("BNK2", 3)], [("A", 40)], [], [("LONG " * 12 + "NAME", 2)], [("BNK1", 4), ("BNK2", 2)]):
        camera.domectl("banks", kind, *([f"{name}={count}" for name, count in banks] or ["none"]))
        assert walk(manager, table) == rows_of(*banks)


@pytest.mark.parametrize(("table", "kind"), [(ALARMS, "alarm"), (RELAYS, "relay")])
def test_new_rows_are_there_at_the_first_request(camera, manager, table, kind):
    camera.domectl("banks", kind, "BNK1=9")
    assert manager.get(cell(table, 2, 9)).bindings[0].value == 8
    camera.domectl("banks", kind, "BNK1=2")
    (binding,) = manager.get(cell(table, 2, 9)).bindings
    assert binding.tag == ber.NO_SUCH_INSTANCE
    camera.domectl("banks", kind, "NEW=3")
    answer = manager.get_bulk(10, f"{table}.1.1")
    assert [binding.value for binding in answer.bindings[:4]] == [b"NEW", b"NEW", b"NEW", 0]


def test_a_set_reaches_a_relay_that_is_new(camera, manager):
    camera.domectl("banks", "relay", "BNK1=4", "BNK2=5")
    assert manager.set_integer(cell(RELAYS, 3, 9), 1).error_status == ber.NO_ERROR
    assert relay_states(camera)["BNK2"] == [False, False, False, False, True]


@pytest.mark.parametrize(("table", "kind"), [(ALARMS, "alarm"), (RELAYS, "relay")])
def test_states_are_read_live(camera, manager, table, kind):
    camera.domectl("set", kind, "BNK2", 1, 1)
    assert manager.get(cell(table, 3, 6)).bindings[0].value == 1
    camera.domectl("set", kind, "BNK2", 1, 0)
    assert manager.get(cell(table, 3, 6)).bindings[0].value == 0


@pytest.mark.parametrize("table", [ALARMS, RELAYS])
def test_a_name_that_is_not_a_cell_does_not_exist(manager, table):
    absent = [cell(table, 1, 0), cell(table, 3, 7), cell(table, 4, 1), cell(table, 0, 1), cell(table, 3, 4294967295)]
    absent += [f"{table}.1.3", f"{table}.1", f"{table}.1.3.1.1", f"{table}.2.3.1"]
    for binding in manager.get(*absent).bindings:
        assert binding.tag in (ber.NO_SUCH_INSTANCE, ber.NO_SUCH_OBJECT), binding.oid


@pytest.mark.parametrize(
    ("row", "column", "tag", "value", "error"),
    [
        (7, 3, ber.INTEGER, b"\x01", ber.NO_CREATION),
        (0, 3, ber.INTEGER, b"\x01", ber.NO_CREATION),
        (1, 4, ber.INTEGER, b"\x01", ber.NOT_WRITABLE),
        (1, 2, ber.INTEGER, b"\x01", ber.NOT_WRITABLE),
        (1, 3, ber.OCTET_STRING, b"\x01", ber.WRONG_TYPE),
        (1, 3, ber.GAUGE32, b"\x01", ber.WRONG_TYPE),
    ],
)
def test_a_set_of_what_cannot_be_set_drives_nothing(camera, manager, row, column, tag, value, error):
    answer = manager.set((cell(RELAYS, column, row), tag, value))
    assert (answer.error_status, answer.error_index) == (error, 1)
    assert not any(call.startswith(("relay SetRelay", "relay ClearRelay")) for call in calls(camera))


NO_CELLS = [".1", ".1.3", ".1.1", ".1.3.77.5", ".1.0.1", ".1.4.1", ".2.3.1", ".2", ""]


@pytest.mark.parametrize("table", [ALARMS, RELAYS])
@pytest.mark.parametrize("suffix", NO_CELLS)
def test_a_name_that_is_no_cell_changes_nothing_for_others(manager, table, suffix):
    one, other = cell(table, 2, 2), table + suffix
    for names in ([one, other], [other, one], [one, other, one]):
        for binding in manager.get(*names).bindings:
            assert (binding.oid, binding.value) == ((one, 1) if binding.oid == one else (other, None))
        (alone,) = manager.get_next(other).bindings
        for ask in (manager.get_next, lambda *oids: manager.get_bulk(1, *oids)):
            answer = ask(*names)
            assert answer.error_status == ber.NO_ERROR
            following = [cell(table, 2, 3) if name == one else alone.oid for name in names]
            assert [binding.oid for binding in answer.bindings] == following


@pytest.mark.parametrize("suffix", [".1.4.1", ".1.4", ".2.3.1", ".2", ".1.3.6"])
def test_the_relays_follow_the_alarms(manager, suffix):
    assert manager.get_next(ALARMS + suffix).bindings[0].oid == cell(RELAYS, 1, 1)


# net-snmp 5.9.3's answer to a SET of two names, each with an INTEGER 1: the error's status and index. Rows are the
# first name, columns the second; both have the order of the names.
PAIRS = {
    "cell": (cell(RELAYS, 3, 1), "0/0  17/2  17/2  17/2  11/2  11/2  11/2   7/2  17/2  17/2   6/2"),
    "readOnly": (cell(RELAYS, 1, 1), "17/1  17/1  17/1  17/1  11/2  11/2  17/1  17/1  17/1  17/1   6/2"),
    "noColumn": (cell(RELAYS, 4, 1), "17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1   6/2"),
    "tooShort": (f"{RELAYS}.1", "17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1   6/2"),
    "noIndex": (f"{RELAYS}.1.3", "11/1  11/1  11/1  11/1  11/1  11/1  11/1  11/1  11/1  11/1   6/2"),
    "longIndex": (cell(RELAYS, 3, "77.5"), "11/1  11/1  11/1  11/1  11/1  11/1  11/1  11/1  11/1  11/1   6/2"),
    "noRow": (cell(RELAYS, 3, 99), "11/1  11/1  11/1  11/1  11/2  11/2  11/1  11/1  11/1  11/1   6/2"),
    "octets": (OID["outputControl"], " 7/1   7/1   7/1   7/1   7/1   7/1   7/1   7/1   7/1   7/1   6/2"),
    "readOnlyScalar": (OID["outputStatus"], "17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1   6/2"),
    "unknown": (f"{ORVEX}.77.1.0", "17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1  17/1   6/2"),
    "outOfView": ("1.3.6.1.2.1.1.5.0", " 6/1   6/1   6/1   6/1   6/1   6/1   6/1   6/1   6/1   6/1   6/1"),
}


@pytest.mark.parametrize("first", PAIRS)
def test_a_set_of_two_names_is_refused_for_the_right_one(camera, manager, first):
    """Some agents crash on a name with an index that is too long."""
    name, answers = PAIRS[first]
    for (second, (other, _)), expected in zip(PAIRS.items(), answers.split(), strict=True):
        answer = manager.set((name, ber.INTEGER, b"\x01"), (other, ber.INTEGER, b"\x01"))
        assert f"{answer.error_status}/{answer.error_index}" == expected, second
        assert camera.alive("agent")
    driven = [call for call in calls(camera) if call.startswith(("relay SetRelay", "relay ClearRelay"))]
    assert driven == ["relay SetRelay BNK1 0 1"] * (2 if first == "cell" else 0)


@pytest.mark.parametrize("column", [1, 2, 3])
def test_alarms_cannot_be_set(camera, manager, column):
    answer = manager.set((cell(ALARMS, column, 1), ber.INTEGER, b"\x01"))
    assert answer.error_status in (ber.NOT_WRITABLE, ber.WRONG_TYPE)
    assert manager.get(cell(ALARMS, 3, 1)).bindings[0].value == 0


@pytest.mark.parametrize(("value", "energised"), [(1, True), (0, False), (5, False), (-1, False)])
def test_only_1_energises(camera, manager, value, energised):
    camera.domectl("set", "relay", "BNK2", 0, 0 if energised else 1)
    answer = manager.set_integer(cell(RELAYS, 3, 5), value)
    assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, value)
    assert relay_states(camera)["BNK2"] == [energised, False]


def test_of_two_rows_in_one_pdu_the_last_is_driven_twice(camera, manager):
    one = ber.integer_octets(1)
    answer = manager.set((cell(RELAYS, 3, 1), ber.INTEGER, one), (cell(RELAYS, 3, 2), ber.INTEGER, one))
    assert answer.error_status == ber.NO_ERROR
    driven = [call for call in calls(camera) if call.startswith("relay SetRelay")]
    assert driven == ["relay SetRelay BNK1 1 1"] * 2


def test_many_cells_of_one_request(camera, manager):
    camera.domectl("set", "alarm", "BNK1", 0, 1)
    answer = manager.get(*[cell(ALARMS, 3, row) for row in range(1, 7)], *[cell(RELAYS, 1, row) for row in range(1, 7)])
    assert answer.error_status == ber.NO_ERROR
    assert [binding.value for binding in answer.bindings[:1]] == [1]
    assert [binding.value for binding in answer.bindings[6:]] == [b"BNK1"] * 4 + [b"BNK2"] * 2


@pytest.mark.parametrize("kind", ["fail", "gone", "hang"])
def test_tables_without_their_service_keep_their_rows_and_answer_0(camera, manager, kind):
    camera.domectl("set", "alarm", "BNK1", 1, 1)
    camera.domectl("set", "relay", "BNK1", 1, 1)
    for service, table in (("alarm", ALARMS), ("relay", RELAYS)):
        camera.domectl("fault", service, kind)
        answer = manager.get(cell(table, 3, 2))
        assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, 0)
        camera.domectl("fault", service, "ok")
        # The client calls a service that hung again only after it answered a ping.
        await_until(lambda: manager.get(cell(table, 3, 2)).bindings[0].value == 1, "the state is read again")


def test_a_set_without_the_relay_service_fails_and_a_later_one_works(camera, manager):
    camera.domectl("fault", "relay", "fail")
    assert manager.set_integer(cell(RELAYS, 3, 1), 1).error_status == ber.GEN_ERR
    camera.domectl("fault", "relay", "ok")
    assert manager.set_integer(cell(RELAYS, 3, 1), 1).error_status == ber.NO_ERROR
    assert relay_states(camera)["BNK1"] == [True, False, False, False]


def test_input_scalars(camera, manager):
    inputs, alarms = OID["inputStatus"], OID["alarmStatus"]
    camera.domectl("set", "alarm", "BNK2", 0, 1)
    assert [binding.octets for binding in manager.get(inputs, alarms).bindings] == [b"\x01", b"\x10"]
    camera.domectl("fault", "alarm", "fail")
    assert [binding.octets for binding in manager.get(inputs, alarms).bindings] == [b"\x01", b"\x00"]
    camera.domectl("fault", "alarm", "ok")
    camera.domectl("set", "alarm", "BNK2", 0, 0)
    assert [binding.octets for binding in manager.get(inputs, alarms).bindings] == [b"\x00", b"\x00"]


def test_output_scalars(camera, manager):
    status, control = OID["outputStatus"], OID["outputControl"]
    for command, state in (("0180", b"\x01"), ("0080", b"\x01"), ("0100", b"\x00"), ("0000", b"\x00"), ("0180", b"\x01")):
        answer = manager.set_octets(control, bytes.fromhex(command))
        assert (answer.error_status, answer.bindings[0].octets) == (ber.NO_ERROR, bytes.fromhex(command))
        assert [binding.octets for binding in manager.get(status, control).bindings] == [state, bytes.fromhex(command)]
    camera.domectl("fault", "relay", "fail")
    assert manager.get(status).bindings[0].octets == b"\x01"
    assert manager.set_octets(control, b"\x01\x00").error_status == ber.GEN_ERR
    camera.domectl("fault", "relay", "ok")
    assert manager.get(control).bindings[0].octets == b"\x01\x00"
    assert manager.set_integer(control, 1).error_status == ber.WRONG_TYPE
