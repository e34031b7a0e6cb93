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
        self.assertEqual("wqz-usbcam: " in result.stderr, status == 1, result.stderr)
        return result

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

    def test_modes_are_listed_by_any_name_of_a_camera(self):
        expected = [("MJPG", 320, 240, 30), ("MJPG", 320, 240, 15), ("YUYV", 322, 240, 30)]
        for camera in ([], ["/dev/video0"], ["1234:ABCD"], ["0"]):
            modes = json.loads(self.run_tool(SMALL, "modes", *camera, "--json").stdout)
            self.assertEqual([tuple(mode.values()) for mode in modes], expected)
        self.assertRegex(self.run_tool(SMALL, "modes").stdout, r"\nMJPG +320x240 +30 15\nYUYV +322x240 +30\n$")
        on_chip = json.loads(self.run_tool(THREE, "modes", "2", "--json").stdout)
        self.assertIn({"format": "YUYV", "width": 640, "height": 480, "fps": 30}, on_chip)

    def test_words_that_name_no_camera_are_refused_with_a_reason(self):
        for words, message in (
                ([], "more than one camera.*\n.*/dev/video0 .*\n.*/dev/video2 "),
                (["1d6b:0102"], "more than one camera"),
                (["1d6b:0103"], "no camera with the ids"),
                (["7"], "there is no camera 7.*\n.*/dev/video0"),
                (["webcam"], "names no camera"),
                (["/dev/null"], "not a camera"),
                (["/dev/video1"], "no pictures come from this node; its camera is /dev/video0"),
                (["/dev/video77"], "no such node")):
            with self.subTest(words):
                self.assertRegex(self.run_tool(THREE, "modes", *words, status=1).stderr, message)
        forbidden = self.run_tool(SMALL + "refuse open EACCES\n", "modes", "/dev/video0", status=1)
        self.assertRegex(forbidden.stderr, "permission denied.*usermod -aG video")

    def test_controls_are_shown_set_and_checked(self):
        text = self.run_tool(SMALL, "controls").stdout
        self.assertRegex(text, r"(?m)^brightness +128  0\.\.255, default 128$")
        self.assertRegex(text, r"(?m)^power_line_frequency +1 .*\(0 Disabled, 1 50 Hz, 2 60 Hz\)$")
        self.assertRegex(text, r"(?m)^white_balance_temperature +4600  2800\.\.6500 in steps of 10.*inactive")
        self.assertEqual(self.run_tool(SMALL, "controls", "0", "brightness=140", "hue=-20").stdout,
                         "brightness: 140\nhue: -20\n")
        rounded = self.run_tool(SMALL, "controls", "white_balance_automatic=0", "white_balance_temperature=3004")
        self.assertRegex(rounded.stdout, "white_balance_temperature: 3000 .*3004")
        for word, message in (("brightnes=1", "no control 'brightnes'; it has: brightness, "),
                              ("brightness=256", r"brightness=256: .*0\.\.255"),
                              ("brightness=x", r"brightness=x: .*0\.\.255")):
            with self.subTest(word):
                result = self.run_tool(SMALL, "controls", "contrast=1", word, status=1)
                self.assertRegex(result.stderr, message)
                self.assertEqual(result.stdout, "", "nothing is set unless everything can be")
        refused = self.run_tool(SMALL + "refuse S_CTRL EIO\n", "controls", "brightness=1", status=1)
        self.assertRegex(refused.stderr, "refuses brightness=1")


class Capturing(Tool_Test):
    def test_pictures_are_whole_and_numbered_on(self):
        self.capture(SMALL, "--format", "mjpeg", "--frames", "5")
        self.assert_whole_jpegs(5)
        again = self.capture(SMALL, "--format", "mjpeg", "--frames", "2", "--size", "320x240", "--fps", "15",
                             "-v")
        self.assertIn("CLEAR_FRAME_BUFF", again.stderr, "the loop has returned")
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
        # The card is neither symmetric nor grey: a picture upside down or with its colours exchanged differs by far more.
        difference = sum(abs(a - b) for a, b in zip(jpeg, bitmap)) / len(jpeg)
        self.assertLess(difference, 4)

    def counts(self, summary, rate):
        """Frames captured, lost in the driver and unread; they are all frames of the time at that rate."""
        found = re.search(r"captured  (\d+) frames in ([\d.]+) s: ([\d.]+) frames per second, ([\d.]+) MB/s\n"
                          r"lost +(\d+) in the driver .*, (\d+) unread .*\ndamaged +0\n", summary)
        self.assertIsNotNone(found, summary)
        captured, lost, unread = [int(found[i]) for i in (1, 5, 6)]
        seconds, shown_rate, megabytes = [float(found[i]) for i in (2, 3, 4)]
        self.assertAlmostEqual(captured + lost + unread - 1, seconds * rate, delta=1)
        self.assertAlmostEqual(shown_rate, (captured - 1) / seconds, delta=0.2)
        size = sum(os.path.getsize(os.path.join(self.out, name)) for name in self.files())
        self.assertAlmostEqual(megabytes, size / 1e6 / captured * shown_rate, delta=0.1)
        self.assertEqual(captured, len(self.files()))
        return captured, lost, unread

    def test_every_frame_arrives(self):
        for _ in range(5):  # a busy machine may be late at times
            result = self.capture("camera\n", "--format", "yuyv", "--size", "640x480", "--fps", "30", "--seconds", "2")
            captured, lost, unread = self.counts(result.stdout, 30)
            if lost + unread == 0:
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
            self.assertRegex(name, r"^\d{10}_\d{1,6}\.raw$")
            data = self.read(name)
            self.assertEqual((data[:2], len(data) % 4096, data[-1]), (b"\xff\xd8", 0, 0))
        shutil.rmtree(self.out)
        result = self.capture(SMALL + "damage-every 3\n", "--format", "mjpeg", "--frames", "9")
        self.assertRegex(result.stdout, r"damaged +3\nsaved +9 files")

    def test_a_capture_that_cannot_start_is_refused_with_a_reason(self):
        under_a_file = os.path.join(self.folder, "cameras", "out")
        for more, words, message in (
                ("", ["--size", "640x480"], r"no mode of 640x480; it offers:\n  MJPG 320x240 at 30 15\n  YUYV 322x240"),
                ("", ["--format", "yuyv", "--fps", "60"], r"no YUYV at 60 .*; it offers:\n  YUYV 322x240 at 30$"),
                ("format GREY\n  size 320x240 30\n", [], r"no MJPG or YUYV mode; it offers:\n  GREY 320x240 at 30$"),
                ("refuse S_FMT EBUSY\n", [], "another program uses the camera"),
                ("refuse S_FMT EINVAL\n", [], "refuses MJPG 320x240 at 30"),
                ("", ["-o", under_a_file], "cannot be made"),
                ("", ["-o", "/proc"], "/proc.* cannot be written.*-o")):
            with self.subTest(more or words):
                description = SMALL.partition("format")[0] + more if more.startswith("format") else SMALL + more
                command = ["capture", "--frames", "1", *words] + ([] if "-o" in words else ["-o", self.out])
                result = self.run_tool(description, *command, status=1)
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
        self.assertRegex(result.stdout, r"captured  %d frames" % len(self.files()))

    def test_an_unplugged_camera_is_reported(self):
        self.assert_failed_soon(SMALL + "unplug-after 10\n", "camera is gone", "--frames", "50", least=5)

    def test_a_refused_start_is_reported(self):
        self.assert_failed_soon(SMALL + "refuse STREAMON ENOSPC\n", "did not start.*USB bus", "--frames", "5")

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
            os.killpg(process.pid, signal.SIGINT)
            output = process.communicate(timeout=TIME_LIMIT)[0]
        shown = os.read(terminal, 100000).decode()
        os.close(terminal)
        self.assertRegex(shown, r"\r\d+ frames, [\d.]+ per second, [\d.]+ MB/s, lost \d+ in the driver and \d+ unread")
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
