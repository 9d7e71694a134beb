"""Closes a control loop by hand, and draws its residual and its last frame: closed_loop.png."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np

import quen_shs

FRAMES = 300
GAIN = 0.5
NOISE = 10.0  # half-width of the uniform noise, in units of pixel values; a spot's peak is 4096

if not Path("sensor/data").exists():
    quen_shs.calibrate("sensor")

sim = quen_shs.Simulator("sensor", seed=1)
engine = quen_shs.CentreOfGravity()
disturbance = quen_shs.turbulence(sim, FRAMES, d_over_r0=20.0, seed=1)  # radians, a row of 52 modes per frame

dx, dy = np.zeros(1089), np.zeros(1089)  # pixels; the spots of unused sub-apertures stay where they are
correction = np.zeros(52)
residual = np.empty_like(disturbance)
for number in range(FRAMES):
    residual[number] = disturbance[number] - correction
    dy[sim.rois_used], dx[sim.rois_used] = np.split(sim.m2s @ residual[number], 2)  # the y block comes first
    frame = sim.compute_frame(dx, dy, NOISE)
    correction += GAIN * (sim.cm @ sim.compute_slopes(engine))

# The same loop, ready-made: its residual is this one, but for the rounding of the products with the two matrices.
ready_made = quen_shs.run_loop(sim, disturbance, engine, gain=GAIN, noise=NOISE, seed=1)

before = np.linalg.norm(disturbance, axis=1)  # the RMS of a frame's phase
after = np.linalg.norm(residual, axis=1)
print(f"residual: {np.sqrt(np.mean(after[FRAMES // 2 :] ** 2)):.4f} rad RMS in the second half of the run")
print(f"run_loop: {ready_made.residual_after:.4f} rad RMS")
print(f"largest difference of a mode: {abs(residual - ready_made.residual).max():.0e} rad")

figure, (left, right) = plt.subplots(1, 2, figsize=(13, 5.8), layout="constrained")
left.imshow(frame.view(np.int16), origin="lower", cmap="gray", vmin=0, vmax=4096)  # noise goes below 0
left.set(title="Last frame", xlabel="x: column, pixels", ylabel="y: row, pixels")
right.semilogy(before, color="gray", label="disturbance")
right.semilogy(after, label="residual")
right.set(title="Phase of each frame", xlabel="frame number", ylabel="phase, rad RMS", xlim=(0, FRAMES))
right.grid(alpha=0.3)
right.legend()
figure.savefig("closed_loop.png", dpi=120)
