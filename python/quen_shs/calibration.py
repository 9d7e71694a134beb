"""Calibrations: made, and examined."""

from __future__ import annotations

import dataclasses
import os
from collections.abc import Iterable
from typing import Any, Literal

from . import _core
from ._records import number, path, truth, whole, word
from .detector import Detector, exposure
from .engines import CentreOfGravity, Centroider
from .pictures import Picture


def calibrate(
    folder: str | os.PathLike[str],
    *,
    force: bool = False,
    pitch: float = 24.0,
    size: int = 24,
    offset_x: float = 0.0,
    offset_y: float = 0.0,
    obscuration: float = 0.28,
    spider_angle: float | None = None,
    spider_width: float | None = None,
    basis: Literal["zernike", "karhunen-loeve"] = "zernike",
    measured: bool = False,
    engine: Centroider | None = None,
    poke_amplitude: float | None = None,
    noise: float | None = None,
    seed: int | None = None,
    detector: Detector | None = None,
) -> list[str]:
    """Write a complete synthetic calibration, as ``quen-shs calibrate`` does.

    Parameters
    ----------
    folder : path-like
        Folder to write to; made if missing.
    force : bool
        Replace a calibration that is there already.
    pitch : float
        Distance from one sub-aperture to the next, pixels, 1 to 26.
    size : int
        Width and height of a region, pixels, 1 to 200.
    offset_x, offset_y : float
        From the middle of the frame to that of the grid, pixels.
    obscuration : float
        Inner over outer diameter of the pupil, 0 to 0.99.
    spider_angle : float, optional
        Of a cross of four vanes before the pupil, degrees. Without one there are no vanes.
    spider_width : float, optional
        Of a vane over the diameter of the pupil, 0 to 0.5; 0.01 if it is not given.
    basis : {'zernike', 'karhunen-loeve'}
        Modes of the wavefront.
    measured : bool
        Measure the matrix, by pushing and pulling each mode, instead of computing it.
    engine : Centroider, optional
        That measures; a `CentreOfGravity` if there is none.
    poke_amplitude : float, optional
        Largest displacement of a spot, pixels, 0.001 to 12; 1 if it is not given.
    noise, seed, detector : optional
        Of the frames that are measured: half-width of the simulator's noise, 0 if it is not given, or a detector in its
        place; the seed of either, 1 if it is not given.

    Returns
    -------
    list of str
        The files.

    Raises
    ------
    FileExistsError
        There is a calibration already.
    OSError
        The files cannot be written.
    ValueError
        A value out of its range, a geometry that is not one of a sensor, or an engine that does not find the modes. A
        `spider_width` without an angle; an engine, or what goes with it, where the matrix is not measured.
    KeyboardInterrupt
        Ctrl-C, within a frame. No file has changed.

    Examples
    --------
    >>> import os.path
    >>> [os.path.basename(file) for file in calibrate("another")]
    ['M2S.fits', 'CM.fits', 'shs_rois.fits']
    """
    if spider_angle is None and spider_width is not None:
        raise ValueError("spider_width: expected none without a spider; give spider_angle")
    measuring = None
    if truth("measured", measured):
        measuring = CentreOfGravity() if engine is None else engine
    else:
        _require_none(engine=engine, poke_amplitude=poke_amplitude, noise=noise, seed=seed, detector=detector)
    geometry = (
        number("pitch", pitch),
        whole("size", size, *_core.limits["size"]),
        number("offset_x", offset_x),
        number("offset_y", offset_y),
        number("obscuration", obscuration),
        None if spider_angle is None else number("spider_angle", spider_angle),
        number("spider_width", 0.01 if spider_width is None else spider_width),
    )
    return _core.calibrate(
        path("folder", folder),
        truth("force", force),
        geometry,
        word("basis", basis),
        measuring,
        number("poke_amplitude", 1.0 if poke_amplitude is None else poke_amplitude),
        exposure(noise, 1 if seed is None else seed, detector, 0.0),
    )


def _require_none(**options: object) -> None:
    for name, value in options.items():
        if value is not None:
            raise ValueError(f"{name}: expected none where the matrix is computed; give measured=True")


@dataclasses.dataclass(frozen=True)
class Finding:
    """What one check of a calibration found.

    Attributes
    ----------
    verdict : str
        'good', 'doubtful' or 'WRONG'.
    key : str
        Stable name of the check, 'm2s.layout' for instance.
    subject, text, advice : str
        What was looked at, what is so, what to do.
    mistakes : tuple of str
        Stable names of the corrections that come into question; certain if it is one.
    numbers : tuple of int
        Of the modes, or sub-apertures, that it is about, counted from 0; empty if it is about no single one.

    Examples
    --------
    >>> [finding] = [finding for finding in check("sensor") if finding.key == "m2s.layout"]
    >>> finding.verdict, finding.mistakes
    ('good', ())
    """

    verdict: str
    key: str
    subject: str
    text: str
    advice: str
    mistakes: tuple[str, ...]
    numbers: tuple[int, ...]


class Findings(list[Finding]):
    """What `check` found: a list, shown as the table of ``quen-shs check``, and its picture.

    Copies, pickles and parts of it are lists alone.

    Examples
    --------
    >>> findings = check("sensor")
    >>> print(findings)  # doctest: +ELLIPSIS
    good      ...
    sensor: 14 things checked, 0 wrong, 0 doubtful
    """

    def __init__(self, findings: Iterable[Finding], examination: _core.Examination, folder: str) -> None:
        super().__init__(findings)
        self._examination = examination
        self._folder = folder

    def __reduce_ex__(self, protocol: object) -> tuple[Any, ...]:
        return list, (list(self),)

    def __repr__(self) -> str:
        rows = [(one.verdict, one.subject, one.text, one.advice) for one in self]
        return _core.findings_table(rows, self._folder).rstrip("\n")

    __str__ = __repr__

    def picture(self) -> Picture:
        """Draw what is found: each thing as it stands and, beside it, as its corrections would have it.

        With nothing wrong or doubtful, all is drawn as it stands.

        Returns
        -------
        Picture

        Raises
        ------
        ValueError
            The library does not load the calibration: there is nothing to draw.

        Examples
        --------
        >>> check("sensor").picture().save("findings.png")
        """
        return Picture(self._examination.picture(f"check {self._folder}"))


def check(folder: str | os.PathLike[str]) -> Findings:
    """Examine a calibration, as ``quen-shs check`` does.

    A file that is missing, or cannot be read, is a finding, and the others are examined.

    Parameters
    ----------
    folder : path-like
        Folder with the calibration.

    Returns
    -------
    Findings
        A list of `Finding`, which is printed as a table, and can be drawn.

    Raises
    ------
    FileNotFoundError
        All files are missing.
    OSError
        The system does not let a file be opened.

    Examples
    --------
    >>> {finding.verdict for finding in check("sensor")}
    {'good'}
    """
    name = path("folder", folder)
    findings, examination = _core.check(name)
    return Findings((Finding(*finding) for finding in findings), examination, name)
