"""Shared-memory image streams, by which the programs of one machine hand frames to each other."""

from __future__ import annotations

import collections.abc
import math
import types
from typing import Any, Union

import numpy as np
from numpy.typing import ArrayLike, DTypeLike, NDArray

from . import _core
from ._records import number, shown, whole, word

KeywordValue = Union[int, float, str]

_A_FRAME = 1.0  # seconds within which a writer lets others have a whole copy


def _seconds(timeout: float | None) -> float | None:
    seconds = None if timeout is None else number("timeout", timeout)
    if seconds is not None and math.isnan(seconds):
        raise ValueError("timeout: expected seconds, found nan")
    return seconds


class Stream:
    """A stream of any program, layout "2.00", that is read.

    Arrays are copies, [row, column] or [plane, row, column]: of a stream of x, y and z pixels they have the shape (z,
    y, x). While a call waits, other Python threads run, and Ctrl-C ends it.

    Parameters
    ----------
    name : str
        That of the file NAME.im.shm in the folder of the environment variable MILK_SHM_DIR, else /milk/shm, else /tmp.

    Raises
    ------
    FileNotFoundError
        There is no such stream, or it is not complete yet.
    OSError
        It cannot be read, or has another layout.

    Attributes
    ----------
    name : str
    shape : tuple of int
    dtype : numpy.dtype
    frame_count : int
        The counter of the frame that was read last; 0 if none was.
    acquired, written : int
        When it was acquired and written: nanoseconds, TAI, as of ``time.clock_gettime_ns(time.CLOCK_TAI)``.
    lost : int
        Frames that were written between those that were read, by the stream's counter.

    Examples
    --------
    >>> with Stream.create("example", (2, 3), "uint16", keywords={"FRAME": 0}) as writer, Stream("example") as stream:
    ...     writer.publish(np.full((2, 3), 7, "uint16"), FRAME=12)
    ...     stream.wait(timeout=1.0), stream.read().tolist(), stream.keywords
    (True, [[7, 7, 7], [7, 7, 7]], {'FRAME': 12})
    """

    def __init__(self, name: str) -> None:
        self.name = word("name", name)
        self._core = _core.StreamReader(self.name)
        self.shape: tuple[int, ...] = tuple(reversed(self._core.size()))
        self.dtype: np.dtype[Any] = np.dtype(self._core.type())
        self.frame_count = 0
        self.acquired = 0
        self.written = 0
        self.lost = 0

    @staticmethod
    def create(
        name: str,
        shape: int | tuple[int, ...],
        dtype: DTypeLike,
        keywords: collections.abc.Mapping[str, KeywordValue | tuple[KeywordValue, str]] | None = None,
    ) -> StreamWriter:
        """Make a stream, to publish frames.

        Parameters
        ----------
        name : str
            A stream of this name that no living program has locked is replaced.
        shape : int or tuple of int
            One to three axes: (x,), (y, x) or (z, y, x).
        dtype : dtype_like
            Whole numbers of 8 to 64 bits, floats of 16 to 64, complex ones of 64 or 128.
        keywords : mapping, optional
            Names (at most 15 characters) and first values: int, float or str (at most 16), or a pair of that and a
            comment. They keep their types.

        Returns
        -------
        StreamWriter

        Raises
        ------
        ValueError
            A name, a shape or a keyword that the layout does not have.
        OSError
            A living program writes this stream, or the system refuses to make it.

        Examples
        --------
        >>> with Stream.create("example", 52, float, keywords={"FRAME": (0, "counted from 0")}) as writer:
        ...     writer.publish(np.zeros(52))
        """
        return StreamWriter(name, shape, dtype, keywords)

    @property
    def count(self) -> int:
        """How many frames have been written so far."""
        return self._core.count()

    @property
    def keywords(self) -> dict[str, KeywordValue]:
        """Names and values of the keywords as they are now."""
        return {name: value for name, value, _ in self._core.keywords()}

    @property
    def comments(self) -> dict[str, str]:
        """Names and comments of the keywords."""
        return {name: comment for name, _, comment in self._core.keywords()}

    @property
    def is_replaced(self) -> bool:
        """Whether the file is gone, or another one has its name: a new `Stream` attaches to that."""
        return self._core.is_replaced()

    def wait(self, timeout: float | None = None) -> bool:
        """Wait until there is a frame that has not been read.

        Parameters
        ----------
        timeout : float, optional
            Seconds; without end if there is none.

        Returns
        -------
        bool
            False where the time was over first.

        Examples
        --------
        >>> with Stream.create("example", 3, "int8"), Stream("example") as stream:
        ...     stream.wait(timeout=0.01)
        False
        """
        return self._core.wait(self.frame_count, _seconds(timeout)) != self.frame_count

    def read(self) -> NDArray[Any]:
        """Copy the frame that is there now: a whole one.

        Returns
        -------
        ndarray
            Of `shape` and `dtype`. Zeros if no frame was written yet.

        Raises
        ------
        TimeoutError
            The writer let nobody have a whole frame within a second: it writes without a pause, or has died while it
            wrote.

        Examples
        --------
        >>> with Stream.create("example", 3, "int8") as writer, Stream("example") as stream:
        ...     writer.publish(np.array([1, 2, 3], "int8"))
        ...     stream.read()
        array([1, 2, 3], dtype=int8)
        """
        frame = np.empty(self.shape, self.dtype)
        self._read(frame)
        return frame

    def record(self, frames: int, timeout: float | None = 10.0) -> NDArray[Any]:
        """Wait for the next frames, and copy them; `lost` tells those that were missed.

        Parameters
        ----------
        frames : int
            How many, at least 1. One that is there and has not been read is the first.
        timeout : float, optional
            The longest wait for each, seconds.

        Returns
        -------
        ndarray, shape (frames, ...)

        Raises
        ------
        TimeoutError
            No frame came for so long.

        Examples
        --------
        >>> with Stream.create("example", 3, "int8") as writer, Stream("example") as stream:
        ...     writer.publish(np.array([1, 2, 3], "int8"))
        ...     stream.record(1)
        array([[1, 2, 3]], dtype=int8)
        """
        cube = np.empty((whole("frames", frames, 1, 2**31), *self.shape), self.dtype)
        for frame in cube:
            if not self.wait(timeout):
                raise TimeoutError(f"stream {self.name}: no frame has come for {timeout:g} s")
            self._read(frame)
        return cube

    def close(self) -> None:
        """Give the stream's semaphore back. Whatever is asked of it afterwards raises ValueError.

        Examples
        --------
        >>> with Stream.create("example", 3, "int8"):
        ...     stream = Stream("example")
        ...     stream.close()
        """
        self._core.close()

    def __enter__(self) -> Stream:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: types.TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"Stream({self.name!r}): {self.shape}, {self.dtype}"

    def _read(self, frame: NDArray[Any]) -> None:
        if not self._core.read(frame, _A_FRAME):
            raise TimeoutError(f"stream {self.name}: no whole frame within {_A_FRAME:g} s")
        before = self.frame_count
        self.frame_count, self.acquired, self.written, _ = self._core.info()
        if before:
            self.lost += max(self.frame_count - before - 1, 0)


class StreamWriter:
    """A stream that is made here, by `Stream.create`; it is gone when this is closed.

    Attributes
    ----------
    name : str
    shape : tuple of int
    dtype : numpy.dtype

    Examples
    --------
    >>> with Stream.create("example", (2, 3), "float64") as writer:
    ...     writer.publish(np.zeros((2, 3)))
    ...     writer.shape, str(writer.dtype)
    ((2, 3), 'float64')
    """

    def __init__(
        self,
        name: str,
        shape: int | tuple[int, ...],
        dtype: DTypeLike,
        keywords: collections.abc.Mapping[str, KeywordValue | tuple[KeywordValue, str]] | None = None,
    ) -> None:
        self.name = word("name", name)
        lengths = shape if isinstance(shape, tuple) else (shape,)
        self.shape: tuple[int, ...] = tuple(whole("shape", length, 1) for length in lengths)
        self.dtype: np.dtype[Any] = np.dtype(dtype).newbyteorder("=")
        if keywords is not None and not isinstance(keywords, collections.abc.Mapping):
            raise TypeError(f"keywords: expected a mapping of names to values, found {shown(keywords)}")
        described = {word("keywords", key): _described(key, value) for key, value in (keywords or {}).items()}
        self._values = {key: value for key, (value, _) in described.items()}
        parts = [(key, value, comment) for key, (value, comment) in described.items()]
        self._core = _core.StreamWriter(self.name, list(reversed(self.shape)), self.dtype.name, parts)

    @property
    def count(self) -> int:
        """How many frames have been published."""
        return self._core.count()

    @property
    def path(self) -> str:
        """The stream's file."""
        return self._core.path()

    @property
    def keywords(self) -> dict[str, KeywordValue]:
        """Names and values of the keywords."""
        return dict(self._values)

    def publish(self, frame: ArrayLike, *, acquired: int | None = None, **keywords: KeywordValue) -> None:
        """Put a frame into the stream, and wake those who wait for it.

        Parameters
        ----------
        frame : array_like
            Of `shape` and `dtype`.
        acquired : int, optional
            When it was acquired: nanoseconds, TAI; now if nothing is said.
        **keywords
            New values of some of the keywords, of the types that they began with.

        Raises
        ------
        TypeError
            Another dtype, or a keyword's value of another type.
        ValueError
            Another shape, or no such keyword.

        Examples
        --------
        >>> with Stream.create("example", (2, 2), "float32", keywords={"GAIN": 0.5}) as writer:
        ...     writer.publish(np.ones((2, 2), "float32"), GAIN=0.25)
        ...     writer.count
        1
        """
        pixels = np.ascontiguousarray(frame)
        if pixels.dtype != self.dtype:
            raise TypeError(f"frame: expected {self.dtype}, found {pixels.dtype}")
        if np.shape(frame) != self.shape:
            raise ValueError(f"frame: expected the shape {self.shape}, found {np.shape(frame)}")
        values = dict(self._values)
        for key, value in keywords.items():
            if key not in values:
                raise ValueError(f"{key}: expected one of the keywords {', '.join(values) or '(none)'}")
            values[key] = _value(key, value, type(values[key]))
        when = None if acquired is None else whole("acquired", acquired, 0, 2**63 - 1)
        self._core.publish(pixels, when, list(values.values()))
        self._values = values

    def close(self) -> None:
        """Unlink the stream's file. Readers keep what they have, and see that it is gone.

        Examples
        --------
        >>> writer = Stream.create("example", 3, "int8")
        >>> stream = Stream("example")
        >>> writer.close()
        >>> stream.is_replaced
        True
        """
        self._core.close()

    def __enter__(self) -> StreamWriter:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: types.TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"StreamWriter({self.name!r}): {self.shape}, {self.dtype}"


def _described(key: str, given: KeywordValue | tuple[KeywordValue, str]) -> tuple[KeywordValue, str]:
    """A keyword's value and comment."""
    value, comment = given if isinstance(given, tuple) else (given, "")
    for kind in (int, float, str):
        if isinstance(value, kind) or (kind is int and hasattr(value, "__index__")):
            return _value(key, value, kind), word(key, comment)
    return _value(key, value, float), word(key, comment)


def _value(key: str, value: Any, kind: type[Any]) -> KeywordValue:
    """A keyword's value as one of this type."""
    if kind is str:
        return word(key, value)
    if kind is int:
        return whole(key, value, -(2**63), 2**63 - 1)
    return number(key, value)
