"""The detector: what a camera makes of a frame's light."""

from __future__ import annotations

import dataclasses
import os

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._records import Record, core, limited, number, path, shown, whole


@dataclasses.dataclass(frozen=True, eq=False)
class Detector(Record):
    """A detector that exposes frames: photons, multiplication, read noise, gain, bad pixels.

    Parameters
    ----------
    electrons_per_unit : float
        Mean photo-electrons for a frame value of 1.
    background, dark : float
        Mean electrons per pixel and frame, of light and without light.
    photon_noise : bool
        Poisson statistics of all electrons.
    em_gain : float
        Electron multiplication; 1 is none.
    read_noise : float
        Electrons RMS.
    full_well : float, optional
        Electrons that a pixel holds.
    gain : float
        Counts per electron.
    offset : float
        Pedestal, counts.
    bits : int
        Of the converter, 1 to 16.
    flat_map, dark_map, offset_map : array_like, shape (816, 840), optional
        Relative response; electrons per frame; counts.
    bad_pixels : array_like of uint8, shape (816, 840), optional
        0 good, 1 dead, 2 hot, 3 stuck.
    bad_pixel_levels : array_like, shape (816, 840), optional
        Of hot pixels electrons per frame, of stuck ones counts.
    seed : int
        Of all noise.

    Raises
    ------
    ValueError
        A value out of its range, or a map of another shape.
    TypeError
        A map of another type.

    Notes
    -----
    The noise of a pixel depends on the seed, the frame's number and the pixel alone. Any number of threads may expose
    with one detector.

    Examples
    --------
    >>> camera = Detector(electrons_per_unit=0.01, read_noise=3, offset=100)
    >>> camera.expose(np.zeros((816, 840)), 7).dtype
    dtype('uint16')
    """

    electrons_per_unit: float = 1.0
    background: float = 0.0
    dark: float = 0.0
    photon_noise: bool = True
    em_gain: float = 1.0
    read_noise: float = 0.0
    full_well: float | None = None
    gain: float = 1.0
    offset: float = 0.0
    bits: int = 16
    flat_map: ArrayLike | None = None
    dark_map: ArrayLike | None = None
    offset_map: ArrayLike | None = None
    bad_pixels: ArrayLike | None = None
    bad_pixel_levels: ArrayLike | None = None
    seed: int = limited(1, 0, 2**64 - 1)

    def __post_init__(self) -> None:
        super().__post_init__()
        object.__setattr__(self, "_core", _core.Detector(*self._fields().values()))

    @classmethod
    def from_file(cls, name: str | os.PathLike[str], seed: int = 1) -> Detector:
        """Read a description, as ``quen-shs detector --new`` writes it, with its maps.

        Parameters
        ----------
        name : path-like
            A JSON file.
        seed : int
            Of all noise.

        Raises
        ------
        FileNotFoundError
            There is no such file.
        OSError
            A file cannot be read, or is no such description: which member, what was expected and found.

        Examples
        --------
        >>> import pathlib
        >>> _ = pathlib.Path("camera.json").write_text('{"read_noise": 3, "offset": 100}')
        >>> Detector.from_file("camera.json").read_noise
        3.0
        """
        file = path("name", name)
        os.stat(file)  # a file that is missing is told as everywhere in Python
        return cls(**_core.described_detector(file), seed=seed)

    def expose(
        self, values: ArrayLike, frame_number: int = 0, *, out: NDArray[np.uint16] | None = None
    ) -> NDArray[np.uint16]:
        """Expose one frame.

        Parameters
        ----------
        values : array_like, shape (816, 840)
            Expected values, `Simulator.frame_values` for instance. float64 in C order is used as it is. A frame of pixels
            is none of these: they have been cut to whole numbers, and its noise is not a camera's.
        frame_number : int
            The same number gives the same noise.
        out : ndarray, optional
            Array of uint16, shape (816, 840), for the counts.

        Returns
        -------
        ndarray, shape (816, 840)
            The counts: `out`, or a new array.

        Raises
        ------
        ValueError
            Another shape.
        TypeError
            Elements of another type; uint16, which is a frame of pixels.

        Examples
        --------
        >>> Detector(offset=100).expose(np.zeros((816, 840)))[0, 0]
        100
        """
        if isinstance(values, np.ndarray) and values.dtype == np.uint16:
            raise TypeError(
                "values: expected light, found uint16, a frame in which pixels below 0 read as 65535 or a little less; "
                "give frame_values of the simulator, or values.astype(float) of a frame of another maker"
            )
        made: _core.Detector = self._core  # type: ignore[attr-defined]
        return made.expose(values, whole("frame_number", frame_number, 0, 2**64 - 1), out)


def draw_flat_map(seed: int, rms: float) -> NDArray[np.float64]:
    """Draw relative responses: 1, with a Gaussian scatter.

    Parameters
    ----------
    seed : int
    rms : float
        Scatter, 0 to 1.

    Returns
    -------
    ndarray, shape (816, 840)

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> round(float(draw_flat_map(1, 0.01).std()), 4)
    0.01
    """
    return _core.draw_flat_map(whole("seed", seed, 0, 2**64 - 1), number("rms", rms))


def draw_hot_pixels(
    seed: int, per_million: float, mean_level: float
) -> tuple[NDArray[np.uint8], NDArray[np.float64]]:
    """Draw hot pixels: `bad_pixels` and `bad_pixel_levels` of a `Detector`.

    Parameters
    ----------
    seed : int
    per_million : float
        Hot pixels expected in a million.
    mean_level : float
        Electrons per frame; levels are exponentially distributed.

    Returns
    -------
    bad_pixels, bad_pixel_levels : ndarray, shape (816, 840)

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> states, levels = draw_hot_pixels(1, 1000, 500)
    >>> camera = Detector(bad_pixels=states, bad_pixel_levels=levels)
    """
    return _core.draw_hot_pixels(
        whole("seed", seed, 0, 2**64 - 1), number("per_million", per_million), number("mean_level", mean_level)
    )


def exposure(
    noise: float | None, seed: int, detector: Detector | None, noise_otherwise: float
) -> _core.Exposure:
    """What the compiled functions take for noise, or a detector in its place, and the seed of either.

    Raises
    ------
    TypeError, ValueError
        One of them is none, or out of its range; both are given.
    """
    ready_made = None if detector is None else core("detector", Detector, detector)
    if ready_made is not None and noise is not None:
        raise ValueError(f"noise: expected none beside a detector, which has its own, found {shown(noise)}")
    return _core.Exposure(number("noise", noise_otherwise if noise is None else noise), whole("seed", seed), ready_made)
