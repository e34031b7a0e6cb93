#!/usr/bin/env python3
"""Averages thirty frames of a camera and saves the picture for NumPy. Usage: capture.py [CAMERA]"""

import itertools
import sys

import numpy
import wqz_camera


def average(camera, count):
    """The mean of so many pictures, which has less noise than one."""
    width, height = camera.start("YUYV", (640, 480), fps=30, exact=True, skip=5).size
    total = numpy.zeros((height, width, 3), numpy.uint32)
    picture = numpy.empty((height, width, 3), numpy.uint8)
    for frame in itertools.islice(camera.frames(timeout=5), count):
        total += frame.bgr(out=picture)
    return (total // count).astype(numpy.uint8)


def main(name=""):
    with wqz_camera.Camera(name) as camera:
        picture = average(camera, 30)
        counters = camera.counters()
    numpy.save("picture.npy", picture)
    print(f"{picture.shape[1]}x{picture.shape[0]}, {counters.lost} frames lost: saved as picture.npy")


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except OSError as error:
        sys.exit(error.strerror)
