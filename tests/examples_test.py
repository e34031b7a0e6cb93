#!/usr/bin/env python3
"""Runs the example programs on virtual cameras.

usage: examples_test.py LAUNCHER EXAMPLE_CAPTURE EXAMPLE_LIST [unittest arguments]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

LAUNCHER = EXAMPLE_CAPTURE = EXAMPLE_LIST = ""
TIME_LIMIT = 60  # seconds for one run of an example, also under a sanitizer

THREE = """
camera First Twin
camera Second Twin
camera On Chip
usb none
"""


class Examples(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="examples-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def run_example(self, program, description, status=0):
        path = os.path.join(self.folder, "cameras")
        with open(path, "w", encoding="ascii") as file:
            file.write(description)
        result = subprocess.run([LAUNCHER, "--description", path, program], cwd=self.folder, text=True,
                                capture_output=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result

    def test_capture_saves_ten_whole_pictures(self):
        self.run_example(EXAMPLE_CAPTURE, "camera\nusb none\n")
        pictures = sorted(name for name in os.listdir(self.folder) if name.endswith(".jpg"))
        self.assertEqual(pictures, ["picture-%d.jpg" % i for i in range(10)])
        convert = shutil.which("magick") or "convert"
        for name in pictures:
            size = subprocess.run([convert, name, "-format", "%wx%h", "info:-"], cwd=self.folder, text=True, check=True,
                                  capture_output=True)
            self.assertEqual((size.stdout, size.stderr), ("640x480", ""))  # a damaged picture brings a warning

    def test_capture_ends_with_a_reason(self):
        for more, message in (("format MJPG\n  size 320x240 30\n", "does not deliver Motion-JPEG at 640x480"),
                              ("format YUYV\n  size 640x480 30\n", "does not deliver Motion-JPEG at 640x480"),
                              ("refuse STREAMON ENOSPC\n", "no frame for five seconds")):
            with self.subTest(more):
                self.assertIn(message, self.run_example(EXAMPLE_CAPTURE, "camera\n" + more, status=1).stderr)
                self.assertNotIn("picture-0.jpg", os.listdir(self.folder))

    def test_list_shows_cameras_and_modes(self):
        listing = self.run_example(EXAMPLE_LIST, THREE).stdout
        listing = re.sub(r"\*\*\d+\n", "", listing)  # the library counts the formats it finds
        self.assertRegex(listing, r"^3 cameras\n/dev/video0: First Twin, 1d6b:0102\n    MJPG 1920x1080, 30 frames")
        self.assertRegex(listing, r"(?s)On Chip, 0000:0000\n    MJPG ")


if __name__ == "__main__":
    LAUNCHER, EXAMPLE_CAPTURE, EXAMPLE_LIST = [os.path.abspath(path) for path in sys.argv[1:4]]
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
