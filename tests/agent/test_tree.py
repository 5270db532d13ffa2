"""Every object of a camera after its start: order, types, values, access, and names that do not exist."""

import pytest

import ber
from expected_tree import RO, ROWS, SUBTREES

EACH_ROW = pytest.mark.parametrize("row", ROWS, ids=lambda row: row.name)
READ_ONLY_ROW = pytest.mark.parametrize("row", [row for row in ROWS if row.access == RO], ids=lambda row: row.name)
NAMES_OF_TAGS = {ber.INTEGER: "INTEGER", ber.OCTET_STRING: "Hex-STRING", ber.GAUGE32: "Gauge32"}


def rows_below(subtree):
    return [row for row in ROWS if row.oid.startswith(subtree + ".")]


def as_triples(answer):
    return [(binding.oid, binding.tag, binding.value) for binding in answer.bindings]


@pytest.mark.parametrize("subtree", SUBTREES)
def test_walk_meets_the_rows_in_order_and_nothing_else(manager, subtree):
    met, oid = [], subtree
    for _ in range(1000):
        (binding,) = manager.get_next(oid).bindings
        oid = binding.oid
        if not oid.startswith(subtree + ".") or binding.tag == ber.END_OF_MIB_VIEW:
            break
        met.append((binding.oid, binding.tag, binding.value))
    assert met == [(row.oid, row.tag, row.value) for row in rows_below(subtree)]


@pytest.mark.parametrize("subtree", SUBTREES)
def test_snmpwalk_shows_the_rows(tools, subtree):
    walked = tools.walk(subtree)
    assert walked.status == 0, walked.error
    expected = [(row.oid, NAMES_OF_TAGS[row.tag], row.value) for row in rows_below(subtree)]
    assert walked.triples == expected


@EACH_ROW
def test_get_answers_the_value(manager, row):
    answer = manager.get(row.oid)
    assert (answer.error_status, as_triples(answer)) == (0, [(row.oid, row.tag, row.value)])


def test_one_get_answers_many_objects(manager):
    answer = manager.get(*[row.oid for row in ROWS])
    assert (answer.error_status, as_triples(answer)) == (0, [(row.oid, row.tag, row.value) for row in ROWS])


@EACH_ROW
def test_get_next_leads_to_the_row_after(manager, row):
    (subtree,) = [root for root in SUBTREES if row.oid.startswith(root + ".")]
    rows = rows_below(subtree)
    after = rows[rows.index(row) + 1 :][:1]
    (binding,) = manager.get_next(row.oid).bindings
    if after:
        assert binding.oid == after[0].oid
    else:
        assert not binding.oid.startswith(subtree + ".")


@pytest.mark.parametrize("subtree", SUBTREES)
def test_get_bulk_answers_a_subtree_at_once(manager, subtree):
    rows = rows_below(subtree)
    answer = manager.get_bulk(len(rows), subtree)
    assert as_triples(answer) == [(row.oid, row.tag, row.value) for row in rows]


@EACH_ROW
def test_nothing_lies_below_or_above_an_instance(manager, row):
    below, above = manager.get(row.oid + ".0", row.oid.rpartition(".")[0]).bindings
    assert below.tag in (ber.NO_SUCH_INSTANCE, ber.NO_SUCH_OBJECT)
    assert above.tag in (ber.NO_SUCH_INSTANCE, ber.NO_SUCH_OBJECT)


@READ_ONLY_ROW
def test_set_of_a_read_only_object_is_refused(manager, row):
    answer = manager.set((row.oid, row.tag, row.content))
    assert (answer.error_status, answer.error_index) == (row.refusal, 1)
    assert manager.get(row.oid).bindings[0].value == row.value


def test_readers_write_nothing(manager):
    writable = [row for row in ROWS if row.access != RO]
    for row in writable:
        answer = manager.set((row.oid, row.tag, row.content), community="public")
        assert answer.error_status == ber.NO_ACCESS, row.name


def test_the_loaders_own_objects_are_hidden(manager):
    """Writing these objects makes the agent load code."""
    loader = "1.3.6.1.4.1.2021.13.14"
    (binding,) = manager.get_next(loader).bindings
    assert not binding.oid.startswith(loader + ".")
    answer = manager.set((f"{loader}.2.1.4.1", ber.INTEGER, b"\x01"))
    assert answer.error_status == ber.NO_ACCESS
