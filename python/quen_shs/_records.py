"""What engines and detectors have in common: fields that are checked, shown, compared and pickled."""

from __future__ import annotations

import dataclasses
import operator
from typing import Any

import numpy as np


def number(name: str, value: Any) -> float:
    """A float, from anything that is a number.

    Raises
    ------
    TypeError
        It is none.
    """
    if isinstance(value, (str, bytes)):
        raise TypeError(f"{name}: expected a number, found {value!r}")
    try:
        return float(value)
    except TypeError:
        raise TypeError(f"{name}: expected a number, found {value!r}") from None


def whole(name: str, value: Any, lowest: int = 0, highest: int = 2**32 - 1) -> int:
    """A whole number within limits.

    Raises
    ------
    TypeError
        It is no whole number.
    ValueError
        It is out of its range.
    """
    try:
        found = operator.index(value)
    except TypeError:
        raise TypeError(f"{name}: expected a whole number, found {value!r}") from None
    if not lowest <= found <= highest:
        raise ValueError(f"{name}: expected {lowest} to {highest}, found {found}")
    return found


def _converted(name: str, kind: str, value: Any) -> Any:
    if value is None and kind.endswith("| None"):
        return None
    if kind.startswith("float"):
        return number(name, value)
    if kind.startswith("int"):
        return whole(name, value, -(2**31), 2**31 - 1)
    return value


def _same(a: Any, b: Any) -> bool:
    if isinstance(a, np.ndarray) or isinstance(b, np.ndarray):
        return a is not None and b is not None and np.array_equal(np.asarray(a), np.asarray(b))
    return bool(a == b)


class Record:
    """Base of frozen dataclasses whose fields are what they are made of.

    Equal fields make equal records, also where they are arrays.
    """

    def __post_init__(self) -> None:
        for field in dataclasses.fields(self):
            value = _converted(field.name, str(field.type), getattr(self, field.name))
            object.__setattr__(self, field.name, value)

    def _fields(self) -> dict[str, Any]:
        fields = dataclasses.fields(self)
        return {field.name: getattr(self, field.name) for field in fields}

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Record) or type(self) is not type(other):
            return NotImplemented
        mine, others = self._fields(), other._fields()
        return all(_same(mine[name], others[name]) for name in mine)

    def __hash__(self) -> int:
        return hash(type(self))

    def __reduce__(self) -> tuple[Any, ...]:
        return _made_again, (type(self), self._fields())


def _made_again(kind: type[Any], fields: dict[str, Any]) -> Any:
    return kind(**fields)
