"""Threads, processes and Ctrl-C."""

import concurrent.futures
import multiprocessing
import signal
import subprocess
import sys
import threading

import numpy as np
import pytest

from quen_shs import (
    CentreOfGravity,
    GaussianFit,
    Simulator,
    calibrate,
    check,
    error_curves,
    run_loop,
    score,
    turbulence,
)

ZEROS = np.zeros(1089)


def work(sim):
    """Frames and slopes, many times over."""
    results = []
    for k in range(20):
        results.append(sim.compute_frame(np.full(1089, k / 10), ZEROS, 10.0))
        results.append(sim.compute_slopes(CentreOfGravity()))
    return results


def same(some, others):
    return all(np.array_equal(one, other) for one, other in zip(some, others, strict=True))


def test_four_threads_do_what_one_does(sensor):
    one_by_one = [work(Simulator(sensor, seed=k)) for k in range(4)]
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        at_once = list(threads.map(work, [Simulator(sensor, seed=k) for k in range(4)]))
    assert all(map(same, one_by_one, at_once))


def test_simulators_can_be_loaded_in_threads(sensor):
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        made = list(threads.map(lambda seed: Simulator(sensor, seed=seed).compute_frame(ZEROS, ZEROS, 9.0), [3] * 20))
    assert same(made, [made[0]] * 20)


JOBS = {
    "compute_frame": lambda sim: sim.compute_frame(ZEROS, ZEROS, 10.0),
    "compute_slopes": lambda sim: sim.compute_slopes(GaussianFit(steps=100)),
    "score": lambda sim: score(sim, [GaussianFit()], frames=50),
    "run_loop": lambda sim: run_loop(sim, frames=50),
}


FOLDER_JOBS = {
    "check": lambda sim, folder: check(sim.folder),
    "turbulence": lambda sim, folder: turbulence(sim, 2000),
    "error_curves": lambda sim, folder: error_curves(sim, [GaussianFit()], frames=1),
    "calibrate": lambda sim, folder: calibrate(folder, force=True),
    "calibrate, measured": lambda sim, folder: calibrate(folder, force=True, measured=True),
}


@pytest.mark.parametrize("job", [*JOBS, *FOLDER_JOBS])
def test_other_threads_go_on_meanwhile(sim, job, tmp_path):
    """Nothing else makes a thread hand over the interpreter's lock: another one gets it in a call, or never."""
    called, got_it = threading.Event(), threading.Event()

    def get_it():
        called.wait()
        got_it.set()

    thread = threading.Thread(target=get_it)
    thread.start()
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000.0)
    try:
        called.set()
        for _ in range(100):
            JOBS[job](sim) if job in JOBS else FOLDER_JOBS[job](sim, tmp_path)
            if got_it.is_set():
                break
        was_let_go = got_it.is_set()
    finally:
        sys.setswitchinterval(interval)
    thread.join()
    assert was_let_go


@pytest.mark.parametrize("other", ["compute_frame", "compute_slopes", "run_loop", "score"])
def test_one_simulator_serves_one_thread(sim, other):
    """An engine holds it while another thread tries."""
    inside, tried = threading.Event(), threading.Event()

    class Waiting:
        def compute(self, frame, roi):
            inside.set()
            assert tried.wait(30)
            return 1.0, 0.0, 0.0

    with concurrent.futures.ThreadPoolExecutor(1) as thread:
        measuring = thread.submit(sim.compute_slopes, Waiting())
        assert inside.wait(30)
        with pytest.raises(RuntimeError, match="Simulator: is in use by another call; give each thread one of its own"):
            JOBS[other](sim)
        tried.set()
        assert (measuring.result()[:607] == 0.0).all()
    assert (sim.flux_used == 1.0).all()


def test_threads_that_quarrel_about_a_simulator_spoil_nothing(sensor):
    """Each frame is whole, and the generator draws no frame twice, whoever gets it."""
    expected = []
    sim = Simulator(sensor, seed=1)
    for _ in range(80):
        expected.append(sim.compute_frame(ZEROS, ZEROS, 10.0).tobytes())
    sim.seed(1)

    def drawn(_):
        frames, refused = [], 0
        for _ in range(20):
            try:
                frames.append(sim.compute_frame(ZEROS, ZEROS, 10.0).tobytes())
            except RuntimeError:
                refused += 1
        return frames, refused

    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        results = list(threads.map(drawn, range(4)))
    frames = [frame for some, _ in results for frame in some]
    assert len(frames) + sum(refused for _, refused in results) == 80
    assert sorted(frames) == sorted(expected[: len(frames)])


def test_an_engine_serves_one_thread(sensor):
    engine = GaussianFit()
    sims = [Simulator(sensor, seed=1) for _ in range(4)]
    for sim in sims:
        sim.compute_frame(np.full(1089, 0.3), ZEROS, 10.0)
    expected = sims[0].compute_slopes(GaussianFit())

    def measured(sim):
        slopes = []
        for _ in range(10):
            try:
                slopes.append(sim.compute_slopes(engine))
            except RuntimeError as error:
                assert str(error) == "engine: is in use by another call; give each thread one of its own"
        return slopes

    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        for slopes in threads.map(measured, sims):
            assert same(slopes, [expected] * len(slopes))


def test_spawned_processes_go_on_where_a_simulator_was(sensor):
    sims = [Simulator(sensor, seed=k) for k in range(2)]
    for sim in sims:
        sim.compute_frame(ZEROS, ZEROS, 10.0)
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        there = pool.map(work, sims)
    assert all(map(same, there, map(work, sims)))


# --- Ctrl-C

INTERRUPTED = """
import os, signal, sys, threading
import quen_shs

signal.signal(signal.SIGINT, signal.default_int_handler)  # which a shell's background jobs are without
job, sensor, folder = sys.argv[1:]
sim = quen_shs.Simulator(sensor, seed=1)
threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
try:
    if job == "score":
        quen_shs.score(sim, [quen_shs.CentreOfGravity()], frames=10**9)
    if job == "run_loop":
        quen_shs.run_loop(sim, frames=10**5)
    if job == "calibrate":
        while True:
            quen_shs.calibrate(folder, force=True, measured=True, engine=quen_shs.GaussianFit())
    if job == "own engine":
        class Slow:
            def compute(self, frame, roi):
                return 1.0, 0.0, 0.0
        quen_shs.score(sim, [Slow()], frames=10**9)
except KeyboardInterrupt:
    frame = sim.compute_frame([0.0] * 1089, [0.0] * 1089)  # it is free again
    print("interrupted", frame.max())
"""


@pytest.mark.parametrize("job", ["score", "run_loop", "calibrate", "own engine"])
def test_ctrl_c_ends_a_job_and_leaves_whole_files(job, child, sensor, tmp_path):
    result = child(INTERRUPTED, job, sensor, tmp_path)
    assert (result.stdout, result.returncode) == ("interrupted 3847\n", 0), result.stderr
    files = [file.name for file in tmp_path.rglob("*") if file.is_file()]
    if files:
        assert sorted(files) == ["CM.fits", "M2S.fits", "shs_rois.fits"]
        assert {finding.verdict for finding in check(tmp_path)} == {"good"}


def test_ctrl_c_from_outside_ends_a_script(sensor):
    script = (
        "import signal, sys, quen_shs\nsignal.signal(signal.SIGINT, signal.default_int_handler)\n"
        "sim = quen_shs.Simulator(sys.argv[1])\nprint('ready', flush=True)\n"
        "quen_shs.score(sim, [quen_shs.CentreOfGravity()], frames=10**9)"
    )
    process = subprocess.Popen(
        [sys.executable, "-c", script, sensor], text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE
    )
    assert process.stdout.readline() == "ready\n"
    process.send_signal(signal.SIGINT)
    _, errors = process.communicate(timeout=30)
    assert process.returncode == -signal.SIGINT
    assert errors.splitlines()[-1] == "KeyboardInterrupt"


def test_a_handler_of_ones_own_is_called_and_may_go_on(child, sensor):
    script = """
import os, signal, sys, threading, quen_shs
calls = []
signal.signal(signal.SIGUSR1, lambda *_: calls.append(1))
threading.Timer(0.05, os.kill, (os.getpid(), signal.SIGUSR1)).start()
sim = quen_shs.Simulator(sys.argv[1])
while not calls:
    quen_shs.score(sim, [quen_shs.CentreOfGravity()], frames=20)
print("gone on")
"""
    result = child(script, sensor)
    assert result.stdout == "gone on\n", result.stderr


# --- Files in threads


def test_files_are_read_and_written_in_threads(sensor, tmp_path):
    """CFITSIO's messages are the process's: they must not get into another thread's."""
    for name in ("short", "empty"):
        (tmp_path / name / "data").mkdir(parents=True)
        for file in (sensor / "data").iterdir():
            (tmp_path / name / "data" / file.name).write_bytes(file.read_bytes()[: 5000 if name == "short" else 0])

    def told(name):
        try:
            Simulator(tmp_path / name)
        except ValueError as error:
            return str(error)

    def work(k):
        if k % 4 == 0:
            return [finding.verdict for finding in check(sensor)]
        if k % 4 == 1:
            return calibrate(tmp_path / str(k))
        if k % 4 == 2:
            return turbulence(Simulator(sensor), 10).sum()
        return told("short"), told("empty")

    one_by_one = [work(k) for k in (0, 2, 3)]
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        at_once = list(threads.map(work, range(80)))
    for k, expected in zip((0, 2, 3), one_by_one, strict=True):
        assert all(result == expected for result in at_once[k::4])
    for k in range(1, 80, 4):
        assert {finding.verdict for finding in check(tmp_path / str(k))} == {"good"}


def test_messages_of_threads_are_their_own(sensor, tmp_path):
    for name in ("M2S.fits", "CM.fits", "shs_rois.fits"):
        (tmp_path / name / "data").mkdir(parents=True)
        for file in (sensor / "data").iterdir():
            (tmp_path / name / "data" / file.name).write_bytes(file.read_bytes()[: 5000 if name == file.name else None])

    def told(name):
        with pytest.raises(ValueError) as raised:
            Simulator(tmp_path / name)
        return str(raised.value)

    names = [file.name for file in tmp_path.iterdir()]
    expected = [told(name) for name in names]
    with concurrent.futures.ThreadPoolExecutor(6) as threads:
        assert list(threads.map(told, names * 60)) == expected * 60


# --- Long jobs beside others

WATCHED = """
import os, signal, sys, threading, time, quen_shs
signal.signal(signal.SIGINT, signal.default_int_handler)
sim = quen_shs.Simulator(sys.argv[1], seed=1)
def work():
    while True: sum(range(1000))
for _ in range(int(sys.argv[2])): threading.Thread(target=work, daemon=True).start()
sent = []
def interrupt():
    time.sleep(0.5)
    sent.append(time.perf_counter())
    os.kill(os.getpid(), signal.SIGINT)
threading.Thread(target=interrupt, daemon=True).start()
try:
    quen_shs.score(sim, [quen_shs.CentreOfGravity()], frames=10**9)
except KeyboardInterrupt:
    print(time.perf_counter() - sent[0])
"""


@pytest.mark.parametrize("busy", [0, 1, 3])
def test_ctrl_c_is_soon_heeded_beside_busy_threads(busy, child, sensor):
    result = child(WATCHED, sensor, busy)
    assert float(result.stdout) < 5.0, result.stderr  # seconds, on a machine that has other things to do


# --- The interpreter's end

ENDING = """
import sys, threading, time, numpy as np, quen_shs
sim = quen_shs.Simulator(sys.argv[1], seed=1)
class Own:
    def compute(self, frame, roi):
        return 1.0, 0.0, 0.0
jobs = {
    "score": lambda: quen_shs.score(sim, [quen_shs.CentreOfGravity()], frames=10**9),
    "own engine": lambda: quen_shs.score(sim, [Own()], frames=10**9),
    "run_loop": lambda: quen_shs.run_loop(sim, np.zeros((10**5, 52))),
    "compute_frame": lambda: [sim.compute_frame(np.zeros(1089), np.zeros(1089), 1.0) for _ in range(10**9)],
    "calibrate": lambda: [quen_shs.calibrate(sys.argv[3], force=True, measured=True) for _ in range(10**9)],
    "check": lambda: [quen_shs.check(sys.argv[1]) for _ in range(10**9)],
    "simulators": lambda: [quen_shs.Simulator(sys.argv[1]) for _ in range(10**9)],
}
for _ in range(2 if sys.argv[2] in ("check", "simulators") else 1):
    threading.Thread(target=jobs[sys.argv[2]], daemon=True).start()
time.sleep(0.4)
print("done", flush=True)
"""


@pytest.mark.parametrize(
    "job", ["score", "own engine", "run_loop", "compute_frame", "calibrate", "check", "simulators"]
)
def test_the_interpreter_ends_while_a_thread_of_its_own_accord_works(job, child, sensor, tmp_path):
    for _ in range(3):
        result = child(ENDING, sensor, job, tmp_path)
        assert (result.stdout, result.stderr, result.returncode) == ("done\n", "", 0)


def test_what_runs_at_the_end_may_use_the_package(child, sensor):
    script = """
import atexit, sys
def last():
    sim = quen_shs.Simulator(sys.argv[1])
    print(len(quen_shs.run_loop(sim, frames=20).residual), sim.compute_frame([0.0] * 1089, [0.0] * 1089).max())
atexit.register(last)
import quen_shs
"""
    assert child(script, sensor).stdout == "20 3847\n"


def test_a_process_may_fork_while_files_are_read(child, sensor):
    script = """
import os, sys, threading, quen_shs
def read():
    while True: quen_shs.check(sys.argv[1])
threading.Thread(target=read, daemon=True).start()
for _ in range(20):
    if os.fork() == 0:
        print(quen_shs.Simulator(sys.argv[1]).compute_frame([0.0] * 1089, [0.0] * 1089).max(), flush=True)
        os._exit(0)
    os.wait()
"""
    result = child(script, sensor)
    assert (result.stdout, result.returncode) == ("3847\n" * 20, 0), result.stderr


# --- Forks

FORKED = """
import os, signal, sys, threading, time
import quen_shs

sensor, zeros = sys.argv[1], [0.0] * 1089
expected = quen_shs.Simulator(sensor, seed=1).compute_frame(zeros, zeros, 9.0).tobytes()
shared = quen_shs.Simulator(sensor, seed=2)
over = False

def measure():
    while not over:
        quen_shs.score(shared, [quen_shs.GaussianFit(steps=100)], frames=2)

def load():
    while not over:
        quen_shs.Simulator(sensor)

threads = [threading.Thread(target=work) for work in (measure, load, load)]
for thread in threads:
    thread.start()
for fork in range(8):
    time.sleep(0.01 * (fork % 3))
    reading, writing = os.pipe()
    if os.fork() == 0:
        signal.alarm(30)  # which ends a child that waits for what nobody gives back
        frame = quen_shs.Simulator(sensor, seed=1).compute_frame(zeros, zeros, 9.0).tobytes()
        try:
            shared.compute_frame(zeros, zeros)
        except RuntimeError as error:  # where the other thread had it
            assert "is in use by another call" in str(error), error
        os.write(writing, b"same" if frame == expected else b"other")
        os._exit(0)
    os.close(writing)
    answer = os.read(reading, 10)
    os.close(reading)
    _, status = os.wait()
    assert (answer, status) == (b"same", 0), (fork, answer, status)
over = True
for thread in threads:
    thread.join()
print("all have answered")
"""


def test_a_fork_in_the_midst_of_calls_has_a_package_that_works(child, sensor):
    result = child(FORKED, sensor)
    assert (result.stdout, result.returncode) == ("all have answered\n", 0), result.stderr


ENDING_CHILD = """
import os, sys, threading, time
began = []
import atexit
atexit.register(lambda: os.write(1, b"%.3f " % (time.monotonic() - began[0])))  # comes after that of the package
import quen_shs

sim = quen_shs.Simulator(sys.argv[1])
thread = threading.Thread(target=lambda: quen_shs.score(sim, [quen_shs.GaussianFit(steps=100)], frames=10**9), daemon=True)
thread.start()
time.sleep(0.2)
for _ in range(4):
    if os.fork() == 0:
        began.append(time.monotonic())
        sys.exit()
    os.wait()
os._exit(0)
"""


def test_a_fork_waits_for_no_call_of_its_parents_when_it_ends(child, sensor):
    result = child(ENDING_CHILD, sensor)
    waits = [float(wait) for wait in result.stdout.split()]
    assert len(waits) == 4, result.stderr
    assert min(waits) < 1.0  # where it waited, all would take two seconds
