"""What the page did stands in `domectl trace`, marked, between what managers asked and what domectl did."""

import json
import subprocess

from desk import ManagerOf, await_until
from expected_tree import OID


def trace(camera):
    return [json.loads(line) for line in camera.domectl("trace", "--json").splitlines()]


def test_what_the_page_and_domectl_did_stands_in_the_list_marked(camera):
    before = len(trace(camera))
    camera.control("set", "pan", 1000)
    with ManagerOf(camera) as manager:
        manager.get(OID["modelName"])
    camera.call("pan", "SetPositionAtSpeed", 90000, 0.5, 300)
    camera.domectl("set", "pan", 2000)
    entries = await_until(lambda: len(trace(camera)) == before + 4 and trace(camera), "all four")[before:]
    assert [entry["pdu"] for entry in entries] == ["page", "GET", "page", "domectl"]
    assert [entry["who"] for entry in entries] == ["page", "reader", "page", "domectl"]
    assert [entry["number"] is None for entry in entries] == [True, False, True, True]
    assert entries[0]["words"] == "set pan 1000" and entries[3]["words"] == "set pan 2000"
    assert entries[2]["words"].startswith("call pan SetPositionAtSpeed 90000 0.5")
    (motion,) = entries[2]["motions"]
    assert (motion["from"], motion["target"], motion["end"], motion["by"]) == (
        1000, 90000, "jumped", {"action": entries[3]["id"]})
    lines = camera.domectl("trace").splitlines()
    assert [line for line in lines if " page " in line and "set pan 1000" in line]


def test_what_the_page_did_stands_in_the_list_when_the_camera_refused_it(camera):
    camera.post("/api/control", {"words": ["set", "pan", "a thousand"]})
    entry = [entry for entry in trace(camera) if entry["pdu"] == "page"][-1]
    assert entry["words"] == "set pan a thousand" and entry["failed"] and entry["reason"]
