#!/usr/bin/env python3
"""Looks at every ELF file of built packages for the marks that hardening leaves, for scripts/package.

usage: hardening_test.py PACKAGES CRTI

PACKAGES is the folder of the .deb files, CRTI the start file crti.o of the system that built them.
"""

import fnmatch
import glob
import os
import re
import subprocess
import sys
import tempfile
import unittest

from elftools.elf.constants import P_FLAGS
from elftools.elf.elffile import ELFFile
from elftools.elf.enums import ENUM_DT_FLAGS

# Every ELF file, and what it imports: the stack protector, and functions of fortify where it calls any that have them.
EXPECTED = {
    "usr/lib/*/libWQZ_USBCam.so.[0-9]*": {"__stack_chk_fail", "__snprintf_chk"},
    "usr/lib/*/wqz-usbcam/libwqz-virtual-camera.so": {"__stack_chk_fail", "__snprintf_chk"},
    "usr/lib/python3/dist-packages/wqz_camera/*.so": {"__stack_chk_fail"},
    "usr/bin/wqz-usbcam": {"__stack_chk_fail", "__snprintf_chk"},
    "usr/bin/with-virtual-camera": {"__stack_chk_fail", "__snprintf_chk"},
}
# With fortify, calls of these become others, whatever their arguments are. vsnprintf is not among them, because
# std::to_string takes its address.
ALWAYS_FORTIFIED = {"printf", "fprintf", "dprintf", "sprintf", "snprintf", "vprintf", "vfprintf", "vsprintf"}
# What a function begins with that an indirect call may reach, and the name of the property that says so of the file.
LANDINGS = {"EM_X86_64": (b"\xf3\x0f\x1e\xfa",), "EM_AARCH64": (b"\x5f\x24\x03\xd5", b"\x3f\x23\x03\xd5")}
LEAST_LANDINGS = 10  # the start files have some without the flag
PROPERTIES = {"EM_X86_64": r"x86 feature: IBT, SHSTK", "EM_AARCH64": r"AArch64 feature: BTI, PAC"}


def has_property(path, machine):
    notes = subprocess.run(["readelf", "-nW", path], stdout=subprocess.PIPE, text=True, check=True).stdout
    return re.search(PROPERTIES[machine], notes) is not None


class File:
    """What the tests ask about an ELF file."""

    def __init__(self, path):
        with open(path, "rb") as stream:
            elf = ELFFile(stream)
            self.path = path
            self.machine = elf["e_machine"]
            self.type = elf["e_type"]
            self.segments = [(segment["p_type"], segment["p_flags"]) for segment in elf.iter_segments()]
            self.tags = {tag.entry.d_tag: tag.entry.d_val for tag in elf.get_section_by_name(".dynamic").iter_tags()}
            symbols = list(elf.get_section_by_name(".dynsym").iter_symbols())
            self.imports = {symbol.name for symbol in symbols if symbol["st_shndx"] == "SHN_UNDEF"}
            text = elf.get_section_by_name(".text")
            self.code = text.data()
            start = text["sh_addr"]
            functions = {symbol.name: symbol["st_value"] - start for symbol in symbols
                         if symbol["st_info"]["type"] == "STT_FUNC" and symbol["st_shndx"] != "SHN_UNDEF"}
            self.exports = {name: self.code[at:at + 4] for name, at in functions.items() if 0 <= at < len(self.code)}


class Hardening(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="hardening-test-")
        for package in glob.glob(os.path.join(PACKAGES, "*.deb")):
            subprocess.run(["dpkg-deb", "-x", package, cls.folder.name], check=True)
        cls.files = {}
        for folder, _, names in os.walk(cls.folder.name):
            paths = (os.path.join(folder, name) for name in names)
            for path in (path for path in paths if not os.path.islink(path)):
                with open(path, "rb") as file:
                    if file.read(4) == b"\x7fELF":
                        cls.files[os.path.relpath(path, cls.folder.name)] = File(path)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def check_each(self, check):
        for name, file in self.files.items():
            with self.subTest(name):
                check(name, file)

    def test_these_are_all_files_with_code(self):
        for pattern in EXPECTED:
            self.assertEqual(len(fnmatch.filter(self.files, pattern)), 1, pattern)
        self.assertEqual(len(self.files), len(EXPECTED), list(self.files))

    def test_relocations_are_read_only_before_the_program_runs(self):
        self.check_each(self.check_relocations)

    def check_relocations(self, _, file):
        flags = file.tags.get("DT_FLAGS", 0)
        self.assertIn("PT_GNU_RELRO", [kind for kind, _ in file.segments])
        self.assertTrue(flags & ENUM_DT_FLAGS["DF_BIND_NOW"] or "DT_BIND_NOW" in file.tags, "no immediate binding")
        self.assertFalse(flags & ENUM_DT_FLAGS["DF_TEXTREL"] or "DT_TEXTREL" in file.tags, "relocations in the code")

    def test_code_can_be_anywhere_and_stacks_hold_none(self):
        self.check_each(self.check_places)

    def check_places(self, _, file):
        self.assertEqual(file.type, "ET_DYN")
        stack, = [flags for kind, flags in file.segments if kind == "PT_GNU_STACK"]
        self.assertFalse(stack & P_FLAGS.PF_X, "code on the stack")
        self.assertFalse({"DT_RPATH", "DT_RUNPATH"} & set(file.tags), "libraries from other folders")

    def test_stacks_are_protected_and_calls_are_fortified(self):
        self.check_each(self.check_calls)

    def check_calls(self, name, file):
        wanted, = [wanted for pattern, wanted in EXPECTED.items() if fnmatch.fnmatch(name, pattern)]
        self.assertEqual(wanted - file.imports, set(), "not called")
        self.assertEqual(file.imports & ALWAYS_FORTIFIED, set(), "not fortified")

    def test_indirect_calls_can_be_checked(self):
        self.check_each(self.check_landings)

    def check_landings(self, _, file):
        landings = LANDINGS.get(file.machine)
        if landings is None:
            return  # the processor has no such check
        self.assertGreater(sum(file.code.count(landing) for landing in landings), LEAST_LANDINGS)
        self.assertEqual([name for name, start in file.exports.items() if start not in landings], [])
        # The linker says so of a file only when all its parts do, and Debian 12's start files do not.
        if has_property(CRTI, file.machine):
            self.assertTrue(has_property(file.path, file.machine), "not marked")


if __name__ == "__main__":
    PACKAGES, CRTI = sys.argv[1:]
    unittest.main(argv=sys.argv[:1], verbosity=2)
