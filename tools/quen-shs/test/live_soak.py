#!/usr/bin/env python3
"""A sensor, a controller and a watcher, each a program of its own, for QUEN_SOAK_SECONDS (6): the loop stays closed, no
frame is torn or numbered wrongly, every frame is in the log, and no program grows.

    live_soak.py QUEN_SHS
"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

import numpy as np
from astropy.io import fits

SECONDS = int(os.environ.get("QUEN_SOAK_SECONDS", "6"))
RATE = 300
GROWTH = 2048  # KiB
LIMIT = 60.0  # seconds, beyond its time


def resident(process):
    """Memory of a living process, KiB."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="utf-8")
    return int(status.split("VmRSS:")[1].split()[0])


def expect(condition, *found):
    """What holds, or the end with what was found."""
    if not condition:
        raise SystemExit(f"live_soak: {' '.join(map(str, found))}")


def residual_of(truth):
    """Root mean squares of the residual, rad, in the frames given."""
    return float(np.sqrt((truth["residual"] ** 2).sum(axis=1).mean()))


def main(tool):
    """Runs the three together and looks at what each of them says."""
    frames = SECONDS * RATE
    with tempfile.TemporaryDirectory() as folder:
        surroundings = os.environ | {"MILK_SHM_DIR": folder}
        running = []

        def start(*arguments):
            running.append(subprocess.Popen([tool, *arguments, "--json"], cwd=folder, env=surroundings, text=True,
                                            stdout=subprocess.PIPE, stderr=subprocess.PIPE))
            return running[-1]

        def report(process):
            output, errors = process.communicate(timeout=SECONDS + LIMIT)
            expect(process.returncode == 0, process.args[1], "ended with", process.returncode, errors)
            return json.loads(output)

        try:
            subprocess.run([tool, "calibrate", "sensor"], cwd=folder, check=True, stdout=subprocess.DEVNULL)
            server = start("serve", "sensor", "--stream=frames", f"--rate={RATE}", f"--frames={frames}",
                           "--corrections=modes", "--log=truth.fits")
            while not pathlib.Path(folder, "frames.im.shm").exists():
                expect(server.poll() is None, "serve has ended", server.poll())
                time.sleep(0.01)
            start("loop", "sensor", "--through=frames", "--corrections=modes")
            start("watch", "frames")
            time.sleep(0.3 * SECONDS)  # by then all that is made once has been made
            before = [resident(process) for process in running]
            time.sleep(0.6 * SECONDS)
            grown = [resident(process) - memory for process, memory in zip(running, before)]
            for process in running[1:]:
                process.send_signal(signal.SIGINT)
            served = report(server)
            controlled, watched = (json.loads(process.communicate(timeout=LIMIT)[0]) for process in running[1:])
            with fits.open(pathlib.Path(folder, "truth.fits")) as file:
                truth = file[1].data
                rows = len(truth)
                expect(rows == served["published"], served["published"], "frames published,", rows, "rows in the log")
                expect((np.diff(truth["FRAME"]) > 0).all() and truth["FRAME"][-1] < frames, "the log has other numbers")
                early, late = (residual_of(truth[int(begin * rows):int(end * rows)])
                               for begin, end in ((0.25, 0.35), (0.75, 0.85)))
                at_first = residual_of(truth[:1])
        finally:
            for process in running:
                process.kill()
                process.wait()
    expect(served["published"] + served["skipped"] == frames, served)
    expect(served["corrections"]["torn"] + served["corrections"]["not_finite"] == 0, served["corrections"])
    expect(watched["torn"] + watched["misnumbered"] + watched["repeated"] == 0, watched)
    expect(watched["frames"] > 0.1 * frames and controlled["frames"] > 0.1 * frames, watched, controlled)
    expect(max(early, late) < 0.5 * at_first, "the loop is open: residuals", at_first, early, late, "rad")
    expect(max(grown) < GROWTH, "grown by", grown, "KiB")
    print(f"{frames} frames: {served['skipped']} skipped, {controlled['frames']} answered, {watched['frames']} watched "
          f"({watched['lost']} lost); residual {at_first:.2f} rad in the first one, {early:.3f} early, {late:.3f} late; "
          f"grown by {', '.join(map(str, grown))} KiB")


if __name__ == "__main__":
    main(os.path.abspath(sys.argv[1]))
