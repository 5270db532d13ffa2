"""The page of a whole fleet: three desk cameras that ./run has started, each with an address of its own."""

import http.client
import json
import os
import shutil
import signal
import subprocess

import pytest
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

from desk import ROOT, await_until, free_tcp_port
from test_run import Started, run

pytestmark = [pytest.mark.slow, pytest.mark.commands, pytest.mark.page]
ADDRESSES = ["127.0.17.1", "127.0.17.2", "127.0.17.3"]
# Of each card that the filter shows: name, positions, last call, faults.
CARDS = """
const lines = (card) => [...card.querySelectorAll('p')].map((line) => line.textContent);
return [...document.querySelectorAll('#cameras li:not([hidden])')].map(lines);
"""
# A camera's picture, reduced to 16 x 9 coarse dots.
PICTURE = """
const small = document.createElement('canvas');
[small.width, small.height] = [16, 9];
const context = small.getContext('2d');
context.drawImage(document.querySelectorAll('#cameras canvas')[arguments[0]], 0, 0, 16, 9);
return [...context.getImageData(0, 0, 16, 9).data];
"""


class Fleet(Started):
    def __init__(self):
        super().__init__()
        self.console_port = free_tcp_port()

    def url(self, number):
        return f"http://{ADDRESSES[number - 1]}:{self.console_port}/"

    def get(self, path, **headers):
        """Of the first camera: the status and the answer."""
        connection = http.client.HTTPConnection(ADDRESSES[0], self.console_port, timeout=20)
        try:
            connection.request("GET", path, headers=headers)
            answer = connection.getresponse()
            return answer.status, json.loads(answer.read())
        finally:
            connection.close()

    def states(self):
        return [camera["state"] for camera in self.get("/api/fleet")[1]["cameras"]]

    def domectl(self, number, *words):
        subprocess.run([ROOT / "build" / "desk" / "bin" / "domectl", "--state", self.state / str(number), *words],
                       check=True, timeout=20)

    def dome_of(self, number):
        lines = (self.state / str(number) / "pids").read_text().splitlines()
        return next(int(line.split()[1]) for line in lines if line.startswith("dome "))


@pytest.fixture(scope="module")
def fleet():
    started = Fleet()
    try:
        status, _, error = started.run("--detach", "--fleet", "3", "--first-address", ADDRESSES[0])
        assert status == 0, error
        yield started
    finally:
        run("--stop", "--state", started.state)
        shutil.rmtree(started.folder)


def test_one_page_shows_all_cameras_and_leads_to_each(fleet, browser):
    browser.look()
    browser.driver.get(fleet.url(1) + "fleet")
    cards = lambda: browser.run(CARDS)  # noqa: E731
    shows = lambda *numbers: await_until(  # noqa: E731
        lambda: [card[0] for card in cards()] == [f"OD20-{n:06}" for n in numbers], f"{numbers} are shown", 30)
    shows(1, 2, 3)
    await_until(lambda: "3 of 3 cameras; 0 with a fault, 0 not answering" == browser.text("count"), "all answer", 30)
    for number in range(3):
        await_until(lambda: len(set(browser.run(PICTURE, number))) > 20, "the picture is drawn")
    before = browser.run(PICTURE, 1)
    assert browser.difference(before, browser.run(PICTURE, 0)) == 0

    fleet.domectl(2, "set", "pan", "180000")
    fleet.domectl(2, "fault", "tilt", "fail")
    await_until(lambda: "180.0°" in cards()[1][1] and "tilt fail" in cards()[1][-1], "the page follows", 30)
    await_until(lambda: browser.difference(before, browser.run(PICTURE, 1)) > 10, "so does the picture", 30)
    assert browser.violations() == []

    browser.find("words").send_keys("TILT")
    shows(2)
    browser.find("words").send_keys(Keys.CONTROL, "a")
    browser.find("words").send_keys("000003")
    shows(3)
    browser.find("words").send_keys(Keys.CONTROL, "a")
    browser.find("words").send_keys(Keys.DELETE)
    shows(1, 2, 3)
    Select(browser.find("which")).select_by_value("faulty")
    shows(2)
    assert not browser.complaints()

    browser.all("#cameras li:not([hidden]) a")[0].click()
    assert browser.driver.current_url == fleet.url(2)
    browser.await_text("serial", "OD20-000002")
    browser.find("fleet").click()
    assert browser.driver.current_url == fleet.url(2) + "fleet"


def test_a_camera_that_hangs_or_has_ended_holds_up_no_other(fleet):
    await_until(lambda: fleet.states() == ["answers"] * 3, "all answer")
    os.kill(fleet.dome_of(3), signal.SIGSTOP)
    try:
        await_until(lambda: fleet.states() == ["answers", "answers", "silent"], "the third is silent")
        fleet.domectl(2, "set", "pan", "90000")
        summary = lambda: fleet.get("/api/fleet")[1]["cameras"][1]["summary"]  # noqa: E731
        await_until(lambda: summary()["pan"] == 90000, "the others are followed")
    finally:
        os.kill(fleet.dome_of(3), signal.SIGCONT)
    await_until(lambda: fleet.states() == ["answers"] * 3, "it answers again")
    assert run("--stop", "--state", fleet.state / "3")[0] == 0
    await_until(lambda: fleet.states() == ["answers", "answers", "ended"], "the third has ended")


def test_other_sites_cannot_read_the_fleet(fleet):
    for path in ("/api/fleet", "/api/summary"):
        assert fleet.get(path)[0] == 200
        assert fleet.get(path, Host="elsewhere.example")[0] == 403
        assert fleet.get(path, Origin="http://elsewhere.example")[0] == 403
