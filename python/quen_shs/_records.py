"""What engines and detectors have in common: fields that are checked, shown, compared and pickled."""

from __future__ import annotations

import dataclasses
import operator
import os
from typing import Any

import numpy as np
from numpy.typing import NDArray


def shown(value: Any) -> str:
    """A value in a message: on one line, and short."""
    if value is np.ma.masked:
        return "masked"
    if isinstance(value, np.ndarray):
        return f"an array of {value.dtype}, shape {value.shape}"
    if isinstance(value, type):
        return f"the class {value.__name__}"
    text = " ".join(repr(value).split())
    return text if len(text) <= 100 else text[:97] + "..."


def number(name: str, value: Any) -> float:
    """A float, from anything that is a number, but for True and False.

    Raises
    ------
    TypeError
        It is none.
    ValueError
        It is larger than any float.
    """
    is_float = type(value) is float  # as nearly always, and known at once: calls of the simulator are to cost nothing
    if not is_float and (isinstance(value, (str, bytes, bool, np.bool_)) or value is np.ma.masked):
        raise TypeError(f"{name}: expected a number, found {shown(value)}")
    try:
        return float(value)
    except (TypeError, ValueError):
        raise TypeError(f"{name}: expected a number, found {shown(value)}") from None
    except OverflowError:
        raise ValueError(f"{name}: expected a number that float64 holds, found a larger one") from None


def whole(name: str, value: Any, lowest: int = 0, highest: int = 2**32 - 1) -> int:
    """A whole number within limits, not True or False.

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
        found = None
    if found is None or isinstance(value, bool):
        raise TypeError(f"{name}: expected a whole number, found {shown(value)}")
    if not lowest <= found <= highest:
        raise ValueError(f"{name}: expected {lowest} to {highest}, found {found}")
    return found


def truth(name: str, value: Any) -> bool:
    """True or False.

    Raises
    ------
    TypeError
        It is neither.
    """
    if value is not True and value is not False and not isinstance(value, np.bool_):
        raise TypeError(f"{name}: expected True or False, found {shown(value)}")
    return bool(value)


def word(name: str, value: Any) -> str:
    """A string.

    Raises
    ------
    TypeError
        It is none.
    ValueError
        It has halves of characters, which no UTF-8 has.
    """
    if not isinstance(value, str):
        raise TypeError(f"{name}: expected a word, found {shown(value)}")
    if value.encode(errors="ignore").decode() != value:
        raise ValueError(f"{name}: expected a word in UTF-8, found {shown(value)}")
    return value


def path(name: str, value: Any) -> str:
    """A file's or folder's name.

    Raises
    ------
    TypeError
        It is none.
    ValueError
        It has characters that no name has.
    FileNotFoundError
        It is empty.
    """
    try:
        found = os.fsdecode(value)
    except TypeError:
        raise TypeError(f"{name}: expected a path, found {shown(value)}") from None
    if "\0" in found or found.encode(errors="ignore").decode() != found:
        raise ValueError(f"{name}: expected a path in UTF-8 without zeros, found {found!r}")
    if not found:
        raise FileNotFoundError(f"{name}: expected a name, found none")
    return found


def held(name: str, values: Any) -> NDArray[Any]:
    """A copy of an array, not writeable.

    Raises
    ------
    ValueError
        Lists of different lengths.
    """
    try:
        array = np.array(values)
    except ValueError as error:
        raise ValueError(f"{name}: expected an array, found none: {error}") from None
    array.flags.writeable = False
    return array


def core(name: str, kind: type[Any], value: Any) -> Any:
    """What the compiled functions take for an object of the package.

    Raises
    ------
    TypeError
        It is of another kind.
    """
    if not isinstance(value, kind):
        is_class = isinstance(value, type) and issubclass(value, kind)
        remedy = f"; make one: {value.__name__}(...)" if is_class else ""
        raise TypeError(f"{name}: expected a {kind.__name__}, found {shown(value)}{remedy}")
    return value._core


def limited(default: int | None, lowest: int, highest: int) -> Any:
    """A field of a record that is a whole number within other limits than those of an int."""
    return dataclasses.field(default=default, metadata={"lowest": lowest, "highest": highest})


def _converted(field: dataclasses.Field[Any], value: Any) -> Any:
    kind = str(field.type)
    if value is None and kind.endswith("| None"):
        return None
    if kind.startswith("float"):
        return number(field.name, value)
    if kind.startswith("int"):
        return whole(field.name, value, **{"lowest": -(2**31), "highest": 2**31 - 1, **field.metadata})
    if kind == "bool":
        return truth(field.name, value)
    if kind.startswith("Literal"):
        return word(field.name, value)
    if kind.startswith("ArrayLike") and not isinstance(value, tuple):
        return held(field.name, value)
    return value


def same(a: Any, b: Any) -> bool:
    """Whether values are equal, also where they are arrays."""
    if isinstance(a, np.ndarray) or isinstance(b, np.ndarray):
        return a is not None and b is not None and np.array_equal(np.asarray(a), np.asarray(b))
    return bool(a == b)


class Record:
    """Base of frozen dataclasses whose fields are what they are made of.

    Equal fields make equal records, also where they are arrays. Arrays are copied.
    """

    def __post_init__(self) -> None:
        for field in dataclasses.fields(self):
            object.__setattr__(self, field.name, _converted(field, getattr(self, field.name)))

    def _fields(self) -> dict[str, Any]:
        fields = dataclasses.fields(self)
        return {field.name: getattr(self, field.name) for field in fields}

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Record) or type(self) is not type(other):
            return NotImplemented
        mine, others = self._fields(), other._fields()
        return all(same(mine[name], others[name]) for name in mine)

    def __hash__(self) -> int:
        return hash(type(self))

    def __reduce__(self) -> tuple[Any, ...]:
        return _made_again, (type(self), self._fields())


def _made_again(kind: type[Any], fields: dict[str, Any]) -> Any:
    return kind(**fields)
