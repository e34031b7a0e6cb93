"""The virtual camera's test card, as programs should show it."""

import struct

# Red, green and blue of the vertical bars, from the left.
BARS = ((235, 235, 235), (226, 214, 40), (36, 206, 214), (40, 196, 62), (204, 48, 196), (210, 44, 46), (44, 60, 206),
        (20, 22, 28))
BARS_ROW = 0.55  # of the height: below the digits, above the ramps
PATCH = 5  # pixels on a side that are averaged
TOLERANCE = 8  # for the rounding of lossy and subsampled formats; the bars are further apart


def seen_bars(pixels, width, height):
    """The average colour in the middle of each bar."""
    top = int(height * BARS_ROW)
    for number in range(len(BARS)):
        left = (2 * number + 1) * width // (2 * len(BARS)) - PATCH // 2
        rows = [pixels[((top + y) * width + left) * 3:][:PATCH * 3] for y in range(PATCH)]
        yield tuple(sum(sum(row[channel::3]) for row in rows) // PATCH ** 2 for channel in range(3))


def colour_faults(pixels, width, height):
    """Compares red, green, blue bytes of a picture with the card; returns what is wrong, or an empty list."""
    return ["bar %d is %s instead of %s" % (number + 1, seen, bar)
            for number, (seen, bar) in enumerate(zip(seen_bars(pixels, width, height), BARS))
            if max(abs(a - b) for a, b in zip(seen, bar)) > TOLERANCE]


def yuyv_number(frame):
    """The number in the first 64 pixels of a YUYV frame: two pixels a bit, the highest bit first."""
    number = 0
    for bit in range(32):
        number = number * 2 + (1 if frame[bit * 4] > 128 else 0)
    return number


def jpeg_number(frame):
    """The number in the comment of a JPEG frame."""
    at = 2
    while at + 4 <= len(frame) and frame[at] == 0xff and frame[at + 1] != 0xda:
        length = struct.unpack(">H", frame[at + 2:at + 4])[0]
        if frame[at + 1] == 0xfe and frame[at + 4:at + 10] == b"frame ":
            return int(frame[at + 10:at + 20])
        at += 2 + length
    return None


def split_jpegs(data):
    """The images of a Motion-JPEG stream without padding."""
    return [b"\xff\xd8\xff" + part for part in data.split(b"\xff\xd8\xff")[1:]]
