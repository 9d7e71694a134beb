"""The simulator."""

from __future__ import annotations

import os
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._records import number, path, truth, whole
from .engines import Centroider
from .pictures import Picture


class Simulator:
    """The sensor: renders frames from the displacements of its spots, and measures them.

    Parameters
    ----------
    folder : path-like, optional
        Folder with a calibration (``folder/data/M2S.fits``, ``CM.fits``, ``shs_rois.fits``), as `calibrate` makes it.
        Without one the calibration is found as the library finds it: along ``CFGPATH``, in the current folder, in
        ``$INTROOT/resource``.
    seed : int, optional
        Of the noise, 0 to 2**32 - 1. Without one the system's entropy makes one.

    Raises
    ------
    FileNotFoundError
        A file of the calibration is missing.
    OSError
        A file cannot be read.
    ValueError
        The files hold no calibration of this sensor.

    Notes
    -----
    Each simulator has a random generator of its own, so that its frames do not depend on the thread that asks for them.
    While a frame is rendered, or measured by a ready-made engine, other Python threads run. One simulator serves one
    thread at a time: a second one gets a RuntimeError. A simulator can be pickled: its folder and the state of its
    generator travel, its last frame does not.

    The properties `frame`, `frame_values`, `slopes`, `flux` and their like are views: they are not writeable, cost no
    copy, keep the simulator alive, and the next call overwrites what they show.

    Examples
    --------
    >>> sim = Simulator("sensor", seed=1)
    >>> sim.compute_frame(np.zeros(1089), np.zeros(1089)).max()
    3847
    """

    def __init__(self, folder: str | os.PathLike[str] | None = None, seed: int | None = None) -> None:
        self._folder = None if folder is None else os.path.abspath(path("folder", folder))
        self._core = _core.Simulator(self._folder, None if seed is None else whole("seed", seed))

    def __repr__(self) -> str:
        return f"Simulator({self._folder!r})"

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self._folder, 0), {"random_state": self.random_state}

    def __setstate__(self, state: dict[str, Any]) -> None:
        self.random_state = state["random_state"]

    def compute_frame(
        self,
        dx: ArrayLike,
        dy: ArrayLike,
        noise: float = 0.0,
        *,
        out: NDArray[np.uint16] | None = None,
        copy: bool = True,
    ) -> NDArray[np.uint16]:
        """Render one frame.

        A spot is ``4096 * exp(-((x - cx)**2 + (y - cy)**2) / 8)`` within its region, with its centre (cx, cy) displaced
        from the region's reference point.

        Parameters
        ----------
        dx, dy : array_like, shape (1089,)
            Displacement of each spot along the columns and along the rows, pixels. Arrays of float64 in C order are
            used as they are. One that is not a finite number is no error: its region is dark.
        noise : float
            Half-width of the uniform noise, in units of pixel values, 0 or more. Pixels have 16 bits, with their sign:
            beyond 32767 they wrap.
        out : ndarray, optional
            Array of uint16, shape (816, 840), for the frame.
        copy : bool
            Without a copy, the result is the view `frame`.

        Returns
        -------
        ndarray of uint16, shape (816, 840)
            The frame: `out`, a new array, or a view. Pixels are 16-bit two's-complement numbers: dark ones may be below 0,
            which uint16 shows as 65535 and a little less; ``frame.view(np.int16)`` has them with their sign.

        Raises
        ------
        ValueError
            Another shape; noise that is negative or NaN.
        TypeError
            Elements that float64 does not hold without loss.
        RuntimeError
            Another thread is using the simulator.

        Examples
        --------
        >>> sim = Simulator("sensor", seed=1)
        >>> sim.compute_frame(np.zeros(1089), np.full(1089, 0.5)).shape
        (816, 840)
        """
        return self._core.compute_frame(dx, dy, number("noise", noise), out, truth("copy", copy))

    def compute_slopes(
        self,
        engine: Centroider,
        limit: float = 12.0,
        *,
        frame: ArrayLike | None = None,
        out: NDArray[np.float64] | None = None,
        copy: bool = True,
    ) -> NDArray[np.float64]:
        """Measure the spots of the used sub-apertures.

        Parameters
        ----------
        engine : Centroider
            That measures: a ready-made engine, or an object of your own with a method ``compute(frame, roi)``.
        limit : float
            Largest displacement, pixels, 0 or more; larger ones are cut to it, infinite ones too. One that is NaN, as
            engines give it for a spot that they do not find, stays NaN. A limit of NaN cuts nothing.
        frame : array_like, shape (816, 840), optional
            Pixels of uint16 to be measured in place of the last frame, which they replace.
        out : ndarray, optional
            Array of float64, shape (1214,), for the slopes.
        copy : bool
            Without a copy, the result is the view `slopes`.

        Returns
        -------
        ndarray of float64, shape (1214,)
            `out`, a new array, or a view: the y displacements of the 607 used sub-apertures, then their x displacements,
            pixels.

        Raises
        ------
        ValueError
            Another shape; a limit that is negative; a calibration with too few usage flags.
        TypeError
            No engine, or a frame of another type.
        RuntimeError
            Another thread is using the simulator, or the engine.

        Notes
        -----
        What an engine of your own raises comes through, and slopes that were measured before it stay in `slopes`.

        Examples
        --------
        >>> from quen_shs import CentreOfGravity
        >>> sim = Simulator("sensor", seed=1)
        >>> _ = sim.compute_frame(np.full(1089, 1.0), np.zeros(1089))
        >>> slopes = sim.compute_slopes(CentreOfGravity())
        >>> bool(np.allclose(slopes[607:], 1.0, atol=1e-3))
        True
        """
        return self._core.compute_slopes(engine, number("limit", limit), frame, out, truth("copy", copy))

    def picture(self) -> Picture:
        """Draw the last frame, with the displacements of its spots as they were measured last.

        Row 0 is at the bottom. A frame of the simulator's own has signed pixels; one that was given to
        `compute_slopes`, or was exposed by a detector, has counts.

        Returns
        -------
        Picture

        Raises
        ------
        RuntimeError
            Another thread is using the simulator.

        Examples
        --------
        >>> Simulator("sensor").picture().save("frame.png")
        """
        return Picture(self._core.picture())

    def seed(self, seed: int) -> None:
        """Begin the noise anew.

        Parameters
        ----------
        seed : int
            0 to 2**32 - 1. The same seed gives the same noise: that of ``numpy.random.MT19937`` with legacy seeding.

        Examples
        --------
        >>> sim = Simulator("sensor")
        >>> sim.seed(42)
        """
        self._core.seed(whole("seed", seed))

    @property
    def random_state(self) -> dict[str, Any]:
        """State of the generator: the dictionary of ``numpy.random.MT19937``, which takes and gives it exactly.

        Raises
        ------
        ValueError
            Set to something else.

        Examples
        --------
        >>> sim = Simulator("sensor", seed=1)
        >>> generator = np.random.MT19937()
        >>> generator.state = sim.random_state
        >>> sim.random_state = generator.state
        """
        key, position = self._core.random_state
        return {"bit_generator": "MT19937", "state": {"key": key, "pos": position}}

    @random_state.setter
    def random_state(self, state: dict[str, Any]) -> None:
        try:
            if state["bit_generator"] != "MT19937":
                raise ValueError(state["bit_generator"])
            key = [whole("key", word) for word in state["state"]["key"]]
            whole("length of key", len(key), 624, 624)
            position = whole("pos", state["state"]["pos"], 0, 624)
        except (LookupError, TypeError, ValueError) as error:
            raise ValueError(
                f"random_state: expected the dictionary of numpy.random.MT19937, found another: {error!r}"
            ) from None
        self._core.random_state = (key, position)

    @property
    def folder(self) -> str | None:
        """Folder with the calibration; None where the library has found it."""
        return self._folder

    @property
    def frame(self) -> NDArray[np.uint16]:
        """The last frame: uint16, shape (816, 840), pixel values of 16 bits with their sign; a view.

        Examples
        --------
        >>> sim = Simulator("sensor", seed=1)
        >>> _ = sim.compute_frame(np.zeros(1089), np.zeros(1089), noise=10.0, copy=False)
        >>> sim.frame.view(np.int16).min()
        -9
        """
        return self._core.frame

    @property
    def frame_values(self) -> NDArray[np.float64]:
        """The last frame before it was made whole numbers: float64, shape (816, 840), pixel values; a view.

        Examples
        --------
        >>> from quen_shs import Detector
        >>> counts = Detector(electrons_per_unit=0.05, read_noise=3).expose(Simulator("sensor").frame_values)
        """
        return self._core.frame_values

    @property
    def slopes(self) -> NDArray[np.float64]:
        """The last slopes: float64, shape (1214,), pixels, the y displacements first; a view.

        Examples
        --------
        >>> y, x = np.split(Simulator("sensor").slopes, 2)
        """
        return self._core.slopes

    @property
    def flux(self) -> NDArray[np.float64]:
        """Light of each sub-aperture: float64, shape (1089,), as the engine gives it, 0 where unused; a view."""
        return self._core.flux

    @property
    def flux_used(self) -> NDArray[np.float64]:
        """Light of each used sub-aperture: float64, shape (607,), as the engine gives it; a view."""
        return self._core.flux_used

    @property
    def x_slopes(self) -> NDArray[np.float64]:
        """Displacement of each spot along the columns: float64, shape (1089,), pixels, 0 where unused; a view."""
        return self._core.x_slopes

    @property
    def x_slopes_used(self) -> NDArray[np.float64]:
        """The same of used sub-apertures: float64, shape (607,), pixels; a view."""
        return self._core.x_slopes_used

    @property
    def y_slopes(self) -> NDArray[np.float64]:
        """Displacement of each spot along the rows: float64, shape (1089,), pixels, 0 where unused; a view."""
        return self._core.y_slopes

    @property
    def y_slopes_used(self) -> NDArray[np.float64]:
        """The same of used sub-apertures: float64, shape (607,), pixels; a view."""
        return self._core.y_slopes_used

    @property
    def m2s(self) -> NDArray[np.float64]:
        """Modes-to-slopes matrix: float64, shape (1214, 52), pixels per radian; a view.

        Examples
        --------
        >>> sim = Simulator("sensor")
        >>> dx, dy = np.zeros(1089), np.zeros(1089)
        >>> dy[sim.rois_used], dx[sim.rois_used] = np.split(sim.m2s @ np.full(52, 0.01), 2)
        """
        return self._core.m2s

    @property
    def cm(self) -> NDArray[np.float64]:
        """Control matrix: float64, shape (52, 1214), radians per pixel; a view.

        Examples
        --------
        >>> sim = Simulator("sensor")
        >>> (sim.cm @ sim.slopes).shape
        (52,)
        """
        return self._core.cm

    @property
    def rois(self) -> NDArray[np.void]:
        """The regions: a structured array, shape (1089,), not writeable, pixels.

        Fields x_low, x_up, y_low, y_up of uint16 (upper ends not included), and x_ref, y_ref of float64.

        Examples
        --------
        >>> roi = Simulator("sensor").rois[0]
        >>> roi["x_low"], roi["x_up"], roi["x_ref"]
        (24, 48, 35.5)
        """
        return self._core.rois

    @property
    def rois_used(self) -> NDArray[np.bool_]:
        """Which sub-apertures are used: bool, shape (1089,), not writeable.

        Examples
        --------
        >>> Simulator("sensor").rois_used.sum()
        607
        """
        return self._core.rois_used
