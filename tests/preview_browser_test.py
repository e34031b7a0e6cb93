#!/usr/bin/env python3
"""Uses the page of the live picture in headless Chromium, as a person does.

usage: preview_browser_test.py TOOL LAUNCHER [unittest arguments]
"""

import os
import re
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "support"))
from preview_runner import CAMERAS, Preview_Test, Stream  # pylint: disable=wrong-import-position
from tool_runner import decode, main  # pylint: disable=wrong-import-position

# A few rows of the canvas as text; the frame's number is drawn there.
PIXELS = """
const canvas = document.getElementById("picture");
const data = canvas.getContext("2d").getImageData(0, canvas.height / 3 | 0, canvas.width, 4).data;
return canvas.width + "x" + canvas.height + ":" + data.join(",");
"""

# Holds the next state that the page asks for until the test lets it go.
HOLD_STATE = """
const ask = window.fetch;
window.fetch = async (...request) => {
  const answer = await ask(...request);
  if (request[0].startsWith("/api/state")) {
    window.fetch = ask;
    await new Promise((resolve) => { window.letGo = resolve; });
  }
  return answer;
};
"""
LET_GO = "const done = arguments[0]; window.letGo(); setTimeout(() => done(document.getElementById('format').value), 100);"


class Page(Preview_Test):
    @classmethod
    def setUpClass(cls):
        cls.downloads = tempfile.TemporaryDirectory(prefix="preview-test-")
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1300,900"):
            options.add_argument(argument)
        options.add_experimental_option("prefs", {"download.default_directory": cls.downloads.name})
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.downloads.cleanup()

    def open(self, *arguments):
        self.serve(*arguments)
        self.browser.get(self.url)
        self.addCleanup(self.browser.get, "about:blank")
        self.wait_for("picture", self.is_live)
        self.wait_for("settings", lambda: self.browser.find_elements(By.CSS_SELECTOR, ".control"))

    def is_live(self):
        return self.text("status-text") == "Live"

    def text(self, name):
        return self.browser.find_element(By.ID, name).text

    def pixels(self):
        return self.browser.execute_script(PIXELS)

    def field(self, name):
        return self.browser.find_element(By.ID, "control-" + name)

    def saved(self):
        """Chromium makes an empty file of the final name first, then moves the whole file over it."""
        with os.scandir(self.downloads.name) as entries:
            return [entry.name for entry in entries if entry.name.endswith(".jpg") and entry.stat().st_size > 0]

    def take_saved(self):
        """The name and the path of the one file that was saved; it is gone from the downloads then."""
        name, = self.wait_for("saved file", self.saved)
        path = os.path.join(self.folder, name)
        os.rename(os.path.join(self.downloads.name, name), path)
        return name, path

    def assert_moving(self):
        before = self.pixels()
        self.wait_for("movement", lambda: self.pixels() != before)

    def test_picture_numbers_and_settings(self):
        self.open()
        self.assert_moving()
        self.assertTrue(self.pixels().startswith("640x480:"))
        self.wait_for("rate", lambda: re.fullmatch(r"\d+\.\d", self.text("rate")))
        self.assertRegex(self.text("latency"), r"^\d+\.\d ms$")
        # A busy machine may lose some, so the server says how many.
        self.wait_for("lost frames", lambda: self.text("lost") == str(self.ask("/api/state")["camera"]["lost"]))
        self.check_controls()
        self.check_modes()
        self.check_saving()
        severe = [entry for entry in self.browser.get_log("browser") if entry["level"] == "SEVERE"]
        self.assertEqual(severe, [], "the browser complains, about the page's security policy perhaps")

    def check_controls(self):
        self.field("brightness").send_keys(Keys.ARROW_RIGHT * 3)
        self.wait_for("new brightness", lambda: self.control("brightness")["value"] == 131)
        number = self.browser.find_element(By.ID, "control-brightness-number")
        self.assertEqual(number.get_attribute("value"), "131")
        Select(self.field("power_line_frequency")).select_by_visible_text("60 Hz")
        self.wait_for("new frequency", lambda: self.control("power_line_frequency")["value"] == 2)
        # The temperature can be set when the automatic is off, and the page notices.
        temperature = self.field("white_balance_temperature")
        self.assertFalse(temperature.is_enabled())
        self.field("white_balance_automatic").send_keys(Keys.SPACE)
        self.wait_for("enabled temperature", temperature.is_enabled)
        # What another program sets shows here too.
        self.ask("/api/controls", {"name": "contrast", "value": 77})
        self.wait_for("contrast", lambda: self.field("contrast").get_attribute("value") == "77")
        self.browser.find_element(By.ID, "reset").click()
        self.wait_for("defaults", lambda: self.field("brightness").get_attribute("value") == "128")
        self.wait_for("disabled temperature", lambda: not temperature.is_enabled())

    def check_modes(self):
        chooser = Select(self.browser.find_element(By.ID, "size"))
        chooser.select_by_visible_text("320×240")
        self.wait_for("small picture", lambda: self.pixels().startswith("320x240:"))
        self.assertEqual(self.ask("/api/state")["camera"]["mode"]["width"], 320)
        self.browser.execute_script(HOLD_STATE)
        self.wait_for("state", lambda: self.browser.execute_script("return Boolean(window.letGo)"))
        Select(self.browser.find_element(By.ID, "format")).select_by_visible_text("YUYV")
        self.wait_for("YUYV", lambda: self.pixels().startswith("640x480:"))  # it has no other size
        self.assertEqual(self.ask("/api/state")["camera"]["mode"]["format"], "YUYV")
        self.assertEqual(self.browser.execute_async_script(LET_GO), "YUYV", "a state from before the change is shown")
        Select(self.browser.find_element(By.ID, "format")).select_by_visible_text("MJPEG")
        self.wait_for("Motion-JPEG", lambda: self.ask("/api/state")["camera"]["mode"]["format"] == "MJPG")
        self.wait_for("picture", self.is_live)
        self.assert_moving()

    def check_saving(self):
        self.wait_for("picture", lambda: self.pixels().startswith("640x480:"))
        for save in (self.browser.find_element(By.ID, "save").click,
                     lambda: self.browser.find_element(By.TAG_NAME, "body").send_keys("s")):
            save()
            name, path = self.take_saved()
            sequence = re.fullmatch(r"desk-\d{4}-\d\d-\d\d-\d{6}-(\d{6})\.jpg", name)[1]
            decode(path, 640, 480)
            with open(path, "rb") as file:  # the camera's own bytes carry the number of the frame
                self.assertIn(b"frame 0000" + sequence.encode(), file.read(100))

    def test_cameras_by_tab_with_their_names_as_text(self):
        self.open()
        desk, door = self.browser.find_elements(By.CSS_SELECTOR, "[role=tab]")
        self.assertEqual((desk.text, door.text), ("Desk", "<b>Door</b>"))
        desk.send_keys(Keys.ARROW_RIGHT)
        self.wait_for("other picture", lambda: self.pixels().startswith("160x120:"))
        self.assertEqual((desk.get_attribute("aria-selected"), door.get_attribute("aria-selected")), ("false", "true"))
        self.assert_moving()
        self.wait_for("end of the first capture",
                      lambda: self.ask("/api/state")["camera"]["state"] == "idle")  # nobody watches it now

    def test_a_camera_that_does_not_start_shows_its_problem_and_no_picture_of_another(self):
        self.open(CAMERAS + "refuse VIDIOC_STREAMON EIO\n")
        self.assert_moving()
        self.browser.find_elements(By.CSS_SELECTOR, "[role=tab]")[1].click()
        self.wait_for("notice", lambda: self.text("notice-title") == "No picture")
        self.assertIn("did not start", self.text("notice-text"))
        self.assertEqual(set(self.pixels().split(":")[1].split(",")), {"0", "255"})  # black

    def test_a_page_without_a_place_says_so_until_one_is_free(self):
        self.serve()
        viewers = [Stream(self.address) for _ in range(32)]
        self.browser.get(self.url)
        self.addCleanup(self.browser.get, "about:blank")
        self.addCleanup(self.browser.get_log, "browser")  # another test wants it empty
        self.wait_for("notice", lambda: self.text("notice-text").startswith("Too many viewers"))
        self.assertEqual(self.text("status-text"), "No picture")
        for viewer in viewers:
            viewer.close()
        self.wait_for("picture", self.is_live)
        self.assert_moving()

    def test_unplugging_is_shown_and_the_picture_comes_back(self):
        self.open("camera\nformat MJPG\n  size 320x240 30\nunplug-after 3s\nreplug-after 3s\n")
        self.wait_for("notice", lambda: self.text("notice-title") == "The camera is unplugged")
        self.assertEqual(self.text("status-text"), "Unplugged")
        self.assertFalse(self.browser.find_element(By.ID, "save").is_enabled())
        self.wait_for("return", self.is_live)
        self.wait_for("picture", lambda: not self.browser.find_element(By.ID, "notice").is_displayed())
        self.assert_moving()

    def test_a_narrow_window_needs_no_sideways_scrolling(self):
        self.open(CAMERAS, "--listen", "127.0.0.1", "--port", "0")  # the token reaches all of the page's requests
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": 360, "height": 740, "deviceScaleFactor": 1, "mobile": True})
        self.addCleanup(self.browser.execute_cdp_cmd, "Emulation.clearDeviceMetricsOverride", {})
        self.assert_moving()
        self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), 360)


if __name__ == "__main__":
    main()
