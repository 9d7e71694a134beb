"""Calibrations: made, and examined."""

from __future__ import annotations

import dataclasses
import os
from typing import Literal

from . import _core
from ._records import number, path, truth, whole, word
from .detector import Detector, exposure
from .engines import CentreOfGravity, Centroider


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
    spider_width: float = 0.01,
    basis: Literal["zernike", "karhunen-loeve"] = "zernike",
    measured: bool = False,
    engine: Centroider | None = None,
    poke_amplitude: float = 1.0,
    noise: float = 0.0,
    seed: int = 1,
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
    spider_width : float
        Of a vane over the diameter of the pupil, 0 to 0.5.
    basis : {'zernike', 'karhunen-loeve'}
        Modes of the wavefront.
    measured : bool
        Measure the matrix, by pushing and pulling each mode, instead of computing it.
    engine : Centroider, optional
        That measures; a `CentreOfGravity` if there is none.
    poke_amplitude : float
        Largest displacement of a spot, pixels.
    noise, seed, detector
        Of the frames that are measured: half-width of the simulator's noise, or a detector in its place; the seed of
        either. Without effect where the matrix is computed, as `poke_amplitude`; an engine or a detector is refused
        there.

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
        A value out of its range, a geometry that is not one of a sensor, or an engine that does not find the modes.
    KeyboardInterrupt
        Ctrl-C, within a frame. No file has changed.

    Examples
    --------
    >>> import os.path
    >>> [os.path.basename(file) for file in calibrate("another")]
    ['M2S.fits', 'CM.fits', 'shs_rois.fits']
    """
    exposing = exposure(noise, seed, detector)
    measuring = None
    if truth("measured", measured):
        measuring = CentreOfGravity() if engine is None else engine
    elif engine is not None or detector is not None:
        raise ValueError("engine, detector: expected none where the matrix is computed; give measured=True")
    geometry = (
        number("pitch", pitch),
        whole("size", size, *_core.limits["size"]),
        number("offset_x", offset_x),
        number("offset_y", offset_y),
        number("obscuration", obscuration),
        None if spider_angle is None else number("spider_angle", spider_angle),
        number("spider_width", spider_width),
    )
    return _core.calibrate(
        path("folder", folder),
        truth("force", force),
        geometry,
        word("basis", basis),
        measuring,
        number("poke_amplitude", poke_amplitude),
        exposing,
    )


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
        Of the modes, or sub-apertures, that it is about.
    """

    verdict: str
    key: str
    subject: str
    text: str
    advice: str
    mistakes: tuple[str, ...]
    numbers: tuple[int, ...]


def check(folder: str | os.PathLike[str]) -> list[Finding]:
    """Examine a calibration, as ``quen-shs check`` does.

    Parameters
    ----------
    folder : path-like
        Folder with the calibration.

    Returns
    -------
    list of Finding

    Raises
    ------
    FileNotFoundError
        A file is missing.
    OSError
        A file cannot be opened.

    Examples
    --------
    >>> {finding.verdict for finding in check("sensor")}
    {'good'}
    """
    return [Finding(*finding) for finding in _core.check(path("folder", folder))]
