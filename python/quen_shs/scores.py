"""Engines against the truth."""

from __future__ import annotations

import dataclasses
import math
from collections import abc
from collections.abc import Iterable
from typing import Any, cast

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._records import core, number, shown, whole, word
from .detector import Detector, exposure
from .engines import Centroider, label
from .pictures import Picture
from .simulator import Simulator


@dataclasses.dataclass(frozen=True, repr=False)
class AxisScore:
    """Errors along one axis, over all spots but the failed ones.

    Attributes
    ----------
    bias : float
        Mean error, measured less true, pixels.
    rms : float
        Root of the mean squared error, the bias included, pixels.
    gain, offset : float
        Of the straight line closest to measured against true displacements, offset in pixels; NaN for range 0.

    Examples
    --------
    >>> from quen_shs import Weighted
    >>> [result] = score(Simulator("sensor"), [Weighted()], frames=2)
    >>> result.x
    <AxisScore: RMS 1.5e-03 pixels, bias +2.0e-05, gain 1.0002>
    """

    bias: float
    rms: float
    gain: float
    offset: float

    def __repr__(self) -> str:
        return f"<AxisScore: RMS {self.rms:.1e} pixels, bias {self.bias:+.1e}, gain {self.gain:.4f}>"


@dataclasses.dataclass(frozen=True, repr=False)
class Score:
    """Score of one engine.

    Attributes
    ----------
    engine : str
        What it is called.
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

    Examples
    --------
    >>> from quen_shs import GaussianFit
    >>> [result] = score(Simulator("sensor"), [GaussianFit(steps=2)], frames=2)
    >>> result  # doctest: +ELLIPSIS
    <Score of GaussianFit(steps=2): RMS error x 1.1e-03, y 1.1e-03 pixels, 0.0 % failed, ... us/frame>
    """

    engine: str
    x: AxisScore
    y: AxisScore
    worst: float
    flux_bias: float
    flux_rms: float
    failed: float
    microseconds: float

    def __repr__(self) -> str:
        return (
            f"<Score of {self.engine}: RMS error x {self.x.rms:.1e}, y {self.y.rms:.1e} pixels, "
            f"{100 * self.failed:.1f} % failed, {self.microseconds:.0f} us/frame>"
        )

    def _values(self) -> tuple[Any, ...]:
        """All but the name, as the compiled functions give and take them."""
        _, *values = dataclasses.astuple(self)
        return tuple(values)


@dataclasses.dataclass(frozen=True)
class _Conditions:
    """What engines are scored on."""

    range: float
    frames: int
    noise: float | None
    seed: int
    detector: Detector | None

    def arguments(self) -> tuple[float, int, _core.Exposure]:
        """What the compiled functions take, checked."""
        return (
            number("range", self.range),
            whole("frames", self.frames, *_core.limits["score frames"]),
            exposure(self.noise, self.seed, self.detector, 10.0),
        )


class Scores(list[Score]):
    """What `score` found: a list, shown as the table of ``quen-shs score``. Parts of it are lists alone.

    Examples
    --------
    >>> from quen_shs import CentreOfGravity, Weighted
    >>> scores = score(Simulator("sensor"), [Weighted(), CentreOfGravity()], frames=2)
    >>> print(scores)  # doctest: +ELLIPSIS
    noise 10, displacements within 2 pixels, 2 frames, seed 1; least possible RMS 0.00113 pixels
    <BLANKLINE>
    | engine          | ...
    | Weighted        | ...
    | CentreOfGravity | ...
    """

    def __init__(self, scores: Iterable[Score], conditions: _Conditions) -> None:
        super().__init__(scores)
        self._conditions = conditions

    def __reduce_ex__(self, protocol: object) -> tuple[Any, ...]:
        return Scores, (list(self), self._conditions)

    def __repr__(self) -> str:
        names, values = [one.engine for one in self], [one._values() for one in self]
        return _core.score_table(names, values, *self._conditions.arguments()).rstrip("\n")

    __str__ = __repr__


def score(
    sim: Simulator,
    engines: Iterable[Centroider] | abc.Mapping[str, Centroider],
    noise: float | None = None,
    range: float = 2.0,
    frames: int = 20,
    seed: int = 1,
    detector: Detector | None = None,
) -> Scores:
    """Render frames with known displacements, and measure each with all engines.

    Parameters
    ----------
    sim : Simulator
        Left with the last frame and the last measurement; its generator stays as it is.
    engines : iterable of Centroider, or mapping of names to them
        Ready-made ones, and those of your own. Without names they are called after their classes and, of ready-made
        ones, what is not the default.
    noise : float, optional
        Half-width of the simulator's noise, in units of pixel values; 10 if there is no detector.
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
    Scores
        A list of `Score`, one per engine, in their order, which is printed as a table.

    Raises
    ------
    ValueError
        A value out of its range; noise beside a detector.
    TypeError
        An argument of another kind.
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
    names, listed = _named(engines)
    conditions = _Conditions(range, frames, noise, seed, detector)
    scores = _core.score(core("sim", Simulator, sim), listed, *conditions.arguments())
    return Scores(_made(names, scores), conditions)


@dataclasses.dataclass(frozen=True, eq=False, repr=False)
class ErrorCurves:
    """Scores of engines at several noises, or at several lights of a detector.

    Attributes
    ----------
    engines : tuple of str
        What they are called.
    places : ndarray of float64, shape (10,)
        Half-widths of the noise in units of pixel values or, with a detector, photo-electrons of a whole spot.
    along_light : bool
        Which of the two.
    least_rms : ndarray of float64, shape (10,)
        Least RMS error that a linear unbiased estimator can have, at each place; pixels.
    scores : list of list of Score
        At each place, one per engine.
    range : float
        Of the displacements, pixels.

    Examples
    --------
    >>> from quen_shs import GaussianFit, Weighted
    >>> curves = error_curves(Simulator("sensor"), [GaussianFit(), Weighted()], frames=1)
    >>> curves
    <ErrorCurves of GaussianFit, Weighted at noises 1 to 1000: RMS error 1.3e-04 to 1.5e-01 pixels>
    >>> fit_at_noise_5, _ = curves.scores[2]
    """

    engines: tuple[str, ...]
    places: NDArray[np.float64]
    along_light: bool
    least_rms: NDArray[np.float64]
    scores: list[list[Score]]
    range: float

    def __repr__(self) -> str:
        errors = [one.x.rms for at_a_place in self.scores for one in at_a_place]
        lowest, highest = min(errors, default=math.nan), max(errors, default=math.nan)
        ends = " to ".join(f"{place:g}" for place in self.places[[0, -1]]) if len(self.places) else "none"
        return (
            f"<ErrorCurves of {', '.join(self.engines)} at {'lights' if self.along_light else 'noises'} {ends}: "
            f"RMS error {lowest:.1e} to {highest:.1e} pixels>"
        )

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
        Without names they are called as by `score`.
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
    names, listed = _named(engines)
    if not names:
        raise ValueError("engines: expected one or more, found none")
    conditions = _Conditions(range, frames, None, seed, detector).arguments()
    places, least_rms, scores = _core.score_along(core("sim", Simulator, sim), names, listed, *conditions)
    made = [_made(names, at_a_place) for at_a_place in scores]
    return ErrorCurves(
        tuple(names), np.array(places), detector is not None, np.array(least_rms), made, conditions[0]
    )


def _named(engines: Iterable[Centroider] | abc.Mapping[str, Centroider]) -> tuple[list[str], list[Centroider]]:
    if isinstance(engines, abc.Mapping):
        return [word("name", name) for name in engines], list(engines.values())
    if isinstance(engines, (str, bytes)) or not isinstance(engines, Iterable):
        remedy = "; write it in brackets, [...]" if hasattr(engines, "compute") else ""
        raise TypeError(f"engines: expected a list of engines, found {shown(engines)}{remedy}")
    listed = list(cast("Iterable[Centroider]", engines))
    return [label(engine) for engine in listed], listed


def _made(names: list[str], scores: list[tuple[Any, ...]]) -> list[Score]:
    return [Score(name, AxisScore(*x), AxisScore(*y), *rest) for name, (x, y, *rest) in zip(names, scores)]


def error_bound(noise: float | None = None, detector: Detector | None = None) -> float:
    """Compute the least RMS error along an axis that a linear unbiased estimator can have (Cramér-Rao), pixels.

    Parameters
    ----------
    noise : float, optional
        Half-width of the simulator's noise, in units of pixel values; 10 if there is no detector.
    detector : Detector, optional
        In its place.

    Returns
    -------
    float

    Raises
    ------
    ValueError
        Noise out of its range, or beside a detector.

    Examples
    --------
    >>> round(error_bound(10.0), 5)
    0.00113
    """
    return _core.error_bound(exposure(noise, 0, detector, 10.0))
