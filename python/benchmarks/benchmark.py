#!/usr/bin/env python3
"""What calls from Python cost over those of C++, and what the same frame costs in numpy; microseconds.

    PYTHONPATH=build/release/python /usr/bin/python3 python/benchmarks/benchmark.py

Every row is the least of many calls, all in one process; C++ and Python take turns. Overheads are told on regions of one
pixel, where a call is short, and on the usual ones.
"""

import os
import tempfile
import time

import numpy as np

import quen_shs

ROUNDS, CALLS = 20, 50
MICROSECONDS = 1e6


def least_seconds(action, calls=CALLS):
    least = np.inf
    for _ in range(calls):
        start = time.perf_counter()
        action()
        least = min(least, time.perf_counter() - start)
    return least


def alternate(actions):
    """The least times of several actions that take turns."""
    return np.min([[action() for action in actions] for _ in range(ROUNDS)], axis=0) * MICROSECONDS


def numpy_frame(sim, dx, dy, noise, generator):
    """The frame as one writes it in numpy: the outer products of all regions' Gaussians at once."""
    rois, pixels = sim.rois, np.arange(24)
    x, y = rois["x_low"][:, None] + pixels, rois["y_low"][:, None] + pixels
    columns = np.exp(-((x - (rois["x_ref"] + dx)[:, None]) ** 2) / 8)
    rows = np.exp(-((y - (rois["y_ref"] + dy)[:, None]) ** 2) / 8)
    frame = np.zeros((816, 840))
    spots = 4096 * rows[:, :, None] * columns[:, None, :]
    frame[y[:, :, None], x[:, None, :]] = spots + generator.uniform(-noise, noise, spots.shape)
    return frame.astype(np.int32).astype(np.uint16)


def rows(folder, title):
    sim = quen_shs.Simulator(folder, seed=1)
    rng = np.random.default_rng(1)
    dx, dy = rng.uniform(-2, 2, (2, 1089))
    engine = quen_shs.CentreOfGravity()
    core, out = sim._core, np.empty((816, 840), np.uint16)
    frames = [
        lambda: core.least_seconds_of_frames(dx, dy, 10.0, CALLS),
        lambda: least_seconds(lambda: sim.compute_frame(dx, dy, 10.0, copy=False)),
        lambda: least_seconds(lambda: sim.compute_frame(dx, dy, 10.0, out=out)),
        lambda: least_seconds(lambda: sim.compute_frame(dx, dy, 10.0)),
    ]
    slopes = [
        lambda: core.least_seconds_of_slopes(engine, 12.0, CALLS),
        lambda: least_seconds(lambda: sim.compute_slopes(engine, copy=False)),
        lambda: least_seconds(lambda: sim.compute_slopes(engine)),
    ]
    names = ["C++", "Python, a view", "Python, into an array", "Python, a new array"]
    for call, actions, words in [("frame", frames, names), ("slopes", slopes, names[:2] + names[3:])]:
        times = alternate(actions)
        for word, found in zip(words, times):
            yield f"{title}, {call}", word, found, found - times[0]
    if title == "usual regions":
        found = alternate([lambda: least_seconds(lambda: numpy_frame(sim, dx, dy, 10.0, rng), 5)])[0]
        yield f"{title}, frame", "numpy, other bits", found, found - alternate(frames[:1])[0]


def main():
    with tempfile.TemporaryDirectory() as folder:
        kinds = {"regions of a pixel": 1, "usual regions": 24}
        print("| case | row | microseconds | over C++ |\n|---|---|---:|---:|")
        for title, size in kinds.items():
            sensor = os.path.join(folder, str(size))
            quen_shs.calibrate(sensor, size=size)
            for case, row, found, over in rows(sensor, title):
                print(f"| {case} | {row} | {found:.1f} | {over:.1f} |")


if __name__ == "__main__":
    main()
