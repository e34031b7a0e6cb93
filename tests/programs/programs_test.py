#!/usr/bin/env python3
"""Runs programs that people use on the virtual camera, and looks at what they make of it.

usage: programs_test.py LAUNCHER [CHECK...]

Prints a line for each check and ends with "N passed, N failed".
"""

import contextlib
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import traceback
import urllib.request
from pathlib import Path

import browser
from test_card import colour_faults, jpeg_number, split_jpegs, yuyv_number

LAUNCHER = ""
FOLDER = Path()
TESTS = Path(__file__).resolve().parent.parent
NODE = "/dev/video0"
METADATA_NODE = "/dev/video1"
LINK = "/dev/v4l/by-id/usb-WQZ_Virtual_Camera_0001-video-index0"
CARD = "Virtual Camera"
WIDTH, HEIGHT, FRAMES = 640, 480, 20
SIZE = "%dx%d" % (WIDTH, HEIGHT)
YUYV_BYTES = WIDTH * HEIGHT * 2
TIME_LIMIT = 60  # seconds for one program
CHECKS = []


class Fault(Exception):
    """What a check found wrong."""


def check(function):
    CHECKS.append(function)
    return function


def expect(condition, message):
    if not condition:
        raise Fault(message)


def run(*command, options=(), status=0, text=True):
    """Runs a program on the virtual camera; returns what it printed, as one text or as bytes."""
    result = subprocess.run([LAUNCHER, *options, *command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT if text else subprocess.PIPE, timeout=TIME_LIMIT, check=False)
    output = result.stdout.decode(errors="replace") if text else result.stdout
    if result.returncode != status:
        shown = output if text else result.stderr.decode(errors="replace")
        raise Fault("%s ended with status %d:\n%s" % (command[0], result.returncode, shown[-2000:]))
    return output


@contextlib.contextmanager
def started(*command):
    """A program in the background, in a process group of its own, which is ended with the block."""
    with open(FOLDER / "background.log", "wb") as log:
        process = subprocess.Popen([LAUNCHER, *command], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                   start_new_session=True)
    try:
        yield process
    finally:
        for number in (signal.SIGTERM, signal.SIGKILL):
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, number)
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(10)


def to_rgb(path, *input_options):
    """The pictures in a file as ffmpeg shows them, one string of red-green-blue bytes."""
    command = ["ffmpeg", "-v", "error", "-xerror", *input_options, "-i", str(path), "-f", "rawvideo", "-pix_fmt", "rgb24", "-"]
    result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=TIME_LIMIT, check=False)
    expect(result.returncode == 0 and not result.stderr, "not decoded: " + result.stderr.decode(errors="replace")[-500:])
    return result.stdout


def expect_card(pixels, width=WIDTH, height=HEIGHT, count=1):
    expect(len(pixels) == width * height * 3 * count,
           "%d bytes of pixels instead of %d pictures of %dx%d" % (len(pixels), count, width, height))
    for number in range(count):
        faults = colour_faults(pixels[number * width * height * 3:][:width * height * 3], width, height)
        expect(not faults, "picture %d: %s" % (number + 1, "; ".join(faults)))


def expect_numbers(numbers, count=FRAMES):
    """All frames in order; the first ones may have passed before the program looked."""
    expect(len(numbers) == count, "%d frames instead of %d" % (len(numbers), count))
    expect(None not in numbers and numbers == list(range(numbers[0], numbers[0] + count)), "frames %s" % numbers)


def expect_yuyv_stream(path, count=FRAMES):
    data = path.read_bytes()
    expect(len(data) == count * YUYV_BYTES, "%d bytes instead of %d frames of %s" % (len(data), count, SIZE))
    expect_numbers([yuyv_number(data[start:start + 256]) for start in range(0, len(data), YUYV_BYTES)], count)
    raw = ("-f", "rawvideo", "-pix_fmt", "yuyv422", "-video_size", SIZE)
    expect_card(to_rgb(path, *raw), count=count)


def expect_jpeg_stream(path, count=FRAMES):
    expect_numbers([jpeg_number(frame) for frame in split_jpegs(path.read_bytes())], count)
    expect_card(to_rgb(path, "-f", "mjpeg"), count=count)


@check
def v4l2_ctl_lists():
    listing = run("v4l2-ctl", "--list-devices", options=("--cameras", "2", "--non-usb"))
    nodes = re.findall(r"^\t(/dev/video\d)$", listing, re.M)
    expect(sorted(nodes) == ["/dev/video%d" % i for i in range(5)], listing)
    formats = run("v4l2-ctl", "-d", LINK, "--list-formats-ext")
    expect(re.findall(r"'(\w{4})'", formats) == ["MJPG", "YUYV", "GREY"] and "0.033s (30.000 fps)" in formats, formats)
    return "5 nodes, 3 formats"


@check
def v4l2_ctl_streams():
    target = FOLDER / "v4l2-ctl.raw"
    for fourcc, expect_stream in (("YUYV", expect_yuyv_stream), ("MJPG", expect_jpeg_stream)):
        run("v4l2-ctl", "-d", NODE, "--set-fmt-video=width=%d,height=%d,pixelformat=%s" % (WIDTH, HEIGHT, fourcc),
            "--stream-mmap", "--stream-count=%d" % FRAMES, "--stream-to=%s" % target)
        expect_stream(target)
    return "%d frames of YUYV and MJPG" % FRAMES


def compliance(node, option):
    """What v4l2-compliance says of a node: the number of tests, and the names of those that failed."""
    result = subprocess.run([LAUNCHER, "--non-usb", "v4l2-compliance", "-d", node, option], stdin=subprocess.DEVNULL,
                            capture_output=True, text=True, errors="replace", timeout=TIME_LIMIT, check=False)
    total = re.search(r"^Total for .*: (\d+), Succeeded: (\d+), Failed: (\d+)", result.stdout, re.M)
    expect(total, "no total:\n" + result.stdout[-2000:])
    failed = re.findall(r"^\s*test (.*): FAIL$", result.stdout, re.M)
    expect(len(failed) == int(total[3]), "%d failures are listed, %s counted" % (len(failed), total[3]))
    return int(total[1]), failed


@check
def v4l2_compliance():
    """Finds a capture node as it finds a camera of the kernel's UVC driver, test by test.

    The list is that of version 1.22.1; of another version only the failures are compared. On the node for metadata
    neither comes to an end when it streams.
    """
    if "1.22.1" in run("v4l2-compliance", "--version"):
        for node in (NODE, "/dev/video2"):
            run(str(TESTS / "compliance_test.sh"), str(TESTS / "compliance_expected.txt"), node, options=("--non-usb",))
    capture = {"VIDIOC_G/S_CTRL", "VIDIOC_G/S/TRY_EXT_CTRLS", "MMAP (no poll)", "MMAP (select)", "MMAP (epoll)"}
    counts = []
    for node, option, expected in ((NODE, "-s", capture), ("/dev/video2", "-s", capture),
                                   (METADATA_NODE, "-v", {"VIDIOC_G/S/ENUMINPUT"})):
        count, failed = compliance(node, option)
        expect(count > 40, "only %d tests of %s" % (count, node))
        expect(set(failed) == expected, "%s: fails %s" % (node, sorted(failed)))
        counts.append("%d of %d" % (count - len(failed), count))
    return ", ".join(counts)


@check
def ffmpeg_captures():
    for format_name, codec, suffix, expect_stream in (("yuyv422", "rawvideo", "yuv", expect_yuyv_stream),
                                                      ("mjpeg", "mjpeg", "mjpeg", expect_jpeg_stream)):
        target = FOLDER / ("ffmpeg." + suffix)
        run("ffmpeg", "-v", "error", "-y", "-f", "v4l2", "-input_format", format_name, "-video_size", SIZE, "-framerate", "30",
            "-i", NODE, "-frames:v", str(FRAMES), "-c:v", "copy", "-f", codec, str(target))
        expect_stream(target)
    return "%d frames of YUYV and MJPG, decoded" % FRAMES


@check
def gst_device_monitor():
    found = run("gst-device-monitor-1.0", "Video/Source", options=("--cameras", "2"))
    expect(found.count("Device found:") == 2, found)
    for line in (CARD, "device.path = /dev/video2", "device.product.id = 0102", "device.capabilities = :capture:",
                 "device.serial = WQZ_Virtual_Camera_0002"):
        expect(line in found, "no '%s' in:\n%s" % (line, found))
    return "2 cameras with their properties"


@check
def gst_v4l2src():
    raw, pictures = FOLDER / "gst.yuv", FOLDER / "gst.rgb"
    run("gst-launch-1.0", "-q", "v4l2src", "device=" + LINK, "num-buffers=%d" % FRAMES, "!",
        "video/x-raw,format=YUY2,width=%d,height=%d,framerate=30/1" % (WIDTH, HEIGHT), "!", "filesink", "location=%s" % raw)
    expect_yuyv_stream(raw)
    run("gst-launch-1.0", "-q", "v4l2src", "device=" + NODE, "num-buffers=%d" % FRAMES, "!",
        "image/jpeg,width=%d,height=%d" % (WIDTH, HEIGHT), "!", "jpegdec", "!", "videoconvert", "!", "video/x-raw,format=RGB",
        "!", "filesink", "location=%s" % pictures)
    expect_card(pictures.read_bytes(), count=FRAMES)
    return "%d frames of YUYV and MJPG" % FRAMES


@check
def opencv_captures():
    script = """
import cv2, sys
for name in ("YUYV", "MJPG"):
    camera = cv2.VideoCapture(0, cv2.CAP_V4L2)
    camera.set(cv2.CAP_PROP_FOURCC, cv2.VideoWriter_fourcc(*name))
    camera.set(cv2.CAP_PROP_FRAME_WIDTH, 640)
    camera.set(cv2.CAP_PROP_FRAME_HEIGHT, 480)
    for i in range(int(sys.argv[1])):
        good, picture = camera.read()
        assert good, (name, i)
        sys.stdout.buffer.write(cv2.cvtColor(picture, cv2.COLOR_BGR2RGB).tobytes())
    camera.release()
"""
    expect_card(run("/usr/bin/python3", "-c", script, str(FRAMES), text=False), count=2 * FRAMES)
    return "%d frames of YUYV and MJPG" % FRAMES


@check
def opencv_probes():
    script = """
import cv2
print("open:", [i for i in range(64) if cv2.VideoCapture(i).isOpened()])
"""
    output = run("/usr/bin/python3", "-c", script, options=("--cameras", "2"))
    expect("open: [0, 2]\n" in output, output)
    return "64 numbers, 2 cameras"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@check
def ustreamer_serves():
    port, picture = free_port(), FOLDER / "snapshot.jpg"
    with started("ustreamer", "--device", NODE, "--host", "127.0.0.1", "--port", str(port), "--resolution", SIZE,
                 "--format", "MJPEG"):
        deadline = time.monotonic() + TIME_LIMIT
        while True:
            try:
                with urllib.request.urlopen("http://127.0.0.1:%d/snapshot" % port, timeout=10) as answer:
                    online = answer.headers.get("X-UStreamer-Online") == "true"
                    picture.write_bytes(answer.read())
                if online:
                    break
            except OSError:
                pass  # it does not listen yet
            expect(time.monotonic() < deadline, "no snapshot:\n" + (FOLDER / "background.log").read_text()[-2000:])
            time.sleep(0.2)
    expect_card(to_rgb(picture))
    return "a snapshot"


@check
def chromium_page():
    try:
        label, pictures = browser.pictures_of_page(lambda options: started("chromium", *options), TIME_LIMIT)
    except RuntimeError as error:
        raise Fault("%s\n%s" % (error, (FOLDER / "background.log").read_text(errors="replace")[-2000:])) from None
    expect(label.startswith(CARD), "the camera's name is " + label)
    expect(len(pictures) == 2, "%d pictures" % len(pictures))
    for pixels, width, height in pictures:
        expect_card(pixels, width, height)
    expect(pictures[0] != pictures[1], "the picture does not move")
    return "2 pictures in a page"


@check
def commands_of_the_documentation():
    """Runs the commands of the tool in the README, and those in docs/virtual-camera.md with the tool as their command.

    What the preview's commands do is tested with the preview.
    """
    os.environ["PATH"] = "%s:%s" % (Path(LAUNCHER).parent.parent / "tools", os.environ["PATH"])
    readme = (TESTS.parent / "README.md").read_text(encoding="utf-8")
    commands = re.findall(r"^    (wqz-usbcam (?!preview).*?)(?: +#.*)?$", readme, re.M)
    expect(len(commands) == 8, "the README has other commands: %s" % commands)
    for command in commands:
        command = command.replace("--seconds 10", "--seconds 1").replace(" -o -", " --frames 5 -o -")
        run("bash", "-o", "pipefail", "-c", "cd '%s' && %s" % (FOLDER, command))
    expect_card(to_rgb(FOLDER / "picture.jpg"), 1920, 1080)
    expect(len(to_rgb(FOLDER / "video.mkv")) == 5 * 1920 * 1080 * 3, "not 5 pictures in the video")
    expect(any(FOLDER.glob("pictures/*.bmp")), "no pictures of one second")

    page = (TESTS.parent / "docs" / "virtual-camera.md").read_text(encoding="utf-8")
    lines = re.findall(r"^ *with-virtual-camera (.*?)(?: +#.*)?$", page, re.M)
    said = (CARD, "Driver name", "unplugged", "", "captured", "unplugged", "may not open")
    expect(len(lines) == len(said), "docs/virtual-camera.md has other commands: %s" % lines)
    for line, sentence in zip(lines, said):
        capture = "wqz-usbcam capture --seconds %d -o %s" % (5 if "90" in line else 2, FOLDER)
        words = re.sub(r"COMMAND\.\.\.|\./camera-test.*", capture, line).split()
        fails = "--unplug-after" in words or "--refuse" in words
        expect(sentence in run(*words, status=int(fails)), "%s does not say '%s'" % (line, sentence))
    return "%d commands" % (len(commands) + len(lines))


def count_result(function):
    name, begin = function.__name__.replace("_", " "), time.monotonic()
    try:
        found = function()
    except (Fault, subprocess.TimeoutExpired, OSError) as error:
        print("FAILED: %s: %s" % (name, error), flush=True)
        return False
    except Exception:  # a fault of the check itself must not hide the others
        print("FAILED: %s:\n%s" % (name, traceback.format_exc()), flush=True)
        return False
    print("passed: %s: %s (%.1f s)" % (name, found, time.monotonic() - begin), flush=True)
    return True


def main():
    global LAUNCHER, FOLDER
    LAUNCHER = os.path.abspath(sys.argv[1])
    chosen = [function for function in CHECKS if not sys.argv[2:] or function.__name__ in sys.argv[2:]]
    with tempfile.TemporaryDirectory(prefix="programs-test-", ignore_cleanup_errors=True) as folder:
        FOLDER = Path(folder)
        os.environ["HOME"] = os.environ["TMPDIR"] = folder  # programs leave files behind, and some users have no home
        results = [count_result(function) for function in chosen]
    print("\n%d passed, %d failed" % (sum(results), len(results) - sum(results)))
    return 0 if results and all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
