#!/usr/bin/env python3
"""Measures the live picture beside ustreamer: CPU time of the server per frame and viewer.

usage: preview_bench.py TOOL LAUNCHER [--repetitions N] [--seconds S]

Both serve the same virtual camera in a process of its own, so the camera's work is part of both. Both encode with a
quality of 80 where they encode. The viewers are the same for both, and their CPU time is not counted. The repetitions
alternate, so that other load on the machine affects both alike. The exit status is 1 when a goal is missed.
"""

import argparse
import http.client
import json
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

GOAL = 1.0  # of ustreamer's time
QUALITY = "80"
WARM_UP = 1.0  # seconds until all viewers get frames
START_LIMIT = 10.0

# Format, width, height, frames per second, viewers.
CASES = (
    ("MJPG", 1280, 720, 30, 1),
    ("MJPG", 1280, 720, 30, 4),
    ("YUYV", 640, 480, 30, 1),
    ("YUYV", 640, 480, 30, 4),
)


class Viewer(threading.Thread):
    """Reads a multipart stream and counts its parts."""

    def __init__(self, port, path):
        super().__init__(daemon=True)
        self.frames = 0
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=START_LIMIT)
        self.connection.request("GET", path)
        self.answer = self.connection.getresponse()
        if self.answer.status != 200:
            raise RuntimeError(self.answer.read())

    def run(self):
        buffer = memoryview(bytearray(4 << 20))
        try:
            while True:
                length = self.part_length()
                got = 0
                while got < length:
                    count = self.answer.readinto(buffer[: length - got])
                    if not count:
                        return
                    got += count
                self.frames += 1
        except (OSError, ValueError, AttributeError):
            return  # the server has ended

    def part_length(self):
        while True:
            line = self.answer.readline()
            if not line:
                raise OSError("the stream has ended")
            if line.lower().startswith(b"content-length:"):
                length = int(line.split(b":")[1])
            elif line == b"\r\n" and "length" in locals():
                return length


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def cpu_seconds(pid):
    """CPU time of a whole process, to the nanosecond: its clock as in <linux/posix-timers.h>."""
    return time.clock_gettime((~pid << 3) | 2)


def served_pid(launcher):
    """The process that the launcher started."""
    children = pathlib.Path(f"/proc/{launcher}/task/{launcher}/children").read_text(encoding="ascii").split()
    return int(children[0]) if children else launcher


def wait_for(port):
    deadline = time.monotonic() + START_LIMIT
    while True:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.05)


def ustreamer(case, port):
    form, width, height, rate, _ = case
    encoder = ["--format", "MJPEG", "--encoder", "HW"] if form == "MJPG" else ["--format", "YUYV", "--encoder", "CPU"]
    return ["ustreamer", "--device", "/dev/video0", *encoder, "--resolution", f"{width}x{height}",
            "--desired-fps", str(rate), "--quality", QUALITY, "--port", str(port), "--log-level", "0"]


def preview(tool, port):
    return [tool, "preview", "--port", str(port)]


def choose_mode(case, port):
    form, width, height, rate, _ = case
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=START_LIMIT)
    wanted = {"format": form, "width": width, "height": height, "rate": str(rate)}
    connection.request("POST", "/api/mode", json.dumps(wanted), {"Content-Type": "application/json"})
    answer = connection.getresponse()
    if answer.status != 200:
        raise RuntimeError(answer.read())


def measure(launcher, server, case, seconds, tool):
    """Microseconds of CPU time per frame and viewer, and the frames per second that a viewer got."""
    form, width, height, rate, count = case
    with tempfile.NamedTemporaryFile("w", suffix=".cameras") as description:
        description.write(f"camera\nformat {form}\n  size {width}x{height} {rate}\n")
        description.flush()
        port = free_port()
        words = ustreamer(case, port) if server == "ustreamer" else preview(tool, port)
        with subprocess.Popen([launcher, "--description", description.name, *words], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as process:
            try:
                wait_for(port)
                if server == "preview":
                    choose_mode(case, port)
                viewers = [Viewer(port, "/stream") for _ in range(count)]
                for viewer in viewers:
                    viewer.start()
                time.sleep(WARM_UP)
                pid = served_pid(process.pid)
                frames, cpu = sum(viewer.frames for viewer in viewers), cpu_seconds(pid)
                start = time.monotonic()
                time.sleep(seconds)
                cpu = cpu_seconds(pid) - cpu
                frames = sum(viewer.frames for viewer in viewers) - frames
                took = time.monotonic() - start
            finally:
                process.send_signal(signal.SIGTERM)
    if frames == 0:
        raise RuntimeError(f"{server} delivered no frame of {case}")
    return cpu / frames * 1e6, frames / count / took


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("launcher")
    parser.add_argument("--repetitions", type=int, default=7)
    parser.add_argument("--seconds", type=float, default=4)
    options = parser.parse_args()
    print("| microseconds of CPU time per frame and viewer | preview | ustreamer | ratio | goal |")
    print("| --- | ---: | ---: | ---: | --- |")
    met = True
    for case in CASES:
        results = {"preview": [], "ustreamer": []}
        for _ in range(options.repetitions):
            for server, list_ in results.items():
                list_.append(measure(options.launcher, server, case, options.seconds, options.tool))
        medians = {server: statistics.median(cpu for cpu, _ in list_) for server, list_ in results.items()}
        rates = {server: statistics.median(rate for _, rate in list_) for server, list_ in results.items()}
        ratio = statistics.median(ours[0] / theirs[0] for ours, theirs in zip(*results.values()))
        met = met and ratio <= GOAL
        form, width, height, rate, count = case
        name = f"{width}x{height} {form} at {rate} per second, {count} viewer{'s' if count > 1 else ''}"
        print(f"| {name} | {medians['preview']:.0f} | {medians['ustreamer']:.0f} | {ratio:.2f} | "
              f"{'met' if ratio <= GOAL else 'MISSED'} |")
        print(f"{name}: {rates['preview']:.1f} and {rates['ustreamer']:.1f} frames per second arrived", file=sys.stderr)
    return 0 if met else 1


if __name__ == "__main__":
    sys.exit(main())
