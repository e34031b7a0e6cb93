#!/usr/bin/env python3
"""Runs the example programs on virtual cameras.

usage: examples_test.py LAUNCHER CAMERA CAMERA_C EVENT_LOOP FOUR_CAMERAS RECOVERY CAPTURE CAPTURE_C LIST_CAMERAS
                        NEWEST_FRAME SESSION_DEMO [OPENCV_FRAME] [unittest arguments]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

LAUNCHER = CAMERA = CAMERA_C = EVENT_LOOP = FOUR_CAMERAS = RECOVERY = CAPTURE = CAPTURE_C = LIST_CAMERAS = ""
NEWEST_FRAME = SESSION_DEMO = OPENCV_FRAME = ""
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

    def run_example(self, program, description, *words, status=0):
        path = os.path.join(self.folder, "cameras")
        with open(path, "w", encoding="ascii") as file:
            file.write(description)
        result = subprocess.run([LAUNCHER, "--description", path, program, *words], cwd=self.folder, text=True,
                                capture_output=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result

    def converted(self, name, *options):
        """What ImageMagick makes of a picture; a damaged one brings a warning."""
        result = subprocess.run([shutil.which("magick") or "convert", name, *options], cwd=self.folder, check=True,
                                capture_output=True)
        self.assertEqual(result.stderr, b"")
        return result.stdout

    def assert_ten_whole_pictures(self):
        pictures = sorted(name for name in os.listdir(self.folder) if name.endswith(".jpg"))
        self.assertEqual(pictures, ["picture-%d.jpg" % i for i in range(10)])
        for name in pictures:
            self.assertEqual(self.converted(name, "-format", "%wx%h", "info:-"), b"640x480")
            os.remove(os.path.join(self.folder, name))

    def test_camera_saves_ten_whole_pictures_of_the_named_camera(self):
        for program in (CAMERA, CAMERA_C):
            with self.subTest(program):
                self.run_example(program, "camera\n")
                self.assert_ten_whole_pictures()
                self.run_example(program, "camera Small\nformat MJPG\n  size 320x240 30\ncamera Large\n", "1")
                self.assert_ten_whole_pictures()

    def test_camera_ends_with_the_reason(self):
        for program in (CAMERA, CAMERA_C):
            for description, message in ((THREE, "There are several cameras"),
                                         ("camera\n  refuse open EACCES\n", "group video"),
                                         ("camera\nformat YUYV\n  size 640x480 30\n", "does not offer MJPG 640x480"),
                                         ("camera\n  refuse STREAMON ENOSPC\n", "USB bus has no room"),
                                         ("camera\n  unplug-after 5\n", "was unplugged"),
                                         ("camera\n  pause-after 0 9s\n", "No frame came")):
                with self.subTest((program, description)):
                    self.assertIn(message, self.run_example(program, description, status=1).stderr)

    def test_event_loop_goes_on_with_the_camera_that_comes_back(self):
        listing = self.run_example(EVENT_LOOP, "camera\n  unplug-after 20\n  replug-after 1s\n").stdout
        self.assertRegex(listing, r"^unplugged\nback\n60 frames, \d+ lost\n$")

    def test_four_cameras_share_a_thread_and_the_others_go_on_without_one(self):
        four = "camera\ncamera\ncamera\n  unplug-after 10\ncamera\ncamera\n"
        result = self.run_example(FOUR_CAMERAS, four)
        counts = [int(count) for count in re.findall(r"^/dev/video\d: (\d+) frames$", result.stdout, re.M)]
        self.assertEqual([len(counts), counts[0], counts[1], counts[3]], [4, 30, 30, 30])
        self.assertLess(counts[2], 30)
        self.assertIn("was unplugged", result.stderr)

    def test_recovery_goes_on_after_each_unplug(self):
        listing = self.run_example(RECOVERY, "camera\n  unplug-after 25\n  replug-after 1s\n").stdout
        self.assertRegex(listing, r"^unplugged\nback at /dev/video0\n(unplugged\nback at /dev/video0\n)?60 frames, ")
        bytes_of_60 = int(re.search(r"(\d+) bytes", listing)[1])
        self.assertGreater(bytes_of_60, 60 * 1000)

    def test_opencv_sees_the_card(self):
        if not OPENCV_FRAME:
            return  # not built without OpenCV
        lines = self.run_example(OPENCV_FRAME, "camera\n").stdout.splitlines()
        self.assertEqual(len(lines), 10)
        for line in lines:
            brightness, sharpness = map(float, re.fullmatch(r"brightness (\S+), sharpness (\S+)", line).groups())
            self.assertTrue(60 < brightness < 200 and sharpness > 5, line)

    def test_newest_frame_passes_over_older_ones(self):
        listing = self.run_example(NEWEST_FRAME, "camera\n").stdout
        indices = [int(index) for index in re.findall(r"frame (\d+), \d{4,} bytes", listing)]
        self.assertEqual(len(indices), 5)
        # In 200 milliseconds come six frames. A slow machine misses some of them.
        self.assertTrue(all(later - earlier > 1 for earlier, later in zip(indices, indices[1:])), indices)

    def test_capture_saves_ten_whole_pictures(self):
        for program in (CAPTURE, CAPTURE_C):
            with self.subTest(program):
                self.run_example(program, "camera\nusb none\n")
                self.assert_ten_whole_pictures()

    def test_capture_ends_with_a_reason(self):
        for more, message in (("format MJPG\n  size 320x240 30\n", "does not deliver Motion-JPEG at 640x480"),
                              ("format YUYV\n  size 640x480 30\n", "does not deliver Motion-JPEG at 640x480"),
                              ("refuse STREAMON ENOSPC\n", "no frame for five seconds")):
            with self.subTest(more):
                self.assertIn(message, self.run_example(CAPTURE, "camera\n" + more, status=1).stderr)
                self.assertNotIn("picture-0.jpg", os.listdir(self.folder))

    def test_list_shows_cameras_and_modes(self):
        listing = self.run_example(LIST_CAMERAS, THREE).stdout
        listing = re.sub(r"\*\*\d+\n", "", listing)  # the library counts the formats it finds
        self.assertRegex(listing, r"^3 cameras\n/dev/video0: First Twin, 1d6b:0102\n    MJPG 1920x1080, 30 frames")
        self.assertRegex(listing, r"(?s)On Chip, 0000:0000\n    MJPG ")

    def test_session_demo_saves_thirty_upright_pictures_of_each_format(self):
        self.run_example(SESSION_DEMO, "camera\n", self.folder)
        pictures = sorted(name for name in os.listdir(self.folder) if name.startswith("frame-"))
        self.assertEqual(pictures, ["frame-%02d.%s" % (i, ending) for i in range(1, 31) for ending in ("bmp", "jpg")])
        sizes = {self.converted(name, "-format", "%wx%h", "info:-") for name in pictures}
        self.assertEqual(sizes, {b"640x480"})
        # The conversion takes luma as full range, so contrast may differ; the card is not symmetric.
        upright, jpeg = [self.converted(name, "-depth", "8", "rgb:-") for name in pictures[:2]]
        upside_down = self.converted(pictures[0], "-flip", "-depth", "8", "rgb:-")
        difference = [sum(abs(a - b) for a, b in zip(jpeg, other)) for other in (upright, upside_down)]
        self.assertLess(2 * difference[0], difference[1])

    def test_session_demo_pads_rows_and_names_what_a_camera_lacks(self):
        lacking = self.run_example(SESSION_DEMO, "camera\nformat YUYV\n  size 322x240 30\n", self.folder).stdout
        self.assertIn("no Motion-JPEG mode", lacking)
        self.assertEqual(os.path.getsize(os.path.join(self.folder, "frame-30.bmp")), 54 + 968 * 240)
        self.assertEqual(self.converted("frame-30.bmp", "-format", "%wx%h", "info:-"), b"322x240")


if __name__ == "__main__":
    programs = list(map(os.path.abspath, sys.argv[1:13]))
    (LAUNCHER, CAMERA, CAMERA_C, EVENT_LOOP, FOUR_CAMERAS, RECOVERY, CAPTURE, CAPTURE_C, LIST_CAMERAS, NEWEST_FRAME,
     SESSION_DEMO) = programs[:11]
    OPENCV_FRAME = "".join(programs[11:])
    unittest.main(argv=sys.argv[:1] + sys.argv[13:], verbosity=2)
