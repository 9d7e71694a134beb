"""Views that outlive, memory that does not grow, and imports."""

import copy
import gc
import sys
import weakref

import numpy as np
import pytest

from quen_shs import CentreOfGravity, Detector, Simulator, Weighted, calibrate, score

ZEROS = np.zeros(1089)
VIEWS = "frame frame_values slopes flux flux_used x_slopes y_slopes m2s cm rois rois_used".split()


def resident():
    """Memory of the process, bytes."""
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * 4096


def growth(action, times):
    """Of the process's memory over that many calls, after some that fill caches."""
    for _ in range(max(times // 10, 10)):
        action()
    gc.collect()
    before = resident()
    for _ in range(times):
        action()
    gc.collect()
    return resident() - before


CALLS = 100_000
BOUND = 1_000_000  # bytes: less than one frame that is kept, and ten for each of as many calls


# --- Views


@pytest.mark.parametrize("name", VIEWS)
def test_a_view_outlives_its_simulator(name, sensor):
    sim = Simulator(sensor, seed=1)
    sim.compute_frame(ZEROS, ZEROS, 10.0)
    sim.compute_slopes(CentreOfGravity())
    view = getattr(sim, name)
    expected = view.copy()
    part = view[::3]
    del sim, view
    gc.collect()
    others = [Simulator(sensor) for _ in range(3)]  # would take the memory that were free
    assert np.array_equal(part, expected[::3])
    del others


def test_a_simulator_goes_although_a_view_of_it_stays(sensor):
    sim = Simulator(sensor)
    gone, view = weakref.ref(sim), sim.frame
    del sim
    gc.collect()
    assert gone() is None
    assert not view.any()


def test_garbage_may_be_collected_at_any_moment(sensor):
    class Littering:
        def compute(self, frame, roi):
            circle = [frame, roi]
            circle.append(circle)
            if roi.x_low % 7 == 0:
                gc.collect(0)
            return 1.0, 0.0, 0.0

    threshold = gc.get_threshold()
    gc.set_threshold(1)
    try:
        sim = Simulator(sensor)
        sim.compute_slopes(Littering())
        score(sim, [Littering(), CentreOfGravity()], frames=1, detector=Detector())
        copied = copy.deepcopy(sim)
    finally:
        gc.set_threshold(*threshold)
    assert not copied.frame.any()


def test_a_simulator_in_a_circle_goes(sensor):
    class Holding:
        def compute(self, frame, roi):
            self.frame = frame
            return 1.0, 0.0, 0.0

    engine = Holding()
    sim = Simulator(sensor)
    sim.compute_slopes(engine)
    sim.engine = engine
    gone = weakref.ref(sim)
    del sim, engine
    gc.collect()
    assert gone() is None


# --- Memory


@pytest.fixture(scope="module")
def small(tmp_path_factory):
    """Its regions have one pixel each, and calls of it are short."""
    folder = tmp_path_factory.mktemp("small")
    calibrate(folder, size=1)
    return Simulator(folder, seed=1)


def test_properties_do_not_grow(sim):
    def look():
        sim.frame, sim.slopes, sim.m2s, sim.flux, sim.rois, sim.rois_used

    assert growth(look, CALLS) < BOUND
    assert growth(lambda: sim.random_state, 2_000) < BOUND


def test_slopes_do_not_grow(small):
    out, engine = np.empty(1214), CentreOfGravity()
    assert growth(lambda: small.compute_slopes(engine, out=out), CALLS) < BOUND
    assert growth(lambda: small.compute_slopes(engine), CALLS) < BOUND


def test_frames_do_not_grow(small, sim):
    assert growth(lambda: small.compute_frame(ZEROS, ZEROS, 10.0, copy=False), CALLS) < BOUND
    out = np.empty((816, 840), np.uint16)
    assert growth(lambda: sim.compute_frame(ZEROS, ZEROS, 10.0, out=out), 300) < BOUND
    assert growth(lambda: sim.compute_frame([0.0] * 1089, ZEROS), 300) < BOUND
    assert growth(lambda: sim.compute_slopes(CentreOfGravity(), frame=out), 300) < BOUND


def test_engines_of_ones_own_do_not_grow(sim):
    class Own:
        def compute(self, frame, roi):
            return [1, 2.0, np.float64(3)]

    assert growth(lambda: sim.compute_slopes(Own()), 50) < BOUND


def test_refusals_do_not_grow(sim):
    def wrong():
        for arguments in ((None,), (CentreOfGravity(), -1.0), (Weighted,)):
            with pytest.raises((TypeError, ValueError)):
                sim.compute_slopes(*arguments)
        with pytest.raises(ValueError):
            sim.compute_frame(ZEROS[1:], ZEROS)
        with pytest.raises(ValueError):
            Weighted(fwhm=-1)

    assert growth(wrong, 1_000) < BOUND


def test_exceptions_of_engines_do_not_grow(sim):
    class Failing:
        def compute(self, frame, roi):
            raise LookupError(frame)

    def fail():
        with pytest.raises(LookupError):
            sim.compute_slopes(Failing())
        with pytest.raises(LookupError):
            score(sim, [Failing()], frames=1, detector=Detector())

    assert growth(fail, 50) < BOUND


def test_simulators_and_detectors_do_not_grow(sensor):
    assert growth(lambda: Simulator(sensor), 30) < 4 * BOUND  # of megabytes each, from which the allocator keeps some
    flat = np.ones((816, 840))
    assert growth(lambda: Detector(flat_map=flat).expose(flat), 20) < 4 * BOUND


def test_references_are_as_many_as_before(sim):
    engine, out, dx = CentreOfGravity(), np.empty(1214), np.zeros(1089)
    held = [engine, out, dx, sim._core]
    before = [sys.getrefcount(one) for one in held]
    for _ in range(100):
        sim.compute_frame(dx, dx)
        sim.compute_slopes(engine, out=out)
        sim.frame
    assert [sys.getrefcount(one) for one in held] == before


# --- Imports


def test_a_reload_changes_nothing(child, sensor):
    script = """
import importlib, sys, quen_shs, quen_shs._core
sim = quen_shs.Simulator(sys.argv[1], seed=1)
first = sim.compute_frame([0.0] * 1089, [0.0] * 1089, 10.0)
importlib.reload(quen_shs._core)
importlib.reload(quen_shs)
for name in [name for name in sys.modules if name.startswith("quen_shs")]:
    del sys.modules[name]
import quen_shs as again
other = again.Simulator(sys.argv[1], seed=1)
assert (other.compute_frame([0.0] * 1089, [0.0] * 1089, 10.0) == first).all()
assert (other.compute_slopes(again.Weighted()) == sim.compute_slopes(quen_shs.Weighted())).all()
print("fine")
"""
    result = child(script, sensor)
    assert (result.stdout, result.returncode) == ("fine\n", 0), result.stderr


def test_another_interpreter_of_the_process_does_not_crash(child, sensor):
    """Whether it works there is numpy's affair; the process goes on in either case."""
    script = """
import sys
import _xxsubinterpreters as interpreters
import quen_shs
sim = quen_shs.Simulator(sys.argv[1], seed=1)
for _ in range(2):
    other = interpreters.create()
    try:
        interpreters.run_string(other, f'''
import sys
sys.path[:] = {sys.path!r}
import quen_shs
quen_shs.Simulator({sys.argv[1]!r}).compute_frame([0.0] * 1089, [0.0] * 1089)
''')
    except interpreters.RunFailedError:
        pass
    interpreters.destroy(other)
print(sim.compute_frame([0.0] * 1089, [0.0] * 1089).max())
"""
    result = child(script, sensor)
    assert (result.stdout, result.returncode) == ("3847\n", 0), result.stderr


def test_the_import_is_a_small_one(child):
    script = "import sys, quen_shs; print(sorted({name.split('.')[0] for name in sys.modules}))"
    loaded = eval(child(script).stdout)
    assert "numpy" in loaded
    assert not {"scipy", "matplotlib", "astropy", "pandas", "pytest"} & set(loaded)
