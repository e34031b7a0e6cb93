#!/usr/bin/env python3
"""Prints tables of medians and ratios from the JSON files of benchmark runs; exit status 1 when a goal is missed.

A benchmark is named "table/row/column", or "table/row" when its counters are the columns. TABLES describes the known
tables and GOALS the results that are expected of them. A table that is in neither is printed with the columns it has.
"""

import collections
import dataclasses
import json
import os
import statistics
import sys

PEERS = ("libyuv", "opencv", "swscale")  # one core each, like the library
PYTHON_READERS = ("wqz_camera", "opencv", "pyav")
MICROSECONDS = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}


@dataclasses.dataclass
class Table:
    title: str
    columns: tuple = ()  # in the order of printing
    counters: bool = False
    unit: str = "microseconds"
    worst: tuple = ()  # columns that show the largest value instead of the median
    less: dict = None  # {column: (measured column, column to subtract from it)}


TABLES = {
    "yuyv": Table("YUYV to 24-bit pixels", ("tables", "ssse3", "avx2", "vbmi", "neon", *PEERS, "opencv-threads", "limit")),
    "bmp": Table("YUYV frame to picture in its record", ("in-place", "conversion")),
    "tables": Table("Conversion tables"),
    "raw-split": Table("Raw Bayer frame to 24-bit pixels", ("raw0", "raw1", "raw2", "raw3", "limit")),
    "raw-repack": Table("Repacking of raw samples in place", ("raw10", "raw12", "limit")),
    "mjpeg": Table("End of a Motion-JPEG image in 4 MiB", ("library", "byte loop", "vector scan")),
    "session": Table(
        "A frame's way through a session, without the sleeps",
        ("CPU us", "wall us", "CPU us of the sleeps", "asleep us", "copies", "page faults in 300 frames"),
        counters=True,
        unit="per frame",
        worst=("page faults in 300 frames",),
    ),
    "capture": Table(
        "Captured frame beside other libraries, without the camera's own cost",
        ("session", "session above sleeps", "minimal", "minimal above sleeps", "opencv", "libv4l2", "camera",
         "camera and sleeps"),
        unit="microseconds of CPU per frame, which is milliseconds per 1000 frames",
        less={
            "session": ("session", "camera"),
            "session above sleeps": ("session", "camera-sleeping"),
            "minimal": ("minimal", "camera"),
            "minimal above sleeps": ("minimal-sleeping", "camera-sleeping"),
            "opencv": ("opencv", "camera"),
            "libv4l2": ("libv4l2", "camera"),
            "camera": ("camera", None),
            "camera and sleeps": ("camera-sleeping", None),
        },
    ),
    "growth": Table(
        "Sessions side by side in one process",
        ("frames per second", "per camera", "CPU us per frame", "CPU %"),
        counters=True,
        unit="all cameras together",
    ),
    "camera-frame": Table(
        "Frame taken and given back, with the camera's own cost",
        ("library", "poll loop", "opencv", "libv4l2"),
        unit="microseconds of CPU per frame",
    ),
    "camera-process": Table(
        "The same in a process of its own",
        ("library", "poll loop", "v4l2-ctl"),
        unit="microseconds of CPU per frame",
    ),
    "camera-bgr": Table(
        "Frame taken, converted to BGR and given back, with the camera's own cost",
        ("library", "poll loop", "opencv"),
        unit="microseconds of CPU per frame",
    ),
    "camera-memory": Table(
        "Memory of frames, without the camera's own",
        ("allocations", "page faults"),
        counters=True,
        unit="sum over 1280 frames",
        worst=("allocations", "page faults"),
    ),
    "camera-latency": Table("From a frame's being ready to its being in hand", ("library", "poll loop", "select loop")),
    "camera-waiting": Table(
        "Frame that had to be waited for",
        ("library", "poll loop"),
        unit="microseconds of CPU per frame",
    ),
    "camera-many": Table(
        "Sixteen 640x480 MJPEG cameras in one thread, by poll",
        ("frames per second", "least of a camera", "CPU us per frame"),
        counters=True,
        unit="all cameras together",
    ),
    "python-frame": Table("Frame in Python", PYTHON_READERS, unit="microseconds of CPU per frame"),
    "python-bgr": Table("Frame in Python, as BGR array", PYTHON_READERS, unit="microseconds of CPU per frame"),
    "discovery": Table("Discovery", ("library", "libudev alone")),
    "catalogue": Table("List of capture modes"),
}


@dataclasses.dataclass
class Goal:
    """A goal for one column, in every row of its table that has `rows` in its name.

    at_least compares speed with the fastest of the columns in `beside`. at_most compares time with the shortest of
    them. Either limits the value itself when `beside` is empty. A row also meets the goal when its time is above the
    shortest by no more than `or_above` microseconds, or when it meets the goal `instead`.
    """

    table: str
    column: str
    beside: tuple = ()
    at_least: float = None
    at_most: float = None
    or_above: float = None
    instead: "Goal" = None
    rows: str = ""
    name: str = ""

    def limit(self):
        text = f"at least {self.at_least:g}" if self.at_most is None else f"at most {self.at_most:g}"
        if self.or_above is not None:
            text += f", or {self.or_above:g} us more"
        return text if self.instead is None else f"{text}, or {self.instead.limit()} of {self.instead.beside[0]}"


CAMERA_PEERS = (
    ("camera-frame", ("poll loop", "opencv", "libv4l2")),
    ("camera-process", ("poll loop", "v4l2-ctl")),
)

GOALS = (
    Goal("yuyv", "ssse3", PEERS, at_least=1.0, name="ssse3 : fastest peer"),
    *(
        Goal("yuyv", column, PEERS, at_least=1.5, name=f"{column} : fastest peer",
             instead=Goal("yuyv", column, ("limit",), at_least=0.9))
        for column in ("avx2", "vbmi")
    ),
    Goal("bmp", "in-place", ("conversion",), at_most=1.25, rows="1920x1080", name="in-place : conversion"),
    Goal("tables", "library", at_most=60, name="building, us"),
    Goal("raw-repack", "raw10", ("limit",), at_least=0.5, rows="1920x1080", name="raw10 : limit"),
    Goal("raw-repack", "raw12", ("limit",), at_least=0.5, rows="1920x1080", name="raw12 : limit"),
    Goal("mjpeg", "library", at_most=3, name="search, us"),
    Goal("session", "page faults in 300 frames", at_most=0, name="page faults"),
    *(
        Goal("capture", column, (peer,), at_most=limit, name=f"{column} : {peer}")
        for column in ("session", "session above sleeps")
        for peer, limit in (("opencv", 1.0), ("libv4l2", 1.0), ("minimal", 1.3))
    ),
    Goal("capture", "session above sleeps", ("minimal above sleeps",), at_most=1.3, name="both above sleeps : minimal"),
    *(
        Goal(table, "library", (peer,), at_most=1.1, or_above=1, name=f"library : {peer}")
        for table, peers in CAMERA_PEERS
        for peer in peers
    ),
    Goal("camera-bgr", "library", ("poll loop",), at_most=1.1, name="library : poll loop"),
    Goal("camera-bgr", "library", ("opencv",), at_most=0.5, rows="YUYV", name="library : opencv"),
    Goal("camera-bgr", "library", ("opencv",), at_most=1.0, rows="MJPEG", name="library : opencv"),
    Goal("camera-memory", "allocations", at_most=0, name="allocations"),
    Goal("camera-memory", "page faults", at_most=0, name="page faults"),
    # A tenth is how much the medians of the same loop differ between runs.
    Goal("camera-latency", "library", ("poll loop",), at_most=1.1, name="library : poll loop"),
    Goal("camera-latency", "library", ("select loop",), at_most=1.1, name="library : select loop"),
    Goal("camera-many", "least of a camera", at_least=29.5, rows="30 per second, library", name="least of a camera"),
    *(
        Goal(table, "wqz_camera", (peer,), at_most=1.0, name=f"wqz_camera : {peer}")
        for table in ("python-frame", "python-bgr")
        for peer in PYTHON_READERS[1:]
    ),
    Goal("catalogue", "library", at_most=1000, name="list, us"),
)


@dataclasses.dataclass
class Median:
    value: float  # microseconds, or the value of a counter
    items_per_second: float = None

    def text(self):
        if self.items_per_second is not None:
            return f"{self.items_per_second / 1e6:.0f}"
        return f"{self.value:.1f}"


def samples_of(run):
    """Yields ((table, row, column), value, rate) for everything that one run measured."""
    table, row, *rest = run["run_name"].split("/")
    known = TABLES.get(table)
    if known and known.counters:
        for column in known.columns:
            yield (table, row, column), run[column], None
    else:
        yield (table, row, rest[0]), run["real_time"] * MICROSECONDS[run["time_unit"]], run.get("items_per_second")


def read_runs(paths):
    """Returns {table: {row: {column: Median}}}, with rows in the order in which the benchmarks are registered."""
    samples = collections.defaultdict(list)
    failures = {}
    for path in paths:
        if os.path.getsize(path) == 0:
            continue  # a filter left nothing to run
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        for run in sorted(runs, key=lambda run: run["family_index"]):
            if run.get("error_occurred"):
                failures[run["run_name"]] = run["error_message"]
            elif run["run_type"] == "iteration":
                for key, value, rate in samples_of(run):
                    samples[key].append((value, rate))
    for name, message in failures.items():
        print(f"{name}: {message}", file=sys.stderr)
    tables = collections.defaultdict(lambda: collections.defaultdict(dict))
    for (table, row, column), measured in samples.items():
        values, rates = zip(*measured)
        rate = None if None in rates else statistics.median(rates)
        worst = table in TABLES and column in TABLES[table].worst
        tables[table][row][column] = Median(max(values) if worst else statistics.median(values), rate)
    for name, table in TABLES.items():
        if table.less and name in tables:
            tables[name] = {row: take_away(table.less, medians) for row, medians in tables[name].items()}
    return tables


def take_away(less, medians):
    """Subtracts medians. The least result is a tenth of a microsecond, which is too little to measure."""
    result = {}
    for column, (measured, base) in less.items():
        if measured in medians and (base is None or base in medians):
            value = medians[measured].value - (medians[base].value if base else 0)
            result[column] = Median(max(value, 0.1))
    return result


def print_row(cells):
    print("| " + " | ".join(cells) + " |")


def print_table(name, rows):
    table = TABLES.get(name, Table(name))
    present = {column for columns in rows.values() for column in columns}
    columns = [column for column in table.columns if column in present] + sorted(present - set(table.columns))
    rates = all(median.items_per_second is not None for columns_of in rows.values() for median in columns_of.values())
    print(f"\n{table.title}, {'million pixels per second' if rates else table.unit}:\n")
    print_row([""] + columns)
    print_row(["---"] + ["---:"] * len(columns))
    for row, medians in rows.items():
        print_row([row] + [medians[column].text() if column in medians else "-" for column in columns])


def measure(goal, medians):
    """Returns the ratio or value that a goal limits, or None when the row lacks one of its columns."""
    beside = [medians[column].value for column in goal.beside if column in medians]
    if goal.column not in medians or (goal.beside and not beside):
        return None
    value = medians[goal.column].value
    if not goal.beside:
        return value
    return min(beside) / value if goal.at_least is not None else value / min(beside)


def is_met(goal, medians):
    value = measure(goal, medians)
    if value is None or (value >= goal.at_least if goal.at_most is None else value <= goal.at_most):
        return True
    if goal.or_above is not None:
        shortest = min(medians[column].value for column in goal.beside if column in medians)
        return medians[goal.column].value - shortest <= goal.or_above
    return goal.instead is not None and is_met(goal.instead, medians)


def goal_text(goal, medians):
    """Returns the measured value, with that of the other goal when there is one."""
    value = measure(goal, medians)
    if value is None:
        return ""
    return f"{value:.2f}" if goal.instead is None else f"{value:.2f}, {goal_text(goal.instead, medians)}"


def print_goals(name, rows):
    """Prints the goals of a table. Returns how many were missed."""
    goals = [goal for goal in GOALS if goal.table == name]
    if not goals:
        return 0
    missed = 0
    print()
    print_row(["", "goal"] + list(rows) + ["result"])
    print_row(["---", "---"] + ["---:"] * len(rows) + ["---"])
    for goal in goals:
        texts = [goal_text(goal, medians) if goal.rows in row else "" for row, medians in rows.items()]
        met = all(is_met(goal, medians) for row, medians in rows.items() if goal.rows in row)
        missed += not met
        result = "not run on this processor" if not any(texts) else "met" if met else "MISSED"
        print_row([goal.name, goal.limit()] + texts + [result])
    return missed


def main(paths):
    tables = read_runs(paths)
    missed = 0
    for name in list(TABLES) + sorted(set(tables) - set(TABLES)):
        if name in tables:
            print_table(name, tables[name])
            missed += print_goals(name, tables[name])
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
