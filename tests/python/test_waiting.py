"""Waits: their ends by time, signals, other threads, tasks and unplugging."""

import asyncio
import errno
import gc
import os
import select
import signal
import sys
import threading
import time

import pytest
from cameras import PLAIN, SILENT
from conftest import TIME_LIMIT, run_python

import wqz_camera

SOON = 1.5  # seconds in which a wait has ended on a busy machine; far less than those waits would last


def in_thread(target):
    """Runs target in a thread; returns its results and the thread."""
    results = []

    def run():
        try:
            results.append(target())
        except BaseException as failure:  # looked at by the test
            results.append(failure)

    thread = threading.Thread(target=run, daemon=True)
    thread.start()
    return results, thread


def test_a_wait_ends_in_time_and_only_then(streaming):
    camera = streaming(SILENT)
    for timeout in (0, 0.05, 0.35):
        start = time.monotonic()
        with pytest.raises(TimeoutError) as failure:
            camera.read(timeout)
        assert timeout <= time.monotonic() - start < timeout + SOON
        assert failure.value.errno == errno.ETIMEDOUT and failure.value.strerror
        with pytest.raises(TimeoutError):
            asyncio.run(camera.aread(timeout))


@pytest.mark.parametrize("end", [wqz_camera.Camera.cancel, wqz_camera.Camera.stop, wqz_camera.Camera.close,
                                 lambda camera: camera.start("MJPG", (640, 480))])
def test_another_thread_ends_a_wait(streaming, end):
    for read in (lambda camera: camera.read(), lambda camera: list(camera.frames())):
        camera = streaming(SILENT)
        results, thread = in_thread(lambda camera=camera, read=read: read(camera))
        time.sleep(0.25)  # beyond the first slice of the wait
        assert thread.is_alive()
        start = time.monotonic()
        end(camera)
        thread.join(TIME_LIMIT)
        assert time.monotonic() - start < SOON
        assert results == [[]] or isinstance(results[0], wqz_camera.Cancelled)
        camera.close()


def test_close_ends_all_waits_and_waits_for_them(streaming):
    for _ in range(5):
        camera = streaming(SILENT)
        waits = [in_thread(camera.read) for _ in range(8)]
        time.sleep(0.01)  # some have not begun
        camera.close()
        for results, thread in waits:
            thread.join(TIME_LIMIT)
            assert isinstance(results[0], (wqz_camera.Cancelled, ValueError)), results
        for use in (camera.read, camera.stop, camera.modes, lambda: camera.info, camera.fileno, camera.counters,
                    lambda: dict(camera.controls), lambda: asyncio.run(camera.aread(1))):
            with pytest.raises(ValueError, match="closed"):
                use()
        camera.close()
        camera.cancel()


def test_other_threads_run_while_one_waits(streaming):
    camera = streaming(SILENT)
    results, thread = in_thread(lambda: camera.read(0.5))
    steps = 0
    while thread.is_alive():
        steps += 1
        time.sleep(0.001)
    assert steps > 50 and isinstance(results[0], TimeoutError)


def test_threads_read_start_and_close_one_camera_at_once(streaming):
    for _ in range(4):
        camera = streaming(PLAIN, fps=200)
        stop = threading.Event()

        def use(work, camera=camera, stop=stop):
            while not stop.is_set():
                try:
                    work(camera)
                except (OSError, ValueError):
                    pass

        works = [lambda camera: camera.read(0.1).bgr(), lambda camera: camera.read(0.1, newest=True).array().sum(),
                 lambda camera: camera.start("MJPG", (640, 480), 200), lambda camera: camera.controls["gain"],
                 lambda camera: camera.cancel(), lambda camera: camera.stop()]
        threads = [in_thread(lambda work=work: use(work)) for work in works]
        time.sleep(0.3)
        camera.close()
        stop.set()
        for results, thread in threads:
            thread.join(TIME_LIMIT)
            assert results == [None]


INTERRUPTED = """
import os, signal, sys, threading, time, wqz_camera
{handler}
monitor, camera = wqz_camera.Monitor(), wqz_camera.Camera("%s")
camera.start("MJPG", (640, 480))
threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT)).start()
start = time.monotonic()
try:
    {wait}
except {failure}:
    sys.exit(0 if time.monotonic() - start < 0.3 + %s else "late")
""" % (SILENT, SOON)


@pytest.mark.parametrize("handler, wait, failure", [
    ("", "camera.read()", "KeyboardInterrupt"), ("", "monitor.read()", "KeyboardInterrupt"),
    ("signal.signal(signal.SIGINT, lambda *_: camera.close())", "camera.read()", "wqz_camera.Cancelled"),
    ("signal.signal(signal.SIGINT, lambda *_: camera.stop())", "camera.read()", "wqz_camera.Cancelled"),
    ("signal.signal(signal.SIGINT, lambda *_: camera.cancel())", "camera.read()", "wqz_camera.Cancelled")])
def test_a_signal_ends_a_wait(handler, wait, failure):
    run_python("-c", INTERRUPTED.format(handler=handler, wait=wait, failure=failure))


def test_the_interpreter_ends_while_a_daemon_thread_reads():
    program = """
import threading, time, wqz_camera
camera = wqz_camera.Camera("%s")
camera.start("MJPG", (640, 480), 200)
threading.Thread(target=lambda: [frame.bgr().sum() for frame in camera.frames()], daemon=True).start()
time.sleep(%s)
"""
    for delay in (0.05, 0.06, 0.07):
        run_python("-c", program % (PLAIN, delay))


def test_an_unplugged_camera_is_recovered_with_its_mode_and_controls(streaming, leaving):
    camera = streaming(leaving(), "YUYV")
    camera.controls["brightness"] = 77
    with pytest.raises(wqz_camera.Unplugged) as failure:
        for frame in camera.frames(5):
            number = frame.sequence
    assert number == 4 and failure.value.errno == errno.ENODEV and isinstance(failure.value, OSError)
    for use in (camera.modes, lambda: camera.controls["brightness"], lambda: camera.read(0)):
        with pytest.raises(wqz_camera.Unplugged):
            use()
    camera.recover(10)
    assert camera.read(5).format == "YUYV" and camera.controls["brightness"] == 77


def test_a_monitor_tells_who_comes_and_goes(streaming, leaving):
    async def watch(name):
        events = []
        with wqz_camera.Monitor() as monitor:
            asyncio.get_running_loop().call_later(TIME_LIMIT, monitor.close)
            camera = streaming(name)
            with pytest.raises(wqz_camera.Unplugged):
                async for _ in camera.aframes(5):
                    pass
            async for event in monitor.aevents():
                events.append((event.plugged, event.info.identity[:9]))
                if event.plugged:
                    return events, monitor

    name = leaving()
    events, monitor = asyncio.run(watch(name))
    assert events == [(False, name), (True, name)]
    with pytest.raises(ValueError, match="closed"):
        monitor.read(0)


def test_a_recovery_ends_in_time_and_by_cancel(streaming, leaving):
    camera = streaming(leaving())
    with pytest.raises(wqz_camera.Unplugged):
        for _ in camera.frames(5):
            pass
    with pytest.raises(TimeoutError):
        camera.recover(0.1)
    results, thread = in_thread(camera.recover)
    camera.cancel()
    thread.join(TIME_LIMIT)
    assert isinstance(results[0], (wqz_camera.Cancelled, type(None)))


def test_tasks_share_an_event_loop_with_the_camera(streaming):
    async def capture(camera, count):
        numbers = []
        async for frame in camera.aframes(5):
            numbers.append(frame.sequence)
            if len(numbers) == count:
                return numbers

    async def all_at_once():
        camera = streaming(PLAIN, fps=200)
        ticks = asyncio.create_task(asyncio.sleep(0.05))
        first, second = await asyncio.gather(capture(camera, 20), capture(camera, 20))
        assert ticks.done(), "the loop was blocked"
        assert len(set(first + second)) == 40

    asyncio.run(all_at_once())


def test_tasks_end_by_cancelling_and_by_the_end_of_the_capture(streaming):
    async def all_ways():
        camera = streaming(SILENT)
        gc.collect()
        before = len(os.listdir("/proc/self/fd"))
        task = asyncio.create_task(camera.aread())
        await asyncio.sleep(0.05)
        task.cancel()
        with pytest.raises(asyncio.CancelledError):
            await task
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(camera.aread(), 0.05)
        for end in (camera.cancel, camera.stop):
            task = asyncio.create_task(camera.aread())
            await asyncio.sleep(0.05)
            await asyncio.to_thread(end)
            with pytest.raises(wqz_camera.Cancelled):
                await asyncio.wait_for(task, SOON)
            assert len(os.listdir("/proc/self/fd")) <= before, "a descriptor was left open"
        camera.start("MJPG", (640, 480))
        task = asyncio.create_task(collect(camera))
        await asyncio.sleep(0.05)
        camera.close()
        assert await asyncio.wait_for(task, SOON) == []

    async def collect(camera):
        return [frame async for frame in camera.aframes()]

    asyncio.run(all_ways())


def test_a_task_notices_an_end_just_before_its_wait(streaming, monkeypatch):
    async def read(opened, end):
        monkeypatch.setattr(os, "dup", lambda descriptor: (end(), duplicate(descriptor))[1])  # the last step before it
        await asyncio.wait_for(opened.aread(), SOON)

    duplicate = os.dup
    camera, monitor = streaming(SILENT), wqz_camera.Monitor()
    for opened, end, failure in ((camera, camera.stop, wqz_camera.Cancelled), (monitor, monitor.close, ValueError)):
        with pytest.raises(failure):
            asyncio.run(read(opened, end))


def test_a_task_notices_an_end_just_before_it_takes_a_frame(streaming, monkeypatch):
    camera = streaming(SILENT)
    # The last step before it.
    monkeypatch.setattr(sys.modules[type(camera).__module__], "_left_until", lambda _: camera.stop() and None)
    with pytest.raises(wqz_camera.Cancelled):
        asyncio.run(camera.aread())


def test_a_wait_goes_on_until_a_held_frame_is_released(streaming):
    async def read_in_task(camera, timeout=5):
        return await camera.aread(timeout)

    def fails(read, camera, timeout):
        with pytest.raises(OSError) as failure:
            read(camera, timeout)
        return failure.value

    for read in (wqz_camera.Camera.read, lambda *words: asyncio.run(read_in_task(*words))):
        camera = streaming(PLAIN, fps=200)
        held = [camera.read(5) for _ in range(3)]
        for timeout, least in ((0, 0), (0.1, 0.1), (None, 0.5)):
            start = time.monotonic()
            assert fails(read, camera, timeout).errno == errno.ENOBUFS
            assert least <= time.monotonic() - start < least + (SOON if least else 0.4)
        threading.Timer(0.15, held.clear).start()
        held.append(read(camera, 5))  # after the clear
        assert [frame.sequence > 2 for frame in held] == [True]
        held += [camera.read(5) for _ in range(2)]
        threading.Timer(0.15, camera.stop).start()
        assert isinstance(fails(read, camera, 5), wqz_camera.Cancelled)
        camera.close()


def test_the_descriptor_is_readable_when_a_frame_is_there(streaming):
    camera = streaming(PLAIN, fps=200)
    for number in range(3):
        assert select.select([camera], [], [], TIME_LIMIT)[0]
        assert camera.read(0).sequence == number
    camera = streaming(SILENT)
    assert not select.select([camera], [], [], 0.05)[0]


def test_the_newest_frame_skips_the_older_ones(streaming):
    camera = streaming(PLAIN, fps=200)
    time.sleep(0.1)
    assert camera.read(5, newest=True).sequence >= 2
    counters = camera.counters()
    assert counters.delivered == 1 and counters.skipped >= 2
    camera.start("MJPG", (640, 480), 200, skip=3)
    assert camera.read(5).sequence == 3
