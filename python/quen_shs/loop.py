"""The control loop."""

from __future__ import annotations

import dataclasses
import numbers

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._records import core, number, shown, whole
from .detector import Detector, exposure
from .engines import CentreOfGravity, Centroider
from .pictures import Picture
from .simulator import Simulator


@dataclasses.dataclass(frozen=True, eq=False, repr=False)
class LoopRun:
    """What a loop leaves behind, a row per frame up to the one in which it diverged.

    Attributes
    ----------
    disturbance, correction, residual : ndarray of float64, shape (frames, 52)
        Modes, radians; residual = disturbance - correction.
    lost_spots : int
        In all frames: those for which the engine gave no finite displacement.
    diverged : bool
        Whether the loop was stopped because its residual had grown beyond all bounds.
    residual_before, residual_after : float
        Mean residual before the first correction acted, and over the second half of the run, rad RMS.

    Examples
    --------
    >>> run = run_loop(Simulator("sensor"), frames=20)
    >>> run
    <LoopRun of 20 frames, 52 modes: residual 4.7387 rad RMS before, 0.4309 after>
    >>> run.residual.shape
    (20, 52)
    """

    disturbance: NDArray[np.float64]
    correction: NDArray[np.float64]
    residual: NDArray[np.float64]
    lost_spots: int
    diverged: bool
    residual_before: float
    residual_after: float

    def __repr__(self) -> str:
        frames, modes = self.residual.shape
        return (
            f"<LoopRun of {frames} frames, {modes} modes: residual {self.residual_before:.4f} rad RMS before, "
            f"{self.residual_after:.4f} after{f', {self.lost_spots} spots lost' if self.lost_spots else ''}"
            f"{', diverged' if self.diverged else ''}>"
        )

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
    ndarray of float64, shape (frames, 52)
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
    frames: int | None = None,
    d_over_r0: float | None = None,
    gain: float = 0.5,
    leak: float = 0.0,
    delay: int = 1,
    noise: float | None = None,
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
    frames : int, optional
        How many: the first of a disturbance that is given, all of it without a number; of turbulence 10 to 100000, 1000
        without a number.
    d_over_r0 : float, optional
        Strength of the turbulence, 0 to 1000; 20 if it is not given. Not beside a disturbance.
    gain : float
        Of the integrator, 0 to 2.
    leak : float
        Share of the correction that is forgotten in each frame, 0 to 1.
    delay : int
        Frames from a measurement to the first frame that its correction acts on, 1 to 9.
    noise : float, optional
        Half-width of the simulator's noise, in units of pixel values; 10 if there is no detector.
    seed : int
        Of the turbulence, and of the noise.
    detector : Detector, optional
        That exposes the frames, in place of the noise.

    Returns
    -------
    LoopRun

    Raises
    ------
    ValueError
        A value out of its range; a disturbance of fewer frames; `d_over_r0` beside a disturbance, or noise beside a
        detector.
    TypeError
        An argument of another kind.
    KeyboardInterrupt
        Ctrl-C, within a frame.

    Examples
    --------
    >>> run = run_loop(Simulator("sensor"), frames=20, noise=0.0)
    >>> run.residual_after < run.residual_before
    True
    """
    if disturbance is None:
        frames = 1000 if frames is None else frames
        disturbance = turbulence(sim, frames, 20.0 if d_over_r0 is None else d_over_r0, seed)
    else:
        _require_modes(disturbance)
        if d_over_r0 is not None:
            raise ValueError(f"d_over_r0: expected none beside a disturbance, found {shown(d_over_r0)}")
    run = _core.run_loop(
        core("sim", Simulator, sim),
        disturbance,
        None if frames is None else whole("frames", frames, 1, _core.limits["frames"][1]),
        CentreOfGravity() if engine is None else engine,
        number("gain", gain),
        number("leak", leak),
        whole("delay", delay, *_core.limits["delay"]),
        exposure(noise, seed, detector, 10.0),
    )
    return LoopRun(*run)


def _require_modes(disturbance: object) -> None:
    """Refuse what was meant for another argument."""
    remedy = ""
    if isinstance(disturbance, numbers.Integral):
        remedy = f"; write frames={disturbance} for as many frames of turbulence"
    elif hasattr(disturbance, "compute"):
        remedy = "; write engine=... for an engine"
    if remedy:
        raise TypeError(f"disturbance: expected modes, shape (frames, 52), found {shown(disturbance)}{remedy}")
