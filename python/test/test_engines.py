"""Engines, ready-made and of one's own."""

import copy
import gc
import pickle
import traceback

import numpy as np
import pytest
from astropy.io import fits

import quen_shs
from quen_shs import (
    BrightestPixels,
    Centroider,
    CentreOfGravity,
    Correlation,
    Detector,
    GaussianFit,
    LightEngine,
    MaximumLikelihoodFit,
    QuadCell,
    Roi,
    Simulator,
    Weighted,
    Windowed,
    gaussian_template,
)

# Engines, and what the tool calls them.
ENGINES = {
    "centre-of-gravity": CentreOfGravity(),
    "centre-of-gravity:background=5,threshold=100": CentreOfGravity(background=5, threshold=100),
    "centre-of-gravity:threshold=100,thresholding=cut": CentreOfGravity(threshold=100, thresholding="cut"),
    "windowed": Windowed(),
    "windowed:around=reference,half-width=5": Windowed(around="reference", half_width=5),
    "weighted": Weighted(),
    "weighted:fwhm=6,gain=1.5": Weighted(fwhm=6, gain=1.5),
    "brightest": BrightestPixels(number=40),
    "brightest:fraction=0.1": BrightestPixels(fraction=0.1),
    "quad-cell": QuadCell(),
    "quad-cell:gain=3": QuadCell(gain=3),
    "correlation": Correlation(),
    "correlation:size=15,fwhm=6,top=surface": Correlation(
        size=15, template_values=gaussian_template(15, 6.0), top="surface"
    ),
    "gaussian-fit": GaussianFit(),
    "gaussian-fit:fwhm=5,steps=2": GaussianFit(fwhm=5, steps=2),
    "maximum-likelihood": MaximumLikelihoodFit(pixels="signed"),
    "maximum-likelihood:gain=2,read-noise=3,shape=oval,fwhm=5,background=slope,pixels=signed,pedestal=-20,"
    "ceiling=3500,steps=20,tolerance=0.01,significance=5": MaximumLikelihoodFit(
        gain=2,
        read_noise=3,
        shape="oval",
        fwhm=5,
        background_model="slope",
        pixels="signed",
        pedestal=-20,
        ceiling=3500,
        steps=20,
        tolerance=0.01,
        significance=5,
    ),
    "maximum-likelihood:pixels=signed,background=30": MaximumLikelihoodFit(
        pixels="signed", background_model="given", background=30
    ),
    "weighted:pixels=signed,pedestal=-20,subtract=border": LightEngine(
        engine=Weighted(), pixels="signed", pedestal=-20, background="border-median"
    ),
}
READY_MADE = list(ENGINES.values())


@pytest.fixture(scope="module")
def frame(sensor, displacements):
    """A noisy one."""
    return Simulator(sensor, seed=1).compute_frame(*displacements, 10.0)


@pytest.fixture(scope="module")
def frame_file(frame, tmp_path_factory):
    file = tmp_path_factory.mktemp("frames") / "frame.fits"
    fits.writeto(file, frame.view(np.int16))
    return file


# --- Ready-made


@pytest.mark.parametrize("name", ENGINES)
def test_an_engine_measures_as_that_of_the_tool(name, sim, sensor, tool, frame, frame_file, tmp_path):
    tool("measure", sensor, frame_file, "--engine", name, "--output", tmp_path / "slopes.fits")
    sim.compute_slopes(ENGINES[name], frame=frame)
    expected = fits.getdata(tmp_path / "slopes.fits", "slopes")
    assert np.array_equal(sim.flux, expected["flux"])
    assert np.array_equal(sim.x_slopes, expected["x"], equal_nan=True)
    assert np.array_equal(sim.y_slopes, expected["y"], equal_nan=True)
    assert sim.x_slopes.any()


def camera_maps():
    random = np.random.default_rng(3)
    return {
        "dark_map": random.uniform(0, 50, (816, 840)),
        "flat_map": random.uniform(0.8, 1.2, (816, 840)),
        "bad_pixels": (random.uniform(size=(816, 840)) < 0.02).astype(np.uint8),
    }


@pytest.mark.parametrize(
    "name, kind", [("centre-of-gravity:pixels=signed", LightEngine), ("maximum-likelihood", MaximumLikelihoodFit)]
)
def test_maps_of_a_camera_are_used_as_by_the_tool(name, kind, sim, sensor, tool, frame, frame_file, tmp_path):
    maps = camera_maps()
    options = []
    for key, values in maps.items():
        fits.writeto(tmp_path / f"{key}.fits", values)
        options += ["--" + key.replace("_", "-"), tmp_path / f"{key}.fits"]
    tool("measure", sensor, frame_file, "--engine", name, *options, "--output", tmp_path / "slopes.fits")
    sim.compute_slopes(kind(pixels="signed", **maps), frame=frame)
    expected = fits.getdata(tmp_path / "slopes.fits", "slopes")
    assert np.array_equal(sim.x_slopes, expected["x"], equal_nan=True)
    assert np.array_equal(sim.y_slopes, expected["y"], equal_nan=True)
    assert np.array_equal(sim.flux, expected["flux"])


@pytest.mark.parametrize("engine", READY_MADE, ids=repr)
def test_repr_makes_the_engine_again(engine):
    assert eval(repr(engine), vars(quen_shs)) == engine


@pytest.mark.parametrize("engine", [*READY_MADE, MaximumLikelihoodFit(**camera_maps())], ids=lambda e: type(e).__name__)
def test_copies_are_equal_and_measure_the_same(engine, sim, frame):
    expected = sim.compute_slopes(engine, frame=frame)
    for again in (pickle.loads(pickle.dumps(engine)), copy.copy(engine), copy.deepcopy(engine)):
        assert again == engine
        assert hash(again) == hash(engine)
        assert np.array_equal(sim.compute_slopes(again, frame=frame), expected, equal_nan=True)


def test_engines_of_other_fields_are_others():
    for k, engine in enumerate(READY_MADE):
        assert [other == engine for other in READY_MADE].index(True) == k
        assert sum(other == engine for other in READY_MADE) == 1
        assert engine != repr(engine)
    maps = camera_maps()
    assert MaximumLikelihoodFit(**maps) == MaximumLikelihoodFit(**camera_maps())
    assert MaximumLikelihoodFit(**maps) != MaximumLikelihoodFit()
    maps["dark_map"][0, 0] += 1
    assert MaximumLikelihoodFit(**maps) != MaximumLikelihoodFit(**camera_maps())


def test_an_engine_does_not_change():
    with pytest.raises(AttributeError):
        Weighted().fwhm = 3.0
    maps = camera_maps()
    engine = MaximumLikelihoodFit(**maps)
    maps["dark_map"][:] = 0
    assert engine == MaximumLikelihoodFit(**camera_maps())
    with pytest.raises(ValueError, match="read-only"):
        engine.dark_map[0, 0] = 1


NAN = float("nan")
OUT_OF_RANGE = [
    (CentreOfGravity, {"background": 40000}),
    (CentreOfGravity, {"background": NAN}),
    (CentreOfGravity, {"threshold": -1}),
    (CentreOfGravity, {"thresholding": "round"}),
    (Windowed, {"half_width": 0.4}),
    (Windowed, {"around": "left"}),
    (Weighted, {"fwhm": 0}),
    (Weighted, {"gain": 0}),
    (Weighted, {"gain": 10**400}),
    (BrightestPixels, {"number": 1}),
    (BrightestPixels, {"number": -1}),
    (BrightestPixels, {"number": 2**31}),
    (BrightestPixels, {"fraction": 0}),
    (QuadCell, {"gain": NAN}),
    (Correlation, {"size": 4}),
    (Correlation, {"size": -3}),
    (Correlation, {"template_values": np.zeros((3, 5))}),
    (Correlation, {"template_values": [[1], [1, 2]]}),
    (Correlation, {"top": "bottom"}),
    (GaussianFit, {"steps": 0}),
    (GaussianFit, {"fwhm": 1000}),
    (MaximumLikelihoodFit, {"gain": 0}),
    (MaximumLikelihoodFit, {"read_noise": -1}),
    (MaximumLikelihoodFit, {"shape": "square"}),
    (MaximumLikelihoodFit, {"background_model": "hill"}),
    (MaximumLikelihoodFit, {"pixels": "float"}),
    (MaximumLikelihoodFit, {"pedestal": 1e6}),
    (MaximumLikelihoodFit, {"steps": 1}),
    (MaximumLikelihoodFit, {"tolerance": 0}),
    (MaximumLikelihoodFit, {"significance": -1}),
    (MaximumLikelihoodFit, {"dark_map": np.zeros((840, 816))}),
    (MaximumLikelihoodFit, {"dark_map": np.full((816, 840), NAN)}),
    (MaximumLikelihoodFit, {"flat_map": np.zeros(5)}),
    (LightEngine, {"quantile": 2}),
    (LightEngine, {"background": "mean"}),
]


@pytest.mark.parametrize("kind, fields", OUT_OF_RANGE)
def test_values_out_of_range_are_refused_by_name(kind, fields):
    with pytest.raises(ValueError, match=next(iter(fields))):
        kind(**fields)


def test_brightest_pixels_want_one_of_two():
    for fields in ({}, {"number": 40, "fraction": 0.1}):
        with pytest.raises(ValueError, match="number.*fraction"):
            BrightestPixels(**fields)


WRONG_TYPES = [
    (CentreOfGravity, {"background": "5"}),
    (CentreOfGravity, {"background": None}),
    (CentreOfGravity, {"threshold": [1, 2]}),
    (CentreOfGravity, {"thresholding": 3}),
    (CentreOfGravity, {"thresholding": None}),
    (Windowed, {"half_width": 1j}),
    (BrightestPixels, {"number": 2.5}),
    (Correlation, {"size": "15"}),
    (GaussianFit, {"steps": 4.0}),
    (MaximumLikelihoodFit, {"dark_map": "dark.fits"}),
    (MaximumLikelihoodFit, {"bad_pixels": np.zeros((816, 840))}),
    (LightEngine, {"engine": "weighted"}),
    (LightEngine, {"engine": None}),
]


@pytest.mark.parametrize("kind, fields", WRONG_TYPES)
def test_wrong_types_are_refused_by_name(kind, fields):
    with pytest.raises(TypeError, match=f"^{next(iter(fields))}: expected"):
        kind(**fields)


@pytest.mark.parametrize("engine", READY_MADE, ids=repr)
def test_one_spot_is_measured_as_in_a_frame(engine, sim, frame):
    sim.compute_slopes(engine, np.nan, frame=frame)
    for i in np.flatnonzero(sim.rois_used)[::100]:
        x_low, x_up, y_low, y_up, x_ref, y_ref = sim.rois[i].item()
        roi = Roi(x_low=x_low, x_up=x_up, y_low=y_low, y_up=y_up, x_max=840, y_max=816, x_ref=x_ref, y_ref=y_ref)
        assert engine.compute(frame, roi) == (sim.flux[i], sim.x_slopes[i], sim.y_slopes[i])


def test_a_spot_may_be_in_a_frame_of_any_size():
    y, x = np.mgrid[:30, :40]
    frame = (1000 * np.exp(-((x - 20.5) ** 2 + (y - 12.25) ** 2) / 8)).astype(np.uint16)
    _, dx, dy = CentreOfGravity().compute(frame, Roi(10, 30, 2, 24, 40, 30, 20.0, 12.0))
    assert (dx, dy) == (pytest.approx(0.5, abs=0.01), pytest.approx(0.25, abs=0.01))
    with pytest.raises(ValueError, match=r"frame: expected shape \(30, 41\), found \(30, 40\)"):
        CentreOfGravity().compute(frame, Roi(10, 30, 2, 24, 41, 30, 20.0, 12.0))
    with pytest.raises(TypeError, match="frame: expected numbers that uint16 holds"):
        CentreOfGravity().compute(frame.astype(float), Roi(10, 30, 2, 24, 40, 30, 20.0, 12.0))
    with pytest.raises(TypeError, match="roi: expected a Roi, found None"):
        CentreOfGravity().compute(frame, None)


# --- Of one's own


class Duck:
    """Walks like an engine."""

    def __init__(self, compute):
        self.compute = compute


class Delegating(Centroider):
    def __init__(self, engine):
        self.engine = engine

    def compute(self, frame, roi):
        return self.engine.compute(frame, roi)


@pytest.mark.parametrize("of", [Delegating, lambda engine: Duck(engine.compute)], ids=["derived", "duck"])
def test_an_engine_of_ones_own_measures(of, sim, frame):
    expected = sim.compute_slopes(CentreOfGravity(), frame=frame)
    assert np.array_equal(sim.compute_slopes(of(CentreOfGravity()), frame=frame), expected)


def test_a_ready_made_engine_can_be_changed_by_deriving_from_it(sim, frame):
    class Shifted(CentreOfGravity):
        def compute(self, frame, roi):
            flux, x, y = super().compute(frame, roi)
            return flux, x + 0.5, y

    expected = sim.compute_slopes(CentreOfGravity(), frame=frame)
    shifted = sim.compute_slopes(Shifted(), frame=frame)
    assert np.array_equal(shifted[:607], expected[:607])
    assert np.array_equal(shifted[607:], expected[607:] + 0.5)
    with pytest.raises(TypeError, match="engine: expected a ready-made engine"):
        LightEngine(engine=Shifted())


@pytest.mark.parametrize(
    "result", [(1, 2, 3), [1.0, 2.0, 3.0], np.array([1, 2, 3], np.float32), (True, np.float32(2), np.int8(3))]
)
def test_any_three_numbers_will_do(result, sim):
    sim.compute_slopes(Duck(lambda frame, roi: result))
    assert (sim.flux_used == 1).all() and (sim.x_slopes_used == 2).all() and (sim.y_slopes_used == 3).all()


@pytest.mark.parametrize(
    "result",
    [None, 1.0, (), (1, 2), (1, 2, 3, 4), "abc", ("1", "2", "3"), (1, None, 3), {1, 2, 3}, np.zeros((3, 2))],
    ids=repr,
)
def test_anything_else_is_refused(result, sim, tmp_path):
    for use in uses_of(Duck(lambda frame, roi: result), sim, tmp_path):
        with pytest.raises(TypeError, match=r"compute: expected \(flux, x, y\), found "):
            use()


@pytest.mark.parametrize("engine", [None, 5, "weighted", CentreOfGravity, Duck, Duck(None), object()], ids=repr)
def test_what_is_no_engine_is_refused(engine, sim):
    with pytest.raises(TypeError, match=r"engine: expected an object with a method compute\(frame, roi\), found "):
        sim.compute_slopes(engine)


class Lost(Exception):
    pass


def losing(frame, roi):
    raise Lost(roi.x_low)


def uses_of(engine, sim, folder):
    """All that takes an engine."""
    return [
        lambda: sim.compute_slopes(engine),
        lambda: quen_shs.score(sim, [CentreOfGravity(), engine], frames=1),
        lambda: quen_shs.score(sim, [engine], frames=1, detector=Detector()),
        lambda: quen_shs.run_loop(sim, engine=engine, frames=10),
        lambda: quen_shs.calibrate(folder, measured=True, engine=engine),
    ]


@pytest.mark.parametrize("k", range(5))
def test_exceptions_come_through_with_their_traceback(k, sim, tmp_path):
    with pytest.raises(Lost) as raised:
        uses_of(Duck(losing), sim, tmp_path)[k]()
    assert "losing" in [entry.name for entry in traceback.extract_tb(raised.value.__traceback__)]
    sim.compute_slopes(CentreOfGravity())  # both are free again
    assert not list(tmp_path.iterdir())


@pytest.mark.parametrize("k", range(5))
def test_engines_without_truth_value_are_engines(k, sim, tmp_path):
    class Empty(Duck):
        def __len__(self):
            return 0

    with pytest.raises(Lost):
        uses_of(Empty(losing), sim, tmp_path)[k]()


@pytest.mark.parametrize("name", ["_engine", "compute"])
def test_exceptions_of_properties_come_through(name, sim):
    def lose(self):
        raise Lost

    with pytest.raises(Lost):
        sim.compute_slopes(type("Failing", (), {name: property(lose)})())


def test_an_engine_that_passes_names_on_is_asked_itself(sim):
    class Wrapper:
        def __init__(self, inner):
            self.inner = inner

        def __getattr__(self, name):
            return getattr(self.inner, name)

        def compute(self, frame, roi):
            return 1.0, 7.0, 0.0

    assert (sim.compute_slopes(Wrapper(Weighted()))[607:] == 7.0).all()


def test_a_derived_engine_that_sets_no_field_has_the_defaults(sim):
    class Derived(Weighted):
        def __init__(self):
            pass

    expected = sim.compute_slopes(Weighted())
    assert (sim.compute_slopes(Derived()) == expected).all()
    roi = Roi(x_low=4, x_up=24, y_low=4, y_up=24, x_max=840, y_max=816, x_ref=14.0, y_ref=14.0)
    assert Derived().compute(sim.frame, roi) == Weighted().compute(sim.frame, roi)


def test_slopes_before_an_exception_stay(sim):
    calls = []

    def compute(frame, roi):
        calls.append(roi)
        if len(calls) == 10:
            raise Lost
        return 1.0, 2.0, 3.0

    with pytest.raises(Lost):
        sim.compute_slopes(Duck(compute))
    assert (sim.y_slopes_used[:9] == 3.0).all() and not sim.y_slopes_used[9:].any()


def test_an_engine_must_not_use_its_simulator(sim, tmp_path):
    zeros = np.zeros(1089)
    attempts = [
        lambda: sim.compute_frame(zeros, zeros),
        lambda: sim.compute_slopes(CentreOfGravity()),
        lambda: sim.seed(1),
        lambda: sim.random_state,
        lambda: setattr(sim, "random_state", np.random.MT19937(1).state),
        lambda: quen_shs.run_loop(sim, frames=10),
        lambda: quen_shs.score(sim, [CentreOfGravity()], frames=1),
    ]
    for attempt in attempts:
        for use in uses_of(Duck(lambda frame, roi: attempt()), sim, tmp_path)[:4]:
            with pytest.raises(RuntimeError, match="Simulator: is in use by another call"):
                use()


def test_an_engine_may_use_another_simulator(sim, sensor):
    other = Simulator(sensor, seed=2)
    expected = Simulator(sensor, seed=2).compute_frame(np.zeros(1089), np.zeros(1089), 10.0)
    frames = []

    def compute(frame, roi):
        if not frames:
            frames.append(other.compute_frame(np.zeros(1089), np.zeros(1089), 10.0))
        return 1.0, 0.0, 0.0

    run = quen_shs.run_loop(sim, engine=Duck(compute), frames=10)
    alone = quen_shs.run_loop(sim, engine=Duck(compute), frames=10)
    assert np.array_equal(frames, [expected])
    assert np.array_equal(run.residual, alone.residual)


def test_an_engine_may_load_simulators_while_a_matrix_is_measured(sensor, tmp_path, monkeypatch):
    class Loading(Delegating):
        loaded = None

        def compute(self, frame, roi):
            self.loaded = self.loaded or (Simulator(sensor), Simulator(), quen_shs.check(sensor))
            return super().compute(frame, roi)

    monkeypatch.setenv("CFGPATH", str(sensor))
    loading = Loading(CentreOfGravity())
    quen_shs.calibrate(tmp_path / "elsewhere", measured=True, engine=loading, offset_x=9.0)
    assert np.array_equal(loading.loaded[1].rois, loading.loaded[0].rois)
    quen_shs.calibrate(tmp_path / "one", measured=True, engine=Loading(CentreOfGravity()))
    quen_shs.calibrate(tmp_path / "two", measured=True)
    assert np.array_equal(Simulator(tmp_path / "one").m2s, Simulator(tmp_path / "two").m2s)


def test_an_engine_can_be_given_only_once_to_a_score(sim):
    engine = Weighted()
    with pytest.raises(RuntimeError, match="engine: is in use"):
        quen_shs.score(sim, [engine, engine], frames=1)
    sim.compute_slopes(engine)


# --- What an engine of one's own is given


class Keeping:
    def __init__(self):
        self.frames, self.rois = [], []

    def compute(self, frame, roi):
        if not self.frames:
            with pytest.raises(ValueError, match="read-only"):
                frame[0, 0] = 1
        self.frames.append(frame)
        self.rois.append(roi)
        return 1.0, 0.0, 0.0


@pytest.mark.parametrize("k", range(5))
def test_frames_are_not_writeable_and_outlive_everything(k, sensor, tmp_path):
    engine = Keeping()
    sim = Simulator(sensor)
    uses = uses_of(engine, sim, tmp_path)
    if k == 4:
        with pytest.raises(ValueError, match="the modes cannot be measured: Keeping finds that no spot moves"):
            uses[k]()
    else:
        uses[k]()
    del sim, uses
    gc.collect()
    for frame in engine.frames[::200]:
        assert frame.shape == (816, 840) and frame.dtype == np.uint16
        frame.sum()
    assert 0 <= engine.rois[0].x_low < engine.rois[0].x_up <= engine.rois[0].x_max == 840
    assert eval(repr(engine.rois[0]), vars(quen_shs)).x_ref == engine.rois[0].x_ref


def test_regions_are_those_of_the_simulator(sim):
    engine = Keeping()
    sim.compute_slopes(engine)
    used = sim.rois[sim.rois_used]
    assert len(engine.rois) == 607
    for name in used.dtype.names:
        assert [getattr(roi, name) for roi in engine.rois] == used[name].tolist()


def test_frames_are_those_that_a_ready_made_engine_sees(sim):
    camera = Detector(electrons_per_unit=0.5, read_noise=3, offset=100)
    engine = CentreOfGravity(background=100)
    own, ready = quen_shs.score(sim, [Delegating(engine), copy.copy(engine)], frames=2, detector=camera)
    assert (own.x, own.y, own.flux_rms) == (ready.x, ready.y, ready.flux_rms)
    assert own.x.rms < 0.1
