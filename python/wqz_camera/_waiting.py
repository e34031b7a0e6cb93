"""Waiting for a descriptor in the event loop of asyncio."""

from __future__ import annotations

import asyncio
import os
from collections.abc import Callable
from typing import Optional


class Waiters:
    """The tasks that wait for one descriptor, of any number of event loops.

    wake() ends all waits, because a descriptor that is closed wakes nobody. It may be called on any thread.
    """

    def __init__(self) -> None:
        self._wakers: set[Callable[[], None]] = set()

    async def wait(self, descriptor: int, timeout: Optional[float], is_over: Callable[[], bool]) -> None:
        """Wait until the descriptor is readable, wake() is called, or the time is over.

        is_over tells whether another thread has called wake() just before this wait, and maybe closed the descriptor.
        """
        loop = asyncio.get_running_loop()
        woken = loop.create_future()
        try:
            watched = os.dup(descriptor)  # an event loop knows one reader for each descriptor
        except OSError:
            if is_over():
                return
            raise
        timer = None if timeout is None else loop.call_later(max(timeout, 0), _finish, woken)

        def wake() -> None:
            loop.call_soon_threadsafe(_finish, woken)

        self._wakers.add(wake)
        try:
            if not is_over():
                loop.add_reader(watched, _finish, woken)
                await woken
        finally:
            self._wakers.discard(wake)
            loop.remove_reader(watched)
            os.close(watched)
            if timer is not None:
                timer.cancel()

    def wake(self) -> None:
        """End the waits of all tasks."""
        for wake in tuple(self._wakers):
            try:
                wake()
            except RuntimeError:
                pass  # that event loop was closed, and its tasks with it


def _finish(future: asyncio.Future[None]) -> None:
    if not future.done():
        future.set_result(None)
