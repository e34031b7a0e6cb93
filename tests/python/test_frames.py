"""Frames: their bytes, arrays and pixels, and how long these live."""

import copy
import errno
import gc
import itertools
import os
import sys
import threading
import weakref

import numpy
import pytest
from cameras import DAMAGED, KEPT, PLAIN
from conftest import TIME_LIMIT
from test_card import colour_faults, jpeg_number, yuyv_number

import wqz_camera


def is_shown(array, frame_bytes):
    """Whether the memory is still mapped and unchanged. A wrong mapping would end the process."""
    return bytes(memoryview(array).cast("B")) == frame_bytes


def test_a_frame_has_its_number_its_time_and_the_bytes_of_its_mode(streaming):
    for format, number in (("YUYV", yuyv_number), ("MJPG", jpeg_number)):
        camera = streaming(format=format, fps=200)
        first, second = camera.read(5), camera.read(5)
        assert (first.sequence, number(memoryview(first))) == (0, 0)
        assert number(second.copy()) == second.sequence == first.sequence + 1 + second.lost_before
        assert first.time < second.time <= first.time + 1 and second.time_ns == pytest.approx(second.time * 1e9)
        assert (first.format, first.size, first.damaged, first.nbytes) == (format, (640, 480), False, len(first.copy()))
        camera.close()


@pytest.mark.parametrize("format, size, shape, sample", [
    ("YUYV", (640, 480), (480, 640, 2), "u1"), ("YUYV", (322, 240), (240, 322, 2), "u1"),
    ("GREY", (320, 240), (240, 320), "u1"), ("Y16", (64, 48), (48, 64), "<u2"), ("MJPG", (640, 480), None, "u1")])
def test_an_array_shows_the_bytes_in_the_shape_of_the_format(streaming, format, size, shape, sample):
    frame = streaming(format=format, size=size).read(5)
    array = frame.array()
    assert array.shape == (shape or (frame.nbytes,)) and array.dtype == sample
    assert array.tobytes() == frame.copy()
    assert array.__array_interface__["data"] == numpy.frombuffer(frame, "u1").__array_interface__["data"], "a copy"
    with pytest.raises(ValueError):
        array.flags.writeable = True
    with pytest.raises(TypeError):
        memoryview(frame)[0] = 1


def test_pixels_are_blue_green_red_from_the_top(streaming):
    camera = streaming(format="MJPG")
    picture = camera.read(5).bgr()
    camera.start("YUYV", (640, 480))
    assert picture.shape == (480, 640, 3) and picture.dtype == numpy.uint8
    assert colour_faults(picture[:, :, ::-1].tobytes(), 640, 480) == []
    frame = camera.read(5)
    converted = frame.bgr().astype(int)
    wrong = [converted[::-1], converted[:, :, ::-1], converted[:, ::-1]]
    distance = [abs(other - picture).mean() for other in (converted, *wrong)]
    assert 2 * distance[0] < min(distance[1:])
    assert (frame.rgb()[:, :, ::-1] == converted).all()


def test_pixels_go_into_an_array_of_the_caller(streaming):
    frame = streaming(format="YUYV").read(5)
    large = numpy.full((500, 700, 3), 7, numpy.uint8)
    part = large[10:490, 20:660]
    assert frame.bgr(out=part) is part and (part == frame.bgr()).all()
    large[10:490, 20:660] = 7
    assert (large == 7).all(), "a pixel outside was written"
    fitting = numpy.zeros((480, 640, 3), numpy.uint8)
    read_only = fitting.copy()
    read_only.flags.writeable = False
    wrong = [fitting[:, :, ::-1], fitting[::-1], fitting[:, :, :2], fitting[1:], fitting.astype(numpy.int8), read_only,
             fitting.astype(float), fitting.reshape(640, 480, 3), bytes(fitting), memoryview(fitting).cast("B"),
             numpy.broadcast_to(fitting[0], fitting.shape), numpy.zeros((960, 1280, 3), numpy.uint8)[::2, ::2]]
    for out in wrong:
        with pytest.raises(ValueError):
            frame.bgr(out=out)
    for out in (1, "text", [[1]]):
        with pytest.raises(TypeError):
            frame.bgr(out=out)


def test_a_frame_that_is_cut_short_has_fewer_rows_and_no_whole_picture(streaming):
    for format in ("YUYV", "MJPG"):
        camera = streaming(DAMAGED, format)
        camera.read(5)
        frame = camera.read(5)
        out = numpy.full((480, 640, 3), 77, numpy.uint8)
        with pytest.raises(OSError) as failure:
            frame.bgr(out=out)
        assert failure.value.errno == errno.EBADMSG and "cut short" in failure.value.strerror
        assert (out[:240] != 77).any(), "what came was not decoded"
        if format == "YUYV":
            assert frame.array().shape == (320, 640, 2)
        camera.close()


def test_a_frame_is_released_by_hand_by_a_block_and_by_its_end(streaming):
    camera = streaming(fps=200)
    for _ in range(20):  # far more than there are buffers
        camera.read(5)
    with camera.read(5) as frame:
        pass
    for use in (frame.copy, frame.array, frame.bgr, lambda: memoryview(frame)):
        with pytest.raises(ValueError, match="released"):
            use()
    frame.release()
    assert frame.released and frame.format == "MJPG" and frame.sequence > 0
    held = [camera.read(5) for _ in range(3)]
    with pytest.raises(OSError) as failure:
        camera.read(5)
    assert failure.value.errno == errno.ENOBUFS
    held.pop().release()
    assert camera.read(5)


def test_the_iterator_holds_no_frame_while_it_waits_for_the_next(streaming):
    camera = streaming(fps=200, buffers=2)  # one may be held
    numbers = list(map(lambda frame: frame.sequence, itertools.islice(camera.frames(5), 5)))
    assert len(set(numbers)) == 5


@pytest.mark.parametrize("view_of", [memoryview, lambda frame: frame.array(), lambda frame: frame.array()[5:7],
                                     lambda frame: numpy.frombuffer(frame, "u1")])
def test_a_view_keeps_its_frame(streaming, view_of):
    camera = streaming(format="GREY", size=(320, 240), fps=200)
    frame = camera.read(5)
    view = view_of(frame)
    with pytest.raises(BufferError):
        frame.release()
    expected, watched = bytes(memoryview(view).cast("B")), weakref.ref(frame)
    del frame
    gc.collect()
    for _ in range(8):  # the buffer must not go back to the driver, which would paint over it
        camera.read(5)
    assert watched() is not None and is_shown(view, expected)
    del view
    gc.collect()
    assert watched() is None


def stop(camera):
    camera.stop()


def close(camera):
    camera.close()


def start_again(camera):
    camera.start("MJPG", (640, 480))


def unplug(camera):
    with pytest.raises(wqz_camera.Unplugged):
        for _ in camera.frames(5):
            pass


def recover(camera):
    unplug(camera)
    camera.recover(10)


@pytest.mark.parametrize("name, ends", [
    (PLAIN, [stop]), (PLAIN, [close]), (PLAIN, [start_again, close]), (PLAIN, []), (None, [unplug, close]),
    (None, [unplug]), (None, [recover, stop]), (KEPT, [stop]), (KEPT, [close]), (KEPT, [unplug, close])])
def test_views_outlive_the_capture_and_the_camera(streaming, leaving, name, ends):
    camera = streaming(name or leaving(), buffers=6)
    frames = [camera.read(5), camera.read(5)]
    array, picture, expected = frames[0].array(), frames[1].bgr(), [frame.copy() for frame in frames]
    for end in ends:
        end(camera)
    assert is_shown(array, expected[0]) and (frames[1].bgr() == picture).all()
    with pytest.raises(BufferError):
        frames[0].release()
    del camera, frames[0]
    gc.collect()
    assert is_shown(array, expected[0])
    frames[0].release()
    del array
    gc.collect()


def test_frames_are_neither_made_nor_copied_without_a_camera(streaming):
    frame = streaming().read(5)
    for make in (type(frame), lambda: type(frame).__new__(type(frame)), lambda: object.__new__(type(frame)),
                 lambda: copy.copy(frame), lambda: copy.deepcopy(frame)):
        with pytest.raises(TypeError):
            make()
    with pytest.raises(TypeError):
        type("Heir", (type(frame),), {})


def test_nothing_is_left_of_many_frames(streaming):
    camera = streaming(format="GREY", size=(320, 240), fps=200)
    out = numpy.zeros((240, 320, 3), numpy.uint8)

    def use(frame):
        frame.array(), memoryview(frame), frame.copy(), frame.size, repr(frame)
        with pytest.raises(OSError):
            frame.bgr()  # grey frames are not converted
        with pytest.raises(OSError):
            frame.rgb(out=out)

    references = [sys.getrefcount(thing) for thing in (None, out, camera, wqz_camera.Frame)]
    blocks = []
    for _ in range(4):
        for _ in range(50):
            use(camera.read(5))
        gc.collect()
        blocks.append(sys.getallocatedblocks())
    assert blocks[-1] - blocks[-2] < 50, "about a block for each frame"
    after = [sys.getrefcount(thing) for thing in (None, out, camera, wqz_camera.Frame)]
    assert max(abs(a - b) for a, b in zip(references, after)) < 50


def test_a_conversion_keeps_the_frame_from_another_threads_release(streaming):
    camera = streaming(format="MJPG", fps=200)
    for _ in range(30):
        frame = camera.read(5)
        done = threading.Event()

        def release():
            while not done.is_set():
                try:
                    frame.release()
                    return
                except BufferError:
                    pass

        other = threading.Thread(target=release)
        other.start()
        try:
            assert frame.bgr().any()
        except ValueError as error:
            assert "released" in str(error)
        done.set()
        other.join(TIME_LIMIT)
        assert not other.is_alive()


def test_a_forked_child_leaves_frames_and_camera_to_the_parent(streaming):
    camera = streaming(fps=200)
    frame = camera.read(5)
    expected = frame.copy()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            for use in (frame.release, camera.close, lambda: camera.read(1), camera.stop):
                with pytest.raises(ValueError, match="fork"):
                    use()
            del frame, camera
            gc.collect()
            with wqz_camera.Camera(PLAIN):
                status = 0
        finally:
            os._exit(status)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    assert frame.copy() == expected and camera.read(5).sequence > frame.sequence
