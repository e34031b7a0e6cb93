#!/usr/bin/env python3
"""Uses the installed packages as their users do, for scripts/package: under with-virtual-camera, in a bare system."""

import glob
import itertools
import os
import signal
import subprocess
import sys
import unittest
import urllib.request


class Packages(unittest.TestCase):
    def test_tool_lists_the_camera_and_finds_nothing_wrong(self):
        listing = subprocess.run(["wqz-usbcam", "list"], stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertTrue(listing.startswith("0: /dev/video0  Virtual Camera\n"), listing)
        findings = subprocess.run(["wqz-usbcam", "doctor"], stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertIn("Nothing is wrong.", findings)

    def test_program_in_c_is_built_by_pkg_config_and_saves_pictures(self):
        subprocess.run("cc -std=c99 %s -o camera $(pkg-config --cflags --libs wqz-usbcam) && ./camera" % sys.argv[1],
                       shell=True, check=True)
        self.assertGreater(os.path.getsize("picture-9.jpg"), 1000)

    def test_python_reads_frames(self):
        import wqz_camera  # here, so that the other tests run when it is missing
        with wqz_camera.Camera() as camera:
            camera.start("YUYV", (640, 480))
            sizes = [memoryview(frame).nbytes for frame in itertools.islice(camera.frames(timeout=5), 5)]
        self.assertEqual(sizes, [640 * 480 * 2] * 5)

    def test_udev_knows_the_rule_for_the_user_at_the_machine(self):
        rule, = glob.glob("/usr/lib/udev/rules.d/*-wqz-usbcam-tools.rules")
        # udev gives access to the user in the file 73-seat-late.rules, so the tag must be there before.
        self.assertLess(os.path.basename(rule), "73-seat-late.rules")
        with open(rule, encoding="ascii") as file:
            self.assertIn('SUBSYSTEM=="video4linux", TAG+="uaccess"', file.read())

    def test_preview_shows_the_picture(self):
        preview = subprocess.Popen(["wqz-usbcam", "preview", "--port", "0"], stdout=subprocess.PIPE, text=True)
        try:
            address = preview.stdout.readline().strip()
            page = urllib.request.urlopen(address, timeout=10).read()
            picture = urllib.request.urlopen(address + "snapshot", timeout=10).read()
        finally:
            preview.send_signal(signal.SIGINT)
            preview.wait(10)
            preview.stdout.close()
        self.assertIn(b"<html", page)
        self.assertEqual(picture[:2], b"\xff\xd8")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
