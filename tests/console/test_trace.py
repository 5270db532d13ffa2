"""The trace for browsers: what the agent was asked, what the camera made of it, and why nothing moved."""

import json
import pathlib
import socket
import sys

import ber
import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from desk import ManagerOf, await_until
from expected_tree import OID

PAN, TILT = OID["positionPan"], OID["positionTilt"]


class Reader:
    """Reads on from answer to answer, as the page does."""

    def __init__(self, desk):
        self.desk, self.next, self.records, self.answer = desk, 0, [], None

    def read(self):
        """All records so far."""
        more = True
        while more:
            self.answer = self.desk.get(f"/api/trace?since={self.next}").json
            self.records += self.answer["records"]
            self.next, more = self.answer["next"], self.answer["more"]
        return self.records

    def find(self, matches, what="a record"):
        """The last state of a record."""
        return await_until(lambda: next((r for r in reversed(self.read()) if matches(r)), None), what, 30)


def names(record, name):
    return any(binding["name"] == name for binding in record["bindings"])


@pytest.fixture
def reader(camera):
    reader = Reader(camera)
    reader.read()
    reader.records.clear()
    return reader


def test_a_set_shows_with_its_call_and_its_motion(camera, tools, reader):
    assert tools.set(PAN, "x", "027f0bb8").status == 0
    record = reader.find(lambda r: names(r, "positionPan") and [m["end"] for m in r["motions"]] == ["arrived"])
    assert (record["pdu"], record["error"], record["failed"]) == ("SET", "noError", False)
    assert [(call["service"], call["operation"], call["outcome"]) for call in record["calls"]] == [
        ("pan", "SetPositionAtSpeed", "answered")]
    assert record["motions"][0]["position"] == 30000
    assert (reader.answer["agent"], reader.answer["camera"]) == ("", "")


def test_a_failed_request_says_why(tools, reader):
    assert tools.set(PAN, "x", "02408ca0").status != 0
    record = reader.find(lambda r: r["failed"])
    assert (record["error"], record["reason"]) == ("genErr", "out of range: the position 36000 is above 35999")


def test_an_action_of_the_page_shows(camera, reader):
    camera.control("set", "tilt", 5000)
    record = reader.find(lambda r: r["pdu"] == "page")
    assert record["words"] == "set tilt 5000" and record["number"] is None


def test_records_are_those_of_domectl(camera, tools, reader):
    tools.set(TILT, "x", "027f0064")
    tools.get(PAN)
    reader.find(lambda r: names(r, "positionTilt") and r["motions"] and r["motions"][0]["end"] == "arrived")
    reader.find(lambda r: names(r, "positionPan"))
    same = {json.dumps(json.loads(line)) for line in camera.domectl("trace", "--json").splitlines()}
    mine = {record["number"]: json.dumps(record) for record in reader.records if record["number"]}
    assert len(mine) == 2 and set(mine.values()) <= same


def test_an_answer_has_only_what_is_new(tools, reader):
    tools.get(PAN)
    reader.find(lambda r: names(r, "positionPan"))
    reader.records.clear()
    assert [r for r in reader.read() if r["pdu"] == "GET" and names(r, "positionPan")] == []


@pytest.mark.parametrize("query", ["since", "since=", "since=-1", "since=x", "since=1&b=2", "since=99999999999999999999", "from=1"])
def test_a_wrong_query_is_refused(camera, query):
    answer = camera.get(f"/api/trace?{query}")
    assert answer.status == 400 and "since=N" in answer.json["error"]


def test_a_walk_comes_in_bounded_answers(camera, tools, reader):
    for _ in range(30):
        tools.walk("1.3.6.1.4.1.1206")
    await_until(lambda: len(reader.read()) > 1200, "the walks have been read")
    sizes = []
    more = True
    while more:
        answer = camera.get("/api/trace?since=0" if not sizes else f"/api/trace?since={last}")
        sizes.append(len(answer.body))
        last, more = answer.json["next"], answer.json["more"]
    assert len(sizes) > 1 and max(sizes) < 300 * 1024


def maps_the_ring(desk):
    return "orvextrace" in pathlib.Path(f"/proc/{desk.processes['dome'].pid}/maps").read_text()


def test_the_ring_is_read_only_when_somebody_asks(desk):
    desk.start()
    assert not maps_the_ring(desk)
    assert desk.get("/api/trace").json["agent"] == ""
    assert maps_the_ring(desk)


def test_without_an_agent_the_camera_is_shown(desk):
    desk.dome_options += ["--trace", desk.state / "elsewhere.sock"]
    desk.start()
    desk.control("set", "pan", 1000)
    answer = desk.get("/api/trace").json
    assert "elsewhere.sock" in answer["agent"] and answer["camera"] == ""
    assert [record["words"] for record in answer["records"]] == ["set pan 1000"]


def octets_of(answer):
    return bytes.fromhex(answer["head"] + "".join(answer["packets"]))


def without_communities(octets):
    for community in (b"public", b"private"):
        octets = octets.replace(community, b"*" * len(community))
    return octets


def packets(octets):
    """Without their checksums, which differ with the community."""
    found, start = [], 24
    while start < len(octets):
        size = int.from_bytes(octets[start + 8:start + 12], sys.byteorder)
        packet = octets[start + 16:start + 16 + size]
        found.append((octets[start:start + 16], packet[:26], packet[28:]))
        start += 16 + size
    return found


def test_the_packets_have_no_right_community(desk):
    desk.dome_options = desk.dome_options[:2]  # without its probe
    desk.start()
    reader = Reader(desk)
    with ManagerOf(desk, timeout=0.5) as manager:
        for community in ("public", "private", "wrong"):
            try:
                manager.set((PAN, ber.OCTET_STRING, bytes.fromhex("02000001")), community=community)
            except socket.timeout:
                assert community == "wrong"
        manager.get(PAN)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.sendto(b"\x30\x70\x02\x01\x01\x04\x07private", ("127.0.0.1", desk.port))
    desk.control("event", "power", 7)
    reader.find(lambda r: r["pdu"] == "trap")
    reader.find(lambda r: "broken" in r["reason"])
    octets = octets_of(desk.get("/api/trace/packets").json)
    assert b"*" * 6 in octets and b"*" * 7 in octets
    assert b"wrong" in octets, "the one that was refused shows"
    for community in (b"public", b"private"):
        assert community not in octets
        assert community not in desk.get("/api/trace").body


def test_the_packets_are_those_of_domectl(desk, tmp_path):
    desk.dome_options = desk.dome_options[:2]  # without its probe
    desk.start()
    with ManagerOf(desk) as manager:
        manager.get(PAN)
        manager.set_octets(PAN, bytes.fromhex("02408ca0"))
        manager.set_octets(PAN, bytes.fromhex("02000001"))
    desk.control("event", "power", 7)
    reader = Reader(desk)
    reader.find(lambda r: r["pdu"] == "trap" and ".32473." in json.dumps(r["traps"]))
    answer = desk.get("/api/trace/packets?since=0").json
    assert answer["started"] == reader.answer["started"] and len(answer["packets"]) == reader.next == answer["next"]
    desk.domectl("trace", "--pcap", tmp_path / "all.pcap")
    assert packets(octets_of(answer)) == packets(without_communities((tmp_path / "all.pcap").read_bytes()))
    number = next(i for i, record in enumerate(reader.records) if record["error"] == "genErr")
    assert "02408ca0" in answer["packets"][number], "packets have their records' order"


def test_the_probes_of_the_page_are_left_out(camera, reader):
    with camera.events() as events:
        events.next("agent")
        await_until(lambda: [r for r in camera.trace() if r["id"] == 0x4465736B], "domectl shows them")
        reader.read()
        own = await_until(lambda: reader.read() is None or reader.answer["own"], "they are counted")
        await_until(lambda: reader.read() is None or reader.answer["own"] > own, "the next one, too")
    assert [r for r in reader.records if r["id"] == 0x4465736B] == []


def test_another_request_with_the_probes_id_is_not_left_out(camera, reader):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        message = ber.encode(ber.GET, [(PAN, ber.NULL, b"")], request_id=0x4465736B, community="public")
        sender.sendto(message, ("127.0.0.1", camera.port))
    assert reader.find(lambda r: r["id"] == 0x4465736B)["who"] == "reader"


def test_a_probe_that_fails_is_not_left_out(desk):
    configuration = desk.state / "snmpd.conf"
    configuration.write_text(configuration.read_text().replace(" public\n", " other\n"))
    desk.start_bus()
    desk.start_dome()
    desk.launch_agent()
    with desk.events():
        reader = Reader(desk)
        record = reader.find(lambda r: r["failed"])
    assert (record["reason"], record["who"]) == ("wrong community", "public")


def flood(desk, count):
    with ManagerOf(desk) as manager:
        for _ in range(count):
            manager.get("1.3.6.1.2.1.1.3.0")


def test_records_that_the_agent_has_overwritten_are_lost(desk):
    desk.environment["ORVEX_TRACE_KIB"] = "256"
    desk.start()
    reader = Reader(desk)
    reader.read()
    flood(desk, 4000)
    record = reader.find(lambda r: r.get("lost"))
    numbers = [r["number"] for r in reader.records if r["number"]]
    before = numbers[numbers.index(record["number"]) - 1]
    assert record["lost"] == record["number"] - before - 1 > 100


@pytest.mark.slow
def test_a_slow_reader_learns_how_many_it_has_lost(desk):
    desk.start()
    reader = Reader(desk)
    reader.read()
    first = reader.next
    flood(desk, 6000)
    reader.read()
    flood(desk, 6000)
    reader.read()
    assert reader.answer["lost"] == 0
    late = desk.get(f"/api/trace?since={first}").json
    kept = reader.next - (late["next"] - len(late["records"]))
    assert kept == 10000
    assert late["lost"] == reader.next - first - kept > 1000
    assert late["records"][0] == reader.records[-kept]


# ---------------------------------------------------------------- the page


@pytest.fixture
def page(camera, browser):
    browser.open(camera)
    yield browser
    assert not browser.complaints()


ROWS = "return [...document.querySelectorAll('#trace tbody')].map((b) => [...b.rows[0].cells].map((c) => c.textContent))"


def rows(page):
    """What the lines say, newest first."""
    return page.run(ROWS)


def said(page, *words):
    return [row for row in rows(page) if all(any(word in cell for cell in row) for word in words)]


@pytest.mark.slow
@pytest.mark.page
def test_the_page_shows_the_trace(camera, page, tools):
    opener = page.find("trace-open")
    assert opener.get_attribute("aria-expanded") == "false" and rows(page) == []
    opener.send_keys(Keys.ENTER)
    assert page.find("trace-view").is_displayed()
    tools.set(PAN, "x", "027f1770")
    tools.set(PAN, "x", "02408ca0")
    await_until(lambda: said(page, "SET", "ok", "positionPan = 02 7f 17 70", "pan arrived"), "the motion has ended", 30)
    await_until(lambda: said(page, "SET", "genErr"), "the refused one shows")

    line = next(b for b in page.all("#trace tbody") if "02 7f 17 70" in b.text)
    button = line.find_element(By.TAG_NAME, "button")
    button.send_keys(Keys.ENTER)
    assert button.get_attribute("aria-expanded") == "true"
    for words in ("pan.SetPositionAtSpeed", "answered in", "arrived at 60.00°"):
        assert words in line.text
    assert page.violations() == []
    button.send_keys(Keys.SPACE)
    assert "SetPositionAtSpeed" not in line.text



def is_on(page, switch):
    return page.find(switch).get_attribute("aria-checked") == "true"


def clear(field):
    field.send_keys(Keys.CONTROL, "a")
    field.send_keys(Keys.DELETE)


@pytest.fixture
def trace(page):
    """The page with its trace open."""
    page.find("trace-open").click()
    page.await_text("trace-open", "Hide")
    return page


@pytest.mark.slow
@pytest.mark.page
def test_the_trace_is_filtered(trace, tools):
    tools.set(PAN, "x", "02408ca0")
    tools.set(PAN, "x", "00000000")
    await_until(lambda: said(trace, "SET", "ok") and said(trace, "SET", "genErr"), "both show")
    trace.find("trace-failed").click()
    await_until(lambda: rows(trace) and all(row[5] != "ok" for row in rows(trace)), "only failed ones show")
    trace.find("trace-failed").click()
    trace.find("trace-object").send_keys("TILT")
    assert said(trace, "positionPan") == []
    tools.set(TILT, "x", "00000000")
    await_until(lambda: said(trace, "SET", "positionTilt"), "the filter takes it")
    clear(trace.find("trace-object"))
    assert said(trace, "positionPan")
    trace.find("trace-peer").send_keys("10.0.0.1")
    assert rows(trace) == []
    clear(trace.find("trace-peer"))
    trace.find("trace-peer").send_keys("127.0.0.1")
    assert said(trace, "positionPan")
    clear(trace.find("trace-peer"))


LATER = """
const fetched = window.fetch;
window.fetch = async (...request) => {
  const answer = await (await fetched(...request)).json();
  return new Response(JSON.stringify({...answer, time: new Date(Date.parse(answer.time) + arguments[0]).toISOString()}));
};
"""
READERS = ROWS.replace("#trace tbody", "#readers > tbody")


@pytest.mark.slow
@pytest.mark.page
def test_reads_are_folded_by_their_reader(camera, trace, tools):
    with ManagerOf(camera) as manager:
        for _ in range(25):
            manager.get(PAN)
        manager.get(TILT)
        manager.get("1.3.6.1.4.1.1206.4.2.7.99.0")
    def reader():
        return [row for row in trace.run(READERS) if row[2] == "reader" and "positionTilt" in row[5]]
    (count, address, who, rate, last, objects), = await_until(reader, "the reads are one line")
    assert int(count) >= 26 and address == "127.0.0.1" and float(rate) > 1 and len(last) == 12 and "positionPan" in objects
    assert said(trace, "GET", "positionPan") == []
    assert said(trace, "GET", "no such object"), "one that failed stands in the list"

    opened = next(b for b in trace.all("#readers > tbody") if "positionTilt" in b.text)
    button = opened.find_element(By.CSS_SELECTOR, "button")
    button.send_keys(Keys.ENTER)
    assert button.get_attribute("aria-expanded") == "true"
    await_until(lambda: len(opened.find_elements(By.CSS_SELECTOR, ".inner tbody")) >= 26, "its reads show")
    inner = opened.find_element(By.CSS_SELECTOR, ".inner tbody button")
    inner.click()
    assert "Answered" in opened.text and trace.violations() == []
    manager_reads = int(button.text)
    tools.get(PAN)
    await_until(lambda: int(button.text) == manager_reads + 1, "it is counted while it is open")
    assert inner.get_attribute("aria-expanded") == "true", "what was open stays open"
    button.click()
    trace.run(LATER, 11000)
    await_until(lambda: trace.run(READERS)[0][3] == "–", "a reader that has stopped has no rate")
    trace.find("trace-fold").click()
    await_until(lambda: said(trace, "GET", "positionPan"), "unfolded they stand in the list")
    assert not trace.find("readers-rows").is_displayed()
    trace.find("trace-fold").click()


@pytest.mark.slow
@pytest.mark.page
def test_the_trace_pauses(camera, trace, tools):
    tools.set(PAN, "x", "00000000")
    await_until(lambda: said(trace, "SET", "positionPan = 00 00 00 00"), "it runs")
    trace.find("trace-pause").click()
    newest = rows(trace)[0]
    tools.set(TILT, "x", "00000000")
    Reader(camera).find(lambda r: r["pdu"] == "SET" and names(r, "positionTilt"))
    count = trace.text("trace-count")
    await_until(lambda: trace.text("trace-count") != count, "it comes in")
    assert rows(trace)[0] == newest
    trace.find("trace-pause").click()
    await_until(lambda: said(trace, "SET", "positionTilt = 00 00 00 00"), "what came meanwhile shows")


def listed(page):
    """The number of lines that the list has, on all its pages."""
    last = page.text("trace-position").split()[-1]
    return int(last) if last.isdigit() else 0


def restart_dome(desk, page):
    desk.end("dome")
    page.await_text("link", "No connection")
    desk.start_dome()
    page.await_text("link", "Live")
    page.complaints()  # the browser reports the refused connections


def open_first(page, table):
    """In one step: a new line may replace a button between its search and the click."""
    page.run("document.querySelector(`${arguments[0]} > tbody button`).click()", table)


@pytest.mark.slow
@pytest.mark.page
def test_what_is_held_outlives_the_camera(camera, trace, tools):
    tools.set(PAN, "x", "02408caf")  # no other test's
    await_until(lambda: said(trace, "02 40 8c af"), "it shows")
    open_first(trace, "#trace")
    trace.find("trace-pause").click()
    held = trace.text("trace")
    restart_dome(camera, trace)
    tools.set(TILT, "x", "00000000")
    await_until(lambda: Reader(camera).find(lambda r: names(r, "positionTilt")), "it comes in")
    await_until(lambda: trace.run("return document.getElementById('trace-trouble').textContent") == "", "the page asks again")
    assert (trace.text("trace"), is_on(trace, "trace-pause")) == (held, True)
    trace.find("trace-pause").click()
    await_until(lambda: said(trace, "SET", "positionTilt"), "what came meanwhile shows")
    lines = [b.text for b in trace.all("#trace > tbody")]
    gap = next(i for i, line in enumerate(lines) if line.startswith("The camera has begun its list anew"))
    assert "positionTilt" in lines[0] and "out of range" in lines[gap + 1], "the opened line stays open"
    assert len(said(trace, "02 40 8c af")) == 1, "nothing is there twice"


@pytest.mark.slow
@pytest.mark.page
def test_an_opened_line_is_not_pushed_off_the_page(camera, trace):
    camera.control("set", "light", 1)
    button = await_until(lambda: trace.run("""return [...document.querySelectorAll('#trace > tbody')].find((b) =>
        b.textContent.includes('set light 1'))?.querySelector('button')"""), "it shows")
    button.click()
    for i in range(210):
        camera.control("set", "light", i % 100)
    await_until(lambda: is_on(trace, "trace-pause"), "it is held")
    assert button.is_displayed() and button.get_attribute("aria-expanded") == "true"
    assert trace.driver.switch_to.active_element == button
    trace.find("trace-newest").click()
    trace.find("trace-pause").click()


@pytest.mark.slow
@pytest.mark.page
def test_it_looks_back_over_many_records(camera, trace):
    for i in range(520):
        camera.control("set", "light", i % 100)
    await_until(lambda: listed(trace) >= 520, "all are there", 30)
    assert len(rows(trace)) == 200, "a page at a time"
    assert not trace.find("trace-newer").is_enabled()
    trace.find("trace-older").click()
    assert trace.text("trace-position").startswith("201 to 400 of ")
    assert trace.find("trace-pause").get_attribute("aria-checked") == "true", "what comes in does not push it away"
    shown = rows(trace)
    camera.control("set", "light", 50)
    count = trace.text("trace-count")
    await_until(lambda: trace.text("trace-count") != count, "it comes in")
    assert rows(trace) == shown
    trace.find("trace-oldest").click()
    assert not trace.find("trace-older").is_enabled() and 0 < len(rows(trace)) <= 200
    trace.find("trace-newest").click()
    trace.find("trace-pause").click()
    await_until(lambda: said(trace, "set light 50"), "the newest shows")


SAVED = """
window.saved = [];
URL.createObjectURL = (blob) => {
  blob.arrayBuffer().then((octets) => window.saved.push([...new Uint8Array(octets)]));
  return 'data:,';
};
HTMLAnchorElement.prototype.click = function () { window.savedAs = this.download; };
"""


def saved(page, button):
    page.run(SAVED)
    page.find(button).click()
    return bytes(await_until(lambda: page.run("return window.saved[0]"), "it is saved"))


@pytest.mark.slow
@pytest.mark.page
def test_what_is_shown_is_saved(camera, trace, tools, tmp_path):
    for octets in ("02000064", "02408ca0"):
        tools.set(PAN, "x", octets)
    tools.get(TILT)
    trace.find("trace-object").send_keys("positionPan")
    trace.find("trace-failed").click()
    await_until(lambda: said(trace, "SET", "genErr"), "it shows")
    lines = saved(trace, "trace-json").decode().splitlines()
    assert trace.run("return window.savedAs") == "trace.jsonl"
    same = [json.loads(line) for line in
            camera.domectl("trace", "--json", "--object", "positionPan", "--failed").splitlines()]
    assert [json.loads(line) for line in lines] == same and same

    capture = saved(trace, "trace-pcap")
    assert trace.run("return window.savedAs") == "trace.pcap"
    camera.domectl("trace", "--object", "positionPan", "--failed", "--pcap", tmp_path / "some.pcap")
    assert packets(capture) == packets(without_communities((tmp_path / "some.pcap").read_bytes()))
    assert len(capture) > 100 and b"private" not in capture
    trace.driver.refresh()


MARKUP = b"<img src=x onerror=document.title='hit'>"


@pytest.mark.slow
@pytest.mark.page
def test_what_comes_from_the_wire_is_text(camera, trace):
    with ManagerOf(camera, timeout=0.3) as manager:
        for community in (MARKUP.decode(), "private"):
            try:
                manager.set(("1.3.6.1.2.1.1.6.0", ber.OCTET_STRING, MARKUP), community=community)
            except socket.timeout:
                assert community != "private"
    await_until(lambda: len(said(trace, "SET", "<img")) == 2, "both show")
    trace.run("""for (const line of document.querySelectorAll('#trace > tbody'))
                     if (line.textContent.includes('<img')) line.querySelector('button').click();""")
    await_until(lambda: trace.run("return document.getElementById('trace').innerText").count("<img") > 3, "they open")
    assert trace.all(".trace img") == [] and trace.driver.title != "hit"


@pytest.mark.slow
@pytest.mark.page
def test_lost_records_are_named(desk, browser):
    desk.environment["ORVEX_TRACE_KIB"] = "256"
    desk.start()
    flood(desk, 4000)
    browser.open(desk)
    browser.find("trace-open").click()
    text = await_until(lambda: [b.text for b in browser.all("#trace tbody.gap")], "the gap shows")
    assert text[0].endswith("records were overwritten before they could be read.") and int(text[0].split()[0]) > 100
    assert not browser.complaints()
    browser.driver.get("about:blank")  # before the camera ends


@pytest.mark.slow
@pytest.mark.page
@pytest.mark.parametrize("width, scheme", [(390, "dark"), (1280, "light"), (1280, "dark")])
def test_the_trace_fits_every_screen(page, tools, width, scheme):
    page.look(width, 844, scheme)
    page.find("trace-open").click()
    tools.get(PAN)
    tools.set(PAN, "x", "02408ca0")
    await_until(lambda: said(page, "SET", "positionPan") and page.run(READERS), "it shows")
    for table in ("#trace", "#readers"):
        open_first(page, table)
    tables = [table.accessible_name for table in page.all(".trace table")]
    assert len(tables) == 3 and all(tables), tables
    assert page.violations() == []
    assert page.run("return document.documentElement.scrollWidth") == width


def flood_at_once(desk, count):
    """As many GETs as a fast poller sends, 100 under way at a time."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as poller:
        poller.settimeout(10)
        poller.connect(("127.0.0.1", desk.port))
        for i in range(count):
            poller.send(ber.encode(ber.GET, [(PAN, ber.NULL, b"")], request_id=i + 1, community="public"))
            if i >= 100:
                poller.recv(2048)


def metrics(page):
    return {m["name"]: m["value"] for m in page.driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]}


@pytest.mark.slow
@pytest.mark.page
def test_ten_thousand_records_are_shown(desk, browser, record_property):
    desk.dome_options = desk.dome_options[:2]  # without its probe
    desk.start()
    flood_at_once(desk, 10100)
    browser.open(desk)
    browser.driver.execute_cdp_cmd("Performance.enable", {})
    browser.find("trace-open").click()
    await_until(lambda: browser.text("trace-count").startswith("10000 records"), "all have come", 60)
    browser.find("trace-fold").click()
    await_until(lambda: listed(browser) >= 10000, "all are listed")
    with ManagerOf(desk) as manager:
        for _ in range(5):
            manager.get(TILT)
    await_until(lambda: said(browser, "GET", "positionTilt"), "it goes on")
    browser.find("trace-oldest").click()
    assert len(rows(browser)) == 200
    found = metrics(browser)
    report = f"10,000 records: {found['ScriptDuration']:.2f} s of script, {found['JSHeapUsedSize'] / 2**20:.0f} MiB"
    print(report)
    record_property("report", report)
    browser.driver.get("about:blank")  # before the camera ends
