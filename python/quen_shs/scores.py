"""Engines against the truth."""

from __future__ import annotations

import dataclasses
from collections.abc import Iterable

from . import _core
from ._records import core, number, whole
from .detector import Detector, exposure
from .engines import Centroider
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
    if not isinstance(engines, Iterable):
        raise TypeError(f"engines: expected a list of engines, found {engines!r}")
    scores = _core.score(
        core("sim", Simulator, sim),
        list(engines),
        number("range", range),
        whole("frames", frames, *_core.limits["score frames"]),
        exposure(noise, seed, detector),
    )
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
