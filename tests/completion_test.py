#!/usr/bin/env python3
"""Presses Tab: asks the completions of bash and zsh what may follow a command line.

usage: completion_test.py COMPLETION_DIR LAUNCHER TOOL [unittest arguments]
"""

import os
import subprocess
import sys
import unittest

SCRIPTS = LAUNCHER = TOOL = ""

# What the shell would do, with its own calls replaced by a print of the candidates.
IN_BASH = """
compopt() { echo "(compopt $*)"; }
source "$1/wqz-usbcam.bash"
COMP_LINE="$2 $3" COMP_POINT=$((${#2} + 1 + ${#3}))
_wqz_usbcam
printf '%s\\n' "${COMPREPLY[@]}"
"""
IN_ZSH = """
compadd() {
    [[ $1 != -S ]] || print -r -- "(compopt -o nospace)"
    print -rl -- "${(P@)@[-1]}"
}
_files() { print -r -- "(compopt -o default)"; }
tab() { source "$scripts/_wqz-usbcam"; }
scripts=$1
words=("$2" "${(@s: :)3}")
CURRENT=$#words
tab
"""

TWO = "camera First\n  serial A1\ncamera Second\n  serial B2\nformat YUYV\n  size 800x600 30\n"


class Completion(unittest.TestCase):
    def tab(self, typed, description="camera\n"):
        """What both shells offer, which must be the same. bash gets what stands behind the last colon only."""
        offers = []
        for shell in (["bash", "-c", IN_BASH], ["zsh", "-f", "-c", IN_ZSH]):
            result = subprocess.run([LAUNCHER, "--description", "-", *shell, "shell", SCRIPTS, TOOL, typed], text=True,
                                    input=description, capture_output=True, timeout=60, check=False)
            self.assertEqual(result.stderr, "")
            offers.append(sorted(set(filter(None, result.stdout.splitlines()))))
        if ":" not in typed.split(" ")[-1]:
            self.assertEqual(*offers)
        return offers[0]

    def test_verbs_and_options(self):
        self.assertEqual(self.tab("cap"), ["capture"])
        self.assertLess({"list", "modes", "controls", "capture", "--help"}, set(self.tab("")))
        self.assertEqual(self.tab("capture --f"), ["--format", "--fps", "--frames"])
        self.assertEqual(self.tab("capture --format YUYV --re"), ["--reconnect"])
        self.assertEqual(self.tab("nonsense "), [])

    def test_cameras(self):
        offers = ["/dev/video0", "/dev/video2", "1d6b:0102:A1", "1d6b:0102:B2"]
        for typed in ("modes ", "capture --seconds 5 ", "capture --raw "):
            with self.subTest(typed):
                self.assertEqual(self.tab(typed, TWO), offers)
        self.assertEqual(self.tab("modes 1d6b:0102:B", TWO), ["B2"])
        self.assertEqual(self.tab("modes /dev/video0 ", TWO), [])

    def test_values(self):
        self.assertEqual(self.tab("capture --format Y"), ["YUYV"])
        self.assertEqual(self.tab("capture /dev/video2 --size ", TWO), ["800x600"])
        self.assertEqual(self.tab("capture --output "), ["(compopt -o default)"])
        self.assertEqual(self.tab("controls bri"), ["(compopt -o nospace)", "brightness="])
        self.assertEqual(self.tab("controls /dev/video2 res", TWO), ["reset"])


if __name__ == "__main__":
    SCRIPTS, LAUNCHER, TOOL = map(os.path.abspath, sys.argv[1:4])
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
