"""Cameras: names, modes, controls, and what is said of wrong arguments."""

import asyncio
import errno
import os
import pickle
import subprocess
import sys
from fractions import Fraction
from pathlib import Path

import hypothesis
import pytest
from cameras import BUSY, FORBIDDEN, PLAIN
from conftest import ROOT, run_python
from hypothesis import strategies

import wqz_camera
from wqz_camera._controls import Controls

EXAMPLES = os.path.join(ROOT, "examples", "python")


def test_cameras_are_listed_and_opened_by_any_name():
    listed = {info.identity[:9]: info for info in wqz_camera.cameras()}
    plain, forbidden = listed[PLAIN], listed[FORBIDDEN]
    assert (plain.card, plain.vendor, plain.product, plain.error) == ("Plain", 0x1234, 1, 0)
    assert forbidden.error == errno.EACCES and "error" in repr(forbidden)
    assert pickle.loads(pickle.dumps(plain)) == plain
    for name in (PLAIN, plain.identity, plain.node, Path(plain.node), plain.index):
        with wqz_camera.Camera(name) as camera:
            assert camera.info == plain and plain.node in repr(camera)
        assert camera.closed


@pytest.mark.parametrize("name, failure, code, sentence", [
    ("1234:9999", FileNotFoundError, errno.ENOENT, "1234:9999"), ("", OSError, errno.ENOTUNIQ, "several"),
    (FORBIDDEN, PermissionError, errno.EACCES, "group video"), ("/dev/null", OSError, None, "/dev/null"),
    ("a\0b", ValueError, None, ""), (b"/dev/video0", TypeError, None, ""), (1.5, TypeError, None, ""),
    ("\udcff", (TypeError, UnicodeError, OSError), None, "")])
def test_a_camera_that_cannot_be_opened_says_why(name, failure, code, sentence):
    with pytest.raises(failure) as raised:
        wqz_camera.Camera(name)
    assert code is None or raised.value.errno == code
    assert sentence in str(raised.value)


def test_modes_are_listed_with_their_ranges_and_started():
    with wqz_camera.Camera(PLAIN) as camera:
        offers = {(offer.format, offer.size, offer.fps): offer for offer in camera.modes()}
        assert set(offers) >= {("MJPG", (640, 480), 200), ("MJPG", (640, 480), 30), ("Y16", (64, 48), 200)}
        ranges = offers["NV12", (640, 480), 50]
        assert ranges.width == (32, 640, 16) and ranges.interval == (Fraction(1, 50), Fraction(1, 5), Fraction(1, 1000))
        assert offers["MJPG", (640, 480), 30].compressed and not ranges.compressed
        for offer in offers.values():
            mode = camera.start(offer.format, offer.size, offer.fps, exact=True)
            assert (mode.format, mode.size) == (offer.format, offer.size) and mode.fps == pytest.approx(offer.fps, 1e-3)
        assert camera.start("YUYV", (600, 400)).size == (640, 480), "the nearest mode"
        assert camera.start("YUYV", (322, 240), fps=Fraction(2997, 100), buffers=8).buffers == 8
        for words, sentence in ((("MJPG", (641, 480)), "640x480"), (("ABCD", (640, 480)), "ABCD")):
            with pytest.raises(OSError) as failure:
                camera.start(*words, exact=True)
            assert failure.value.errno == errno.ENOTSUP and sentence in failure.value.strerror
    with wqz_camera.Camera(BUSY) as camera, pytest.raises(OSError) as failure:
        camera.start("MJPG", (640, 480))
    assert failure.value.errno == errno.EBUSY and "busy" in failure.value.strerror


def test_controls_are_a_mapping():
    with wqz_camera.Camera(PLAIN) as camera:
        controls = camera.controls
        assert len(controls) == len(dict(controls)) == len(list(controls)) > 5
        controls["brightness"] = 140
        controls["Power Line Frequency"] = "60 Hz"
        assert (controls["brightness"], controls["power_line_frequency"]) == (140, 2)
        assert controls["white_balance_automatic"] is True and "White-Balance automatic" in controls
        details = controls.details("power_line_frequency")
        assert (details.type, details.menu[2], details.default) == ("menu", "60 Hz", 1)
        assert controls.details("white_balance_temperature").inactive
        controls["white_balance_automatic"] = False
        assert not controls.details("white_balance_temperature").inactive
        controls["brightness"] = 10**6
        assert controls["brightness"] == controls.details("brightness").maximum
        controls.reset("brightness")
        assert (controls["brightness"], controls["power_line_frequency"]) == (128, 2)
        controls.reset()
        assert all(controls[key] == controls.details(key).default for key in controls)
        assert controls.get("nothing") is None and "nothing" not in controls


def test_a_reset_reaches_controls_that_a_later_default_makes_active():
    class Handle:
        """A camera whose second control rules its first."""

        manual, done = False, []

        def controls(self):
            state = {"type": 1, "minimum": 0, "maximum": 9, "step": 1, "default": 0, "name": ""}
            return [{**state, "key": "gain", "id": 1, "flags": 0 if self.manual else 0x10},
                    {**state, "key": "mode", "id": 2, "flags": 0}]

        def reset_control(self, number):
            self.manual = self.manual or number == 2
            self.done.append(number)

    handle = Handle()
    Controls(handle).reset()
    assert 1 in handle.done


@pytest.mark.parametrize("key, value, failure, sentence", [
    ("brigtness", 1, KeyError, "did you mean 'brightness'"), ("zoom", 1, KeyError, "contrast, saturation"),
    (7, 1, TypeError, "str"), ("brightness", 1.5, TypeError, "float"), ("brightness", None, TypeError, ""),
    ("brightness", 2**63, ValueError, ""), ("brightness", "a\0b", ValueError, ""), ("brightness", "high", ValueError, "255"),
    ("power_line_frequency", "70 Hz", ValueError, "50 Hz"), ("power_line_frequency", 9, ValueError, "")])
def test_a_wrong_control_or_value_says_what_is_right(key, value, failure, sentence):
    with wqz_camera.Camera(PLAIN) as camera, pytest.raises(failure) as raised:
        camera.controls[key] = value
    assert sentence in str(raised.value)


@pytest.mark.parametrize("words, options, failure", [
    (("YUYVY", (640, 480)), {}, ValueError), (("", (640, 480)), {}, ValueError), (("YÜYV", (640, 480)), {}, ValueError),
    ((7, (640, 480)), {}, TypeError), (("YUYV", (0, 480)), {}, ValueError), (("YUYV", (640, -1)), {}, ValueError),
    (("YUYV", (2**32, 480)), {}, ValueError), (("YUYV", 640), {}, TypeError), (("YUYV", (640,)), {}, ValueError),
    (("YUYV", (640.0, 480)), {}, TypeError), (("YUYV", (640, 480), 0), {}, ValueError),
    (("YUYV", (640, 480), float("nan")), {}, ValueError), (("YUYV", (640, 480), 10**400), {}, ValueError),
    (("YUYV", (640, 480), "30"), {}, TypeError), (("YUYV", (640, 480)), {"buffers": -1}, ValueError),
    (("YUYV", (640, 480)), {"skip": 1.5}, TypeError)])
def test_a_wrong_request_is_refused(words, options, failure):
    with wqz_camera.Camera(PLAIN) as camera, pytest.raises(failure):
        camera.start(*words, **options)


ANYTHING = strategies.one_of(
    strategies.none(), strategies.booleans(), strategies.integers(), strategies.floats(), strategies.text(max_size=6),
    strategies.binary(max_size=6), strategies.fractions(), strategies.tuples(strategies.integers(), strategies.integers()),
    strategies.sampled_from(["MJPG", "YUYV", "brightness", (640, 480), "default", 2**31, 2**63, -1, 1e300]))
TIMES = ANYTHING.filter(lambda time: not isinstance(time, (int, float, Fraction)) or not time > 0)


@hypothesis.settings(max_examples=25, deadline=None, database=None, derandomize=True)
@hypothesis.given(strategies.tuples(*[ANYTHING] * 3), TIMES.filter(lambda time: time is not None))
def test_nothing_that_is_passed_ends_the_process(words, timeout):
    async def first(items):
        return await items.__anext__()

    def uses(camera, monitor):
        yield lambda: wqz_camera.Camera(words[0]).close()
        yield lambda: camera.start(*words, exact=words[2], buffers=0, skip=0)
        yield lambda: camera.start("MJPG", (640, 480), buffers=words[0], skip=words[1])
        yield lambda: camera.start("MJPG", (640, 480), words[0])
        yield lambda: camera.controls[words[0]]
        yield lambda: words[0] in camera.controls
        yield lambda: camera.controls.__setitem__(words[0], words[1])
        yield lambda: camera.controls.__setitem__("brightness", words[1])
        yield lambda: camera.controls.details(words[0])
        yield lambda: camera.controls.reset(*words)
        yield lambda: camera.start("MJPG", (640, 480), 200)
        yield lambda: camera.read(timeout, newest=words[0])
        yield lambda: next(camera.frames(timeout, newest=words[0]))
        yield lambda: asyncio.run(camera.aread(timeout, newest=words[0]))
        yield lambda: asyncio.run(first(camera.aframes(timeout, newest=words[0])))
        yield lambda: camera.recover(timeout)
        yield lambda: monitor.read(timeout)
        yield lambda: asyncio.run(monitor.aread(timeout))
        yield lambda: camera.read(1).bgr(out=words[0])
        yield lambda: camera.read(1).rgb(out=words[0])
        yield lambda: camera.read(1).release(words[0])

    with wqz_camera.Camera(PLAIN) as camera, wqz_camera.Monitor() as monitor:
        for use in uses(camera, monitor):
            try:
                use()
            except (OSError, TypeError, ValueError, KeyError) as failure:
                assert str(failure)
        camera.start("MJPG", (640, 480), 200)
        assert camera.read(5).bgr().any()


def test_the_examples_do_what_they_say(tmp_path):
    saved = run_python(os.path.join(EXAMPLES, "capture.py"), PLAIN, cwd=tmp_path)
    assert "640x480" in saved.stdout and (tmp_path / "picture.npy").stat().st_size > 640 * 480 * 3
    lines = run_python(os.path.join(EXAMPLES, "event_loop.py"), PLAIN).stdout.splitlines()
    assert lines[-1].startswith("60 frames") and sum(line.startswith("still here") for line in lines) >= 1
    no_camera = run_python(os.path.join(EXAMPLES, "capture.py"), "1234:9999", status=1)
    assert "1234:9999" in no_camera.stderr and "Traceback" not in no_camera.stderr


@pytest.mark.parametrize("document", ["README.md", "docs/python.md"])
def test_the_programs_of_the_documentation_run(document, tmp_path):
    text = Path(ROOT, document).read_text(encoding="utf-8")
    programs = [part.split("```")[0] for part in text.split("```python\n")[1:]]
    assert programs
    for program in programs:
        program = program.replace("046d:0825", PLAIN).replace("camera.frames(timeout=2)", "some(camera.frames(timeout=2))")
        run_python("-c", "import itertools\nsome = lambda frames: itertools.islice(frames, 3)\n" + program, cwd=tmp_path)


def test_the_types_agree_with_the_module(tmp_path):
    package = os.path.dirname(wqz_camera.__file__)
    environment = dict(os.environ, MYPYPATH=os.path.dirname(package), LD_PRELOAD="")
    allowed = tmp_path / "allowed"
    allowed.write_text(  # what every class of pybind11 has, and what the interpreter shows from 3.12 on
        "wqz_camera\\._native\\.(Camera|Frame|Monitor)(\\.__(init|new)__)?\n"
        "wqz_camera\\._native\\.Frame\\.__buffer__\n", encoding="ascii")
    settings = tmp_path / "settings"
    settings.write_text("[mypy]\n[mypy-numpy.*]\nfollow_imports = skip\n", encoding="ascii")  # its stubs take long
    for words in (["mypy", "--strict", "--config-file", str(settings), "-p", "wqz_camera"],
                  ["mypy.stubtest", "--ignore-unused-allowlist", "--allowlist", str(allowed),
                   "--mypy-config-file", str(settings), "wqz_camera._native"]):
        checked = subprocess.run([sys.executable, "-m", *words], env=environment, cwd=tmp_path, text=True,
                                 capture_output=True, check=False)
        assert checked.returncode == 0, checked.stdout + checked.stderr
