"""The page in a browser, with a real agent on the camera."""

import os
import pathlib
import re
import signal
import subprocess
import time

import pytest
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

from desk import ROOT, ManagerOf, await_until

PAN = "1.3.6.1.4.1.1206.4.2.7.4.1.0"
FOCUS = "1.3.6.1.4.1.1206.4.2.7.4.4.0"
INPUT_STATUS = "1.3.6.1.4.1.1206.4.2.7.7.1.0"
OUTPUT_STATUS = "1.3.6.1.4.1.1206.4.2.7.8.1.0"
pytestmark = [pytest.mark.long, pytest.mark.slow, pytest.mark.page]


@pytest.fixture
def page(camera, browser):
    """The file's console, reset; nothing moves in the street."""
    browser.open(camera)
    await_until(lambda: browser.text("pan-value") == "0.00°", "the camera is reset")
    browser.find("clear-list").click()
    yield browser
    assert not browser.complaints()


@pytest.fixture
def panel(running, browser):
    """The same console, as the previous test has left it."""
    if browser.driver.current_url != running.url:
        browser.open(running)
    return browser


def type_command(page, name, octets):
    Select(page.find("command-object")).select_by_visible_text(name)
    page.find("command-octets").send_keys(Keys.CONTROL, "a")
    page.find("command-octets").send_keys(Keys.DELETE, octets)


def reading(page, name):
    return float(page.text(name).rstrip("°×% ").replace("−", "-"))


def arrivals(page):
    rows = page.run("return [...document.querySelectorAll('#arrivals tbody tr')].map((row) => row.innerText)")
    return [" ".join(row.split()) for row in rows]


def test_a_set_moves_the_number_and_the_picture(camera, page, tools):
    before = page.picture()
    again = page.picture()
    assert page.difference(before, again) < 1, "the picture of a camera at rest stays the same"
    assert tools.set(PAN, "x", "02404650").status == 0
    seen = []

    def arrived():
        seen.append(reading(page, "pan-value"))
        return page.text("pan-value") == "180.00°"

    await_until(arrived, "the page shows 180 degrees", 30)
    between = sorted(set(value for value in seen if 0 < value < 180))
    assert len(between) > 1, f"the page shows the motion, not only the target: {seen}"
    assert seen == sorted(seen)
    assert page.difference(before, page.picture()) > 10
    row = next(row for row in arrivals(page) if "pan.SetPositionAtSpeed" in row)
    assert "(180000, 0.50393" in row and "to 180.00° at 50 %, clockwise" in row and row.count("ok") == 1
    await_until(lambda: page.text("pan-note") == "at rest", "the plan says so")


def test_the_plan_shows_the_target(camera, page):
    camera.call("pan", "SetPositionAtSpeed", 180000, 0.1, 300)
    await_until(lambda: page.text("pan-note") == "to 180.00°", "the target is named")
    goal = page.run("const g = document.querySelector('#plan .goal'); return [g.hasAttribute('hidden'), g.getAttribute('transform')]")
    assert goal == [False, "rotate(180)"]
    camera.call("pan", "SetRelativeVelocity", -0.5, 300)
    await_until(lambda: page.text("pan-note") == "counter-clockwise at 50 %", "the move is named")
    assert page.run("return document.querySelector('#plan .goal').hasAttribute('hidden')")
    camera.call("pan", "SetRelativeVelocity", 0, 300)


NUMBERS_COVERED = """
const box = (e) => e.getBoundingClientRect();
const apart = (a, b) => a.right <= b.left || b.right <= a.left || a.bottom <= b.top || b.bottom <= a.top;
return [...document.querySelectorAll('#plan .mark, #arc .mark')].filter((mark) =>
  [...mark.parentElement.querySelectorAll('.goal:not([hidden])')].some((goal) => !apart(box(mark), box(goal)))).map((mark) => mark.textContent)"""


def test_the_instruments_follow_the_camera(camera, page):
    hand = "return document.querySelector(arguments[0]).getAttribute('transform')"
    wedge = "const b = document.querySelector(arguments[0]).getBBox(); return Math.max(b.width, b.height)"
    bar = "return document.querySelector(`[data-drive=${arguments[0]}] .thumb`).style.left"
    across = page.run("return document.querySelector('#plan .wedge').getBBox().width")
    for thing, value in (("pan", 90000), ("tilt", -30000), ("focus", 75), ("iris", 10), ("zoom", 20000)):
        camera.control("set", thing, value)
    page.await_text("zoom-value", "20.00×")
    assert page.text("tilt-value") == "−30.00°"
    assert page.run(hand, "#plan .hand") == "rotate(90)"
    assert page.run(hand, "#arc .hand") == "rotate(120)", "30 degrees below the horizon"
    assert page.run("return document.querySelector('#plan .wedge').getBBox().height") < across / 5, "20 times narrower, or just visible"
    assert page.run(wedge, "#arc .wedge") > 30, "it keeps its length"
    assert [page.run(bar, name) for name in ("zoom", "focus", "iris")] == ["100%", "75%", "10%"]


def test_the_target_covers_no_number(camera, page):
    camera.domectl("clock", "pause")
    for pan, tilt in ((90000, 0), (180000, -90000), (270000, 90000)):
        camera.call("pan", "SetPositionAtSpeed", pan, 0.1, 300)
        camera.control("set", "tilt", tilt + (30000 if tilt <= 0 else -30000))
        camera.call("tilt", "SetPositionAtSpeed", tilt, 0.1, 300)
        page.await_text("pan-note", f"to {pan / 1000:.2f}°")
        page.await_text("tilt-note", f"to {tilt / 1000:.2f}°".replace("-", "−"))
        assert page.run(NUMBERS_COVERED) == []


def lens_filter(page):
    return page.run("return document.getElementById('picture').style.filter")


def light(page):
    return float(lens_filter(page).partition("brightness(")[2].partition(")")[0] or 1)


def test_zoom_changes_the_picture_and_the_focus_follows(camera, page):
    wide = page.picture()
    camera.call("zoom", "SetMagnificationThousandthsX", 8000, 300)
    await_until(lambda: "blur(" in lens_filter(page), "the picture is blurred during the zoom")
    page.await_text("zoom-value", "8.00×")
    assert page.difference(wide, page.picture()) > 5
    await_until(lambda: lens_filter(page) == "none", "the auto focus has finished")
    assert page.text("focus-value") != "50.0 %"


def test_the_focus_blurs_the_picture(camera, page):
    assert lens_filter(page) == "none"
    camera.control("set", "focus", 20)
    await_until(lambda: "blur(" in lens_filter(page), "the picture blurs")
    camera.control("set", "focus", 50)
    await_until(lambda: lens_filter(page) == "none", "the picture is sharp")


def test_the_iris_lets_light_in(camera, page):
    camera.control("set", "iris", 10)
    await_until(lambda: light(page) < 0.3, "the picture darkens")
    camera.control("set", "iris", 90)
    await_until(lambda: light(page) > 1.5, "the picture brightens")
    page.find("light").send_keys(Keys.CONTROL, "a")
    page.find("light").send_keys("80", Keys.ENTER)
    page.await_text("iris-value", "20.0 %")
    await_until(lambda: lens_filter(page) == "none", "auto iris and auto focus have finished")


def test_the_zooms_motion_shows(camera, page):
    camera.domectl("clock", "pause")
    camera.call("zoom", "SetMagnificationThousandthsX", 8000, 300)
    page.await_text("zoom-note", "to 8.00×")
    assert page.text("moving").startswith("zooming")
    camera.domectl("clock", "run")
    page.await_text("zoom-note", "of 20×")
    await_until(lambda: page.text("moving") == "", "the camera is at rest")
    camera.call("zoom", "ZoomRelative", -1, 300)
    await_until(lambda: page.text("zoom-note") == page.text("moving") == "zooming out", "the direction shows")
    page.await_text("zoom-note", "of 20×")


def test_beyond_its_optics_the_picture_is_cropped(camera, page):
    dots = page.run("return document.getElementById('picture').width")
    camera.control("set", "zoom-max", 80000)
    camera.control("set", "zoom", 80000)
    await_until(lambda: page.run("return document.getElementById('picture').width") < dots / 3, "fewer dots, larger")
    page.await_text("zoom-note", "cropped, of 80×")


def test_every_direction_has_a_picture(camera, page):
    pictures = []
    for pan in range(0, 360, 45):
        for tilt in (-50, -4, 30):
            camera.control("set", "pan", pan * 1000)
            camera.control("set", "tilt", tilt * 1000)
            await_until(lambda: (reading(page, "pan-value"), reading(page, "tilt-value")) == (pan, tilt), "the view is there")
            page.run("return new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))")
            pictures.append(page.picture())
    for i, picture in enumerate(pictures):
        for other in pictures[:i]:
            assert page.difference(picture, other) > 0.5


def test_an_input_switched_on_the_page_is_read_over_snmp(camera, page, tools):
    assert tools.get(INPUT_STATUS).triples[0][2] == b"\x00"
    point = page.driver.find_element(By.CSS_SELECTOR, '[aria-label="Input 0 of BNK2"]')
    point.click()
    await_until(lambda: point.get_attribute("aria-checked") == "true", "the switch is on")
    assert tools.get(INPUT_STATUS).triples[0][2] == b"\x01"
    point.send_keys(Keys.SPACE)
    await_until(lambda: point.get_attribute("aria-checked") == "false", "the switch is off")
    assert tools.get(INPUT_STATUS).triples[0][2] == b"\x00"


def test_a_relay_set_over_snmp_shows_on_the_page(camera, page, tools):
    assert tools.set("1.3.6.1.4.1.1206.4.2.7.8.2.0", "x", "0180").status == 0
    relay = page.driver.find_element(By.CSS_SELECTOR, '[aria-label="Relay 0 of BNK2"]')
    await_until(lambda: relay.get_attribute("aria-checked") == "true", "the relay is energised")
    relay.click()
    await_until(lambda: tools.get(OUTPUT_STATUS).triples[0][2] == b"\x00", "the relay is released")


def test_a_service_that_hangs_is_named(camera, page, tools):
    Select(page.find("fault-tilt")).select_by_visible_text("hang")
    page.await_text("trouble", "tilt hangs")
    assert camera.dome_state()["faults"]["tilt"] == "hang"
    assert tools.set("1.3.6.1.4.1.1206.4.2.7.4.2.0", "x", "02400400").status == 0
    await_until(lambda: any("tilt.SetPositionAtSpeed" in row and "hang" in row for row in arrivals(page)), "the call shows")
    assert page.text("tilt-value") == "0.00°"
    Select(page.find("fault-tilt")).select_by_visible_text("ok")
    page.await_text("trouble", "")


def test_every_fault_is_offered(camera, page):
    with camera.events() as events:
        faults = [name for name, _ in events.next("hello")["faults"]]
    assert "ok" in faults and "gone" in faults
    assert [option.text for option in Select(page.find("fault-pan")).options] == faults


@pytest.mark.parametrize("fault, words", [("fail", "focus fails"), ("hang", "focus hangs"), ("gone", "focus is gone")])
def test_a_failed_action_is_shown(camera, page, fault, words):
    camera.control("fault", "focus", fault)
    page.find("auto-focus").click()
    page.await_text("failure", f"{words}: nothing was done.")
    assert page.find("failure").is_displayed()
    assert camera.dome_state()["focus"]["auto"] is True


def test_an_arrival_has_its_time(camera, page, tools):
    before = time.time()
    tools.set(PAN, "x", "02000064")
    row = await_until(lambda: next((row for row in arrivals(page) if "pan.SetPositionAtSpeed" in row), None), "the call shows")
    hours, minutes, seconds = row.split()[0].split(":")
    shown = int(hours) * 3600 + int(minutes) * 60 + float(seconds)
    local = time.localtime(before)
    since = shown - (local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec)
    assert since % 86400 < 10


def test_the_command_line_is_copied(camera, page):
    page.driver.execute_cdp_cmd("Browser.grantPermissions", {
        "origin": camera.url.rstrip("/"), "permissions": ["clipboardReadWrite", "clipboardSanitizedWrite"]})
    type_command(page, "positionTilt", "027F0BB8")
    page.find("copy").click()
    page.await_text("copy", "Copied")
    copied = page.driver.execute_async_script("navigator.clipboard.readText().then(arguments[0], (e) => arguments[0](String(e)))")
    assert copied == page.text("command-line") and copied.endswith("1.3.6.1.4.1.1206.4.2.7.4.2.0 x 027f0bb8")


def test_sensors_are_set_and_followed(camera, page, tools):
    field = page.find("temperature-0")
    field.clear()
    field.send_keys("51", Keys.ENTER)
    page.await_text("fan", "running")
    assert tools.get("1.3.6.1.4.1.32473.1.1.7.0").triples[0][2] == 51
    Select(page.find("voltage")).select_by_value("1")
    await_until(lambda: camera.dome_state()["voltage"] == 1, "the voltage is low")
    camera.domectl("set", "power", 9)
    await_until(lambda: Select(page.find("power")).first_selected_option.text == "9 unknown", "the code shows")
    assert any("temperature.OnTemperatureChange" in row and "sensor 0: 51 °C" in row for row in arrivals(page))


def test_the_joystick_moves_the_camera_and_lets_it_go(camera, page):
    pad = page.find("pad")
    page.run("arguments[0].scrollIntoView({block: 'center'})", pad)
    ActionChains(page.driver).click_and_hold(pad).move_by_offset(45, -30).perform()
    await_until(lambda: camera.dome_state()["pan"]["velocity"] > 0.1 and camera.dome_state()["tilt"]["velocity"] > 0.05,
                "both axes move")
    ActionChains(page.driver).release().perform()
    await_until(lambda: not camera.dome_state()["pan"]["moving"] and not camera.dome_state()["tilt"]["moving"], "they stop")
    assert camera.dome_state()["tilt"]["position"] > 0
    assert any("pan.SetRelativeVelocity" in row and "this console" in row for row in arrivals(page))


def test_the_joystick_has_keys(camera, page):
    page.run("document.getElementById('pad').focus()")
    ActionChains(page.driver).key_down(Keys.ARROW_LEFT).perform()
    await_until(lambda: camera.dome_state()["pan"]["velocity"] == pytest.approx(-0.4), "it turns left")
    ActionChains(page.driver).key_up(Keys.ARROW_LEFT).key_down("+").perform()
    await_until(lambda: camera.dome_state()["zoom"]["position"] > 2000, "it zooms in")
    ActionChains(page.driver).key_up("+").perform()
    await_until(lambda: not camera.dome_state()["pan"]["moving"] and not camera.dome_state()["zoom"]["moving"], "it stops")


def test_a_joystick_that_falls_silent_stops_the_camera(camera, page):
    page.run("document.getElementById('pad').focus()")
    ActionChains(page.driver).key_down(Keys.ARROW_LEFT).perform()
    await_until(lambda: camera.dome_state()["pan"]["moving"], "it turns")
    page.run("window.fetch = () => new Promise(() => {})")  # as if the connection had failed
    await_until(lambda: not camera.dome_state()["pan"]["moving"], "it stops by itself", 10)
    ActionChains(page.driver).key_up(Keys.ARROW_LEFT).perform()


@pytest.mark.parametrize("hold, thing, comparison", [
    ("zoom-in", "zoom", lambda before, now: now > before),
    ("focus-near", "focus", lambda before, now: now < before),
    ("iris-open", "iris", lambda before, now: now > before),
])
def test_held_keys_move_the_lens(camera, page, hold, thing, comparison):
    before = camera.dome_state()[thing]["position"]
    key = page.driver.find_element(By.CSS_SELECTOR, f'[data-hold="{hold}"]')
    ActionChains(page.driver).click_and_hold(key).perform()
    await_until(lambda: comparison(before, camera.dome_state()[thing]["position"]), "it moves")
    ActionChains(page.driver).release().perform()
    await_until(lambda: not camera.dome_state()[thing]["moving"], "it stops")


def test_auto_flags(camera, page):
    page.find("auto-iris").click()
    await_until(lambda: not camera.dome_state()["iris"]["auto"], "the iris is by hand")
    await_until(lambda: page.find("auto-iris").get_attribute("aria-checked") == "false", "the flag says so")
    page.find("auto-iris").click()
    await_until(lambda: camera.dome_state()["iris"]["auto"], "the iris is automatic")


WORDS = [
    ("positionPan", "02404650", "Move to 180.00° at 50 % of the max speed, clockwise."),
    ("positionPan", "02 C0 03 E8", "Move to 10.00° at 50 % of the max speed, counter-clockwise."),
    ("positionPan", "02000064", "Move to 1.00° at the default speed, in the shorter direction."),
    ("positionPan", "02108CA0", "Refused with genErr: 36000 is above the max, 35999. A GET still returns it."),
    ("positionPan", "00010000", "Refused with genErr: a stop requires the speed 0. A GET still returns it."),
    ("positionPan", "", "Stop."),
    ("positionPan", "01FF07D0", "Move by 20.00° counter-clockwise from the current position, at 1 % of the max speed."),
    ("positionPan", "03800000", "No motion: the speeds are -127 to 127."),
    ("positionPan", "0x03:7F:00:00", "Move clockwise at 100 % of the max speed until stopped."),
    ("positionPan", "04000000", "Refused with genErr: there is no mode 4. A GET still returns it."),
    ("positionPan", "02404", "Enter octets as pairs of hexadecimal digits, such as 02 40 46 50."),
    ("positionTilt", "027F0BB8", "Move to 30.00° up at 100 % of the max speed."),
    ("positionTilt", "027F2EE0", "Move to 30.00° up at 100 % of the max speed."),
    ("positionTilt", "027F5208", "Move to 30.00° down at 100 % of the max speed."),
    ("positionTilt", "027F80E8", "Move to 30.00° down at 100 % of the max speed."),
    ("positionTilt", "03E00000", "Move down at 25 % of the max speed until stopped."),
    ("positionZoomLens", "0200FFFF", "Zoom to 20.00×."),
    ("positionZoomLens", "02000000", "Zoom to 1.00×."),
    ("positionZoomLens", "03FF0000", "Zoom out until stopped, at the default rate."),
    ("positionZoomLens", "01FF1000", "Zoom out by 1.19× from the current magnification."),
    ("positionZoomLens", "03800000", "Refused with genErr: the speeds are -127 to 127. A GET still returns it."),
    ("positionFocusLens", "02008000", "Focus at 50.0 % of the range from near to far."),
    ("positionFocusLens", "03010000", "Focus nearer until stopped, at most to 0.0 %."),
    ("positionIrisLens", "02008000", "Accepted without effect: the iris supports only stop and continuous."),
    ("positionIrisLens", "03010000", "Close the iris until stopped."),
]


@pytest.mark.parametrize("name, octets, words", WORDS)
def test_commands_in_words(panel, name, octets, words):
    type_command(panel, name, octets)
    panel.await_text("command-words", words)


@pytest.mark.parametrize("name, octets, thing, position", [
    ("positionPan", "02 C0 03 E8", "pan", 10000),
    ("positionTilt", "027F2EE0", "tilt", 30000),
    ("positionTilt", "027F5208", "tilt", -30000),
    ("positionZoomLens", "02001000", "zoom", 2187),
])
def test_the_command_line_does_what_the_words_say(camera, page, name, octets, thing, position):
    type_command(page, name, octets)
    line = await_until(lambda: page.text("command-line"), "there is a line")
    assert f"127.0.0.1:{camera.port} " in line
    line = line.replace("COMMUNITY-OF-writer", "private")
    done = subprocess.run(line, shell=True, env=camera.environment, capture_output=True, text=True, timeout=30)
    assert done.returncode == 0, done.stderr
    await_until(lambda: camera.dome_state()[thing]["position"] == position and not camera.dome_state()[thing]["moving"],
                f"{thing} is at {position}", 30)


def test_names_of_banks_are_text_only(camera, page):
    camera.domectl("banks", "alarm", "<img src=x onerror=alert(1)>=2")
    await_until(lambda: page.all('#inputs .bank [title^="<img"]'), "the bank shows")
    assert page.all("#inputs img") == []


def test_the_camera_comes_back(camera, page):
    camera.end("dome")
    page.await_text("link", "No connection")
    assert not page.all(".reticle")[0].is_displayed(), "the reticle is hidden behind the message"
    camera.start_dome()
    page.await_text("link", "Live")
    camera.domectl("set", "pan", 12000)
    page.await_text("pan-value", "12.00°")
    page.complaints()  # the browser reports the refused connections


def test_a_camera_that_hangs_is_named(camera, page):
    dome = camera.processes["dome"].pid
    os.kill(dome, signal.SIGSTOP)
    try:
        page.await_text("link", "No connection")
    finally:
        os.kill(dome, signal.SIGCONT)
    page.await_text("link", "Live")


def test_all_troubles_can_be_read(camera, page):
    page.look(1280, 800)
    services = list(camera.dome_state()["faults"])
    for service in services:
        camera.control("fault", service, "hang")
    camera.domectl("clock", "pause")
    await_until(lambda: page.text("trouble").count("hangs") == len(services), "all are named")
    fits = "const t = document.getElementById('trouble'); return t.scrollWidth <= t.clientWidth && t.scrollHeight <= t.clientHeight"
    assert page.run(fits) and page.run("return document.documentElement.scrollWidth") == 1280


def test_an_agent_that_does_not_answer_is_named(camera, page):
    os.kill(camera.agent_pid(), signal.SIGSTOP)
    try:
        page.await_text("link", "Agent does not answer")
        assert page.find("link").is_displayed() and page.find("link").get_attribute("role") == "status"
        assert page.run(CONTRAST) == []
        camera.control("set", "pan", 21000)
        page.await_text("pan-value", "21.00°")
        assert page.all(".reticle")[0].is_displayed(), "the camera itself still answers"
    finally:
        os.kill(camera.agent_pid(), signal.SIGCONT)
    page.await_text("link", "Live")


def test_without_the_agents_port_the_page_is_live(desk, browser):
    desk.dome_options = desk.dome_options[:2]
    desk.start_bus()
    desk.start_dome()
    browser.open(desk)
    assert browser.text("link") == "Live"
    desk.end("dome")
    browser.await_text("link", "No connection")
    browser.driver.get("about:blank")
    browser.complaints()  # the browser reports the refused connections


def test_the_page_names_its_camera(camera, page):
    serial = camera.settings("get", "[Device/ReadOnly]SerialNumber").strip()
    assert serial and page.driver.title == f"{serial} – Desk camera"
    assert page.all("h1")[0].text == f"Desk camera {serial}"


def test_presets_are_counted(camera, page):
    assert page.text("presets") == "64"
    assert "none over SNMP" in page.find("sensors").text
    camera.control("set", "presets", 8)
    try:
        page.await_text("presets", "8")
    finally:
        camera.control("set", "presets", 64)


# Collects in s_said what each visible switch says in each frame, from the first frame on.
SWITCHES = """
const said = (window.s_said = {});
const look = () => {
  for (const e of document.querySelectorAll('[role=switch]')) {
    const name = e.getAttribute('aria-label') ?? e.textContent;
    if (!e.checkVisibility({visibilityProperty: true})) continue;
    said[name] = [...new Set([...(said[name] ?? []), e.getAttribute('aria-checked')])];
  }
  requestAnimationFrame(look);
};
requestAnimationFrame(look);
"""


def test_every_switch_is_right_from_the_first_frame_on(camera, page):
    camera.control("set", "alarm", "BNK2", 0, 1)
    camera.control("set", "relay", "BNK1", 2, 1)
    camera.call("iris", "SetAutoIris", False)
    script = page.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": SWITCHES})
    try:
        page.open(camera)
    finally:
        page.driver.execute_cdp_cmd("Page.removeScriptToEvaluateOnNewDocument", {"identifier": script["identifier"]})
    said = await_until(lambda: page.run("return Object.keys(s_said).length > 5 && s_said"), "there are switches")
    state = camera.dome_state()
    expected = {"Auto focus": True, "Auto iris": False, "Reads": True, "Hold": False}
    for kind, word in (("alarm", "Input"), ("relay", "Relay")):
        for bank, points in state[kind].items():
            expected.update({f"{word} {number} of {bank}": on for number, on in enumerate(points)})
    assert expected["Input 0 of BNK2"] and expected["Relay 2 of BNK1"]
    assert said == {name: [str(on).lower()] for name, on in expected.items()}


def test_no_switch_of_the_page_is_without_a_state(camera):
    switches = re.findall(r"<[^>]*role=.switch[^>]*>", camera.get("/").body.decode())
    assert len(switches) > 5
    assert [switch for switch in switches if "aria-checked=" not in switch] == []


def test_the_switches_of_a_new_bank_are_right(camera, page):
    camera.domectl("banks", "alarm", "NEW=3")
    await_until(lambda: len(page.all("#inputs [role=switch]")) == 3, "the new bank shows")
    assert [e.get_attribute("aria-checked") for e in page.all("#inputs [role=switch]")] == ["false"] * 3


def test_names_of_services_cover_nothing(camera, page):
    for service in camera.dome_state()["faults"]:
        camera.control("fault", service, "fail")  # bold
    await_until(lambda: len(page.all(".service[data-fault=fail]")) == len(page.all(".service")), "every service fails")
    for width in (390, 768, 1024, 1241, 1280, 1366, 1440, 1920):
        page.look(width, 844)
        cut = page.run("""return [...document.querySelectorAll('.service label')]
            .filter((e) => e.scrollWidth > e.clientWidth).map((e) => e.textContent)""")
        assert cut == [], width


def test_on_a_phone_the_picture_is_in_sight_of_the_joystick(page):
    for width, height, names in ((390, 664, ["#frame", "#pad"]),
                                 (390, 844, ["#frame", "#pad", ".lens"]),
                                 (844, 390, ["#frame", "#pad", ".lens"]),  # on its side
                                 (667, 375, ["#frame", "#pad"])):
        page.look(width, height)
        page.run("scrollTo(0, 0)")
        for name in names:
            top, bottom = page.run("""
                const box = document.querySelector(arguments[0]).getBoundingClientRect();
                return [box.top, box.bottom];""", name)
            assert 0 <= top < bottom <= height, (width, height, name)


def test_a_screen_reader_hears_begin_and_end_of_a_motion(camera, page):
    assert page.text("said") == "", "nothing has happened yet"
    assert page.find("said").get_attribute("role") == "status"
    camera.call("pan", "SetPositionAtSpeed", 90000, 0.1, 300)
    page.await_text("said", "Pan to 90.00°")
    camera.call("pan", "SetRelativeVelocity", 0, 300)
    await_until(lambda: page.text("said").startswith("Pan at rest at "), "the end is said")
    camera.call("zoom", "ZoomRelative", 1, 300)
    page.await_text("said", "Zoom in")
    page.await_text("said", "Zoom at rest at 20.00×")
    camera.control("set", "tilt", -30000)
    page.await_text("said", "Tilt at rest at −30.00°")
    live = page.run("return [...document.querySelectorAll('output:not([aria-live=off])')].map((e) => e.id)")
    assert live == [], "the numbers change too often to be read out"


def test_a_click_without_a_pointer_holds_a_key_for_a_moment(camera, page):
    """As a screen reader clicks."""
    page.run("document.querySelector('[data-hold=focus-near]').click()")
    await_until(lambda: camera.dome_state()["focus"]["position"] < 50, "the focus moves")
    await_until(lambda: not camera.dome_state()["focus"]["moving"], "it stops by itself")
    assert camera.dome_state()["focus"]["position"] > 0, "before the end"


def rows_of_the_accessibility_tree(page):
    """The arrivals' table as a screen reader has it: each row's cells as (role, name)."""
    page.driver.execute_cdp_cmd("Accessibility.enable", {})
    nodes = {node["nodeId"]: node for node in page.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]}

    def role(node):
        return node.get("role", {}).get("value")

    def name(node):
        return node.get("name", {}).get("value", "")

    def inside(node):
        for child in node.get("childIds", []):
            yield nodes[child]
            yield from inside(nodes[child])

    def words(node):
        return " ".join(name(n) for n in inside(node) if role(n) == "StaticText")

    (table,) = [n for n in nodes.values() if (role(n), name(n)) == ("table", "Calls and events, newest first")]
    return [[(role(cell), words(cell)) for cell in inside(row) if role(cell) in ("cell", "gridcell", "columnheader")]
            for row in inside(table) if role(row) == "row"]


def test_the_arrivals_are_a_table_for_a_screen_reader(camera, page):
    camera.control("event", "power", 1)
    camera.call("pan", "SetRelativeVelocity", 0, 2)
    await_until(lambda: len(arrivals(page)) == 2, "both arrive")
    head, *rows = rows_of_the_accessibility_tree(page)
    assert head == [("columnheader", "Time"), ("columnheader", "Call or event"), ("columnheader", "Outcome")]
    assert [[role for role, _ in row] for row in rows] == [["cell"] * 3] * 2
    calls = [call for _, (_, call), _ in rows]
    assert calls == ["pan.SetRelativeVelocity (0, 2) this console: stop", "power.OnPowerStatusChange (1) status 1"]
    assert [row[2][1] for row in rows] == ["ok", "event"]


def test_the_table_of_arrivals_scrolls_by_the_keyboard(camera, page):
    camera.control("event", "power", 1, "--count", 60)
    await_until(lambda: len(arrivals(page)) == 60, "they arrive")
    page.find("clear-list").send_keys(Keys.TAB)
    assert page.run("return document.activeElement.id") == "arrivals-rows"
    ActionChains(page.driver).send_keys(Keys.END).perform()
    in_sight = """
        const inside = document.getElementById('arrivals-rows').getBoundingClientRect();
        const box = document.querySelector(arguments[0]).getBoundingClientRect();
        return box.top >= inside.top - 1 && box.bottom <= inside.bottom + 1;"""
    await_until(lambda: page.run(in_sight, "#arrivals tbody tr:last-child"), "the oldest one is in sight")
    assert page.run(in_sight, "#arrivals th"), "the heads stay in sight"
    camera.control("event", "power", 2)
    await_until(lambda: len(arrivals(page)) == 61, "one more arrives")
    assert page.run(in_sight, "#arrivals tbody tr:last-child"), "what is being read stays in sight"


def test_a_new_page_lists_all_that_the_camera_keeps(camera, page):
    camera.control("event", "power", 1, "--count", 600)
    await_until(lambda: camera.get("/api/activities").json[-1]["args"] == ["600"], "they are listed")
    page.open(camera)
    await_until(lambda: len(arrivals(page)) == 500, "all show")
    assert "status 600" in arrivals(page)[0] and "status 101" in arrivals(page)[-1]


def show_nothing(camera, page, tools):
    assert page.find("no-arrivals").is_displayed()


def show_everything(camera, page, tools):
    camera.control("fault", "focus", "fail")
    camera.control("fault", "zoom", "hang")
    camera.control("fault", "presets", "gone")
    camera.control("set", "alarm", "BNK1", 0, 1)
    camera.control("set", "relay", "BNK1", 0, 1)
    camera.control("event", "power", 1)
    tools.set(PAN, "x", "02404650")
    type_command(page, "positionPan", "04000000")
    page.find("auto-focus").click()
    await_until(lambda: page.find("failure").is_displayed(), "a failure is shown")
    await_until(lambda: any("pan.SetPosition" in row for row in arrivals(page)), "there are arrivals")


def show_many_points(camera, page, tools):
    camera.domectl("banks", "alarm", "A=600")
    await_until(lambda: page.find("shortened").is_displayed(), "some are left out")


def show_a_lost_camera(camera, page, tools):
    camera.end("dome")
    page.await_text("link", "No connection")


@pytest.mark.parametrize("show", [show_nothing, show_everything, show_many_points, show_a_lost_camera])
def test_axe_finds_no_violation(camera, page, tools, show):
    try:
        show(camera, page, tools)
        for width, height in ((390, 844), (1280, 800)):
            for scheme in ("light", "dark"):
                page.look(width, height, scheme)
                page.run("const failure = document.getElementById('failure'); failure.hidden = !failure.textContent")
                assert page.violations() == [], (width, scheme)
    finally:
        if "dome" not in camera.processes:
            camera.start_dome()
            page.complaints()  # the browser reports the refused connections


def test_axe_finds_a_violation(page):
    page.run("document.getElementById('pad').removeAttribute('aria-label')")
    page.run("document.querySelector('label[for=light]').remove()")
    assert any(violation.startswith("label: ") for violation in page.violations())
    page.driver.refresh()
    page.await_text("link", "Live")


def test_everything_that_can_be_used_has_a_name_and_shows_its_focus(page):
    page.driver.execute_cdp_cmd("Accessibility.enable", {})
    nodes = page.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    used = [n for n in nodes if n.get("role", {}).get("value") in ("button", "switch", "textbox", "spinbutton", "combobox", "application", "image", "img")]
    nameless = [n["role"]["value"] for n in used if not n.get("ignored") and not n.get("name", {}).get("value", "").strip()]
    assert len(used) > 40 and nameless == []
    reached = page.run("return document.querySelectorAll('button, select, input, [tabindex]').length")
    hidden = []
    page.run("document.activeElement.blur()")
    for _ in range(reached):
        ActionChains(page.driver).send_keys(Keys.TAB).perform()
        tag, name, style = page.run("""
            const e = document.activeElement;
            return [e.tagName, e.id || e.className, getComputedStyle(e).outlineStyle];""")
        if tag != "BODY" and style == "none":  # Tab also visits the browser itself
            hidden.append(name)
    assert hidden == []


@pytest.mark.parametrize("width", [390, 768, 1024, 1280, 1440, 1920])
@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_it_fits_every_screen(panel, width, scheme):
    page = panel
    page.look(width, 844 if width < 500 else 900, scheme)
    page.run("return new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))")
    assert page.run("return document.documentElement.scrollWidth") == width, "the page is not wider than the window"
    outside = page.run("""
        return [...document.querySelectorAll('main *')].filter((e) => {
          const box = e.getBoundingClientRect();
          return box.width && !e.closest('canvas, svg, #arrivals') && (box.right > innerWidth + 1 || box.left < -1);
        }).map((e) => e.id || e.className)""")
    assert outside == []
    edges = page.run("return ['.bar h1', '.frame', '.services'].map((e) => document.querySelector(e).getBoundingClientRect().left)")
    assert max(edges) - min(edges) < 8, "the title and its content start at the same edge"
    if width == 390:
        small = page.run("""
            return [...document.querySelectorAll('button, select, input')].filter((e) => {
              const box = e.getBoundingClientRect();
              return box.width && box.height < 32;
            }).map((e) => e.id || e.className)""")
        assert small == [], "controls are large enough for fingers"


CONTRAST = """
const parse = (text) => text.match(/[\\d.]+/g).map(Number);
const light = ([r, g, b]) => [r, g, b].map((v) => v / 255).map((v) => (v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4))
  .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
const ground = (e) => {
  for (; e; e = e.parentElement) {
    const [r, g, b, a = 1] = parse(getComputedStyle(e).backgroundColor);
    if (a > 0.99) return [r, g, b];
  }
  return [255, 255, 255];
};
const poor = [];
for (const e of document.querySelectorAll('body *')) {
  const hasText = [...e.childNodes].some((n) => n.nodeType === 3 && n.textContent.trim());
  if (!hasText || !e.getClientRects().length || e.closest('.frame, option, svg')) continue;
  const [a, b] = [light(parse(getComputedStyle(e).color)), light(ground(e))].sort((x, y) => y - x);
  const ratio = (a + 0.05) / (b + 0.05);
  if (ratio < 4.5) poor.push(`${e.id || e.className || e.tagName} ${ratio.toFixed(2)}`);
}
return poor;
"""


def test_text_has_contrast(camera, page, tools):
    camera.control("fault", "zoom", "fail")
    camera.control("set", "alarm", "BNK1", 0, 1)
    camera.control("set", "relay", "BNK1", 0, 1)
    tools.set(PAN, "x", "00000000")
    page.find("trace-open").click()
    page.await_text("trouble", "zoom fails")
    await_until(lambda: arrivals(page), "there are arrivals")
    await_until(lambda: page.all("#trace > tbody"), "there is a trace")
    for scheme in ("light", "dark"):
        page.look(scheme=scheme)
        assert page.run(CONTRAST) == [], scheme


def test_a_flood_does_not_drown_the_page(camera, page):
    with ManagerOf(camera) as manager:
        for _ in range(300):
            manager.get(FOCUS)
    camera.control("event", "power", 1, "--count", 100000)
    await_until(lambda: any("status 100000" in row for row in arrivals(page)), "the last one shows", 30)
    assert len(arrivals(page)) <= 500
    camera.control("set", "pan", 77000)
    page.await_text("pan-value", "77.00°")


def test_a_hidden_page_does_not_watch(camera, page):
    """A browser opens few connections to one host. Hidden pages must not hold them."""
    hide = """Object.defineProperty(document, 'hidden', {value: arguments[0], configurable: true});
              document.dispatchEvent(new Event('visibilitychange'))"""
    descriptors = len(os.listdir(f"/proc/{camera.processes['dome'].pid}/fd"))
    page.run(hide, True)
    await_until(lambda: len(os.listdir(f"/proc/{camera.processes['dome'].pid}/fd")) < descriptors, "the stream ends")
    camera.control("set", "pan", 33000)
    page.run(hide, False)
    page.await_text("pan-value", "33.00°")


def test_a_portrait(camera, page, tools):
    """The page while it works. ORVEX_PORTRAIT names a folder for its pictures."""
    camera.control("set", "pan", 340000)
    camera.control("set", "tilt", 1000)
    camera.control("set", "focus", 49)  # sharp at the target
    camera.control("set", "alarm", "BNK2", 0, 1)
    camera.control("set", "relay", "BNK1", 2, 1)
    camera.control("fault", "presets", "gone")
    camera.control("set", "temperature", 0, 31)
    page.open(camera, still=False)
    page.find("show-reads").click()
    tools.set("1.3.6.1.4.1.1206.4.2.7.4.3.0", "x", "02000600")
    tools.set("1.3.6.1.4.1.1206.4.2.7.4.2.0", "x", "020846D0")  # 1.28 degrees down
    tools.set(PAN, "x", "02070320")  # 8 degrees
    await_until(lambda: 346 < reading(page, "pan-value") < 359 and page.text("pan-note") == "to 8.00°", "the pan moves")
    pictures = {"light": page.screenshot()}
    page.look(scheme="dark", still=False)
    pictures["dark"] = page.screenshot()
    for name, picture in pictures.items():
        assert picture.startswith(b"\x89PNG") and len(picture) > 50_000
        if folder := os.environ.get("ORVEX_PORTRAIT"):
            pathlib.Path(folder, f"console-{name}.png").write_bytes(picture)
    assert (ROOT / "docs" / "console.png").stat().st_size < 400_000
    tools.set(PAN, "x", "00000000")
