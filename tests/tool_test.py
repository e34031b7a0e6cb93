#!/usr/bin/env python3
"""Looks at virtual cameras with the command-line tool, and sets their controls, as a user would.

usage: tool_test.py TOOL LAUNCHER [unittest arguments]
"""

import json
import os
import signal
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "support"))
from tool_runner import RANGES, SMALL, THREE, TIME_LIMIT, Tool_Test, main  # pylint: disable=wrong-import-position


class Looking(Tool_Test):
    def test_list_shows_and_filters_cameras(self):
        cameras = json.loads(self.run_tool(THREE, "list", "--json").stdout)
        self.assertEqual([(c["index"], c["card"]) for c in cameras],
                         [(0, "First Twin"), (1, "Second Twin"), (2, "On Chip")])
        self.assertEqual((cameras[1]["vid"], cameras[1]["pid"], cameras[1]["release"]), ("1d6b", "0102", "1.00"))
        self.assertNotEqual(cameras[0]["location"], cameras[1]["location"])
        self.assertNotEqual(cameras[0]["serial"], cameras[1]["serial"])
        text = self.run_tool(THREE, "list").stdout
        self.assertRegex(text, r"(?s)0: /dev/video0  First Twin\n.*ids +1d6b:0102, .*2: \S+  On Chip\n.*not on USB")
        mixed = SMALL + "camera Other\nusb 0bad:cafe\n"
        filtered = json.loads(self.run_tool(mixed, "list", "--vid", "bad", "--json").stdout)
        self.assertEqual([c["index"] for c in filtered], [1])

    def test_a_forbidden_camera_is_listed_with_the_remedy(self):
        forbidden = SMALL + "refuse open EACCES\n"
        remedy = r"/dev/video0 .*\n.*may not open /dev/video0: .*(--device|sandbox)"  # in a container, and elsewhere
        self.assertRegex(self.run_tool(forbidden, "list").stdout, remedy)
        self.assertRegex(json.loads(self.run_tool(forbidden, "list", "--json").stdout)[0]["error"], "may not open")
        self.assertRegex(self.run_tool(forbidden, "list", "--vid", "1234", status=1).stdout, remedy)
        self.run_tool(SMALL, "list", "--vid", "1234", "--pid", "abcd")
        self.assertIn("no camera found with these ids", self.run_tool(SMALL, "list", "--pid", "1", status=1).stderr)
        for verb in ("modes", "controls", "capture"):
            self.assertRegex(self.run_tool(forbidden, verb, status=1).stderr, "may not open /dev/video0: .*refuse")

    def test_watching_goes_on_after_the_cameras_that_are_there(self):
        with subprocess.Popen(self.command(SMALL, "list", "--watch", "--json"), text=True, stdout=subprocess.PIPE,
                              start_new_session=True) as process:
            event = json.loads(process.stdout.readline())
            self.assertEqual((event["event"], event["camera"]["node"]), ("present", "/dev/video0"))
            self.assertRaises(subprocess.TimeoutExpired, process.wait, 0.5)
            os.killpg(process.pid, signal.SIGINT)
            self.assertNotEqual(process.wait(TIME_LIMIT), 0)

    def test_modes_are_listed_by_any_name_of_a_camera(self):
        expected = [("MJPG", 320, 240, 30, "1/30"), ("MJPG", 320, 240, 15, "1/15"), ("YUYV", 322, 240, 30, "1/30")]
        identity = json.loads(self.run_tool(SMALL, "list", "--json").stdout)[0]["identity"]
        for camera in ([], ["/dev/video0"], ["1234:ABCD"], ["0"], [identity]):
            modes = json.loads(self.run_tool(SMALL, "modes", *camera, "--json").stdout)
            self.assertEqual([tuple(mode.values()) for mode in modes], expected)
        self.assertRegex(self.run_tool(SMALL, "modes").stdout, r"\nMJPG +320x240 +30 +15\nYUYV +322x240 +30\n$")
        on_chip = json.loads(self.run_tool(THREE, "modes", "2", "--json").stdout)
        self.assertIn(("YUYV", 640, 480, 30, "1/30"), [tuple(mode.values()) for mode in on_chip])

    def test_modes_show_exact_rates_and_ranges(self):
        self.assertRegex(self.run_tool(RANGES, "modes").stdout,
                         r"\nMJPG +640x480 +30000/1001 \(29\.97\) +7\.5\n"
                         r"YUYV +32x16 to 640x480 in steps of 16x8 +30\n"
                         r"GREY +160x120 +5 to 50, the time between frames in steps of 1/1000 s\n$")
        modes = json.loads(self.run_tool(RANGES, "modes", "--json").stdout)
        self.assertAlmostEqual(modes[0]["fps"], 29.97, delta=0.001)
        self.assertEqual((modes[0]["interval"], modes[1]["fps"], modes[1]["interval"]), ("1001/30000", 7.5, "2/15"))
        self.assertEqual(modes[2]["height"], {"min": 16, "max": 480, "step": 8})
        self.assertEqual(modes[3]["fps"], {"min": 5, "max": 50})

    def test_mistyped_words_get_the_nearest_name(self):
        for words, status, message in ((["captrue"], 2, "no verb 'captrue'; did you mean 'capture'\\?"),
                                       (["lits", "--json"], 2, "did you mean 'list'"),
                                       (["frobnicate"], 2, "no verb 'frobnicate'\\.\n"),
                                       (["capture", "--format", "MJPEGG"], 1, "no format 'MJPEGG'; did you mean 'MJPG'"),
                                       (["capture", "--format", "H264"], 1, "no format 'H264'\\. It has: MJPG, YUYV"),
                                       (["controls", "0", "brigtness"], 1, "no control.*; did you mean 'brightness'"),
                                       (["controls", "brightnes=1"], 1, "; did you mean 'brightness'.*It has: brightness, "),
                                       (["controls", "power_line_frequency=60 Herz"], 1, "did you mean '60 Hz'"),
                                       (["capture", "--frame"], 2, "--frame")):
            with self.subTest(words):
                self.assertRegex(self.run_tool(SMALL, *words, status=status).stderr, message)

    def test_impossible_options_are_refused(self):
        for words in (["--frames", "0"], ["--frames", "-1"], ["--frames", "1.5"], ["--frames", "18446744073709551617"],
                      ["--seconds", "0"], ["--seconds", "nan"], ["--seconds", "inf"], ["--seconds", "1e300"],
                      ["--seconds", "1s"], ["--frames", "1", "--seconds", "1"], ["--fps", "0"], ["--fps", "fast"],
                      ["--fps", "30/0"], ["--fps", "1e3"], ["--fps", "1/2/3"], ["--fps", "-30"], ["--fps", "9999999999"],
                      ["--size", "640"], ["--size", "0x0"], ["--skip", "4294967296"],
                      ["-o", "picture.jpg", "--frames", "2"], ["-o", "picture.jpg", "--seconds", "1"]):
            with self.subTest(words):
                self.assertIn(words[0], self.run_tool(SMALL, "capture", *words, status=2).stderr)
        self.assertEqual(os.listdir(self.folder), ["cameras"])

    def test_a_full_standard_output_is_an_error(self):
        for words in (["list"], ["modes", "--json"], ["controls"], ["--help"], ["--version"],
                      ["doctor"], ["capture", "--frames", "2", "-o", self.out], ["capture", "--frames", "2", "-o", "-"]):
            with self.subTest(words), open("/dev/full", "wb") as full:
                status, message = self.run_to(full, *words)
                self.assertEqual(status, 1, message)
                self.assertRegex(message, "wqz-usbcam: standard output cannot be written")
        with open("/dev/full", "wb") as full:
            _, message = self.run_to(full, "capture", "--json", "-o", self.out, description=SMALL + "unplug-after 2\n")
            self.assertRegex(message, "was unplugged(.|\n)*standard output cannot be written")

    def test_controls_are_shown_set_and_checked(self):
        text = self.run_tool(SMALL, "controls").stdout
        self.assertRegex(text, r"(?m)^brightness +128  0\.\.255; default 128$")
        self.assertRegex(text, r"(?m)^power_line_frequency +50 Hz  0 Disabled, 1 50 Hz, 2 60 Hz; default 50 Hz$")
        self.assertRegex(text, r"(?m)^white_balance_automatic +on  on or off; default on$")
        self.assertRegex(text, r"(?m)^white_balance_temperature +4600  2800\.\.6500 in steps of 10.*inactive")
        self.assertEqual(self.run_tool(SMALL, "controls", "0", "brightness=140", "hue=-20").stdout,
                         "brightness: 140\nhue: -20\n")
        rounded = self.run_tool(SMALL, "controls", "white_balance_automatic=off", "white_balance_temperature=3004")
        self.assertRegex(rounded.stdout, "automatic: off\nwhite_balance_temperature: 3000 .*3004")
        for word, message in (("brightnes=1", "no control 'brightnes'"),
                              ("brightness=256", r"'256' .*brightness.*0\.\.255"),
                              ("brightness=x", r"'x' .*brightness.*0\.\.255"),
                              ("white_balance_automatic=maybe", "on or off"),
                              ("power_line_frequency=3", "Disabled")):
            with self.subTest(word):
                result = self.run_tool(SMALL, "controls", "contrast=1", word, status=1)
                self.assertRegex(result.stderr, message)
                self.assertEqual(result.stdout, "", "nothing is set unless everything can be")
        refused = self.run_tool(SMALL + "refuse S_EXT_CTRLS EIO\n", "controls", "brightness=1", status=1)
        self.assertRegex(refused.stderr, "brightness cannot be set")

    def test_controls_are_shown_as_json(self):
        one = json.loads(self.run_tool(SMALL, "controls", "0", "power_line_frequency=0", "--json").stdout)
        self.assertEqual([(c["name"], c["type"], c["value"], c["default"], c["items"][2]) for c in one],
                         [("power_line_frequency", "menu", 0, 1, {"index": 2, "name": "60 Hz"})])
        every = {c["name"]: c for c in json.loads(self.run_tool(SMALL, "controls", "--json").stdout)}
        self.assertEqual((every["white_balance_automatic"]["value"], every["white_balance_temperature"]["state"]),
                         (True, ["inactive"]))

    def test_a_control_that_cannot_be_read_is_no_zero(self):
        result = self.run_tool(SMALL + "refuse G_EXT_CTRLS EIO\n", "controls", "0", "brightness", status=1)
        self.assertRegex(result.stderr, "brightness cannot be read")
        self.assertRegex(result.stdout, r"^brightness +-  ")

    def test_reset_sets_every_default(self):
        reset = self.run_tool(SMALL, "controls", "0", "brightness=9", "white_balance_automatic=off",
                              "power_line_frequency=2", "brightness", "reset", "--json")
        values = {c["name"]: (c["value"], c["default"]) for c in json.loads(reset.stdout)}
        self.assertEqual(values, {"brightness": (128, 128), "white_balance_automatic": (True, True),
                                  "power_line_frequency": (1, 1)})
        again = self.run_tool(SMALL, "controls", "reset", "brightness=9").stdout
        self.assertEqual(again, "brightness: 9\n", "words are followed in order")
        refused = self.run_tool(SMALL + "refuse S_EXT_CTRLS EIO 1\n", "controls", "reset")
        self.assertEqual(refused.stderr, "", "what has its default is not set")


if __name__ == "__main__":
    main()
