"""Centroiding engines: what measures where a spot is."""

from __future__ import annotations

import abc
import dataclasses
import functools
from typing import Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._records import Record, held, limited, number, same, shown, whole

# Full width at half maximum of the spot that the simulator draws, pixels.
SPOT_FWHM = _core.spot_fwhm


class Centroider(abc.ABC):
    """Base class of engines. Derive from it for one of your own, with a method `compute`.

    Examples
    --------
    >>> class Brightest(Centroider):
    ...     def compute(self, frame, roi):
    ...         light = frame[roi.y_low:roi.y_up, roi.x_low:roi.x_up]
    ...         y, x = np.unravel_index(light.argmax(), light.shape)
    ...         return light.sum(), x + roi.x_low - roi.x_ref, y + roi.y_low - roi.y_ref
    """

    @abc.abstractmethod
    def compute(self, frame: NDArray[np.uint16], roi: _core.Roi) -> tuple[float, float, float]:
        """Measure one spot.

        Parameters
        ----------
        frame : ndarray of uint16, shape (816, 840)
            The whole frame, not writeable. Only the region's pixels may be used.
        roi : Roi
            The region: columns ``roi.x_low`` to ``roi.x_up - 1``, rows ``roi.y_low`` to ``roi.y_up - 1``, and the
            reference point ``(roi.x_ref, roi.y_ref)``.

        Returns
        -------
        flux, x, y : float
            Light, and displacement from the reference point along the columns and along the rows, pixels.

        Examples
        --------
        >>> frame = np.zeros((24, 24), np.uint16)
        >>> frame[10, 13] = 1000
        >>> roi = Roi(x_low=0, x_up=24, y_low=0, y_up=24, x_max=24, y_max=24, x_ref=12.0, y_ref=12.0)
        >>> CentreOfGravity().compute(frame, roi)
        (1000.0, 1.0, -2.0)
        """


class ReadyMade(Record, Centroider):
    """Base class of the ready-made engines, whose fields are what they are made of.

    Equal fields make equal engines; `repr` gives what makes the engine again, unless it has maps; engines can be
    pickled. One engine serves one thread at a time. A pixel is a 16-bit two's-complement number unless the engine is
    told otherwise.

    Examples
    --------
    >>> engine = Weighted(fwhm=5)
    >>> isinstance(engine, ReadyMade), engine == eval(repr(engine)), engine.fwhm
    (True, True, 5.0)
    """

    def __post_init__(self) -> None:
        super().__post_init__()
        _ = self._measuring  # made now, so that values out of their ranges are refused now

    @functools.cached_property
    def _measuring(self) -> _core.Engine:
        return self._made()

    @functools.cached_property
    def _engine(self) -> _core.Engine | None:
        """What measures without a call of `compute`; none where a derived class has a `compute` of its own."""
        return self._measuring if type(self).compute is ReadyMade.compute else None

    @abc.abstractmethod
    def _made(self) -> _core.Engine:
        """An engine of these fields."""

    def compute(self, frame: NDArray[np.uint16], roi: _core.Roi) -> tuple[float, float, float]:
        return self._measuring.compute(frame, roi)


@dataclasses.dataclass(frozen=True, eq=False)
class CentreOfGravity(ReadyMade):
    """Centre of gravity of a region's light.

    Parameters
    ----------
    background : float
        Pixel value that is no light, -32768 to 32767.
    threshold : float, optional
        Above the background, 0 to 65535; dimmer pixels do not count. Without one all pixels count.
    thresholding : {'subtract', 'cut'}
        Whether the threshold is subtracted from the light of brighter pixels.

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> CentreOfGravity(threshold=100)
    CentreOfGravity(background=0.0, threshold=100.0, thresholding='subtract')
    """

    background: float = 0.0
    threshold: float | None = None
    thresholding: Literal["subtract", "cut"] = "subtract"

    def _made(self) -> _core.Engine:
        return _core.centre_of_gravity(self.background, self.threshold, self.thresholding)


@dataclasses.dataclass(frozen=True, eq=False)
class Windowed(ReadyMade):
    """Centre of gravity of the pixels near the brightest one, or near the reference point.

    Parameters
    ----------
    around : {'brightest', 'reference'}
        Where the window is.
    half_width : float
        Distance along either axis up to which pixels count, pixels, 0.5 to 1000.

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> Windowed(half_width=5)
    Windowed(around='brightest', half_width=5.0)
    """

    around: Literal["brightest", "reference"] = "brightest"
    half_width: float = 6.0

    def _made(self) -> _core.Engine:
        return _core.windowed_centre_of_gravity(self.around, self.half_width)


@dataclasses.dataclass(frozen=True, eq=False)
class Weighted(ReadyMade):
    """Centre of gravity with a Gaussian weight around the reference point.

    Parameters
    ----------
    fwhm : float
        Full width at half maximum of the weight, pixels, 1 to 100.
    gain : float, optional
        Factor on the displacements, above 0 to 100. Without one it is that of the drawn spot, and the response is
        linear.

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> Weighted(fwhm=5)
    Weighted(fwhm=5.0, gain=None)
    """

    fwhm: float = SPOT_FWHM
    gain: float | None = None

    def _made(self) -> _core.Engine:
        return _core.weighted_centre_of_gravity(self.fwhm, self.gain)


@dataclasses.dataclass(frozen=True, eq=False)
class BrightestPixels(ReadyMade):
    """Centre of gravity of the brightest pixels, the dimmest of them taken for no light.

    Parameters
    ----------
    number : int, optional
        Of pixels, 2 to 1000000.
    fraction : float, optional
        Of the region's pixels, above 0 to 1. Exactly one of the two is to be given.

    Raises
    ------
    ValueError
        None or both of them, or a value out of its range.

    Examples
    --------
    >>> BrightestPixels(number=25)
    BrightestPixels(number=25, fraction=None)
    """

    number: int | None = limited(None, 2, 1_000_000)
    fraction: float | None = None

    def _made(self) -> _core.Engine:
        return _core.brightest_pixels(self.number, self.fraction)


@dataclasses.dataclass(frozen=True, eq=False)
class QuadCell(ReadyMade):
    """Light of the region's halves, left and right of the reference point, below and above it.

    Parameters
    ----------
    gain : float, optional
        Pixels, above 0 to 1000. Without one it is that of small displacements of the drawn spot.

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> QuadCell()
    QuadCell(gain=None)
    """

    gain: float | None = None

    def _made(self) -> _core.Engine:
        return _core.quad_cell(self.gain)


@dataclasses.dataclass(frozen=True, eq=False)
class Correlation(ReadyMade):
    """Matched filter: where the spot correlates best with a template.

    Parameters
    ----------
    size : int
        Side of the template, pixels, odd, 3 to 63.
    template_values : array_like, shape (size, size), optional
        The template, its centre on the middle pixel. Without one it is the drawn spot. Kept as tuples.
    top : {'parabolas', 'surface'}
        Where the top lies between pixels: along each axis by itself, or that of a surface, which inclined spots need.

    Raises
    ------
    ValueError
        A value out of its range, or a template of another shape.

    See Also
    --------
    gaussian_template : a template of another width

    Examples
    --------
    >>> Correlation(top="surface")
    Correlation(size=21, template_values=None, top='surface')
    """

    size: int = limited(21, 3, 63)
    template_values: ArrayLike | None = None
    top: Literal["parabolas", "surface"] = "parabolas"

    def __post_init__(self) -> None:
        if self.template_values is not None:
            values = held("template_values", self.template_values)
            if not np.can_cast(values.dtype, np.float64):
                raise TypeError(f"template_values: expected numbers that float64 holds, found {values.dtype}")
            if values.shape != (self.size, self.size):
                raise ValueError(
                    f"template_values: expected shape ({self.size}, {self.size}), found {values.shape}"
                )
            object.__setattr__(self, "template_values", tuple(map(tuple, values.astype(float).tolist())))
        super().__post_init__()

    def _made(self) -> _core.Engine:
        values = [] if self.template_values is None else np.ravel(np.asarray(self.template_values)).tolist()
        return _core.correlation(self.size, values, self.top)


@dataclasses.dataclass(frozen=True, eq=False)
class GaussianFit(ReadyMade):
    """The Gaussian of given width that is closest to the pixels in the sense of least squares.

    Parameters
    ----------
    fwhm : float
        Full width at half maximum of the spot, pixels, 1 to 100.
    steps : int
        Of Gauss-Newton, 1 to 100.

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> GaussianFit(fwhm=5, steps=3)
    GaussianFit(fwhm=5.0, steps=3)
    """

    fwhm: float = SPOT_FWHM
    steps: int = 4

    def _made(self) -> _core.Engine:
        return _core.gaussian_fit(self.fwhm, self.steps)


@dataclasses.dataclass(frozen=True, eq=False)
class _CameraEngine(ReadyMade):
    """What engines of a camera's frames have in common: how counts are read as light."""

    pixels: Literal["signed", "unsigned"] = "unsigned"
    pedestal: float = 0.0
    ceiling: float | None = None
    dark_map: ArrayLike | None = None
    flat_map: ArrayLike | None = None
    bad_pixels: ArrayLike | None = None

    def _reading(self) -> _core.PixelReading:
        return _core.PixelReading(
            self.pixels, self.pedestal, self.ceiling, self.dark_map, self.flat_map, self.bad_pixels
        )


@dataclasses.dataclass(frozen=True, eq=False)
class MaximumLikelihoodFit(_CameraEngine):
    """The spot on a background that makes the pixels most likely, with the noise of photons and of the read-out.

    Says that it has failed, by flux 0 and NaN for both displacements, instead of guessing.

    Parameters
    ----------
    pixels : {'unsigned', 'signed'}
        How 16 bits are read: 'unsigned' those of a camera or a `Detector`, 'signed' those of the simulator's own
        frames, whose pixels below 0 would be bright otherwise.
    pedestal : float
        Counts without light, -65535 to 65535.
    ceiling : float, optional
        Counts that are saturated, from this one up; they do not count.
    dark_map, flat_map : array_like, shape (816, 840), optional
        Counts without light, and relative response, of each pixel.
    bad_pixels : array_like of uint8, shape (816, 840), optional
        Those that are not 0 do not count.
    gain : float
        Counts per electron, above 0 to 1000000.
    read_noise : float
        Electrons RMS, 0 to 1000000.
    shape : {'given', 'round', 'oval'}
        What is fitted of the spot's shape: nothing, its width, or two widths and a direction.
    fwhm : float
        Full width at half maximum, pixels, 1 to 100; where a width is fitted, the search starts with it.
    background_model : {'constant', 'slope', 'given'}
        What is fitted of the background.
    background : float
        Electrons per pixel, where it is given.
    steps : int
        At most, 2 to 1000.
    tolerance : float
        Pixels; a smaller step than this one is the last.
    significance : float
        Least light of a spot, in units of its own standard error.

    Raises
    ------
    ValueError
        A value out of its range, or a map of another shape.

    Examples
    --------
    >>> engine = MaximumLikelihoodFit(pedestal=100, gain=0.5, read_noise=3)
    >>> engine == eval(repr(engine))
    True
    """

    gain: float = 1.0
    read_noise: float = 5.0
    shape: Literal["given", "round", "oval"] = "given"
    fwhm: float = SPOT_FWHM
    background_model: Literal["constant", "slope", "given"] = "constant"
    background: float = 0.0
    steps: int = 50
    tolerance: float = 1e-3
    significance: float = 4.0

    def _made(self) -> _core.Engine:
        return _core.maximum_likelihood_fit(
            self._reading(),
            self.gain,
            self.read_noise,
            self.shape,
            self.fwhm,
            self.background_model,
            self.background,
            self.steps,
            self.tolerance,
            self.significance,
        )


@dataclasses.dataclass(frozen=True, eq=False)
class LightEngine(_CameraEngine):
    """Puts a region's light in the place of a camera's counts, and has another engine measure that.

    Parameters
    ----------
    pixels, pedestal, ceiling, dark_map, flat_map, bad_pixels
        As for `MaximumLikelihoodFit`; a bad pixel gets the mean light of its neighbours.
    engine : ReadyMade
        That measures.
    background : {'none', 'border-mean', 'border-median', 'quantile'}
        What is taken for the background of a region, and subtracted.
    quantile : float
        For that, 0 to 1.

    Raises
    ------
    ValueError
        A value out of its range, or a map of another shape.

    Examples
    --------
    >>> engine = LightEngine(engine=Weighted(fwhm=5), pedestal=200, background="border-median")
    >>> engine.engine
    Weighted(fwhm=5.0, gain=None)
    """

    engine: ReadyMade = CentreOfGravity()
    background: Literal["none", "border-mean", "border-median", "quantile"] = "none"
    quantile: float = 0.25

    def _made(self) -> _core.Engine:
        if not isinstance(self.engine, ReadyMade) or self.engine._engine is None:
            raise TypeError(f"engine: expected a ready-made engine, found {shown(self.engine)}{_remedy(self.engine)}")
        return _core.light_engine(
            self._reading(), self.background, self.quantile, self.engine._made()
        )


def _remedy(engine: object) -> str:
    return f"; write {engine.__name__}()" if isinstance(engine, type) and issubclass(engine, ReadyMade) else ""


def label(engine: object) -> str:
    """What an engine is called where there are several: its class, and of a ready-made one what is not the default."""
    name = type(engine).__name__
    if not isinstance(engine, ReadyMade):
        return name
    told = []
    for field in dataclasses.fields(engine):
        value = getattr(engine, field.name)
        if same(value, field.default):
            continue
        short = label(value) if isinstance(value, ReadyMade) else shown(value)
        told.append(f"{field.name}={'...' if isinstance(value, (tuple, np.ndarray)) else short}")
    return f"{name}({', '.join(told)})" if told else name


def gaussian_template(size: int, fwhm: float) -> NDArray[np.float64]:
    """Make a template for `Correlation`: a Gaussian of height 1 on the middle pixel.

    Parameters
    ----------
    size : int
        Side, pixels, odd, 3 to 63.
    fwhm : float
        Full width at half maximum, pixels, 1 to 100.

    Returns
    -------
    ndarray, shape (size, size)

    Raises
    ------
    ValueError
        A value out of its range.

    Examples
    --------
    >>> Correlation(size=15, template_values=gaussian_template(15, 6.0)).size
    15
    """
    values = _core.gaussian_template(whole("size", size, 3, 63), number("fwhm", fwhm))
    return np.array(values).reshape(size, size)
