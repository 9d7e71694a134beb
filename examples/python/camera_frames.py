r"""Frames of a camera, as a FITS cube: camera.fits. The first is drawn: camera.png.

Read by the tool, which is told of the hot pixels:

    quen-shs measure sensor camera.fits --engine maximum-likelihood:pedestal=100,gain=0.5,read-noise=3 \
        --bad-pixels hot_pixels.fits
"""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
from astropy.io import fits

import quen_shs

FRAMES = 5
PEDESTAL = 100.0  # counts

if not Path("sensor/data").exists():
    quen_shs.calibrate("sensor")

sim = quen_shs.Simulator("sensor")
hot, levels = quen_shs.draw_hot_pixels(seed=1, per_million=300, mean_level=2000)  # levels in electrons per frame
camera = quen_shs.Detector(
    electrons_per_unit=0.05,  # a spot of the simulator has 102900 units: some 5000 electrons
    background=2.0,  # electrons per pixel
    read_noise=3.0,  # electrons RMS
    gain=0.5,  # counts per electron
    offset=PEDESTAL,
    bad_pixels=hot,
    bad_pixel_levels=levels,
)

# The light of the frame is computed once, and exposed as often as frames are wanted. A frame's number is its noise.
dx, dy = np.full(1089, 0.5), np.full(1089, -0.25)  # pixels
sim.compute_frame(dx, dy)
cube = np.empty((FRAMES, 816, 840), np.uint16)
for number in range(FRAMES):
    camera.expose(sim.frame_values, number, out=cube[number])
fits.writeto("camera.fits", cube, overwrite=True)  # unsigned 16 bit: astropy writes BZERO = 32768
fits.writeto("hot_pixels.fits", hot, overwrite=True)
print(f"counts: median {np.median(cube):.0f}, highest {cube.max()}")

# An engine for such frames is told of the camera; what it cannot place it gives as NaN.
engine = quen_shs.MaximumLikelihoodFit(pedestal=PEDESTAL, gain=0.5, read_noise=3.0, bad_pixels=hot)
slopes = np.array([sim.compute_slopes(engine, frame=frame) for frame in cube])
y, x = np.split(slopes, 2, axis=1)
print(f"displacement: x {np.nanmean(x):+.3f}, y {np.nanmean(y):+.3f} pixels, true +0.500 and -0.250")

figure, (whole, part) = plt.subplots(1, 2, figsize=(13, 5.8), layout="constrained")
for axes in (whole, part):
    image = axes.imshow(cube[0], origin="lower", cmap="gray", vmin=90, vmax=210)
    axes.set(xlabel="x: column, pixels", ylabel="y: row, pixels")
whole.set(title="First frame; brighter pixels are hot ones")
part.set(title="Four by four of its sub-apertures", xlim=(383.5, 479.5), ylim=(371.5, 467.5))
figure.colorbar(image, ax=part, label="counts", extend="max")
figure.savefig("camera.png", dpi=120)
