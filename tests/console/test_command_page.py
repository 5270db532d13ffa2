"""The page's command in words: from a record to a command and back, and the last commands beside the camera."""

import os
import signal

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

from desk import await_until
from expected_tree import OID

PAN = OID["positionPan"]
RELAY_STATE = "1.3.6.1.4.1.32473.1.3.2.1.3"
pytestmark = [pytest.mark.long, pytest.mark.slow, pytest.mark.page]


@pytest.fixture
def page(camera, browser):
    browser.open(camera)
    await_until(lambda: len(Select(browser.find("command-user")).options) == 5, "the users are known")
    yield browser
    assert not browser.complaints()


def fill(page, name, value, kind=None):
    Select(page.find("command-object")).select_by_visible_text(name)
    if kind:
        Select(page.find("command-type")).select_by_visible_text(kind)
    page.find("command-octets").send_keys(Keys.CONTROL, "a")
    page.find("command-octets").send_keys(Keys.DELETE, value)


def be(page, user):
    Select(page.find("command-user")).select_by_visible_text(user)


def chosen(page, name):
    return Select(page.find(name)).first_selected_option.text


@pytest.mark.parametrize("user", ["writer, SNMPv2c", "writer, SNMPv1", "desk, SNMPv3 authPriv"])
def test_a_command_is_sent(camera, page, user):
    be(page, user)
    fill(page, "positionPan", "02 7F 0B B8")
    page.find("command-octets").send_keys(Keys.ENTER)
    page.await_text("command-answer", "noError: positionPan = 02 7f 0b b8.")
    page.await_text("pan-value", "30.00°")


@pytest.mark.parametrize("name, value, kind, user, answer", [
    ("positionPan", "02408CA0", None, "writer, SNMPv2c",
     "genErr: the camera refuses it; out of range: the position 36000 is above 35999."),
    ("positionPan", "02000064", None, "reader, SNMPv2c", "noAccess: this user may not set it."),
    ("positionPan", "02000064", None, "reader, SNMPv1",
     "noSuchName: there is no such object, or this user may not set it."),
    ("rangeTrueNorthOffset", "5", None, "desk, SNMPv3 authPriv",
     "wrongValue: the object does not take this value; wrong value: takes 0 and 65535 only, not 5."),
    ("rangeTrueNorthOffset", "5", "OCTET STRING", "writer, SNMPv2c",
     "Enter octets as pairs of hexadecimal digits, such as 02 40 46 50."),
    ("presetGotoPosition", "4", None, "writer, SNMPv2c",
     "noError: presetGotoPosition = 0; without effect: presets are not stored: nothing moves."),
    ("timeoutPan", "one", None, "writer, SNMPv2c",
     "Not sent: an INTEGER must be a whole number from -2147483648 to 2147483647."),
])
def test_the_answer_is_in_words(page, name, value, kind, user, answer):
    be(page, user)
    fill(page, name, value, kind)
    page.find("command-send").click()
    page.await_text("command-words" if answer.startswith("Enter") else "command-answer", answer)
    if answer.startswith("Not sent"):
        page.complaints()  # the browser reports what the console refuses


@pytest.mark.parametrize("name, value, words", [
    ("presetGotoPosition", "3", "Go to preset 3. Presets are not stored: nothing moves."),
    ("timeoutIris", "9", "End a move after 9 ms. Refused: timeouts refuse each SET: a move continues until it is stopped."),
    ("systemLensFeatureControl", "C0 80", "Auto iris and auto focus on."),
    ("systemLensEquipped", "80", "Equipped with the lens features 80. Refused: wrong value: takes 40 (auto focus) and 00 only, not 80."),
    ("outputControl", "01 80", "Energise relay 0 of BNK2."),
    ("rebootDevice", "1", "Restart the camera in 3 s."),
    ("relayStatesTable state", "1", "Energise the relay."),
    ("rangeTrueNorthOffset", "x", "an INTEGER must be a whole number from -2147483648 to 2147483647."),
])
def test_every_object_has_words(page, name, value, words):
    fill(page, name, value)
    page.await_text("command-words", words)
    if value == "x":
        page.complaints()  # the browser reports what the console refuses


@pytest.mark.parametrize("user, words", [
    ("writer, SNMPv1", "snmpset -v1 -c COMMUNITY-OF-writer -On "),
    ("reader, SNMPv2c", "snmpset -v2c -c COMMUNITY-OF-reader -On "),
    ("desk, SNMPv3 authPriv", "snmpset -v3 -l authPriv -u desk -a SHA -A PASS-PHRASE -x AES -X PRIVACY-PASS-PHRASE -On "),
])
def test_the_line_is_of_the_chosen_user(camera, page, user, words):
    be(page, user)
    fill(page, "positionPan", "00000000")
    assert page.text("command-line") == f"{words}127.0.0.1:{camera.port} {PAN} x 00000000"


FETCH = """
const fetched = window.fetch;
window.fetch = (path, ...rest) => (path.startsWith(arguments[0]) ? Promise.reject(new TypeError('Failed to fetch')) : fetched(path, ...rest));
"""


def test_what_is_not_known_is_not_said(page):
    page.run(FETCH, "/api/command")  # as if the connection broke
    fill(page, "positionPan", "00000000")
    page.find("command-send").click()
    page.await_text("command-answer", "It is not known whether it was sent: Failed to fetch.")


def test_without_users_it_says_why_nothing_is_sent(camera, page):
    page.run(FETCH, "/api/objects")
    camera.end("dome")
    page.await_text("link", "No connection")
    camera.start_dome()
    page.await_text("link", "Live")
    page.find("command-send").click()
    page.await_text("command-answer", "Not sent: the users are not known: Failed to fetch.")
    fill(page, "positionPan", "0")
    page.find("command-send").click()
    page.await_text("command-answer", "Not sent: the value is no octets.")
    page.complaints()  # the browser reports the refused connections


def test_a_row_is_chosen(camera, page):
    fill(page, "relayStatesTable state", "1")
    page.find("command-row").send_keys(Keys.CONTROL, "a")
    page.find("command-row").send_keys("3")
    assert f"{RELAY_STATE}.3 i 1" in page.text("command-line")
    page.find("command-send").click()
    await_until(lambda: camera.dome_state()["relay"]["BNK1"][2], "the relay is energised")
    fill(page, "positionPan", "00000000")
    assert not page.find("command-row").is_displayed()


LINE = """return [...document.querySelectorAll('#trace > tbody')].find((line) =>
  arguments[0].every((word) => line.textContent.includes(word)))?.querySelector('button')"""


def line_of(page, *words):
    """The button of the newest such record's line."""
    return await_until(lambda: page.run(LINE, words), f"a line with {words}", 30)


@pytest.mark.parametrize("oid, letter, value, name, kind, text", [
    (PAN, "x", "02408ca1", "positionPan", "OCTET STRING", "02 40 8c a1"),
    (PAN, "i", "2", "positionPan", "INTEGER", "2"),
    (OID["rangePanLeftLimit"], "i", "5", "rangePanLeftLimit", "INTEGER", "5"),
    (f"{RELAY_STATE}.4", "i", "0", "relayStatesTable state", "INTEGER", "0"),
])
def test_from_a_record_to_the_command(page, tools, oid, letter, value, name, kind, text):
    page.find("trace-open").click()
    tools.set(oid, letter, value)
    button = line_of(page, "SET", f"{name}{oid[-2:].replace('.', ' ') if 'Table' in name else ''} = {text}")
    button.click()
    page.all("#trace dd button")[0].click()
    assert (chosen(page, "command-object"), chosen(page, "command-type")) == (name, kind)
    assert page.find("command-octets").get_attribute("value") == text
    assert f"{oid} {letter} " in page.text("command-line")
    assert page.run("return document.activeElement.id") == "command-octets"


def test_from_a_command_to_its_record(page, tools):
    for user in ("writer, SNMPv2c", "desk, SNMPv3 authPriv"):
        be(page, user)
        fill(page, "positionPan", "02408CA0")
        page.find("command-send").click()
        page.await_text("command-answer", "genErr: the camera refuses it; out of range: the position 36000 is above 35999.")
        tools.set(PAN, "x", "02408ca0")
        page.find("command-record").click()
        found = await_until(lambda: page.all("#trace > tbody.found"), "it is marked", 30)[0]
        assert user.split(",")[0] in found.text and "out of range: the position 36000" in found.text
        assert found.find_element(By.TAG_NAME, "button") == page.driver.switch_to.active_element
        page.find("trace-failed").click() if "SNMPv2c" in user else None
        page.find("trace-object").send_keys("nothing has this name")


BACKLOG = """
const fetched = window.fetch;
const now = performance.now.bind(performance);
let late = 0;
performance.now = () => now() + late;
window.fetch = async (path, ...rest) => {
  const response = await fetched(path, ...rest);
  if (late || !path.startsWith('/api/trace')) return response;
  late = 60000;
  const answer = await response.json();
  return new Response(JSON.stringify({...answer, next: 0, more: true, records: []}));
};
"""


def test_a_record_is_awaited_behind_the_others(page):
    """As long as what the camera has kept comes in: here for a minute."""
    fill(page, "positionPan", "02408CA0")
    page.find("command-send").click()
    await_until(lambda: page.find("command-record").is_displayed(), "it is sent")
    page.run(BACKLOG)
    page.find("command-record").click()
    await_until(lambda: page.all("#trace > tbody.found"), "it is found", 30)


def test_a_text_is_no_octets(page, tools):
    page.find("trace-open").click()
    tools.set(OID["modelName"], "s", "ab")
    line_of(page, "SET", "modelName = ab").click()
    assert page.all("#trace dl") and page.all("#trace dd button") == []


def commanded(page):
    rows = page.run("return [...document.querySelectorAll('#commanded tr')].map((r) => [...r.cells].map((c) => c.textContent))")
    return {row[0]: row[1:] for row in rows}


def test_the_last_command_stands_beside_the_camera(camera, page, tools):
    tools.set(PAN, "x", "027f2328")
    await_until(lambda: commanded(page)["positionPan"] == ["02 7f 23 28", "go to 90.00° at 100 %, clockwise", "90.00°"], "it shows", 30)
    camera.control("set", "pan", 5000)
    await_until(lambda: commanded(page)["positionPan"] == ["02 7f 23 28", "go to 90.00° at 100 %, clockwise", "5.00°"],
                "the camera is elsewhere")


def test_a_paused_clock_is_named(camera, page):
    assert page.text("trouble") == ""
    camera.domectl("clock", "pause")
    page.await_text("trouble", "clock paused: nothing moves")
    camera.domectl("fault", "pan", "hang")
    page.await_text("trouble", "clock paused: nothing moves, pan hangs")
    camera.domectl("fault", "pan", "ok")
    camera.domectl("clock", "run")
    camera.domectl("clock", "rate", 10)
    page.await_text("trouble", "clock at 10×")
    assert page.find("trouble").get_attribute("role") == "status"


def test_a_silent_agent_is_named_everywhere(camera, page, tools):
    tools.set(PAN, "x", "00000000")
    await_until(lambda: commanded(page)["positionPan"][0] == "00 00 00 00", "it answers")
    os.kill(camera.agent_pid(), signal.SIGSTOP)
    try:
        page.await_text("link", "Agent does not answer")
        await_until(lambda: commanded(page)["positionPan"][0] == "–", "its last commands are not known")
        fill(page, "positionPan", "00000000")
        page.find("command-send").click()
        await_until(lambda: page.text("command-answer").startswith("No answer within 2 seconds"), "it is said")
    finally:
        os.kill(camera.agent_pid(), signal.SIGCONT)
    page.await_text("link", "Live")


@pytest.mark.parametrize("width", [390, 1280])
def test_the_form_fits_and_can_be_used(page, tools, width):
    page.look(width, 844)
    tools.set(PAN, "x", "027f2328")
    await_until(lambda: commanded(page)["positionPan"][0] == "02 7f 23 28", "it shows")
    fill(page, "relayStatesTable state", "1")
    page.find("command-send").click()
    await_until(lambda: page.find("command-record").is_displayed(), "it is sent")
    assert page.run("return document.documentElement.scrollWidth") == width
    assert page.violations() == []
