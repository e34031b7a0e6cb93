"""The controls of a camera as a mapping."""

from __future__ import annotations

import errno
import operator
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from typing import Any, SupportsIndex, Union

from . import _native

Value = Union[int, bool, str, None]

# Numbers of the library's header.
INTEGER, BOOLEAN, MENU, BUTTON, INTEGER64, STRING, BITMASK, INTEGER_MENU = 1, 2, 3, 4, 5, 7, 8, 9
TYPES = {INTEGER: "integer", BOOLEAN: "boolean", MENU: "menu", BUTTON: "button", INTEGER64: "integer64",
         STRING: "string", BITMASK: "bitmask", INTEGER_MENU: "integer menu"}
DISABLED, GRABBED, READ_ONLY, INACTIVE, WRITE_ONLY, VOLATILE = 0x01, 0x02, 0x04, 0x10, 0x40, 0x80


@dataclass(frozen=True)
class Control:
    """What a control takes, and its state at the time it was asked for."""

    key: str  #: "white_balance_temperature"
    name: str  #: the driver's: "White Balance Temperature"
    id: int  #: V4L2_CID_...
    type: str  #: "integer", "boolean", "menu", "button", "integer64", "string", "bitmask", "integer menu", or "other"
    minimum: int  #: for a string: its least length
    maximum: int
    step: int
    default: int
    menu: dict[int, str]  #: names of the items by their values; empty unless it is a menu
    disabled: bool
    grabbed: bool  #: cannot be set while the camera captures
    read_only: bool
    inactive: bool  #: another control, often an automatic one, has to change first
    write_only: bool
    volatile: bool  #: the camera changes it by itself


class Controls(Mapping[str, Value]):
    """The controls of a camera by their keys, such as "brightness".

    A key may be spelled like the driver's name: neither case nor punctuation counts. Reading one asks the camera. The
    value is a number, a bool for a switch, the index of a menu's item, the text of a string, and None for a control
    that cannot be read. Setting one takes the same, also the name of a menu's item, and "default". The camera rounds
    numbers that are out of range.
    """

    def __init__(self, handle: _native.Camera) -> None:
        self._handle = handle
        self._records: dict[str, dict[str, Any]] = {}

    def __getitem__(self, key: str) -> Value:
        record = self._record(key)
        if record["type"] not in TYPES or record["type"] == BUTTON or record["flags"] & WRITE_ONLY:
            return None
        number, text = self._handle.get_control(record["id"])
        if record["type"] == STRING:
            return text
        return bool(number) if record["type"] == BOOLEAN else number

    def __setitem__(self, key: str, value: Union[SupportsIndex, str]) -> None:
        control = self._record(key)["id"]
        try:
            if isinstance(value, str):
                self._handle.set_text(control, _checked_text(value))
            else:
                self._handle.set_number(control, _checked_number(value))
        except OSError as error:
            if error.errno in (errno.EINVAL, errno.ERANGE):
                raise ValueError(error.strerror) from error
            raise

    def __iter__(self) -> Iterator[str]:
        return iter(self._all())

    def __len__(self) -> int:
        return len(self._all())

    def __contains__(self, key: object) -> bool:
        return isinstance(key, str) and _plain(key) in map(_plain, self._all())

    def __repr__(self) -> str:
        return f"<Controls {', '.join(self._all())}>"

    def details(self, key: str) -> Control:
        """Return range, default, menu and present state of a control."""
        self._records = {}  # the state may have changed
        record = self._record(key)
        kind, flags = record["type"], record["flags"]
        menu = dict(self._handle.menu(record["id"])) if kind in (MENU, INTEGER_MENU) else {}
        return Control(
            **{name: record[name] for name in ("key", "name", "id", "minimum", "maximum", "step", "default")},
            type=TYPES.get(kind, "other"), menu=menu, disabled=bool(flags & DISABLED), grabbed=bool(flags & GRABBED),
            read_only=bool(flags & READ_ONLY), inactive=bool(flags & INACTIVE), write_only=bool(flags & WRITE_ONLY),
            volatile=bool(flags & VOLATILE))

    def reset(self, *keys: str) -> None:
        """Set the named controls to their defaults; without a name, all that can be set."""
        for key in keys:
            self._handle.reset_control(self._record(key)["id"])
        # Each default may change which controls are active, so the state is asked for each, and all are tried twice.
        for key in () if keys else [*self, *self]:
            self._records = {}
            record = self._record(key)
            if _has_default(record):
                self._handle.reset_control(record["id"])

    def _all(self) -> dict[str, dict[str, Any]]:
        records = self._records
        if not records:
            records = {}  # another thread may go through the old ones
            for record in self._handle.controls():
                records.setdefault(record["key"], record)
            self._records = records
        return records

    def _record(self, key: str) -> dict[str, Any]:
        if not isinstance(key, str):
            raise TypeError(f"the name of a control is a str, not {type(key).__name__}")
        records = self._all()
        if key in records:
            return records[key]
        for record in records.values():
            if _plain(record["key"]) == _plain(key):
                return record
        raise KeyError(self._unknown(key))

    def _unknown(self, key: str) -> str:
        import difflib  # costs time that only this message is worth
        near = difflib.get_close_matches(key, self._all(), 1)
        guess = f"; did you mean {near[0]!r}" if near else ""
        return f"the camera has no control {key!r}{guess}. It has: {', '.join(self._all()) or 'none'}"


def _plain(key: str) -> str:
    return "".join(letter for letter in key.lower() if letter.isalnum())


def _has_default(record: dict[str, Any]) -> bool:
    kinds = (INTEGER, BOOLEAN, MENU, INTEGER64, BITMASK, INTEGER_MENU)
    return record["type"] in kinds and not record["flags"] & (DISABLED | GRABBED | READ_ONLY | INACTIVE)


def _checked_number(value: SupportsIndex) -> int:
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"a control takes an int, a bool or a str, not {type(value).__name__}") from None
    if not -2**63 <= number < 2**63:
        raise ValueError(f"{number} is more than any control takes")
    return number


def _checked_text(value: str) -> str:
    if "\0" in value:
        raise ValueError("a control takes no text with a zero in it")
    return value
