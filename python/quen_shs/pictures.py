"""Pictures, as ``quen-shs`` draws them."""

from __future__ import annotations

import os
import struct

from . import _core
from ._records import path, shown


class Picture(bytes):
    """A picture: the bytes of a PNG file. Notebooks show it.

    Examples
    --------
    >>> picture = Simulator("sensor").picture()
    >>> picture
    <Picture of 920 x 900 pixels>
    >>> picture.save("frame.png")
    """

    def __new__(cls, content: bytes) -> Picture:
        if not isinstance(content, bytes):
            raise TypeError(f"content: expected bytes, found {shown(content)}")
        if content[:8] != b"\x89PNG\r\n\x1a\n" or len(content) < 24:
            raise ValueError("content: expected the bytes of a PNG file, found others")
        return super().__new__(cls, content)

    def save(self, file: str | os.PathLike[str]) -> None:
        """Write it to a file, in whose place it appears as a whole or not at all.

        Parameters
        ----------
        file : path-like
            PNG whatever its name. Folders that are missing are made.

        Raises
        ------
        OSError
            It cannot be written.

        Examples
        --------
        >>> run_loop(Simulator("sensor"), frames=10).picture().save("pictures/loop.png")
        """
        _core.write_file(path("file", file), bytes(self))

    def _repr_png_(self) -> bytes:
        return bytes(self)

    def __repr__(self) -> str:
        width, height = struct.unpack(">2I", self[16:24])
        return f"<Picture of {width} x {height} pixels>"

    __str__ = __repr__
