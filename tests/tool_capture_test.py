#!/usr/bin/env python3
"""Captures from virtual cameras with the command-line tool, as a user would.

usage: tool_capture_test.py TOOL LAUNCHER [unittest arguments]
"""

import json
import os
import pty
import re
import shutil
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "support"))
from tool_runner import RANGES, SMALL, TIME_LIMIT, Tool_Test, bitmap_size, decode, difference, main  # pylint: disable=wrong-import-position


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

    def test_captures_into_one_folder_keep_each_others_pictures(self):
        command = self.command(SMALL, "capture", "--format", "mjpeg", "--frames", "30", "-o", self.out)
        tools = [subprocess.Popen(command, stdout=subprocess.PIPE, text=True) for _ in range(3)]
        outputs = [tool.communicate(timeout=TIME_LIMIT)[0] for tool in tools]
        self.assertEqual([tool.returncode for tool in tools], [0, 0, 0])
        self.assertEqual([re.search(r"saved +(\d+) files", output)[1] for output in outputs], ["30"] * 3)
        self.assert_whole_jpegs(90)

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
        own_mounts = ["unshare", "-rm"]
        if subprocess.run([*own_mounts, "mount", "-t", "tmpfs", "tmpfs", self.folder], capture_output=True,
                          check=False).returncode != 0:
            self.skipTest("no file system may be mounted here")
        # A file system with room for two or three files.
        script = 'mount -t tmpfs -o size=500k tmpfs "$0"; "$@"; status=$?; ls -l "$0"; exit $status'
        os.mkdir(self.out)
        for words, size in [([], 54 + 968 * 240), (["--raw"], 322 * 2 * 240)]:
            with self.subTest(words):
                tool = self.command(SMALL, "capture", *words, "--format", "yuyv", "--frames", "20", "-o", self.out)
                result = subprocess.run([*own_mounts, "sh", "-c", script, self.out, *tool], text=True,
                                        capture_output=True, timeout=TIME_LIMIT, check=False)
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertRegex(result.stderr, "cannot be written: No space left.*make room.*-o")
                sizes = re.findall(r"^-\S+ +\S+ +\S+ +\S+ +(\d+) ", result.stdout, re.M)
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
    main()
