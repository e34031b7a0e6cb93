#!/usr/bin/env python3
"""Runs commands under with-virtual-camera: what reaches them, what they see of the cameras, and how they end.

usage: launcher_test.py LAUNCHER OBJECT [unittest arguments]
"""

import json
import os
import pwd
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

LAUNCHER = OBJECT = ""
TIME_LIMIT = 60  # seconds for one command
NOT_PRELOADED = b"nothing can be preloaded"

# Looks at cameras as programs do, through libudev and the nodes, and prints it as JSON; bytes as in Latin-1.
LOOK = r"""
import ctypes, fcntl, json, os
udev = ctypes.CDLL("libudev.so.1")
for name in ("new", "device_new_from_subsystem_sysname", "device_get_property_value", "device_get_sysattr_value"):
    getattr(udev, "udev_" + name).restype = ctypes.c_char_p if name.endswith("value") else ctypes.c_void_p
def text(data):
    return None if data is None else data.decode("latin-1")
context = ctypes.c_void_p(udev.udev_new())
nodes = {}
for node in sorted(name for name in os.listdir("/dev") if name.startswith("video")):
    device = ctypes.c_void_p(udev.udev_device_new_from_subsystem_sysname(context, b"video4linux", node.encode()))
    properties = {key: text(udev.udev_device_get_property_value(device, key.encode())) for key in (
        "ID_BUS", "ID_MODEL", "ID_MODEL_ID", "ID_PATH", "ID_SERIAL", "ID_SERIAL_SHORT", "ID_USB_INTERFACES",
        "ID_V4L_CAPABILITIES", "ID_V4L_PRODUCT", "ID_V4L_VERSION", "ID_VENDOR", "ID_VENDOR_ID", "DEVLINKS")}
    properties["name"] = text(udev.udev_device_get_sysattr_value(device, b"name"))
    fd = os.open("/dev/" + node, os.O_RDWR)
    capability = bytearray(104)
    fcntl.ioctl(fd, 0x80685600, capability)  # VIDIOC_QUERYCAP
    properties["card"] = text(bytes(capability[16:48]).split(b"\0")[0])
    os.close(fd)
    nodes[node] = properties
links = {}
for kind in ("by-id", "by-path"):
    folder = "/dev/v4l/" + kind
    for link in os.listdir(os.fsencode(folder)) if os.path.isdir(folder) else ():
        path = os.path.join(os.fsencode(folder), link)
        fd = os.open(path, os.O_RDWR)
        fcntl.ioctl(fd, 0x80685600, bytearray(104))
        os.close(fd)
        same = os.stat(path).st_rdev == os.stat(os.path.realpath(path)).st_rdev != 0
        links[kind + "/" + text(link)] = text(os.path.realpath(path)) if same else "another device"
print(json.dumps({"nodes": nodes, "links": links}))
"""

# Opens more nodes that are missing than umockdev has room for, in all ways that lead to its open.
PROBE = r"""
import errno, os
for number in range(60):
    for path in ("/dev/video%d" % (number + 2), "/dev/snd/controlC%d" % number, "/dev/no/such%d" % number):
        for flags in (os.O_RDWR, os.O_RDONLY | os.O_NONBLOCK):
            try:
                os.open(path, flags)
                raise SystemExit(path + " is there")
            except OSError as error:
                assert error.errno == errno.ENOENT, error
    held = os.open("/dev/null", os.O_RDWR)  # and many that are there
print("opened up to", held)
"""


class Launcher_Test(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="launcher-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.trees = os.path.join(self.folder, "trees")
        os.mkdir(self.trees)

    def environment(self, **more):
        return {**os.environ, "TMPDIR": self.trees, **more}

    def run_command(self, *command, options=(), launcher=None, status=0, before=(), environment=None, **more):
        result = subprocess.run([*before, launcher or LAUNCHER, *options, *command], stdin=subprocess.DEVNULL,
                                capture_output=True, timeout=TIME_LIMIT, check=False,
                                env=environment or self.environment(), **more)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertEqual(os.listdir(self.trees), [], "the device tree is left behind")
        return result

    def look(self, description=b"camera\n", **more):
        path = os.path.join(self.folder, "cameras")
        with open(path, "wb") as file:
            file.write(description)
        result = self.run_command(sys.executable, "-c", LOOK, options=("--description", path), **more)
        self.assertEqual(result.stderr, b"")
        return json.loads(result.stdout)


class Running(Launcher_Test):
    def test_arguments_pass_as_bytes(self):
        words = [b"\xc3\xa4", b"\xff\xfe", b"", b"a b\n", b"-x"]
        for locale in ("C", "C.UTF-8", "no.such"):
            environment = {**os.environb, b"TMPDIR": self.trees.encode(), b"LC_ALL": locale.encode(), b"WORD": b"\xe4"}
            result = self.run_command("sh", "-c", 'printf "%s\\0" "$@" "$WORD"', "sh", *words, environment=environment)
            self.assertEqual(result.stdout.split(b"\0")[:-1], [*words, b"\xe4"], locale)

    def test_descriptors_pass(self):
        reading, writing = os.pipe()
        self.run_command("sh", "-c", "echo here >&%d" % writing, pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading, "rb") as pipe:
            self.assertEqual(pipe.read(), b"here\n")
        listing = self.run_command("sh", "-c", "ls /proc/$$/fd").stdout.split()
        self.assertEqual(listing, [b"0", b"1", b"2"], "the launcher's own descriptors are shut")

    def test_other_preloaded_objects_stay(self):
        result = self.run_command("cat", "/proc/self/maps", environment=self.environment(LD_PRELOAD="libanl.so.1"))
        for name in (b"libanl", b"wqz-virtual-camera", b"libumockdev-preload"):
            self.assertIn(name, result.stdout)

    def test_status(self):
        self.run_command("sh", "-c", "exit 3", status=3)
        self.run_command("sh", "-c", "kill -KILL $$", status=128 + signal.SIGKILL)
        for command, status, message in (
                ("no-such-command", 127, b"no-such-command: command not found"),
                ("/no/such/command", 127, b"/no/such/command: No such file"),
                (self.folder, 126, b"Permission denied")):
            near = self.environment(PATH="/usr/bin:/bin")
            self.assertIn(message, self.run_command(command, status=status, environment=near).stderr)
        nowhere = self.environment(TMPDIR="/no/such/folder")
        self.assertRegex(self.run_command("true", status=126, environment=nowhere).stderr,
                         rb"^with-virtual-camera: cannot write to /no/such/folder: No such file or directory\n$")

    def test_signals_reach_the_command(self):
        script = 'trap "echo ended; exit 5" TERM; echo ready; while :; do sleep 0.1; done'
        with subprocess.Popen([LAUNCHER, "sh", "-c", script], stdout=subprocess.PIPE, env=self.environment()) as process:
            self.assertEqual(process.stdout.readline(), b"ready\n")
            process.terminate()
            self.assertEqual(process.stdout.read(), b"ended\n")
            self.assertEqual(process.wait(TIME_LIMIT), 5)
        self.assertEqual(os.listdir(self.trees), [])

    def test_many_missing_nodes(self):
        result = self.run_command(sys.executable, "-c", PROBE)
        self.assertEqual((result.stdout, result.stderr), (b"opened up to 62\n", b""))

    def test_any_folder(self):
        folder = os.path.join(self.folder, "a b:\u00e4")
        os.mkdir(folder)
        launcher = shutil.copy(LAUNCHER, folder)
        shutil.copy(OBJECT, folder)
        result = self.run_command("head", "-c0", "/dev/video0", launcher=launcher)
        self.assertEqual(result.stderr, b"")

    def test_without_terminals(self):
        hidden = ["unshare", "-rm", "sh", "-c", 'mount -t tmpfs tmpfs /dev/pts && exec "$0" "$@"']
        if subprocess.run([*hidden, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("nothing may be mounted here")
        self.run_command("test", "-c", "/dev/video0", before=hidden)

    def test_what_cannot_be_preloaded(self):
        source, static = os.path.join(self.folder, "main.c"), os.path.join(self.folder, "static")
        with open(source, "w", encoding="ascii") as file:
            file.write("int main(void) { return 7; }\n")
        subprocess.run(["cc", "-static", source, "-o", static], check=True)
        self.assertIn(NOT_PRELOADED, self.run_command(static, status=7).stderr)
        self.assertIn(NOT_PRELOADED, self.run_command(self.program_with_rights(), "--version").stderr)
        self.assertEqual(self.run_command("sh", "-c", '"$0" || true', static).stderr, b"", "the shell could be")

    def program_with_rights(self):
        if os.getuid() != 0:
            return shutil.which("su")
        os.chmod(self.folder, 0o755)  # for the program's other self
        program = shutil.copy(shutil.which("env"), self.folder)
        os.chown(program, pwd.getpwnam("nobody").pw_uid, -1)
        os.chmod(program, 0o4755)
        return program


class Looking(Launcher_Test):
    def test_udev(self):
        seen = self.look(b"camera\ncamera On Chip\nusb none\n")
        capture, metadata, chip = (seen["nodes"]["video%d" % i] for i in range(3))
        links = ["/dev/v4l/by-path/pci-0000:00:14.0-usb-0:1:1.0-video-index%d",
                 "/dev/v4l/by-id/usb-WQZ_Virtual_Camera_0001-video-index%d"]
        self.assertEqual(capture, {
            "ID_BUS": "usb", "ID_MODEL": "Virtual_Camera", "ID_MODEL_ID": "0102", "ID_SERIAL": "WQZ_Virtual_Camera_0001",
            "ID_SERIAL_SHORT": "0001", "ID_V4L_CAPABILITIES": ":capture:", "ID_V4L_PRODUCT": "Virtual Camera",
            "ID_V4L_VERSION": "2", "ID_VENDOR": "WQZ", "ID_VENDOR_ID": "1d6b", "ID_PATH": "pci-0000:00:14.0-usb-0:1:1.0",
            "ID_USB_INTERFACES": ":0e0100:0e0200:", "DEVLINKS": " ".join(link % 0 for link in links),
            "name": "Virtual Camera", "card": "Virtual Camera"})
        self.assertEqual((metadata["ID_V4L_CAPABILITIES"], metadata["DEVLINKS"]),
                         (":", " ".join(link % 1 for link in links)))
        self.assertEqual((chip["ID_BUS"], chip["ID_SERIAL"], chip["ID_V4L_PRODUCT"], chip["ID_PATH"]),
                         (None, None, "On Chip", "platform-video2"))
        self.assertEqual(seen["links"], {
            **{(link % i)[len("/dev/v4l/"):]: "/dev/video%d" % i for i in range(2) for link in links},
            "by-path/platform-video2-video-index0": "/dev/video2"})

    def test_strings_in_any_encoding(self):
        utf8, latin1 = "K\u00e4m\u00e9r\u0101 \u6444\u50cf \\n".encode(), b"K\xe4m\xe9r\xe5 \xed\xa0\x80"
        for locale in ("C", "C.UTF-8"):
            for text, shown, name in ((utf8, utf8, utf8.replace(b" ", b"_").replace(b"\\", b"_")),
                                      (latin1, b"K_m_r_ ___", b"K_m_r_____")):
                description = b"camera " + text + b"\nmanufacturer  A  " + text + b" \nproduct\nserial " + text + b"\n"
                seen = self.look(description, environment=self.environment(LC_ALL=locale))
                camera = seen["nodes"]["video0"]
                identity = b"A_%s_0102_%s" % (name, name)
                self.assertEqual([camera[key].encode("latin-1") for key in (
                    "card", "name", "ID_V4L_PRODUCT", "ID_VENDOR", "ID_MODEL", "ID_SERIAL")],
                    [text, text, shown, b"A_" + name, b"0102", identity])
                self.assertIn("by-id/usb-" + identity.decode("latin-1") + "-video-index0", seen["links"])

    def test_names_end_as_a_driver_ends_them(self):
        camera = self.look(b"camera " + b"0123456789" * 4 + b"\n")["nodes"]["video0"]
        self.assertEqual((camera["card"], camera["name"]), ("0123456789012345678901234567890",) * 2)

    def test_cameras_that_look_alike(self):
        seen = self.look(b"serial\ncamera\nserial\ncamera\nserial\n")
        self.assertEqual(seen["links"]["by-id/usb-WQZ_Virtual_Camera-video-index0"], "/dev/video0")
        self.assertEqual(seen["links"]["by-path/pci-0000:00:14.0-usb-0:2:1.0-video-index0"], "/dev/video2")


if __name__ == "__main__":
    LAUNCHER, OBJECT = [os.path.abspath(path) for path in sys.argv[1:3]]
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
