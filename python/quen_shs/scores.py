"""Engines against the truth."""

from __future__ import annotations

import dataclasses
from collections import abc
from collections.abc import Iterable
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._records import core, number, whole, word
from .detector import Detector, exposure
from .engines import Centroider
from .pictures import Picture
from .simulator import Simulator


@dataclasses.dataclass(frozen=True)
class AxisScore:
    """Errors along one axis, over all spots but the failed ones; pixels.

    Attributes
    ----------
    bias : float
        Mean error, measured less true.
    rms : float
        Root of the mean squared error, the bias included.
    gain, offset : float
        Of the straight line closest to measured against true displacements; NaN for range 0.
    """

    bias: float
    rms: float
    gain: float
    offset: float


@dataclasses.dataclass(frozen=True)
class Score:
    """Score of one engine.

    Attributes
    ----------
    x, y : AxisScore
        Along the columns, along the rows.
    worst : float
        Largest error, but for the failed spots; pixels.
    flux_bias, flux_rms : float
        Mean and root mean square of measured light over that of the whole spot, less 1.
    failed : float
        Share of spots with an error of more than a pixel, or not finite.
    microseconds : float
        That a frame took, the least of all frames.
    """

    x: AxisScore
    y: AxisScore
    worst: float
    flux_bias: float
    flux_rms: float
    failed: float
    microseconds: float


def score(
    sim: Simulator,
    engines: Iterable[Centroider],
    noise: float = 10.0,
    range: float = 2.0,
    frames: int = 20,
    seed: int = 1,
    detector: Detector | None = None,
) -> list[Score]:
    """Render frames with known displacements, and measure each with all engines.

    Parameters
    ----------
    sim : Simulator
        Left with the last frame and the last measurement; its generator stays as it is.
    engines : iterable of Centroider
        Ready-made ones, and those of your own.
    noise : float
        Half-width of the simulator's noise, in units of pixel values.
    range : float
        Displacements are uniform within this range along either axis, pixels, 0 to 100.
    frames : int
        How many.
    seed : int
        Equal seeds give equal scores, but for the time.
    detector : Detector, optional
        That exposes the frames, instead of noise.

    Returns
    -------
    list of Score
        One per engine, in their order.

    Raises
    ------
    ValueError
        A value out of its range.
    KeyboardInterrupt
        Ctrl-C, within a frame.

    Examples
    --------
    >>> from quen_shs import CentreOfGravity, GaussianFit
    >>> sim = Simulator("sensor")
    >>> fit, centre = score(sim, [GaussianFit(), CentreOfGravity()], frames=2)
    >>> fit.x.rms < centre.x.rms
    True
    """
    scores = _core.score(
        core("sim", Simulator, sim),
        _listed(engines),
        number("range", range),
        whole("frames", frames, *_core.limits["score frames"]),
        exposure(noise, seed, detector),
    )
    return _made(scores)


@dataclasses.dataclass(frozen=True, eq=False)
class ErrorCurves:
    """Scores of engines at several noises, or at several lights of a detector.

    Attributes
    ----------
    engines : tuple of str
        What they are called.
    places : ndarray
        Half-widths of the noise or, with a detector, photo-electrons of a whole spot.
    along_light : bool
        Which of the two.
    least_rms : ndarray
        Least RMS error that a linear unbiased estimator can have, at each place; pixels.
    scores : list of list of Score
        At each place, one per engine.
    range : float
        Of the displacements, pixels.
    """

    engines: tuple[str, ...]
    places: NDArray[np.float64]
    along_light: bool
    least_rms: NDArray[np.float64]
    scores: list[list[Score]]
    range: float

    def picture(self) -> Picture:
        """Draw the RMS errors of the engines, and the least possible one, against the noise or the light.

        Returns
        -------
        Picture

        Examples
        --------
        >>> from quen_shs import GaussianFit
        >>> error_curves(Simulator("sensor"), [GaussianFit()], frames=1).picture().save("errors.png")
        """
        errors = [[(score.x.rms, score.y.rms) for score in scores] for scores in self.scores]
        places, least_rms = self.places.tolist(), self.least_rms.tolist()
        return Picture(
            _core.error_picture(self.along_light, self.range, places, least_rms, list(self.engines), errors)
        )


def error_curves(
    sim: Simulator,
    engines: Iterable[Centroider] | abc.Mapping[str, Centroider],
    range: float = 2.0,
    frames: int = 20,
    seed: int = 1,
    detector: Detector | None = None,
) -> ErrorCurves:
    """Score engines at noises from 1 to 1000 or, with a detector, at lights from 30 to a million photo-electrons.

    Parameters
    ----------
    sim : Simulator
        Left with the last frame and the last measurement; its generator stays as it is.
    engines : iterable of Centroider, or mapping of names to them
        Without names they are called after their classes.
    range, frames, seed, detector
        As for `score`, at each place.

    Returns
    -------
    ErrorCurves

    Raises
    ------
    ValueError
        A value out of its range.
    KeyboardInterrupt
        Ctrl-C, within a frame.

    Examples
    --------
    >>> from quen_shs import GaussianFit, Weighted
    >>> curves = error_curves(Simulator("sensor"), {"fit": GaussianFit(), "wide": Weighted(fwhm=8)}, frames=1)
    >>> curves.engines, len(curves.places)
    (('fit', 'wide'), 10)
    """
    if isinstance(engines, abc.Mapping):
        names, listed = [word("name", name) for name in engines], list(engines.values())
    else:
        listed = _listed(engines)
        names = [type(engine).__name__ for engine in listed]
    if not names:
        raise ValueError("engines: expected one or more, found none")
    range = number("range", range)
    places, least_rms, scores = _core.score_along(
        core("sim", Simulator, sim),
        names,
        listed,
        range,
        whole("frames", frames, *_core.limits["score frames"]),
        exposure(0.0, seed, detector),
    )
    made = [_made(at_a_place) for at_a_place in scores]
    return ErrorCurves(
        tuple(names), np.array(places), detector is not None, np.array(least_rms), made, range
    )


def _listed(engines: Iterable[Centroider]) -> list[Centroider]:
    if not isinstance(engines, Iterable):
        raise TypeError(f"engines: expected a list of engines, found {engines!r}")
    return list(engines)


def _made(scores: list[tuple[Any, ...]]) -> list[Score]:
    return [Score(AxisScore(*x), AxisScore(*y), *rest) for x, y, *rest in scores]


def error_bound(noise: float = 10.0, detector: Detector | None = None) -> float:
    """Compute the least RMS error along an axis that a linear unbiased estimator can have (Cramér-Rao), pixels.

    Parameters
    ----------
    noise : float
        Half-width of the simulator's noise.
    detector : Detector, optional
        In its place.

    Returns
    -------
    float

    Raises
    ------
    ValueError
        Noise out of its range.

    Examples
    --------
    >>> round(error_bound(10.0), 5)
    0.00113
    """
    return _core.error_bound(exposure(noise, 0, detector))
