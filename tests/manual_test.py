#!/usr/bin/env python3
"""Checks the manual pages: their markup, that nothing is missing from them, and that their examples work.

usage: manual_test.py SOURCE_DIR LIBRARY LAUNCHER TOOL [unittest arguments]
"""

import glob
import os
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = LIBRARY = LAUNCHER = TOOL = ""
TIME_LIMIT = 60  # seconds for one command


def run(*command, **options):
    return subprocess.run(command, text=True, capture_output=True, timeout=TIME_LIMIT, check=False, **options)


def markup(page):
    with open(os.path.join(SOURCE, "docs", "man", page), encoding="utf-8") as file:
        return file.read()


def shown(page):
    """The page as a reader sees it, with one space between words."""
    result = run("mandoc", "-T", "utf8", os.path.join(SOURCE, "docs", "man", page))
    return re.sub(r"\s+", " ", re.sub(".\b", "", result.stdout).replace("\u2010", ""))


class Manual(unittest.TestCase):
    def test_markup_is_clean(self):
        pages = glob.glob(os.path.join(SOURCE, "docs", "man", "*.[13]"))
        self.assertEqual(len(pages), 4)
        for page in pages:
            with self.subTest(page):
                self.assertEqual(run("mandoc", "-T", "lint", "-W", "warning", page).stdout, "")
                formatted = run("man", "--warnings", "-l", page, env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8"})
                self.assertEqual((formatted.returncode, formatted.stderr), (0, ""))

    def test_pages_name_every_verb_and_option_and_no_other(self):
        listing = run(TOOL, "--help").stdout
        verbs = re.findall(r"^  (\w+) {2,}", listing.split("Subcommands:")[1], re.M)
        helps = [run(TOOL, verb, "--help").stdout for verb in verbs]
        # A description may name options too, so only the names in front of it count.
        options = set(re.findall(r"^  (?:-\w,)?(--[\w-]+)", "\n".join([listing, *helps]), re.M))
        page = shown("wqz-usbcam.1")
        self.assertGreater(len(verbs), 3)
        for verb in verbs:
            self.assertRegex(markup("wqz-usbcam.1"), r"(?m)^\.It Cm %s$" % verb)
        examples = page.index("EXAMPLES")
        self.assertEqual(set(re.findall(r"(?<![\w-])--[a-z][\w-]*", page[:examples])), options)

        options = set(re.findall(r"^  (--[\w-]+)", run(LAUNCHER, "--help").stdout, re.M))
        page = shown("with-virtual-camera.1")
        self.assertEqual(set(re.findall(r"(?<![\w-])--[a-z][\w-]*", page[:page.index("EXAMPLES")])), options)

    def test_pages_show_every_function_as_the_header_declares_it(self):
        for page, header in (("wqz-camera.3", "Camera/wqz_camera.h"), ("wqz-usbcam.3", "USBCam_API/USBCam_API.h")):
            with open(os.path.join(SOURCE, "include", header), encoding="utf-8") as file:
                text = re.sub(r"\s+", " ", re.sub(r"//.*", "", file.read()))
            declared = re.findall(r"WQZ_USBCAM_EXPORT ([\w ]+\**) (WQZ_\w+\([^)]*\);)", text)
            synopsis = shown(page).split("SYNOPSIS")[1].split("DESCRIPTION")[0]
            with self.subTest(page):
                self.assertGreater(len(declared), 10)
                self.assertEqual([" ".join(words) for words in declared],
                                 re.findall(r"((?:const )?\w+\** WQZ_\w+\([^)]*\);)", synopsis))

    def test_commands_of_the_examples_work(self):
        lines = re.findall(r"^\.Dl (wqz-usbcam .*)$", markup("wqz-usbcam.1"), re.M)
        self.assertGreater(len(lines), 2)
        for line in lines:
            with self.subTest(line), tempfile.TemporaryDirectory() as folder:
                line = line.replace(r"\(dq", '"').replace("wqz-usbcam", TOOL, 1)
                self.assertEqual(run(LAUNCHER, "bash", "-c", line, cwd=folder).returncode, 0)
        lines = re.findall(r"^with-virtual-camera .*$", markup("with-virtual-camera.1"), re.M)
        self.assertEqual(len(lines), 3)
        for line, sentence in zip(lines, ("30 frames", "unplugged", "may not open")):
            with self.subTest(line), tempfile.TemporaryDirectory() as folder:
                line = line.replace("with-virtual-camera", LAUNCHER).replace("wqz-usbcam", TOOL)
                result = run("bash", "-c", line, cwd=folder)
                self.assertIn(sentence, result.stdout + result.stderr)

    def test_programs_of_the_examples_work(self):
        for page, worked in (("wqz-camera.3", "frame.width == 640 && frame.data == NULL"),
                             ("wqz-usbcam.3", "count == 1")):
            code = re.search(r"^\.Bd -literal.*?\n(#include .*?)\n(.*?)^\.Ed", markup(page), re.M | re.S)
            body = code[2].replace(r"\e", "\\")
            with self.subTest(page), tempfile.TemporaryDirectory() as folder:
                source = os.path.join(folder, "example.c")
                with open(source, "w", encoding="ascii") as file:
                    file.write("%s\n#include <stdio.h>\nint main(void)\n{\n%s\nreturn !(%s);\n}\n" % (code[1], body, worked))
                program = os.path.join(folder, "example")
                built = run("cc", "-std=c99", "-Wall", "-Wextra", "-Wno-missing-field-initializers", "-Werror",
                            "-I" + os.path.join(SOURCE, "include"), source, LIBRARY,
                            "-Wl,-rpath," + os.path.dirname(LIBRARY), "-o", program)
                self.assertEqual(built.returncode, 0, built.stderr)
                self.assertEqual(run(LAUNCHER, program).returncode, 0)


if __name__ == "__main__":
    SOURCE, LIBRARY, LAUNCHER, TOOL = map(os.path.abspath, sys.argv[1:5])
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
