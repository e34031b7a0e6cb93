"""What the tests of the command-line tool share: cameras, runs of the tool, and looks at pictures."""

import os
import shutil
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
    ppm = subprocess.run([convert, path, "-depth", "8", "ppm:-"], check=False, capture_output=True)
    # A damaged picture is decoded with a warning.
    assert ppm.returncode == 0 and not ppm.stderr, (ppm.returncode, ppm.stderr, os.path.getsize(path))
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

    def run_to(self, output, *words, description=SMALL):
        """Runs the tool with a standard output of its own; returns its status and messages."""
        result = subprocess.run(self.command(description, *words), cwd=self.folder, text=True, stdout=output,
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


def main():
    """Runs the tests of a script that was called with TOOL LAUNCHER [unittest arguments]."""
    global TOOL, LAUNCHER
    TOOL, LAUNCHER = [os.path.abspath(path) for path in sys.argv[1:3]]
    unittest.main(module="__main__", argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
