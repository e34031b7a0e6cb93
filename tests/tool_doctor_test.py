#!/usr/bin/env python3
"""Lets the tool's doctor look at virtual cameras that have something wrong.

usage: tool_doctor_test.py TOOL LAUNCHER [unittest arguments]
"""

import json
import os
import re
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "support"))
import tool_runner  # pylint: disable=wrong-import-position
from tool_runner import SMALL, TIME_LIMIT, Tool_Test, main  # pylint: disable=wrong-import-position

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")

# Shell commands that change the tree of devices before the doctor looks at it.
DEVICE = "cd $UMOCKDEV_DIR/sys/bus/usb/devices/1-1/; "
NO_NODES = "cd $UMOCKDEV_DIR; rm -r dev/video* sys/class/video4linux/* sys/devices/*/*/*/*/*/video4linux; "
NO_CAMERA = NO_NODES + "rm -r sys/bus/usb/devices/*; "
LOADED = "mkdir -p $UMOCKDEV_DIR/sys/module/uvcvideo; "
NO_DEV = "rm $UMOCKDEV_DIR/dev/video*; "
ONLY_METADATA = ("cd $UMOCKDEV_DIR; rm -r dev/video0 sys/class/video4linux/video0 "
                 "sys/devices/*/*/*/*/*/video4linux/video0; ")
BOS = DEVICE + r"printf '\005\017\026\000\002\007\020\002\002\000\000\000\012\020\003\000\000\000\000\000\000\000' " \
               ">bos_descriptors; "

WIDE = "camera Wide\nformat YUYV\n  size 1280x720 30 10\n  size 640x480 30\n"
JPEG = "format MJPG\n  size 1280x720 30\n"
TWINS = SMALL + "camera Other\n"
YUYV = "camera\nformat YUYV\n  size 640x480 30\n"

# What is wrong: the cameras, the shell commands, the doctor's words, and of each finding its name, camera, sentence and
# remedy.
CASES = [
    ("nothing", SMALL, "", [], []),
    ("nothing with a fast port", "speed 5000\n" + WIDE, "", [], []),
    ("nothing with a frame every other second", "camera\nformat YUYV\n  size 64x48 0.5\n", "", ["--capture"], []),
    ("nothing with a camera that is not on USB", "camera\nusb none\n", "", [], []),
    ("nothing with a camera whose metadata node is missing", SMALL, "rm $UMOCKDEV_DIR/dev/video1; ", [], []),
    ("no camera", SMALL, LOADED + NO_CAMERA, [], [("no-camera", None, "no video node", "Plug a camera in")]),
    ("a camera without a driver", SMALL, LOADED + NO_NODES, [],
     [("no-driver", "1-1", "1234:abcd Virtual Camera at port 1-1 has no driver, although .*uvcvideo is", "dmesg")]),
    ("a node that /dev lacks", SMALL + "refuse open ENOENT\n", NO_DEV, [],
     [("no-node", "/dev/video0", r"The kernel has /dev/video0 \(Small Camera\), but /dev does not",
       "--device /dev/video0|udevadm trigger")]),
    ("only metadata", SMALL, ONLY_METADATA, [], [("only-metadata", "/dev/video1", "/dev/video1", "capture node")]),
    ("a metadata node that was named", SMALL, "", ["/dev/video1"],
     [("only-metadata", "/dev/video1", "No pictures come from /dev/video1", "capture node")]),
    ("a name that no camera has", SMALL, "", ["0bad:cafe"], [("no-camera", "0bad:cafe", "0bad:cafe", "list")]),
    ("no permission", SMALL + "refuse open EACCES\n", "", [],
     [("no-permission", "/dev/video0", r"This user \(\S+\) may not open /dev/video0", "--device /dev/video0|sandbox")]),
    ("a node that fails to open", SMALL + "refuse open EIO\n", "", [],
     [("cannot-open", "/dev/video0", "/dev/video0 cannot be opened: Input/output error", "dmesg")]),
    ("a camera that lists nothing", SMALL + "refuse ENUM_FMT EINVAL\n", "", [],
     [("no-modes", "/dev/video0", "lists no modes", "Plug")]),
    ("a busy camera", SMALL + "refuse STREAMON EBUSY\n", "", [],
     [("held", "/dev/video0", "/dev/video0 is busy: another", "sudo fuser -v /dev/video0")]),
    ("a busy camera while frames are asked for", SMALL + "refuse S_FMT EBUSY\n", "", ["--capture"],
     [("held", "/dev/video0", "is busy", "fuser")]),
    ("a full bus", SMALL + "refuse STREAMON ENOSPC\n", "", [],
     [("no-bandwidth", "/dev/video0", "USB bus has no room for MJPG 320x240",
       r"port of /dev/video0 \(USB 2 high speed, 480 Mbit/s\) carries 24\.6 MB/s .*Choose a smaller size or a lower rate, or")]),
    ("a bus that fails", SMALL + "refuse STREAMON EPROTO\n", "", ["--capture"],
     [("no-bandwidth", "/dev/video0", "did not", "bad cable.*size or a lower rate, or"),
      ("no-bandwidth", "/dev/video0", "did not", "bad cable.*size, a lower rate or Motion-JPEG, or")]),
    ("a full bus of a camera without Motion-JPEG", YUYV + "refuse STREAMON ENOSPC\n", "", [],
     [("no-bandwidth", "/dev/video0", "USB bus has no room for YUYV", "size or a lower rate, or")]),
    ("a camera that refuses to start", SMALL + "refuse STREAMON EINVAL\n", "", [],
     [("cannot-start", "/dev/video0", "did not", "dmesg")]),
    ("a mode wider than USB 2", WIDE + JPEG, "", [],
     [("mode-too-wide", "/dev/video0",
       r"YUYV 1280x720 at 30 frames per second needs 55\.3 MB/s; .*carries 24\.6 MB/s .*3 x 1024 bytes in each of 8,000",
       r"Motion-JPEG \(--format mjpeg\) or a mode that fits, such as YUYV (640x480 at 30|1280x720 at 10)")]),
    ("modes wider than full speed", "speed 12\n" + YUYV + "  size 160x120 5\n  size 320x240 30\n", "", [],
     [("mode-too-wide", "/dev/video0", "YUYV 640x480 at 30.* the widest of 2 modes.*1023 bytes", "YUYV 160x120 at 5")]),
    ("a slow port, by the version", SMALL, DEVICE + "echo ' 3.20' >version; ", [],
     [("slow-port", "/dev/video0", "USB 3 camera 1234:abcd .* as USB 2 high speed", "USB 3 port")]),
    ("a slow port, by the abilities", WIDE, BOS, [],
     [("mode-too-wide", "/dev/video0", "1280x720 at 30", "A USB 3 port carries more"),
      ("slow-port", "/dev/video0", "USB 3 camera", "lsusb -t")]),
    ("a shared bus", YUYV * 3, "", [],
     [("shared-bus", None, r"USB bus 1: /dev/video0 up to 18\.4 MB/s.*55\.3 MB/s, and 48\.0", "Motion-JPEG")]),
    ("nothing with a bus more", YUYV * 3 + "bus 2\n", "", [], []),
    ("only the camera that was named", TWINS + "refuse open EACCES\n", "", ["1234:abcd"], []),
    ("the named camera beside one that /dev lacks", TWINS + "refuse open ENOENT\n", "rm $UMOCKDEV_DIR/dev/video[23]; ",
     ["0"], []),
    ("one of two cameras that /dev lacks", TWINS + "refuse open ENOENT\n", "rm $UMOCKDEV_DIR/dev/video[23]; ", [],
     [("no-node", "/dev/video2", r"/dev/video2 \(Other\)", "/dev/video2|udevadm")]),
    ("damaged frames", YUYV + "damage-every 5\n", "", ["--capture"],
     [("damaged-frames", "/dev/video0", "of 30 frames in YUYV 640x480 .*, [4-7] are damaged", "cable")]),
    ("frames that stay away for a time", YUYV + "pause-after 8 1s\n", "", ["--capture"],
     [("slow-rate", "/dev/video0", r"YUYV 640x480 at 30 .* but 1\d\.\d came", "light")]),
    ("a silent camera", YUYV + "pause-after 0 60s\n", "", ["--capture"],
     [("no-frames", "/dev/video0", "no frame came in YUYV 640x480", "another port")]),
    ("a camera that is unplugged", SMALL + "unplug-after 8\n", "", ["--capture"],
     [("cannot-start", "/dev/video0", "unplugged", "dmesg")]),
]


class Doctor(Tool_Test):
    def run_after(self, description, shell, *words):
        """Runs the tool after shell commands that change the tree of devices."""
        with tempfile.NamedTemporaryFile("w", dir=self.folder) as file:
            file.write(description)
            file.flush()
            command = [tool_runner.LAUNCHER, "--description", file.name, "/bin/sh", "-c", shell + 'exec "$0" "$@"',
                       tool_runner.TOOL, *words]
            return subprocess.run(command, cwd=self.folder, text=True, capture_output=True, timeout=TIME_LIMIT,
                                  check=False)

    def test_each_finding_has_a_name_a_sentence_and_a_remedy(self):
        with ThreadPoolExecutor(6) as pool:  # some of them wait for frames
            results = pool.map(lambda case: self.run_after(case[1], case[2], "doctor", "--json", *case[3]), CASES)
        for (title, _, _, _, expected), result in zip(CASES, results):
            with self.subTest(title):
                self.assertEqual(result.stderr, "")
                findings = json.loads(result.stdout)["findings"]
                if expected:  # a busy machine loses frames beside what the case is about
                    findings = [finding for finding in findings if finding["id"] != "lost-frames"]
                self.assertEqual([finding["id"] for finding in findings], [each[0] for each in expected], findings)
                for finding, (_, camera, sentence, remedy) in zip(findings, expected):
                    self.assertEqual(finding["camera"], camera)
                    self.assertRegex(finding["sentence"], sentence)
                    self.assertRegex(finding["remedy"], remedy)
                self.assertEqual(result.returncode, 1 if expected else 0)

    def test_other_verbs_fail_with_the_same_sentences(self):
        starting = ("a busy camera", "a full bus", "a bus that fails")
        for title in ("no camera", "a camera without a driver", "a node that /dev lacks", "only metadata",
                      "no permission", *starting):
            _, description, shell, _, _ = next(case for case in CASES if case[0] == title)
            with ThreadPoolExecutor(4) as pool:
                doctor, listed, controls, capture = pool.map(
                    lambda words, d=description, s=shell: self.run_after(d, s, *words),
                    (("doctor", "--json"), ("list",), ("controls",), ("capture",)))
            finding = json.loads(doctor.stdout)["findings"][0]
            sentence = finding["sentence"] + " " + finding["remedy"] + "\n"
            with self.subTest(title):
                self.assertEqual((capture.returncode, capture.stderr), (1, "wqz-usbcam: " + sentence))
                self.assertEqual(sentence in controls.stderr, title not in starting)
                self.assertEqual(sentence in listed.stdout + listed.stderr, title not in starting)

    def test_frames_are_measured_in_each_format(self):
        for _ in range(5):  # a busy machine may lose frames
            start = time.monotonic()
            found = json.loads(self.run_after(SMALL, "", "doctor", "--capture", "--json").stdout)
            self.assertLess(time.monotonic() - start, TIME_LIMIT / 2)
            if not found["findings"]:
                break
        self.assertEqual(found["findings"], [])
        self.assertEqual([(c["camera"], c["format"], c["width"], c["asked_frames_per_second"], c["lost"], c["damaged"])
                          for c in found["captures"]],
                         [("/dev/video0", "MJPG", 320, 30, 0, 0), ("/dev/video0", "YUYV", 322, 30, 0, 0)])
        for capture in found["captures"]:
            self.assertEqual(capture["frames"], 30)
            self.assertAlmostEqual(capture["frames_per_second"], 30, delta=3)
            self.assertLess(capture["jitter_ms"], 20)

    def test_the_readme_shows_what_the_doctor_says(self):
        with open(os.path.join(ROOT, "README.md"), encoding="utf-8") as file:
            readme = file.read()
        quote = re.search(r"\$ (with-virtual-camera --description (\S+) wqz-usbcam doctor)\n(.*?)```", readme, re.S)
        description = re.search(r"\$ cat " + re.escape(quote[2]) + r"\n(.*?)\$ ", readme, re.S)[1]
        said = self.run_after(description, "", "doctor").stdout
        shown = quote[3][quote[3].index("/dev/video0  "):]
        self.assertEqual(said[said.index("/dev/video0  "):], shown)

    def test_the_documentation_lists_the_findings_that_are_tested(self):
        with open(os.path.join(ROOT, "docs", "doctor.md"), encoding="utf-8") as file:
            listed = re.findall(r"^\| `([a-z-]+)` \| [^|]* \| [^|]* \|$", file.read(), re.M)
        tested = {finding[0] for case in CASES for finding in case[4]}
        self.assertEqual(sorted(listed), sorted(tested | {"lost-frames"}))  # no virtual camera loses frames by itself

    def test_wrong_words_are_refused(self):
        for words in (["--captrue"], ["0", "1"], ["--json=maybe"]):
            self.run_tool(SMALL, "doctor", *words, status=2)


if __name__ == "__main__":
    main()
