"""What the library tells about cameras and modes."""

from __future__ import annotations

from dataclasses import dataclass
from fractions import Fraction
from typing import Any, NamedTuple, Optional, Tuple


@dataclass(frozen=True, repr=False)
class Info:
    """A camera as it was found."""

    node: str  #: "/dev/video0"
    card: str  #: name of the camera by its driver
    identity: str  #: a name for Camera that survives replugging and restarting
    driver: str
    location: str  #: place on the bus by the driver
    vendor: int  #: USB ids, 0 for a camera that is not on USB
    product: int
    release: int  #: release of the device in binary-coded decimal: 0x0110 is 1.10
    bus: int  #: USB bus number, 0 for a camera that is not on USB
    manufacturer: str  #: USB strings, empty where the camera has none
    product_name: str
    serial: str
    index: int  #: place in the list
    error: int  #: 0, or the errno value with which the node refuses to be opened

    def __repr__(self) -> str:
        refused = f", error={self.error}" if self.error else ""
        return f"<Info {self.node} {self.card!r} {self.identity}{refused}>"


class Range(NamedTuple):
    """Values from minimum to maximum in steps. A single value has equal bounds and a step of 0."""

    minimum: Any
    maximum: Any
    step: Any


@dataclass(frozen=True)
class Offer:
    """A mode that the camera offers, or a range of modes."""

    format: str  #: the FourCC: "MJPG"
    description: str  #: the driver's words for the format
    compressed: bool
    emulated: bool  #: made by a library or driver, not by the camera
    width: Range
    height: Range
    interval: Optional[Range]  #: Fractions of a second from frame to frame; None when the driver names none

    @property
    def size(self) -> Tuple[int, int]:
        """Width and height; of a range the largest."""
        return self.width.maximum, self.height.maximum

    @property
    def fps(self) -> Optional[float]:
        """Frames per second; of a range the most. None when the driver names none."""
        return None if self.interval is None else float(1 / self.interval.minimum)


@dataclass(frozen=True)
class Mode:
    """What the driver accepted: every frame is in this mode."""

    format: str
    size: Tuple[int, int]
    interval: Optional[Fraction]  #: seconds from frame to frame; None when the driver tells none
    bytes_per_line: int  #: 0 for compressed formats
    image_size: int  #: the most bytes that a frame takes
    buffers: int  #: kernel buffers; one fewer may be held as frames

    @property
    def fps(self) -> Optional[float]:
        """Frames per second, or None when the driver tells none."""
        return None if self.interval is None else float(1 / self.interval)


@dataclass(frozen=True)
class Counters:
    """Frames since the last start; recover goes on counting."""

    delivered: int  #: handed out
    lost: int  #: missing in the driver's numbering
    damaged: int  #: flagged by the driver
    skipped: int  #: given back unseen: by `skip` of start and by `newest` of read


@dataclass(frozen=True)
class Event:
    """A camera that came or went."""

    plugged: bool  #: False when it was unplugged
    info: Info


def fraction(parts: Tuple[int, int]) -> Optional[Fraction]:
    """Make a fraction of numerator and denominator; a zero in either stands for "unknown"."""
    return Fraction(*parts) if all(parts) else None


def offer(record: dict[str, Any]) -> Offer:
    """Make an Offer of what the compiled module tells."""
    shortest, longest, step = [fraction(parts) for parts in record.pop("interval")]
    interval = None if shortest is None or longest is None else Range(shortest, longest, step or Fraction(0))
    return Offer(width=Range(*record.pop("width")), height=Range(*record.pop("height")), interval=interval, **record)


def mode(record: dict[str, Any]) -> Mode:
    """Make a Mode of what the compiled module tells."""
    return Mode(interval=fraction(record.pop("interval")), **record)
