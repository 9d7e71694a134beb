"""Scores a centroiding engine of one's own against ready-made ones, and draws the errors: own_engine.png."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
from numpy.typing import NDArray

import quen_shs

NOISES = [1.0, 3.0, 10.0, 30.0, 100.0, 300.0]  # half-width of the uniform noise; a spot's peak is 4096


class SquaredCentre(quen_shs.Centroider):
    """Centre of gravity of the squared light: bright pixels, which know more about the place, count more."""

    def compute(self, frame: NDArray[np.uint16], roi: quen_shs.Roi) -> tuple[float, float, float]:
        # Pixels are numbers with a sign: noise makes some of the dark ones negative.
        light = frame.view(np.int16)[roi.y_low : roi.y_up, roi.x_low : roi.x_up].astype(float)
        weight = light**2
        x = weight.sum(axis=0) @ np.arange(roi.x_low, roi.x_up) / weight.sum()
        y = weight.sum(axis=1) @ np.arange(roi.y_low, roi.y_up) / weight.sum()
        return light.sum(), x - roi.x_ref, y - roi.y_ref


if not Path("sensor/data").exists():
    quen_shs.calibrate("sensor")

sim = quen_shs.Simulator("sensor")
engines = {
    "centre of gravity": quen_shs.CentreOfGravity(),
    "weighted": quen_shs.Weighted(),
    "Gaussian fit": quen_shs.GaussianFit(),
    "squared centre (own)": SquaredCentre(),
}

# Frames with known displacements within 2 pixels, the same ones for each engine.
scores = [quen_shs.score(sim, engines.values(), noise, frames=2) for noise in NOISES]
bounds = [quen_shs.error_bound(noise) for noise in NOISES]

figure, axes = plt.subplots(figsize=(7.5, 5), layout="constrained")
axes.plot(NOISES, bounds, color="lightgray", linewidth=8, label="least possible")
print(f"RMS error at noise {NOISES[2]:.0f}, pixels")
print(f"{'least possible':21} {bounds[2]:.4f}")
for number, (name, style) in enumerate(zip(engines, ["o-", "s-", "^-", "k--D"])):
    errors = [of_noise[number].x.rms for of_noise in scores]
    axes.plot(NOISES, errors, style, markersize=4, label=name)
    print(f"{name:21} {errors[2]:.4f}")
axes.set(
    xscale="log",
    yscale="log",
    xlabel="half-width of the noise, pixel values",
    ylabel="RMS error along x, pixels",
    title="Error of centroiding engines against the noise",
)
axes.grid(alpha=0.3)
axes.legend()
figure.savefig("own_engine.png", dpi=120)
