"""Cameras on Linux: frames as NumPy arrays without a copy, controls, plugging, and asyncio.

    import wqz_camera

    with wqz_camera.Camera() as camera:
        camera.start("YUYV", (640, 480), fps=30)
        for frame in camera.frames(timeout=2):
            picture = frame.bgr()

What fails raises OSError with the errno value and a sentence that says what to do: Unplugged when the camera was
unplugged, TimeoutError when nothing came in time, Cancelled when another thread ended the wait, PermissionError and so
on for the others. Wrong arguments raise TypeError, ValueError or KeyError.
"""

from ._camera import Camera, Monitor, cameras
from ._controls import Control, Controls
from ._native import Cancelled, Frame, Unplugged
from ._records import Counters, Event, Info, Mode, Offer, Range

__all__ = ["Camera", "Cancelled", "Control", "Controls", "Counters", "Event", "Frame", "Info", "Mode", "Monitor", "Offer",
           "Range", "Unplugged", "cameras"]
