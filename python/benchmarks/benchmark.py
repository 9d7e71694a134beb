#!/usr/bin/env python3
"""What calls from Python cost over those of C++, what the same frame costs in numpy, and what threads gain; microseconds.

    PYTHONPATH=build/release/python /usr/bin/python3 python/benchmarks/benchmark.py

Every row is the least of many calls, all in one process; C++ and Python take turns. Overheads are told on regions of one
pixel, where a call is short, and on the usual ones. Of four threads, each with a simulator of its own, the last rows tell
how long their frames and slopes take together, and how much longer they take one after the other; then what a busy Python
thread takes from a loop.
"""

import concurrent.futures
import os
import tempfile
import threading
import time

import numpy as np

import quen_shs

ROUNDS, CALLS = 20, 50
ZEROS = np.zeros(1089)
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


THREADS = 4


def work(sim):
    engine = quen_shs.GaussianFit()
    for _ in range(CALLS):
        sim.compute_frame(ZEROS, ZEROS, 10.0, copy=False)
        sim.compute_slopes(engine, copy=False)


def thread_rows(folder):
    """Four threads at once, and one after the other."""
    sims = [quen_shs.Simulator(folder, seed=k) for k in range(THREADS)]
    with concurrent.futures.ThreadPoolExecutor(THREADS) as threads:
        one_by_one, at_once = alternate([
            lambda: least_seconds(lambda: [work(sim) for sim in sims], 1),
            lambda: least_seconds(lambda: list(threads.map(work, sims)), 1),
        ])
    yield "one after the other", one_by_one / (THREADS * CALLS), 1.0
    yield "four threads", at_once / (THREADS * CALLS), one_by_one / at_once


def loop_rows(folder):
    """A loop by itself, and beside a thread that computes in Python."""
    sim, frames = quen_shs.Simulator(folder, seed=1), 200
    stop = threading.Event()

    def beside_another():
        def be_busy():
            while not stop.is_set():
                sum(range(1000))

        stop.clear()
        busy = threading.Thread(target=be_busy)
        busy.start()
        seconds = least_seconds(run, 3)
        stop.set()
        busy.join()
        return seconds

    def run():
        quen_shs.run_loop(sim, np.zeros((frames, 52)))

    alone, beside = alternate([lambda: least_seconds(run, 3), beside_another])
    yield "alone", alone / frames, 1.0
    yield "beside a busy thread", beside / frames, alone / beside


def main():
    with tempfile.TemporaryDirectory() as folder:
        kinds = {"regions of a pixel": 1, "usual regions": 24}
        print("| case | row | microseconds | over C++ |\n|---|---|---:|---:|")
        for title, size in kinds.items():
            sensor = os.path.join(folder, str(size))
            quen_shs.calibrate(sensor, size=size)
            for case, row, found, over in rows(sensor, title):
                print(f"| {case} | {row} | {found:.1f} | {over:.1f} |")
        print(f"\n| on {os.cpu_count()} processors | row | microseconds a frame | speed |\n|---|---|---:|---:|")
        for case, its_rows in [("frames and slopes", thread_rows), ("frames of a loop", loop_rows)]:
            for row, found, ratio in its_rows(sensor):
                print(f"| {case} | {row} | {found:.0f} | {ratio:.2f} |")


if __name__ == "__main__":
    main()
