#!/usr/bin/env python3
"""Runs the command-line tool on virtual cameras, as a user would.

usage: tool_test.py TOOL LAUNCHER [unittest arguments]
"""

import json
import os
import pty
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

TOOL = LAUNCHER = ""
TIME_LIMIT = 60  # seconds for one run of the tool, also under a sanitizer

SMALL = """
camera Small Camera
usb 1234:abcd
format MJPG
  size 320x240 30 15
format YUYV
  size 322x240 30
"""
RANGES = """
camera
format MJPG
  size 640x480 1001/30000 7.5
format YUYV
  size 32x16-640x480/16x8 30
format GREY
  size 160x120 from 1/50 to 1/5 step 1/1000
"""
THREE = """
camera First Twin
camera Second Twin
camera On Chip
usb none
"""


def bitmap_size(data):
    """Width and height of a BMP file that holds all its rows; fails for anything else."""
    magic, size, offset, width, height, bits = struct.unpack("<2sI4xI4xii2xH", data[:30])
    row = (width * 3 + 3) // 4 * 4
    assert (magic, size, offset, bits) == (b"BM", len(data), 54, 24), "header"
    assert len(data) == 54 + row * abs(height), "rows are not padded, or missing"
    return width, height


def decode(path, width, height):
    """The pixels of a picture as red, green, blue bytes, as a viewer shows it."""
    convert = shutil.which("magick") or "convert"
    ppm = subprocess.run([convert, path, "-depth", "8", "ppm:-"], check=True, capture_output=True)
    assert not ppm.stderr, ppm.stderr  # a damaged picture is decoded with a warning
    header, pixels = ppm.stdout[:-3 * width * height], ppm.stdout[-3 * width * height:]
    assert header.split()[-3:] == [b"%d" % width, b"%d" % height, b"255"], header
    return pixels


def difference(one, other):
    """The mean difference of two pictures of one size."""
    return sum(abs(a - b) for a, b in zip(one, other)) / len(one)


class Tool_Test(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tool-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.out = os.path.join(self.folder, "out")

    def command(self, description, *words, program=None):
        path = os.path.join(self.folder, "cameras")
        with open(path, "w", encoding="ascii") as file:
            file.write(description)
        return [LAUNCHER, "--description", path, program or TOOL, *words]

    def run_tool(self, description, *words, status=0, **more):
        result = subprocess.run(self.command(description, *words, **more), cwd=self.folder, text=True,
                                capture_output=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertNotIn("**", result.stdout)
        self.assertTrue(status == 0 or result.stderr.startswith("wqz-usbcam: "), result.stderr)
        return result

    def run_to(self, output, *words):
        """Runs the tool with a standard output of its own; returns its status and messages."""
        result = subprocess.run(self.command(SMALL, *words), cwd=self.folder, text=True, stdout=output,
                                stderr=subprocess.PIPE, timeout=TIME_LIMIT, check=False)
        return result.returncode, result.stderr

    def capture(self, description, *words, **more):
        return self.run_tool(description, "capture", *words, "-o", self.out, **more)

    def files(self):
        return sorted(os.listdir(self.out)) if os.path.isdir(self.out) else []

    def read(self, name):
        with open(os.path.join(self.out, name), "rb") as file:
            return file.read()

    def wait_for_files(self, count):
        deadline = time.monotonic() + TIME_LIMIT
        while len(self.files()) < count and time.monotonic() < deadline:
            time.sleep(0.05)

    def assert_whole_jpegs(self, count, first=1):
        self.assertEqual(self.files(), ["frame-%06d.jpg" % (first + i) for i in range(count)])
        for name in self.files():
            data = self.read(name)
            self.assertEqual((data[:2], data[-2:]), (b"\xff\xd8", b"\xff\xd9"), name)


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
        remedy = r"/dev/video0 .*\n.*may not open.*usermod -aG video"
        self.assertRegex(self.run_tool(forbidden, "list").stdout, remedy)
        self.assertRegex(json.loads(self.run_tool(forbidden, "list", "--json").stdout)[0]["error"], "usermod")
        self.assertRegex(self.run_tool(forbidden, "list", "--vid", "1234", status=1).stdout, remedy)
        self.run_tool(SMALL, "list", "--vid", "1234", "--pid", "abcd")
        self.assertIn("no camera found", self.run_tool(SMALL, "list", "--pid", "1", status=1).stderr)
        for verb in ("modes", "controls", "capture"):
            self.assertRegex(self.run_tool(forbidden, verb, status=1).stderr, "may not open /dev/video0.*usermod -aG video")

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

    def test_words_that_name_no_camera_are_refused_with_a_reason(self):
        for words, message in (
                ([], "several cameras: .*/dev/video0.*/dev/video2"),
                (["1d6b:0102"], "several cameras.*1d6b:0102:0001 .*1d6b:0102:0002 "),
                (["1d6b:0103"], "No camera .*1d6b:0103"),
                (["7"], "No camera .*7"),
                (["webcam"], "No camera .*webcam"),
                (["/dev/null"], "not a camera"),
                (["/dev/video1"], "not a camera's capture node"),
                (["/dev/video77"], "no /dev/video77")):
            with self.subTest(words):
                self.assertRegex(self.run_tool(THREE, "modes", *words, status=1).stderr, message)

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

    def test_what_cannot_be_held_or_done_is_refused(self):
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
                      ["capture", "--frames", "2", "-o", self.out], ["capture", "--frames", "2", "-o", "-"]):
            with self.subTest(words), open("/dev/full", "wb") as full:
                status, message = self.run_to(full, *words)
                self.assertEqual(status, 1, message)
                self.assertRegex(message, "wqz-usbcam: standard output cannot be written")

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

    def test_control_values_have_many_spellings(self):
        set_all = self.run_tool(SMALL, "controls", "brightness=0x1F", "power_line_frequency=60 hz", "Contrast=default",
                                "auto_exposure=1", "white_balance_automatic=No", "power_line_frequency")
        self.assertRegex(set_all.stdout, "^brightness: 31\npower_line_frequency: 60 Hz\ncontrast: 128\n"
                                         "auto_exposure: Manual Mode\nwhite_balance_automatic: off\n"
                                         "power_line_frequency +60 Hz  0 Disabled")
        some = self.run_tool(SMALL, "controls", "hue", "gain").stdout.splitlines()
        self.assertEqual([line.split()[0] for line in some], ["hue", "gain"])
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


class Capturing(Tool_Test):
    def test_pictures_are_whole_and_numbered_on(self):
        self.capture(SMALL, "--format", "mjpeg", "--frames", "5")
        self.assert_whole_jpegs(5)
        again = self.capture(SMALL, "--format", "mjpeg", "--frames", "2", "--size", "320x240", "--fps", "15")
        self.assertRegex(again.stdout, r"captured  2 frames.*\nlost .*\ndamaged +0\n"
                                       r"saved +2 files, .*frame-000006\.jpg to .*frame-000007\.jpg\n$")
        self.assert_whole_jpegs(7)
        self.capture(SMALL, "--format", "yuyv", "--frames", "4")
        self.assertEqual(len(self.files()), 11)
        for number in range(1, 5):
            self.assertEqual(bitmap_size(self.read("frame-%06d.bmp" % number)), (322, 240))

    def test_both_formats_show_the_same_picture(self):
        for name in ("mjpeg", "yuyv"):
            self.capture("camera\n", "--format", name, "--size", "640x480", "--fps", "30", "--frames", "1")
        jpeg, bitmap = [decode(os.path.join(self.out, name), 640, 480) for name in self.files()[::-1]]
        rows = [bitmap[i:i + 1920] for i in range(0, len(bitmap), 1920)]
        upside_down = b"".join(reversed(rows))
        exchanged = b"".join(bytes(reversed(bitmap[i:i + 3])) for i in range(0, len(bitmap), 3))
        # The conversion takes luma as full range, so contrast may differ; the card is neither symmetric nor grey.
        for wrong in (upside_down, exchanged):
            self.assertLess(2 * difference(jpeg, bitmap), difference(jpeg, wrong))

    def counts(self, summary, rate):
        """Frames captured and lost; they are all frames of the time at that rate."""
        found = re.search(r"captured  (\d+) frames in ([\d.]+) s: ([\d.]+) frames per second, ([\d.]+) MB/s\n"
                          r"lost +(\d+)\ndamaged +0\n", summary)
        self.assertIsNotNone(found, summary)
        captured, lost = [int(found[i]) for i in (1, 5)]
        seconds, shown_rate, megabytes = [float(found[i]) for i in (2, 3, 4)]
        self.assertAlmostEqual(captured + lost - 1, seconds * rate, delta=1)
        self.assertAlmostEqual(shown_rate, (captured - 1) / seconds, delta=0.2)
        size = sum(os.path.getsize(os.path.join(self.out, name)) for name in self.files())
        self.assertAlmostEqual(megabytes, size / 1e6 / captured * shown_rate, delta=0.1)
        self.assertEqual(captured, len(self.files()))
        return captured, lost

    def test_every_frame_arrives(self):
        for _ in range(5):  # a busy machine may be late at times
            result = self.capture("camera\n", "--format", "yuyv", "--size", "640x480", "--fps", "30", "--raw",
                                  "--seconds", "2")
            captured, lost = self.counts(result.stdout, 30)
            if lost == 0:
                self.assertIn(captured, range(58, 63))
                return
            shutil.rmtree(self.out)
        self.fail(result.stdout)

    def test_lost_frames_are_counted(self):
        command = self.command(SMALL, "capture", "--format", "mjpeg", "--seconds", "2", "-o", self.out)
        with subprocess.Popen(command, text=True, stdout=subprocess.PIPE, start_new_session=True) as process:
            self.wait_for_files(5)
            os.killpg(process.pid, signal.SIGSTOP)
            time.sleep(1)
            os.killpg(process.pid, signal.SIGCONT)
            output = process.communicate(timeout=TIME_LIMIT)[0]
        self.assertGreater(self.counts(output, 30)[1], 15)

    def test_raw_frames_are_saved_and_damaged_ones_counted(self):
        self.capture(SMALL + "jpeg-padding 4096\n", "--raw", "--format", "mjpeg", "--frames", "3")
        self.assertEqual(len(self.files()), 3)
        for name in self.files():
            self.assertRegex(name, r"^\d{10}_\d{6}\.raw$")
            self.assertAlmostEqual(int(name[:10]), time.time(), delta=TIME_LIMIT)
            data = self.read(name)
            self.assertEqual((data[:2], data[-2:]), (b"\xff\xd8", b"\xff\xd9"), "the padding is left out")
        frame_numbers = [re.search(rb"frame (\d{10})", self.read(name))[1] for name in self.files()]
        self.assertEqual(frame_numbers, sorted(frame_numbers), "names sort by time")
        shutil.rmtree(self.out)
        result = self.capture(SMALL + "damage-every 3\n", "--format", "mjpeg", "--frames", "9")
        self.assertRegex(result.stdout, r"damaged +3\nsaved +9 files")
        self.assertEqual(re.findall(r"wqz-usbcam: \S*(frame-\d+)\.jpg is damaged", result.stderr),
                         ["frame-00000%d" % i for i in (3, 6, 9)])
        worthless = self.capture(SMALL + "damage-every 1\n", "--format", "yuyv", "--frames", "2", status=1)
        self.assertRegex(worthless.stderr, r"frame-000002\.bmp is damaged.*\n(.*\n)*.*every frame was damaged")

    def test_any_format_is_captured(self):
        self.capture(RANGES, "--format", "grey", "--fps", "20", "--frames", "2")
        self.assertEqual([len(self.read(name)) for name in self.files()], [160 * 120] * 2)
        shutil.rmtree(self.out)
        self.capture(RANGES, "--format", "YUYV", "--size", "48x24", "--frames", "1")
        self.assertEqual(bitmap_size(self.read("frame-000001.bmp")), (48, 24))
        offset = self.capture(RANGES, "--format", "YUYV", "--size", "50x24", "--frames", "1", status=1)
        self.assertRegex(offset.stderr, "does not offer YUYV 50x24.*nearest modes are YUYV 48x24")

    def test_rates_match_within_a_thousandth(self):
        for rate, interval in (("29.97", "1001/30000"), ("30000/1001", "1001/30000"),
                               ("7.5", "2/15"), ("7.507", "2/15")):
            with self.subTest(rate):
                command = ["--format", "MJPG", "--fps", rate, "--frames", "1", "--json"]
                self.assertEqual(json.loads(self.capture(RANGES, *command).stdout)["mode"]["interval"], interval)
        for rate in ("7.51", "29.9", "15"):
            with self.subTest(rate):
                result = self.capture(RANGES, "--format", "MJPG", "--fps", rate, "--frames", "1", status=1)
                self.assertRegex(result.stderr, r"does not offer MJPG 640x480 at %s .*nearest modes" % re.escape(rate))

    def test_one_picture_goes_into_one_file(self):
        os.mkdir(self.out)
        for name, words in (("a.jpg", []), ("b.JPEG", ["--frames", "1"]), ("c.bmp", []), ("d.raw", ["--format", "YUYV"])):
            result = self.run_tool("camera\n", "capture", "--size", "640x480", "-o", os.path.join(self.out, name), *words)
            self.assertRegex(result.stdout, "saved     1 file, .*" + re.escape(name))
        self.assertEqual(self.files(), ["a.jpg", "b.JPEG", "c.bmp", "d.raw"])
        for name in self.files()[:3]:
            decode(os.path.join(self.out, name), 640, 480)
        self.assertEqual(len(self.read("d.raw")), 640 * 480 * 2)
        refused = self.run_tool(SMALL, "capture", "--format", "yuyv", "-o", "x.jpg", status=1)
        self.assertRegex(refused.stderr, "x.jpg can only hold a Motion-JPEG picture.*--format mjpeg")

    def test_a_stream_goes_to_standard_output(self):
        command = self.command(SMALL, "capture", "--format", "MJPG", "--frames", "5", "-o", "-")
        result = subprocess.run(command, cwd=self.folder, capture_output=True, timeout=TIME_LIMIT, check=True)
        images = [b"\xff\xd8" + image for image in result.stdout.split(b"\xff\xd8")[1:]]
        self.assertEqual([image[-2:] for image in images], [b"\xff\xd9"] * 5)
        self.assertRegex(result.stderr, rb"wqz-usbcam: captured  5 frames.*\n(wqz.*\n)*.*saved +5 frames to standard output")
        self.assertEqual(os.listdir(self.folder), ["cameras"])

    def test_a_reader_that_goes_away_ends_the_stream(self):
        command = self.command(SMALL, "capture", "--format", "MJPG", "--frames", "1000", "-o", "-")
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            self.assertEqual(process.stdout.read(2), b"\xff\xd8")
            process.stdout.close()
            self.assertEqual(process.wait(TIME_LIMIT), 128 + signal.SIGPIPE)
            self.assertRegex(process.stderr.read(), rb"saved +\d+ frames? to standard output\n$")

    def test_an_interrupt_ends_a_stream_that_nobody_reads(self):
        command = self.command(SMALL, "capture", "--format", "YUYV", "-o", "-")
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              start_new_session=True) as process:
            process.stdout.read(2)
            time.sleep(1)  # the pipe is full then
            os.killpg(process.pid, signal.SIGINT)
            self.assertEqual(process.wait(TIME_LIMIT), 0)
            self.assertIn(b"captured", process.stderr.read())

    def test_first_frames_can_be_skipped(self):
        result = self.capture(SMALL, "--format", "mjpeg", "--frames", "2", "--skip", "4", "--json")
        self.assertEqual(re.search(rb"frame (\d{10})", self.read("frame-000001.jpg"))[1], b"0000000004")
        summary = json.loads(result.stdout)
        self.assertEqual((summary["frames"], summary["skipped"], summary["lost"], summary["saved"], summary["error"]),
                         (2, 4, 0, 2, None))
        self.assertEqual((summary["mode"]["format"], summary["mode"]["width"], summary["bytes"]),
                         ("MJPG", 320, sum(len(self.read(name)) for name in self.files())))
        self.assertEqual(summary["last_file"], os.path.join(self.out, "frame-000002.jpg"))

    def test_a_capture_that_cannot_start_is_refused_with_a_reason(self):
        under_a_file = os.path.join(self.folder, "cameras", "out")
        for more, words, message in (
                ("", ["--size", "640x480"], "does not offer MJPG 640x480.*nearest modes are MJPG 320x240 at 30"),
                ("", ["--format", "yuyv", "--fps", "60"], "does not offer YUYV 322x240 at 60.*nearest.*YUYV 322x240 at 30"),
                ("refuse S_FMT EBUSY\n", [], "busy.*another"),
                ("refuse S_FMT EINVAL\n", [], "MJPG 320x240 at 30"),
                ("refuse REQBUFS EIO\n", [], "did not provide buffers"),
                ("refuse STREAMON ENOSPC\n", [], "USB bus has no room for MJPG 320x240.*MJPG 320x240 at 15"),
                ("", ["-o", under_a_file], "cannot be made"),
                ("", ["-o", "/proc"], "/proc.* cannot be written.*-o")):
            with self.subTest(more or words):
                command = ["capture", "--frames", "1", *words] + ([] if "-o" in words else ["-o", self.out])
                result = self.run_tool(SMALL + more, *command, status=1)
                self.assertRegex(result.stderr, message)
        self.assertEqual(self.files(), [])


class Failing(Tool_Test):
    """Each within a few seconds, with a message, and with whole files only."""

    def assert_failed_soon(self, description, message, *words, least=0):
        begin = time.monotonic()
        result = self.capture(description, "--format", "mjpeg", *words, status=1)
        self.assertLess(time.monotonic() - begin, 20)
        self.assertRegex(result.stderr, message)
        self.assertGreaterEqual(len(self.files()), least)
        self.assert_whole_jpegs(len(self.files()))
        self.assertRegex(result.stdout, r"captured  %d frames?\b" % len(self.files()))

    def test_an_unplugged_camera_is_reported(self):
        self.assert_failed_soon(SMALL + "unplug-after 10\n", "was unplugged.*--reconnect", "--frames", "50",
                                least=5)

    def test_a_capture_goes_on_after_a_replug(self):
        result = self.capture(SMALL + "unplug-after 10\nreplug-after 2\n", "--format", "mjpeg", "--frames", "15",
                              "--reconnect", "--json")
        self.assertRegex(result.stderr, r"was unplugged; waiting.*\n.*the camera is back; missed 2\.\d s, about \d\d frames")
        self.assert_whole_jpegs(15)
        summary = json.loads(result.stdout)
        self.assertEqual((summary["frames"], summary["times_away"], summary["error"]), (15, 1, None))
        self.assertAlmostEqual(summary["seconds_missed"], 2.5, delta=1)

    def test_a_camera_that_does_not_come_back_is_reported(self):
        self.assert_failed_soon(SMALL + "unplug-after 10\n", "was unplugged; waiting(.*\n)+.*did not come back",
                                "--reconnect", "--seconds", "2", least=5)

    def test_an_interrupt_ends_the_wait_for_a_camera(self):
        command = self.command(SMALL + "unplug-after 5\n", "capture", "--reconnect", "-o", self.out)
        with subprocess.Popen(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              start_new_session=True) as process:
            self.assertIn("waiting for it", process.stderr.readline())
            os.killpg(process.pid, signal.SIGINT)
            output = process.communicate(timeout=TIME_LIMIT)[0]
        self.assertEqual(process.returncode, 0)
        self.assertRegex(output, "saved +5 files")

    def test_a_camera_that_fails_while_it_captures_is_reported(self):
        self.assert_failed_soon(SMALL + "refuse DQBUF EIO\n", "failed to deliver a frame", "--frames", "5")

    def test_a_silent_camera_is_reported(self):
        self.assert_failed_soon(SMALL + "pause-after 4 60s\n", "stopped sending frames", "--seconds", "50", least=4)

    def test_a_full_disk_is_reported_and_leaves_whole_files(self):
        # A file system with room for two or three files; where none may be mounted, a third file that is always full.
        own_mounts = ["unshare", "-rm"]
        can_mount = subprocess.run([*own_mounts, "mount", "-t", "tmpfs", "tmpfs", self.folder], capture_output=True,
                                   check=False).returncode == 0
        full = "mount -t tmpfs -o size=500k tmpfs" if can_mount else "ln -s /dev/full frame-000003.bmp.part; :"
        script = 'cd "$0"; ' + full + ' "$0"; "$@"; status=$?; find "$0" ! -type d -printf "%s\\n"; exit $status'
        os.mkdir(self.out)
        cases = [([], 54 + 968 * 240)] + ([(["--raw"], 322 * 2 * 240)] if can_mount else [])
        for words, size in cases:
            with self.subTest(words):
                tool = self.command(SMALL, "capture", *words, "--format", "yuyv", "--frames", "20", "-o", self.out)
                result = subprocess.run([*(own_mounts if can_mount else []), "sh", "-c", script, self.out, *tool],
                                        text=True, capture_output=True, timeout=TIME_LIMIT, check=False)
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertRegex(result.stderr, "cannot be written: No space left.*make room.*-o")
                sizes = result.stdout.partition("\nsaved ")[2].splitlines()[1:]
                self.assertEqual(sizes, [str(size)] * (500 * 1024 // size), "files that are not whole")

    def interrupt(self, *words):
        terminal, slave = pty.openpty()
        command = self.command(SMALL, "capture", "--format", "mjpeg", *words, "-o", self.out)
        with subprocess.Popen(command, text=True, stdout=subprocess.PIPE, stderr=slave, start_new_session=True) as process:
            os.close(slave)
            self.wait_for_files(5)
            for _ in range(2):  # launchers pass on what the terminal sends to all
                os.killpg(process.pid, signal.SIGINT)
            output = process.communicate(timeout=TIME_LIMIT)[0]
        shown = os.read(terminal, 100000).decode()
        os.close(terminal)
        self.assertRegex(shown, r"\r\d+ frames, [\d.]+ per second, [\d.]+ MB/s, lost \d+\x1b")
        self.assert_whole_jpegs(len(self.files()))
        self.assertRegex(output, r"saved +%d files" % len(self.files()))
        return process.returncode

    def test_an_interrupt_ends_with_whole_files(self):
        self.assertEqual(self.interrupt("--frames", "1000"), 128 + signal.SIGINT)
        shutil.rmtree(self.out)
        self.assertEqual(self.interrupt(), 0, "the way to end a capture without limits")


if __name__ == "__main__":
    TOOL, LAUNCHER = [os.path.abspath(path) for path in sys.argv[1:3]]
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
