#!/usr/bin/env python3
"""Takes sixty frames beside other work in one event loop, and goes on when the camera is unplugged and comes back.

Usage: event_loop.py [CAMERA]
"""

import asyncio
import sys

import wqz_camera


async def take_frames(camera, count):
    taken = 0
    while taken < count:
        try:
            async for frame in camera.aframes(timeout=5):
                taken += 1
                if taken == count:
                    break
        except wqz_camera.Unplugged:
            print("unplugged", flush=True)
            await asyncio.to_thread(camera.recover, 30)
            print("back", flush=True)


async def do_other_work():
    while True:
        print("still here", flush=True)
        await asyncio.sleep(0.5)


async def main(name=""):
    with wqz_camera.Camera(name) as camera:
        await asyncio.to_thread(camera.start, "MJPG", (640, 480), 30)
        other_work = asyncio.create_task(do_other_work())
        await take_frames(camera, 60)
        other_work.cancel()
        print(f"{camera.counters().delivered} frames, {camera.counters().lost} lost")


if __name__ == "__main__":
    try:
        asyncio.run(main(*sys.argv[1:]))
    except OSError as error:
        sys.exit(error.strerror)
