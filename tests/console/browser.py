"""A headless Chromium, and the tests' actions on the console's page in it."""

import base64
import functools
import pathlib
import shutil
import tempfile

import node_packages
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

from desk import await_until

DRIVER = "/usr/bin/chromedriver"
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
           "--hide-scrollbars"]

# The picture reduced to 32 x 18 coarse dots.
PICTURE = """
const small = document.createElement('canvas');
[small.width, small.height] = [32, 18];
const context = small.getContext('2d');
context.drawImage(document.getElementById('picture'), 0, 0, 32, 18);
return [...context.getImageData(0, 0, 32, 18).data];
"""

VIOLATIONS = """
const text = ({id, help, nodes}) => `${id}: ${help}: ${nodes.map((node) => node.target)}`;
axe.run(document, {resultTypes: ['violations']}).then(
  ({violations, passes}) => arguments[0]({passed: passes.length, violations: violations.map(text)}),
  (error) => arguments[0]({error: String(error)}))
"""


@functools.lru_cache
def axe():
    """axe-core's source."""
    return (node_packages.install(pathlib.Path(__file__).parent) / "axe-core" / "axe.min.js").read_text()


class Browser:
    def __enter__(self):
        self._folder = tempfile.mkdtemp(prefix="orvex-browser-")
        options = webdriver.ChromeOptions()
        for option in [*OPTIONS, f"--user-data-dir={self._folder}"]:
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        try:
            self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        except BaseException:
            shutil.rmtree(self._folder, ignore_errors=True)
            raise
        self.driver.set_script_timeout(30)
        self.driver.set_page_load_timeout(60)
        return self

    def __exit__(self, *_):
        self.driver.quit()
        shutil.rmtree(self._folder, ignore_errors=True)

    def look(self, width=1440, height=900, scheme="light", still=True):
        """The window's size and the results of the page's media queries."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": scheme},
            {"name": "prefers-reduced-motion", "value": "reduce" if still else "no-preference"}]})

    def open(self, camera, **look):
        self.look(**look)
        self.driver.get(camera.url)
        self.await_text("link", "Live")
        await_until(lambda: self.text("pan-value") != "–", "the page shows the camera", 30)

    def find(self, name):
        return self.driver.find_element(By.ID, name)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def text(self, name):
        return self.run("return document.getElementById(arguments[0]).textContent", name)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def await_text(self, name, text, seconds=30):
        await_until(lambda: self.text(name) == text, f"{name} shows {text!r}", seconds)

    def picture(self):
        return self.run(PICTURE)

    def difference(self, one, other):
        """The mean difference of two pictures' dots, 0 to 255."""
        return sum(abs(a - b) for a, b in zip(one, other)) / len(one)

    def screenshot(self):
        return base64.b64decode(self.driver.execute_cdp_cmd("Page.captureScreenshot", {"format": "png"})["data"])

    def violations(self):
        """What axe-core finds in the page as it is now."""
        self.run(axe())
        found = self.driver.execute_async_script(VIOLATIONS)
        assert found.get("passed", 0) > 20, found
        return found["violations"]

    def complaints(self):
        """The page's and the browser's messages in the console."""
        return [entry["message"] for entry in self.driver.get_log("browser")]
