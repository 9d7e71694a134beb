#!/usr/bin/env python3
"""What calls from Python cost over those of C++, what the same frame costs in numpy, and what threads gain; microseconds.

    PYTHONPATH=build/release/python /usr/bin/python3 python/benchmarks/benchmark.py

Every figure is the least of many calls, all in one process, in which C++ and Python take turns call by call. A frame
that is copied is compared with C++ that copies it, so that the last column is the call alone; the copy is the
difference between the rows of C++. Calls are told on regions of one pixel, where they are short and the processor still
has in its caches what Python needs, and on the usual ones, where it has not. Rendering has buffers on the stack, and
takes up to a twentieth longer where these lie unluckily against the frame: so calls are made at several depths of it.

Of four threads, each with a simulator of its own, the last rows tell how long their frames and slopes take together, and
how much longer they take one after the other; then what a busy Python thread takes from a loop.
"""

import concurrent.futures
import os
import random
import tempfile
import threading
import time

import numpy as np

import quen_shs

ROUNDS, DEPTHS, CALLS = 60, 16, 50
ZEROS = np.zeros(1089)
MICROSECONDS = 1e6
NOISE, LIMIT = 10.0, 12.0
SIDE = 24  # of the usual regions, pixels


def seconds(action):
    start = time.perf_counter()
    action()
    return time.perf_counter() - start


def deeper(levels, action):
    """What an action gives that is called so many levels down the stack."""
    return next(map(lambda _: deeper(levels - 1, action), [None])) if levels else action()


def least(clocked, rounds=ROUNDS, depths=DEPTHS):
    """The least times that several actions tell of themselves, which take turns in any order."""
    times, order = [np.inf] * len(clocked), random.Random(1)
    for turn in range(rounds * depths):
        for k in order.sample(range(len(clocked)), len(clocked)):
            times[k] = min(times[k], deeper(turn % depths, clocked[k]))
    return np.array(times) * MICROSECONDS


def numpy_frame(sim, dx, dy, noise, generator):
    """The frame as one writes it in numpy: the outer products of all regions' Gaussians at once."""
    rois, pixels = sim.rois, np.arange(SIDE)
    x, y = rois["x_low"][:, None] + pixels, rois["y_low"][:, None] + pixels
    columns = np.exp(-((x - (rois["x_ref"] + dx)[:, None]) ** 2) / 8)
    rows = np.exp(-((y - (rois["y_ref"] + dy)[:, None]) ** 2) / 8)
    frame = np.zeros((816, 840))
    spots = 4096 * rows[:, :, None] * columns[:, None, :]
    frame[y[:, :, None], x[:, None, :]] = spots + generator.uniform(-noise, noise, spots.shape)
    return frame.astype(np.int32).astype(np.uint16)


def call_rows(folder):
    """What is called, and its times in C++ and in Python."""
    sim = quen_shs.Simulator(folder, seed=1)
    rng = np.random.default_rng(1)
    dx, dy = rng.uniform(-2, 2, (2, 1089))
    engine = quen_shs.CentreOfGravity()
    core, frame, slopes = sim._core, np.empty((816, 840), np.uint16), np.empty(1214)
    in_cpp = [
        lambda: core.seconds_of_frame(dx, dy, NOISE, None),
        lambda: core.seconds_of_frame(dx, dy, NOISE, frame),
        lambda: core.seconds_of_slopes(engine, LIMIT, None),
        lambda: core.seconds_of_slopes(engine, LIMIT, slopes),
    ]
    in_python = [
        lambda: seconds(lambda: sim.compute_frame(dx, dy, NOISE, copy=False)),
        lambda: seconds(lambda: sim.compute_frame(dx, dy, NOISE, out=frame)),
        lambda: seconds(lambda: sim.compute_frame(dx, dy, NOISE)),
        lambda: seconds(lambda: sim.compute_slopes(engine, copy=False)),
        lambda: seconds(lambda: sim.compute_slopes(engine)),
    ]
    drawn, and_copied, measured, also_copied, *of_python = least(in_cpp + in_python)
    for of_cpp, found, row in zip(
        [drawn, and_copied, and_copied, measured, also_copied],
        of_python,
        [
            "frame, a view",
            "frame, copied into an array",
            "frame, copied into a new array",
            "slopes, a view",
            "slopes, copied into a new array",
        ],
    ):
        yield row, of_cpp, found
    if sim.rois["x_up"][0] - sim.rois["x_low"][0] == SIDE:
        [in_numpy] = least([lambda: seconds(lambda: numpy_frame(sim, dx, dy, NOISE, rng))], 5)
        yield "frame in numpy, other bits", drawn, in_numpy


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
        one_by_one, at_once = least([
            lambda: seconds(lambda: [work(sim) for sim in sims]),
            lambda: seconds(lambda: list(threads.map(work, sims))),
        ], 20, 1)
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
        found = seconds(run)
        stop.set()
        busy.join()
        return found

    def run():
        quen_shs.run_loop(sim, np.zeros((frames, 52)))

    alone, beside = least([lambda: seconds(run), beside_another], 20, 1)
    yield "alone", alone / frames, 1.0
    yield "beside a busy thread", beside / frames, alone / beside


def main():
    with tempfile.TemporaryDirectory() as folder:
        print("| case | row | C++ | Python | more |\n|---|---|---:|---:|---:|")
        for title, size in {"regions of a pixel": 1, "usual regions": SIDE}.items():
            sensor = os.path.join(folder, str(size))
            quen_shs.calibrate(sensor, size=size)
            for row, in_cpp, in_python in call_rows(sensor):
                print(f"| {title} | {row} | {in_cpp:.1f} | {in_python:.1f} | {in_python - in_cpp:.1f} |")
        print(f"\n| on {os.cpu_count()} processors | row | microseconds a frame | speed |\n|---|---|---:|---:|")
        for case, its_rows in [("frames and slopes", thread_rows), ("frames of a loop", loop_rows)]:
            for row, found, ratio in its_rows(sensor):
                print(f"| {case} | {row} | {found:.0f} | {ratio:.2f} |")


if __name__ == "__main__":
    main()
