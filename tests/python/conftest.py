"""What the tests of the Python package share."""

import os
import subprocess
import sys

import pytest
from cameras import LEAVING, PLAIN

import wqz_camera

TIME_LIMIT = 30  # seconds for what must end long before
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

sys.path.insert(0, os.path.join(ROOT, "tests", "programs"))
unused = list(LEAVING)


@pytest.fixture
def streaming():
    """Opens and starts a camera: streaming(PLAIN, "YUYV"). It is closed after the test."""
    opened = []

    def start(name=PLAIN, format="MJPG", size=(640, 480), **options):
        opened.append(wqz_camera.Camera(name))
        opened[-1].start(format, size, **options)
        return opened[-1]

    yield start
    for camera in opened:
        camera.close()


@pytest.fixture
def leaving():
    """Names cameras that leave after five frames: leaving()."""
    return lambda: unused.pop(0)


def run_python(*words, status=0, **options):
    """Runs Python in a process of its own, which sees the same cameras anew."""
    result = subprocess.run([sys.executable, *words], text=True, capture_output=True, timeout=TIME_LIMIT, check=False,
                            **options)
    assert result.returncode == status, result.stdout + result.stderr
    return result
