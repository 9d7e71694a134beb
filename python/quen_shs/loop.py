"""The control loop."""

from __future__ import annotations

import dataclasses

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._records import core, number, whole
from .detector import Detector, exposure
from .engines import CentreOfGravity, Centroider
from .pictures import Picture
from .simulator import Simulator


@dataclasses.dataclass(frozen=True, eq=False)
class LoopRun:
    """What a loop leaves behind. Modes are in radians, a row per frame up to the one in which it diverged.

    Attributes
    ----------
    disturbance, correction, residual : ndarray, shape (frames, 52)
        residual = disturbance - correction.
    lost_spots : int
        In all frames: those for which the engine gave no finite displacement.
    diverged : bool
    residual_before, residual_after : float
        Mean residual before the first correction acted, and over the second half of the run, rad RMS.
    """

    disturbance: NDArray[np.float64]
    correction: NDArray[np.float64]
    residual: NDArray[np.float64]
    lost_spots: int
    diverged: bool
    residual_before: float
    residual_after: float

    def picture(self) -> Picture:
        """Draw disturbance and residual against time, and mode by mode.

        Returns
        -------
        Picture

        Examples
        --------
        >>> run_loop(Simulator("sensor"), frames=10).picture().save("loop.png")
        """
        return Picture(_core.loop_picture(self.disturbance, self.residual))


def turbulence(sim: Simulator, frames: int, d_over_r0: float = 20.0, seed: int = 1) -> NDArray[np.float64]:
    """Draw a turbulent disturbance with Kolmogorov's variances for the modes of the simulator's calibration.

    Parameters
    ----------
    sim : Simulator
    frames : int
        How many, 10 to 100000.
    d_over_r0 : float
        Diameter over Fried parameter, 0 to 1000.
    seed : int
        Equal seeds give equal disturbances.

    Returns
    -------
    ndarray, shape (frames, 52)
        Modes, radians.

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> turbulence(Simulator("sensor"), 10).shape
    (10, 52)
    """
    return _core.turbulence(
        core("sim", Simulator, sim),
        whole("frames", frames, *_core.limits["frames"]),
        number("d_over_r0", d_over_r0),
        whole("seed", seed),
    )


def run_loop(
    sim: Simulator,
    disturbance: ArrayLike | None = None,
    engine: Centroider | None = None,
    *,
    frames: int = 1000,
    d_over_r0: float = 20.0,
    gain: float = 0.5,
    leak: float = 0.0,
    delay: int = 1,
    noise: float = 10.0,
    seed: int = 1,
    detector: Detector | None = None,
) -> LoopRun:
    """Close an integrator loop, as ``quen-shs loop`` does.

    For each frame: residual = disturbance - correction; the residual displaces the spots; the engine measures them;
    correction = (1 - leak) * correction + gain * CM @ slopes, which acts `delay` frames later.

    Parameters
    ----------
    sim : Simulator
        Left with the last frame and its measurement; its generator stays as it is.
    disturbance : array_like, shape (frames, 52), optional
        Modes, radians. Without one it is `turbulence` of `frames`, `d_over_r0` and `seed`.
    engine : Centroider, optional
        That measures; a `CentreOfGravity` if there is none.
    gain : float
        Of the integrator, 0 to 2.
    leak : float
        Share of the correction that is forgotten in each frame, 0 to 1.
    delay : int
        Frames from a measurement to the first frame that its correction acts on, 1 to 9.
    noise, seed, detector
        Half-width of the simulator's noise, or a detector in its place; the seed of either.

    Returns
    -------
    LoopRun

    Raises
    ------
    ValueError
        A value out of its range.
    KeyboardInterrupt
        Ctrl-C, within a frame.

    Examples
    --------
    >>> run = run_loop(Simulator("sensor"), frames=20, noise=0.0)
    >>> run.residual_after < run.residual_before
    True
    """
    if disturbance is None:
        disturbance = turbulence(sim, frames, d_over_r0, seed)
    run = _core.run_loop(
        core("sim", Simulator, sim),
        disturbance,
        CentreOfGravity() if engine is None else engine,
        number("gain", gain),
        number("leak", leak),
        whole("delay", delay, *_core.limits["delay"]),
        exposure(noise, seed, detector),
    )
    return LoopRun(*run)
