"""Cameras, and the monitor that tells which come and go."""

from __future__ import annotations

import asyncio
import errno
import math
import operator
import os
import time
from collections.abc import AsyncIterator, Iterator
from fractions import Fraction
from numbers import Real
from types import TracebackType
from typing import Optional, SupportsIndex, Tuple, Type, Union

from . import _native
from ._controls import Controls
from ._records import Counters, Event, Info, Mode, Offer, mode, offer
from ._waiting import Waiters

# A descriptor may be readable without a cause. A task that finds nothing looks again after this time, so that it keeps
# no processor busy.
_EMPTY_LOOK_SECONDS = 0.002

_LARGEST = 2**32 - 1  # that a field of the library's records holds
_LEAST_FPS = 1e-6  # eleven days for a frame
_RATE_DENOMINATOR = 1001  # makes 30000/1001 of 29.97003, and 2997/100 of 29.97


def cameras() -> list[Info]:
    """Describe the cameras that are there, also those that this user may not open."""
    return [Info(**record) for record in _native.cameras()]


class Camera:
    """An open camera.

    Its name is a node ("/dev/video0") or a link to one, "VID:PID" in hexadecimal, a serial, an identity as in Info, or a
    place in the list. With one camera, no name is needed. Opening sets nothing, and other programs can use the camera
    until start.

    All methods may be called on any thread. cancel, stop and close end the waits of other threads and tasks. A process
    that was forked must open the camera anew.
    """

    def __init__(self, name: Union[str, int, os.PathLike[str]] = "") -> None:
        text = str(operator.index(name)) if isinstance(name, SupportsIndex) else os.fspath(name)
        if not isinstance(text, str):
            raise TypeError("the name of a camera is a str, not bytes")
        if "\0" in text:
            raise ValueError("no camera has a name with a zero in it")
        self._handle = _native.open_camera(text)
        self._controls = Controls(self._handle)
        self._waiters = Waiters()

    def __enter__(self) -> Camera:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], failure: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __repr__(self) -> str:
        return "<Camera, closed>" if self.closed else f"<Camera {self.info!r}>"

    @property
    def info(self) -> Info:
        """The camera as it was when it was opened or recovered."""
        return Info(**self._handle.info())

    @property
    def closed(self) -> bool:
        """Whether the camera was closed."""
        return self._handle.closed

    @property
    def controls(self) -> Controls:
        """The controls: camera.controls["brightness"] = 140."""
        return self._controls

    def modes(self) -> list[Offer]:
        """List what the camera offers."""
        return [offer(record) for record in self._handle.modes()]

    def start(self, format: str, size: Tuple[int, int], fps: Union[float, Fraction, None] = None, *,
              exact: bool = False, buffers: int = 0, skip: int = 0) -> Mode:
        """Begin a capture, after the end of the one that may be running, and return what the driver accepted.

        format is a FourCC such as "MJPG", fps the frames per second; without it the camera chooses the rate. The driver
        takes the nearest mode that it has. With exact it refuses what is not offered: OSError with ENOTSUP, which names
        the nearest modes. buffers is how many the kernel has, 0 for four: one fewer may be held as frames. skip is how
        many first frames to leave out while the exposure settles.
        """
        width, height = size
        numerator, denominator = _interval(fps)
        record = self._handle.start(
            _fourcc(format), _count(width, "the width", 1), _count(height, "the height", 1), numerator, denominator,
            bool(exact), _count(buffers, "buffers"), _count(skip, "skip"))
        self._waiters.wake()
        return mode(record)

    def read(self, timeout: Optional[float] = None, *, newest: bool = False) -> _native.Frame:
        """Wait for the oldest frame, or the newest of those that are ready.

        timeout is in seconds, and None waits without limit. Raises TimeoutError, Unplugged when the camera was
        unplugged, and Cancelled when another thread ended the wait. OSError with ENOBUFS says that all frames but one
        are held, and that none was released within half a second or the shorter timeout.
        """
        return self._handle.read(timeout, newest)

    def frames(self, timeout: Optional[float] = None, *, newest: bool = False) -> Iterator[_native.Frame]:
        """Yield frames as read does, until the capture is ended by cancel, stop or close."""
        changes = self._handle.changes
        while True:
            try:
                frame = self._handle.read(timeout, newest)
            except _native.Cancelled:
                return
            except (OSError, ValueError):
                if self._handle.changes != changes:
                    return  # the capture ended between two frames
                raise
            yield frame
            del frame  # only the caller holds it while the next one is awaited

    async def aread(self, timeout: Optional[float] = None, *, newest: bool = False) -> _native.Frame:
        """Wait in a task as read does. When the task is cancelled, no frame is lost."""
        changes = self._handle.changes
        try:
            return await self._aread(_end_of(timeout), newest, changes)
        except (OSError, ValueError):
            self._check_wait(changes)  # where the capture ended between two looks, that is the reason
            raise

    async def _aread(self, end: Optional[float], newest: bool, changes: int) -> _native.Frame:
        pause = 0.0
        while True:
            frame = await self._take(newest, _left_until(end), changes)
            if frame is not None:
                return frame
            left = _left_until(end)
            if left == 0:
                raise TimeoutError(errno.ETIMEDOUT, "No frame came in the time given.")
            if pause:
                await asyncio.sleep(pause)
            await self._waiters.wait(self._handle.fileno(), left, lambda: self._handle.changes != changes)
            self._check_wait(changes)
            pause = _EMPTY_LOOK_SECONDS

    async def _take(self, newest: bool, left: Optional[float], changes: int) -> Optional[_native.Frame]:
        """Take a frame that is ready, or None. While all frames are held, a thread or task may release one soon."""
        longest = _native.RELEASE_SECONDS
        end = time.monotonic() + (longest if left is None else min(left, longest))
        while True:
            try:
                return self._handle.take(newest)
            except OSError as failure:
                if failure.errno != errno.ENOBUFS or time.monotonic() >= end:
                    raise
            await asyncio.sleep(_EMPTY_LOOK_SECONDS)
            self._check_wait(changes)

    def _check_wait(self, changes: int) -> None:
        if self._handle.changes != changes:
            raise _native.Cancelled(errno.ECANCELED, "The wait was ended, because the capture was stopped.")

    async def aframes(self, timeout: Optional[float] = None, *, newest: bool = False) -> AsyncIterator[_native.Frame]:
        """Yield frames in a task: async for frame in camera.aframes(timeout=2)."""
        changes = self._handle.changes
        while True:
            try:
                frame = await self.aread(timeout, newest=newest)
            except _native.Cancelled:
                return
            except (OSError, ValueError):
                if self._handle.changes != changes:
                    return
                raise
            yield frame
            del frame

    def stop(self) -> bool:
        """End the capture; without one there is nothing to do.

        Held frames stay readable. Returns False when the driver keeps the camera until they are released.
        """
        freed = self._handle.stop()
        self._waiters.wake()
        return freed

    def cancel(self) -> None:
        """End the wait of one other thread or task, or else the next wait, which raises Cancelled."""
        if not self.closed:
            self._handle.cancel()

    def recover(self, timeout: Optional[float] = None) -> None:
        """Wait until an unplugged camera is back, set its controls again, and go on with the capture in the same mode."""
        self._handle.recover(timeout)

    def counters(self) -> Counters:
        """Count the frames since the last start."""
        return Counters(**self._handle.counters())

    def fileno(self) -> int:
        """Return the descriptor that is readable when a frame is ready, for selectors; do not close it."""
        return self._handle.fileno()

    def close(self) -> bool:
        """Close the camera; twice does no harm.

        Held frames stay readable. Returns False when the driver keeps the camera until they are released.
        """
        freed = self._handle.close()
        self._waiters.wake()
        return freed


class Monitor:
    """A watch over cameras that come and go. Those that are there already are not reported."""

    def __init__(self) -> None:
        self._handle = _native.open_monitor()
        self._waiters = Waiters()

    def __enter__(self) -> Monitor:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], failure: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    @property
    def closed(self) -> bool:
        """Whether the monitor was closed."""
        return self._handle.closed

    def read(self, timeout: Optional[float] = None) -> Event:
        """Wait for the next event; raises TimeoutError when none came in time."""
        return _event(self._handle.read(timeout))

    async def aread(self, timeout: Optional[float] = None) -> Event:
        """Wait in a task as read does."""
        end = _end_of(timeout)
        while True:
            found = self._handle.read(0)
            left = _left_until(end)
            if found is not None or left == 0:
                return _event(found)
            await self._waiters.wait(self._handle.fileno(), left, lambda: self.closed)

    async def aevents(self) -> AsyncIterator[Event]:
        """Yield the events in a task, until the monitor is closed."""
        while not self.closed:
            try:
                event = await self.aread()
            except ValueError:
                if self.closed:
                    return
                raise
            yield event

    def fileno(self) -> int:
        """Return the descriptor that is readable when read(0) has to be called until it raises TimeoutError."""
        return self._handle.fileno()

    def close(self) -> None:
        """Close the monitor; twice does no harm."""
        self._handle.close()
        self._waiters.wake()


def _event(found: Optional[Tuple[bool, dict[str, object]]]) -> Event:
    if found is None:
        raise TimeoutError(errno.ETIMEDOUT, "No camera came or went in the time given.")
    plugged, record = found
    return Event(plugged, Info(**record))  # type: ignore[arg-type]


def _end_of(timeout: Optional[float]) -> Optional[float]:
    if timeout is None:
        return None
    if not timeout >= 0:
        raise ValueError("timeout must be a number of seconds that is not negative, or None to wait without limit")
    return None if math.isinf(timeout) else time.monotonic() + timeout


def _left_until(end: Optional[float]) -> Optional[float]:
    return None if end is None else max(end - time.monotonic(), 0.0)


def _fourcc(format: str) -> str:
    if not isinstance(format, str):
        raise TypeError(f"a pixel format is a str, not {type(format).__name__}")
    code = format[:-3] if format.endswith("-BE") else format
    if not 1 <= len(code) <= 4 or not code.isascii() or not code.isprintable():
        raise ValueError(f"{format!r} is no pixel format: give the four letters of a FourCC, such as 'MJPG'")
    return format


def _count(value: SupportsIndex, name: str, least: int = 0) -> int:
    number = operator.index(value)
    if not least <= number <= _LARGEST:
        raise ValueError(f"{name} must be from {least} to {_LARGEST}, not {number}")
    return number


def _interval(fps: Union[float, Fraction, None]) -> Tuple[int, int]:
    """Return the seconds from frame to frame as a fraction; 0/0 leaves the rate to the camera."""
    if fps is None:
        return 0, 0
    if not isinstance(fps, Real):
        raise TypeError(f"fps is a number, not {type(fps).__name__}")
    try:
        rate = float(fps)
    except OverflowError:
        rate = math.inf
    if not _LEAST_FPS <= rate <= _LARGEST:
        raise ValueError(f"no camera has {fps} frames per second")
    if isinstance(fps, (int, Fraction)):
        interval = 1 / Fraction(fps)
    elif rate >= 1:
        interval = 1 / Fraction(rate).limit_denominator(_RATE_DENOMINATOR)
    else:
        interval = Fraction(1 / rate).limit_denominator(_RATE_DENOMINATOR)
    if max(interval.numerator, interval.denominator) > _LARGEST:
        raise ValueError(f"{fps} frames per second is no fraction of integers of 32 bits")
    return interval.numerator, interval.denominator
