#!/usr/bin/env python3
"""Runs the tests of the Python package, tests/python, on virtual cameras.

usage: python_test.py LAUNCHER MODULE [pytest arguments]
"""

import os
import subprocess
import sys
import tempfile

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "python")
sys.path.insert(0, FOLDER)
from cameras import DESCRIPTION  # pylint: disable=wrong-import-position


def main(launcher, module, *words):
    packages = os.path.dirname(os.path.dirname(os.path.abspath(module)))
    environment = dict(os.environ, PYTHONPATH=packages, PYTHONDONTWRITEBYTECODE="1")
    with tempfile.TemporaryDirectory(prefix="python-test-") as folder:
        path = os.path.join(folder, "cameras")
        with open(path, "w", encoding="ascii") as file:
            file.write(DESCRIPTION)
        tests = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-o", "faulthandler_timeout=60", *words, FOLDER]
        return subprocess.call([os.path.abspath(launcher), "--description", path, *tests], env=environment, cwd=folder)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
