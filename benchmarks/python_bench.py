#!/usr/bin/env python3
"""Measures the CPU time of a frame in Python: wqz_camera beside OpenCV and PyAV, on a virtual camera that is as fast as
its reader.

usage: python_bench.py LAUNCHER MODULE RESULTS [--benchmark_filter=REGEX]

Each measurement is a process of its own, so that no library keeps threads or memory for the next. Writes what
report.py reads: the medians of PROCESSES processes, whose order changes from round to round.
"""

import json
import os
import random
import re
import resource
import subprocess
import sys

NODE = "/dev/video0"
WARM_UP, FRAMES = 30, 300
PROCESSES = 7
SIZES = ((640, 480), (1920, 1080))
DESCRIPTION = "camera\nrate max\n" + "".join(
    "format %s\n" % format + "".join("  size %dx%d 30\n" % size for size in SIZES) for format in ("MJPG", "YUYV"))


def by_library(format, size, pixels):
    import wqz_camera
    camera = wqz_camera.Camera(NODE)
    camera.start(format, size, 30)
    for frame in camera.frames(timeout=5):
        yield frame.bgr() if pixels else memoryview(frame)


def by_opencv(format, size, pixels):
    import cv2
    capture = cv2.VideoCapture(NODE, cv2.CAP_V4L2)
    settings = {cv2.CAP_PROP_FOURCC: cv2.VideoWriter_fourcc(*format), cv2.CAP_PROP_FRAME_WIDTH: size[0],
                cv2.CAP_PROP_FRAME_HEIGHT: size[1], cv2.CAP_PROP_CONVERT_RGB: int(pixels)}
    for setting, value in settings.items():
        capture.set(setting, value)
    while True:
        yield capture.read()[1]


def by_pyav(format, size, pixels):
    import av
    av.logging.set_level(av.logging.ERROR)  # not the warning about the range of the camera's pixels
    options = {"input_format": {"MJPG": "mjpeg", "YUYV": "yuyv422"}[format], "video_size": "%dx%d" % size}
    container = av.open(NODE, format="v4l2", options=options)
    if not pixels:
        yield from container.demux(video=0)
    for frame in container.decode(video=0):
        yield frame.to_ndarray(format="bgr24")


READERS = {"wqz_camera": by_library, "opencv": by_opencv, "pyav": by_pyav}


def check(picture, format, size, pixels):
    """Fails unless the reader delivers what it is measured for."""
    if pixels:
        assert picture.shape == (size[1], size[0], 3), picture.shape
    else:
        least = size[0] * size[1] * 2 if format == "YUYV" else 5000
        data = bytes(picture)
        assert len(data) >= least and (format == "YUYV" or data[:2] == b"\xff\xd8"), len(data)


def cpu_seconds():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def measure(reader, format, width, height, pixels):
    """Prints the microseconds of CPU time per frame, of all threads of the process."""
    size, pixels = (int(width), int(height)), pixels == "True"
    frames = READERS[reader](format, size, pixels)
    for _ in range(WARM_UP):
        picture = next(frames)
    check(picture, format, size, pixels)
    del picture
    begin = cpu_seconds()
    for _ in range(FRAMES):
        next(frames)
    print((cpu_seconds() - begin) / FRAMES * 1e6)
    sys.stdout.flush()
    os._exit(0)  # without the end of the libraries, which is not measured


def name_of(pixels, format, size, reader):
    return "python-%s/%dx%d %s/%s" % ("bgr" if pixels else "frame", *size, format, reader)


def chosen_cases(options):
    filters = [option.partition("=")[2] for option in options if option.startswith("--benchmark_filter=")]
    cases = [(pixels, format, size, reader) for pixels in (False, True) for format in ("YUYV", "MJPG") for size in SIZES
             for reader in READERS]
    return [case for case in cases if all(re.search(filter, name_of(*case)) for filter in filters)]


def main(launcher, module, results, *options):
    environment = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.dirname(os.path.abspath(module))))
    cases = chosen_cases(options)
    runs = []
    for _ in range(PROCESSES):
        for case in random.sample(cases, len(cases)):
            pixels, format, size, reader = case
            words = [reader, format, *map(str, size), str(pixels)]
            output = subprocess.run([launcher, "--description", "-", sys.executable, __file__, "--measure", *words],
                                    input=DESCRIPTION, env=environment, text=True, stdout=subprocess.PIPE, check=True)
            runs.append({"run_name": name_of(*case), "run_type": "iteration", "family_index": cases.index(case),
                         "real_time": float(output.stdout), "time_unit": "us"})
    with open(results, "w", encoding="utf-8") as file:
        json.dump({"benchmarks": runs}, file)


if __name__ == "__main__":
    if sys.argv[1] == "--measure":
        measure(*sys.argv[2:])
    else:
        main(*sys.argv[1:])
