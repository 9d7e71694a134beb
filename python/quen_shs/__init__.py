"""A Shack-Hartmann wavefront sensor, simulated at its detector.

33 x 33 sub-apertures, 607 of them used, on frames of 816 rows and 840 columns with 16-bit pixels. Arrays are
[row, column]; columns are x, rows are y, pixel centres are at whole numbers. Displacements are in pixels, positive
toward higher columns and rows. A vector of slopes has the y displacements of the used sub-apertures first, then their x
displacements.

The examples of the help go on from these lines and from ``from quen_shs import *``.

>>> import numpy as np, quen_shs
>>> _ = quen_shs.calibrate("sensor", force=True)
>>> sim = quen_shs.Simulator("sensor", seed=1)
>>> frame = sim.compute_frame(np.full(1089, 0.25), np.zeros(1089), noise=10.0)
>>> slopes = sim.compute_slopes(quen_shs.Weighted())
>>> bool(abs(slopes[607:].mean() - 0.25) < 0.01)
True
"""

from ._core import Roi
from ._core import version as __version__
from .calibration import Finding, Findings, calibrate, check
from .campaigns import CampaignTables, campaign
from .detector import Detector, draw_flat_map, draw_hot_pixels
from .engines import (
    BrightestPixels,
    Centroider,
    CentreOfGravity,
    Correlation,
    GaussianFit,
    LightEngine,
    MaximumLikelihoodFit,
    QuadCell,
    ReadyMade,
    Weighted,
    Windowed,
    gaussian_template,
)
from .loop import LoopRun, run_loop, turbulence
from .pictures import Picture
from .scores import AxisScore, ErrorCurves, Score, Scores, error_bound, error_curves, score
from .simulator import Simulator
from .stream import Stream, StreamWriter

__all__ = [
    "AxisScore",
    "BrightestPixels",
    "CampaignTables",
    "Centroider",
    "CentreOfGravity",
    "Correlation",
    "Detector",
    "ErrorCurves",
    "Finding",
    "Findings",
    "GaussianFit",
    "LightEngine",
    "LoopRun",
    "MaximumLikelihoodFit",
    "Picture",
    "QuadCell",
    "ReadyMade",
    "Roi",
    "Score",
    "Scores",
    "Simulator",
    "Stream",
    "StreamWriter",
    "Weighted",
    "Windowed",
    "calibrate",
    "campaign",
    "check",
    "draw_flat_map",
    "draw_hot_pixels",
    "error_bound",
    "error_curves",
    "gaussian_template",
    "run_loop",
    "score",
    "turbulence",
]
