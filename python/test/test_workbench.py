"""Calibrations, findings, scores and loops, against what the tool makes of the same options."""

import dataclasses
import json
import pickle

import numpy as np
import pytest
from astropy.io import fits

import quen_shs
from quen_shs import (
    CentreOfGravity,
    Detector,
    GaussianFit,
    LightEngine,
    Simulator,
    Weighted,
    calibrate,
    check,
    error_bound,
    error_curves,
    run_loop,
    score,
    turbulence,
)

FILES = ["M2S.fits", "CM.fits", "shs_rois.fits"]
MEASURED = {"measured": True, "poke_amplitude": 0.5, "noise": 3.0, "seed": 9}
OPTION_SETS = {
    "plain": {},
    "geometry": {"pitch": 23.5, "size": 22, "offset_x": 3.25, "offset_y": -4, "obscuration": 0.2},
    "spider": {"spider_angle": 30, "spider_width": 0.02, "basis": "karhunen-loeve"},
    "measured": MEASURED,
}


def as_arguments(options):
    words = []
    for name, value in options.items():
        words += ["--" + name.replace("_", "-")] + ([] if value is True else [str(value)])
    return words


def content(file):
    """Cards and bytes of all extensions, without the checksums, which tell the time."""
    units = []
    with fits.open(file) as hdus:
        for hdu in hdus:
            cards = [card.image for card in hdu.header.cards if card.keyword not in ("CHECKSUM", "DATASUM")]
            units.append((cards, b"" if hdu.data is None else hdu.data.tobytes()))
    return units


# --- Calibrations


@pytest.mark.parametrize("name", OPTION_SETS)
def test_a_calibration_is_that_of_the_tool(name, tool, tmp_path):
    options = OPTION_SETS[name]
    made = calibrate(tmp_path / "ours", **options)
    tool("calibrate", tmp_path / "tools", *as_arguments(options))
    assert made == [str(tmp_path / "ours" / "data" / file) for file in FILES]
    for file in FILES:
        ours, tools = (content(tmp_path / whose / "data" / file) for whose in ("ours", "tools"))
        for (our_cards, our_data), (their_cards, their_data) in zip(ours, tools, strict=True):
            assert our_data == their_data
            differing = [ours for ours, theirs in zip(our_cards, their_cards, strict=True) if ours != theirs]
            # How an engine is called is the only difference.
            assert all(card.startswith("METHOD  ") and name == "measured" for card in differing)


def test_a_measured_calibration_names_its_engine(tmp_path):
    calibrate(tmp_path, measured=True, engine=Weighted())
    assert "Weighted" in fits.getheader(tmp_path / "data" / "M2S.fits")["METHOD"]


def test_a_detector_measures_as_that_of_the_tool(tool, tmp_path):
    (tmp_path / "camera.json").write_text('{"electrons_per_unit": 2, "read_noise": 3, "gain": 0.5}')
    calibrate(
        tmp_path / "ours",
        measured=True,
        engine=GaussianFit(),
        detector=Detector(electrons_per_unit=2, read_noise=3, gain=0.5, seed=77),
        seed=5,
    )
    arguments = ["--engine", "gaussian-fit", "--detector", tmp_path / "camera.json", "--seed", 5]
    tool("calibrate", tmp_path / "tools", "--measured", *arguments)
    assert np.array_equal(Simulator(tmp_path / "ours").m2s, Simulator(tmp_path / "tools").m2s)


def test_a_calibration_is_replaced_by_force_alone(tmp_path):
    calibrate(tmp_path)
    before = (tmp_path / "data" / "M2S.fits").read_bytes()
    with pytest.raises(FileExistsError, match="M2S.fits.*give force=True to replace the calibration"):
        calibrate(tmp_path, basis="karhunen-loeve")
    assert (tmp_path / "data" / "M2S.fits").read_bytes() == before
    calibrate(tmp_path, basis="karhunen-loeve", force=True)
    assert (tmp_path / "data" / "M2S.fits").read_bytes() != before


def test_a_calibration_has_no_remains(tmp_path):
    calibrate(tmp_path)
    assert sorted(file.name for file in (tmp_path / "data").iterdir()) == sorted(FILES)


def test_the_calibration_above_its_data_is_checked(sensor, monkeypatch):
    for here, name in ((sensor.parent, "sensor/data"), (sensor, "data"), (sensor, "data/"), (sensor / "data", ".")):
        monkeypatch.chdir(here)
        assert list(check(name)) == list(check(sensor))


@pytest.mark.parametrize("name", ["with space", "brackets[1]", "ünïcode", "(parentheses)", "a+b", "!exclamation"])
def test_a_folder_may_have_any_name(name, tmp_path):
    calibrate(tmp_path / name)
    assert Simulator(tmp_path / name).compute_frame(np.zeros(1089), np.zeros(1089)).max() == 3847
    assert {finding.verdict for finding in check(tmp_path / name)} == {"good"}


@pytest.mark.parametrize(
    "options, error, message",
    [
        ({"pitch": 0}, ValueError, "pitch must be from 1 to 26, found 0"),
        ({"pitch": float("nan")}, ValueError, "pitch must be from 1 to 26, found nan"),
        ({"pitch": "24"}, TypeError, "pitch: expected a number, found '24'"),
        ({"size": 0}, ValueError, "size: expected 1 to 200, found 0"),
        ({"size": 2**40}, ValueError, "size: expected 1 to 200, found"),
        ({"size": 24.5}, TypeError, "size: expected a whole number, found 24.5"),
        ({"offset_x": 501}, ValueError, "offset_x must be from -500 to 500, found 501"),
        ({"offset_y": 100}, ValueError, "the grid does not fit on the frame"),
        ({"obscuration": 1}, ValueError, "obscuration must be from 0 to 0.99, found 1"),
        ({"spider_angle": 181}, ValueError, "spider_angle must be from -180 to 180, found 181"),
        ({"spider_width": 0.6, "spider_angle": 0}, ValueError, "spider_width must be from 0 to 0.5, found 0.6"),
        ({"spider_width": 0.02}, ValueError, "spider_width: expected none without a spider; give spider_angle"),
        ({"basis": "fourier"}, ValueError, "basis: expected 'zernike' or 'karhunen-loeve', found 'fourier'"),
        ({"basis": 3}, TypeError, "basis: expected a word, found 3"),
        ({"force": "yes"}, TypeError, "force: expected True or False, found 'yes'"),
        ({"measured": 1}, TypeError, "measured: expected True or False, found 1"),
        ({"measured": True, "engine": 5}, TypeError, "engine: expected an object with a method compute"),
        ({"measured": True, "poke_amplitude": 0}, ValueError, "poke_amplitude must be from 0.001 to 12, found 0"),
        ({"measured": True, "noise": 1.0, "detector": Detector()}, ValueError, "noise: expected none beside a detector"),
        ({"measured": True, "engine": Weighted}, TypeError, r"found the class Weighted; write Weighted\(\)"),
        ({"measured": True, "detector": Detector}, TypeError, r"found the class Detector; make one: Detector\(\.\.\.\)"),
        ({"measured": True, "noise": -1}, ValueError, "noise must be from 0 to 1000000000, found -1"),
        ({"measured": True, "seed": -1}, ValueError, "seed: expected 0 to 4294967295, found -1"),
        ({"measured": True, "detector": "camera.json"}, TypeError, "detector: expected a Detector, found 'camera.json'"),
        *(
            ({name: value}, ValueError, f"{name}: expected none where the matrix is computed; give measured=True")
            for name, value in {
                "engine": Weighted(), "poke_amplitude": 1.0, "noise": 0.0, "seed": 1, "detector": Detector()
            }.items()
        ),
    ],
)
def test_wrong_options_are_refused_and_nothing_is_written(options, error, message, tmp_path):
    with pytest.raises(error, match=message):
        calibrate(tmp_path / "new", **options)
    assert not list(tmp_path.rglob("*.fits"))


def test_a_folder_that_cannot_be_written_to_is_an_os_error(tmp_path):
    (tmp_path / "file").write_text("in the way")
    with pytest.raises(OSError, match="file"):
        calibrate(tmp_path / "file")
    (tmp_path / "data").symlink_to("/proc/self")  # not even root makes files there
    with pytest.raises(OSError, match="M2S.fits"):
        calibrate(tmp_path)


# --- Findings


def planted(sensor, folder, mistake):
    """A calibration with a mistake."""
    (folder / "data").mkdir(parents=True)
    for file in FILES:
        with fits.open(sensor / "data" / file) as hdus:
            mistake(file, hdus)
            hdus.writeto(folder / "data" / file)
    return folder


def flip_x(file, hdus):
    if file == "M2S.fits":
        hdus[0].data[607:] *= -1


def zero(file, hdus):
    if file == "CM.fits":
        hdus[0].data[:] = 0


def drop_flags(file, hdus):
    if file == "shs_rois.fits":
        hdus["rois_used"].data["is_used"][700:] = 0


def drop_modes(file, hdus):
    if file == "M2S.fits":
        hdus[0].data[:, [3, 17]] = 0


@pytest.mark.parametrize("mistake", [None, flip_x, zero, drop_flags, drop_modes])
def test_findings_are_those_of_the_tool(mistake, sensor, tool, tmp_path):
    folder = sensor if mistake is None else planted(sensor, tmp_path / "planted", mistake)
    findings = check(folder)
    expected = json.loads(tool("check", folder, "--json", rc=0 if mistake is None else 1))["findings"]
    for ours, theirs in zip(findings, expected, strict=True):
        for key in ("verdict", "key", "subject", "text", "advice"):
            assert getattr(ours, key) == theirs[key]
        assert list(ours.mistakes) == theirs["mistakes"]
    assert any(finding.verdict == "WRONG" for finding in findings) == (mistake is not None)


def test_a_finding_names_its_modes(sensor, tmp_path):
    findings = {finding.key: finding for finding in check(planted(sensor, tmp_path / "planted", drop_modes))}
    assert findings["m2s.modes"].numbers == (3, 17)


@pytest.mark.parametrize("name, key", [("M2S", "m2s.file"), ("CM", "cm.file"), ("shs_rois", "rois.file")])
def test_a_missing_file_is_a_finding(name, key, sensor, tool, tmp_path):
    folder = planted(sensor, tmp_path / "planted", drop_modes)
    (folder / "data" / f"{name}.fits").unlink()
    findings = check(folder)
    expected = json.loads(tool("check", folder, "--json", rc=1))["findings"]
    assert [(one.verdict, one.key, one.text) for one in findings] == [
        (one["verdict"], one["key"], one["text"]) for one in expected
    ]
    assert next(one for one in findings if one.key == key).verdict == "WRONG"
    assert findings[-1].key == "skipped"


@pytest.mark.parametrize("mistake", [None, drop_modes])
def test_findings_are_printed_as_by_the_tool(mistake, sensor, tool, tmp_path):
    folder = sensor if mistake is None else planted(sensor, tmp_path / "planted", mistake)
    findings = check(folder)
    assert f"{findings}\n" == tool("check", folder, rc=0 if mistake is None else 1) == f"{findings!r}\n"
    findings.reverse()
    assert str(findings).splitlines()[0] == f"{findings[0].verdict:9} {findings[0].subject:14} {findings[0].text}"


def test_nothing_to_examine_is_an_os_error(tmp_path):
    with pytest.raises(FileNotFoundError, match="M2S.fits"):
        check(tmp_path / "missing")


# --- Scores


def without_time(score):
    axes = (*vars(score.x).values(), *vars(score.y).values())
    return (*axes, score.worst, score.flux_bias, score.flux_rms, score.failed)


def tools_scores(text):
    scores = json.loads(text)["scores"]
    rest = ("worst", "flux_bias", "flux_rms", "failed")
    return [(*score["x"].values(), *score["y"].values(), *(score[key] for key in rest)) for score in scores]


def test_scores_are_those_of_the_tool(sim, sensor, tool):
    options = ["--noise", 30, "--range", 1.5, "--frames", 3, "--seed", 8, "--json"]
    expected = tool("score", sensor, "--engine", "weighted", "--engine", "gaussian-fit:steps=2", *options)
    ours = score(sim, [Weighted(), GaussianFit(steps=2)], noise=30, range=1.5, frames=3, seed=8)
    assert [without_time(one) for one in ours] == tools_scores(expected)
    assert error_bound(30) == json.loads(expected)["least_rms"]
    assert all(one.microseconds > 0 for one in ours)


def test_scores_with_a_detector_are_those_of_the_tool(sim, sensor, tool, tmp_path):
    (tmp_path / "camera.json").write_text('{"electrons_per_unit": 0.1, "read_noise": 3, "offset": 100}')
    camera = Detector.from_file(tmp_path / "camera.json", seed=3)
    options = ["--detector", tmp_path / "camera.json", "--frames", 2, "--seed", 8, "--json"]
    expected = tool("score", sensor, "--engine", "centre-of-gravity:background=100", *options)
    (ours,) = score(sim, [CentreOfGravity(background=100)], frames=2, seed=8, detector=camera)
    assert [without_time(ours)] == tools_scores(expected)
    assert error_bound(detector=camera) == json.loads(expected)["least_rms"]


def without_times(table):
    return [line.rpartition("|")[0].rpartition("|")[0] for line in table.splitlines()]


def test_scores_are_printed_as_by_the_tool(sim, sensor, tool, tmp_path):
    (tmp_path / "camera.json").write_text('{"electrons_per_unit": 0.1, "read_noise": 3, "offset": 100}')
    names = ["weighted", "centre-of-gravity:background=100"]
    engines = dict(zip(names, [Weighted(), CentreOfGravity(background=100)]))
    arguments = [argument for name in names for argument in ("--engine", name)]
    options = {"range": 1.5, "frames": 2, "seed": 8}
    for theirs, ours in (
        (["--noise", 30], {"noise": 30}),
        (["--detector", tmp_path / "camera.json"], {"detector": Detector.from_file(tmp_path / "camera.json")}),
    ):
        scores = score(sim, engines, **options, **ours)
        expected = tool("score", sensor, *arguments, *as_arguments(options), *theirs)
        assert without_times(str(scores)) == without_times(expected)
        assert repr(scores) == str(scores)
        again = pickle.loads(pickle.dumps(scores))
        assert again == scores and str(again) == str(scores)
        scores.reverse()
        assert str(scores).splitlines()[4].startswith("| centre-of-gravity:background=100 |")
        assert type(scores[:1]) is list


def test_engines_are_called_after_what_tells_them_apart(sim):
    class Own:
        def compute(self, frame, roi):
            return 1.0, 0.0, 0.0

    engines = [Weighted(), Weighted(fwhm=5), LightEngine(engine=Weighted(fwhm=8), dark_map=np.zeros((816, 840))), Own()]
    assert [one.engine for one in score(sim, engines, frames=1)] == [
        "Weighted", "Weighted(fwhm=5.0)", "LightEngine(dark_map=..., engine=Weighted(fwhm=8.0))", "Own",
    ]


def test_results_are_shown_on_a_short_line(sim):
    run = run_loop(sim, frames=12)
    assert repr(run) == str(run) == (
        f"<LoopRun of 12 frames, 52 modes: residual {run.residual_before:.4f} rad RMS before, {run.residual_after:.4f} after>"
    )
    curves = error_curves(sim, [Weighted()], frames=1)
    assert repr(curves).startswith("<ErrorCurves of Weighted at noises 1 to 1000: RMS error ")
    assert "lights 30 to 1e+06" in repr(error_curves(sim, [Weighted()], frames=1, detector=Detector()))
    assert repr(dataclasses.replace(curves, places=np.zeros(0), scores=[])).endswith("at noises none: RMS error nan to nan pixels>")
    [one] = score(sim, [Weighted()], frames=1)
    assert repr(one).startswith(f"<Score of Weighted: RMS error x {one.x.rms:.1e}, y {one.y.rms:.1e} pixels, 0.0 % failed, ")
    assert repr(one.x) == f"<AxisScore: RMS {one.x.rms:.1e} pixels, bias {one.x.bias:+.1e}, gain {one.x.gain:.4f}>"
    assert pickle.loads(pickle.dumps(one)) == one


def test_an_engine_of_ones_own_gets_the_score_of_what_it_does(sim):
    class Own:
        def compute(self, frame, roi):
            return CentreOfGravity().compute(frame, roi)

    own, ready = score(sim, (engine for engine in [Own(), CentreOfGravity()]), frames=1)
    assert without_time(own) == without_time(ready)


def test_a_score_without_engines_is_empty(sim):
    assert score(sim, []) == []


@pytest.mark.parametrize(
    "options, error, message",
    [
        ({"noise": -1}, ValueError, "noise must be from 0 to 1000000000, found -1"),
        ({"range": 101}, ValueError, "range must be from 0 to 100, found 101"),
        ({"range": None}, TypeError, "range: expected a number, found None"),
        ({"frames": 0}, ValueError, "frames: expected 1 to 1000000000, found 0"),
        ({"frames": 2.0}, TypeError, "frames: expected a whole number, found 2.0"),
        ({"seed": 2**32}, ValueError, "seed: expected 0 to 4294967295"),
        ({"engines": Weighted()}, TypeError, "engines: expected a list of engines, found Weighted"),
        ({"engines": [Weighted]}, TypeError, r"found the class Weighted; write Weighted\(\)"),
        ({"engines": Weighted()}, TypeError, r"write it in brackets, \[\.\.\.\]"),
        ({"engines": "weighted"}, TypeError, "engines: expected a list of engines, found 'weighted'"),
        ({"noise": True}, TypeError, "noise: expected a number, found True"),
        ({"seed": True}, TypeError, "seed: expected a whole number, found True"),
        ({"noise": np.ma.masked}, TypeError, "noise: expected a number, found masked"),
        ({"noise": np.zeros((3, 5))}, TypeError, r"noise: expected a number, found an array of float64, shape \(3, 5\)"),
        ({"noise": 10.0, "detector": Detector()}, ValueError, "noise: expected none beside a detector"),
        ({"sim": Simulator}, TypeError, r"found the class Simulator; make one: Simulator\(\.\.\.\)"),
        ({"sim": "sensor"}, TypeError, "sim: expected a Simulator, found 'sensor'"),
        ({"sim": Detector()}, TypeError, "sim: expected a Simulator, found Detector"),
    ],
)
def test_wrong_options_of_a_score_are_refused(sim, options, error, message):
    with pytest.raises(error, match=message):
        score(**{"sim": sim, "engines": [Weighted()], **options})


# --- Loops


def telemetry(folder):
    return fits.getdata(folder / "loop" / "telemetry.fits", "telemetry")


@pytest.mark.parametrize(
    "name, engine, options",
    [
        ("centre-of-gravity", None, {}),
        ("weighted", Weighted(), {"gain": 0.3, "leak": 0.01, "delay": 3, "noise": 40, "d_over_r0": 5, "seed": 11}),
    ],
)
def test_a_loop_is_that_of_the_tool(name, engine, options, sim, sensor, tool, tmp_path):
    arguments = as_arguments({"frames": 40, **options, "engine": name})
    report = json.loads(tool("loop", sensor, *arguments, "--folder", tmp_path / "loop", "--json"))
    run = run_loop(sim, engine=engine, frames=40, **options)
    table = telemetry(tmp_path)
    for column in ("disturbance", "correction", "residual"):
        assert np.array_equal(getattr(run, column), table[column])
    assert run.residual_before == report["residual_before"]
    assert run.residual_after == report["residual_after"]
    assert (run.lost_spots, run.diverged) == (report["lost_spots"], report["diverged"]) == (0, False)
    assert np.array_equal(sim.frame.view(np.int16), fits.getdata(tmp_path / "loop" / "frame.fits"))
    assert np.array_equal(sim.x_slopes, fits.getdata(tmp_path / "loop" / "slopes.fits", "slopes")["x"])


def test_a_loop_with_a_detector_is_that_of_the_tool(sim, sensor, tool, tmp_path):
    (tmp_path / "camera.json").write_text('{"electrons_per_unit": 0.1, "read_noise": 3, "offset": 100}')
    arguments = ["--engine", "centre-of-gravity:background=100", "--detector", tmp_path / "camera.json", "--frames", 15]
    tool("loop", sensor, *arguments, "--folder", tmp_path / "loop")
    camera = Detector.from_file(tmp_path / "camera.json")
    run = run_loop(sim, engine=CentreOfGravity(background=100), frames=15, detector=camera)
    assert np.array_equal(run.residual, telemetry(tmp_path)["residual"])
    assert np.array_equal(sim.frame, fits.getdata(tmp_path / "loop" / "frame.fits"))
    # The detector's light outside the regions goes with it.
    zeros = np.zeros(1089)
    assert np.array_equal(sim.compute_frame(zeros, zeros), Simulator(sensor).compute_frame(zeros, zeros))


def test_a_disturbance_of_ones_own_is_followed(sim):
    disturbance = np.zeros((12, 52))
    disturbance[:, 4] = 0.5
    run = run_loop(sim, disturbance, gain=1.0, noise=0.0)
    assert np.array_equal(run.disturbance, disturbance)
    assert np.array_equal(run.residual, run.disturbance - run.correction)
    assert run.residual_before == 0.5
    assert run.residual_after < 1e-2
    again = run_loop(sim, np.asfortranarray(disturbance.astype(np.float32)), gain=1.0, noise=0.0)
    assert np.array_equal(again.residual, run.residual)


def test_frames_are_the_first_of_a_disturbance(sim):
    disturbance = turbulence(sim, 20)
    run = run_loop(sim, disturbance, frames=12)
    assert np.array_equal(run.disturbance, disturbance[:12])
    assert np.array_equal(run.residual, run_loop(sim, disturbance[:12]).residual)


def test_turbulence_is_that_of_the_loop(sim):
    run = run_loop(sim, frames=12, d_over_r0=7, seed=3)
    assert np.array_equal(run.disturbance, turbulence(sim, 12, 7, 3))
    assert not turbulence(sim, 10, 0).any()


def test_a_loop_is_the_one_of_the_equations(sim):
    """With an engine of one's own, written out in numpy."""
    gain, leak, delay, frames = 0.4, 0.02, 2, 12
    disturbance = turbulence(sim, frames)
    run = run_loop(sim, disturbance, gain=gain, leak=leak, delay=delay, noise=0.0)
    corrections = [np.zeros(52)] * delay
    used = np.flatnonzero(sim.rois_used)
    for k in range(frames):
        residual = disturbance[k] - corrections[k]
        assert np.allclose(run.residual[k], residual, rtol=0, atol=1e-9)
        slopes = sim.m2s @ residual
        dx, dy = np.zeros(1089), np.zeros(1089)
        dy[used], dx[used] = slopes[:607], slopes[607:]
        sim.compute_frame(dx, dy)
        measured = sim.cm @ sim.compute_slopes(CentreOfGravity())
        corrections.append((1 - leak) * corrections[-1] + gain * measured)


def test_lost_spots_and_divergence_are_told(sim):
    class Lost:
        def compute(self, frame, roi):
            return 0.0, float("nan"), 0.0

    run = run_loop(sim, engine=Lost(), frames=10)
    assert run.lost_spots == 10 * 607 and not run.diverged
    assert not run.correction.any()

    class Wild:
        def compute(self, frame, roi):
            flux, x, y = CentreOfGravity().compute(frame, roi)
            return flux, -100 * x, -100 * y

    run = run_loop(sim, engine=Wild(), frames=50, gain=2.0)
    assert run.diverged and len(run.residual) < 50


@pytest.mark.parametrize(
    "options, error, message",
    [
        ({"gain": 2.5}, ValueError, "gain must be from 0 to 2, found 2.5"),
        ({"leak": -0.1}, ValueError, "leak must be from 0 to 1, found -0.1"),
        ({"delay": 0}, ValueError, "delay: expected 1 to 9, found 0"),
        ({"delay": 10}, ValueError, "delay: expected 1 to 9, found 10"),
        ({"delay": 1.0}, TypeError, "delay: expected a whole number, found 1.0"),
        ({"noise": "loud"}, TypeError, "noise: expected a number, found 'loud'"),
        ({"frames": 0}, ValueError, "frames: expected 10 to 100000, found 0"),
        ({"d_over_r0": 1001}, ValueError, "d_over_r0 must be from 0 to 1000, found 1001"),
        ({"seed": 2**32}, ValueError, "seed: expected 0 to 4294967295"),
        ({"disturbance": np.zeros((3, 51))}, ValueError, r"disturbance: expected shape \(any, 52\), found \(3, 51\)"),
        ({"disturbance": np.zeros((0, 52))}, ValueError, "disturbance: expected a frame or more, found none"),
        ({"disturbance": np.full((3, 52), np.nan)}, ValueError, "disturbance: expected finite numbers"),
        ({"disturbance": np.full((3, 52), 1e200)}, ValueError, "disturbance: expected modes up to"),
        ({"disturbance": "wind"}, TypeError, "disturbance: expected numbers"),
        ({"disturbance": [[1.0], [1.0, 2.0]]}, ValueError, "disturbance: expected an array"),
        ({"disturbance": np.zeros((52, 10))}, ValueError, r"found \(52, 10\); give its transpose, .T"),
        ({"disturbance": 300}, TypeError, "disturbance: .* found 300; write frames=300 for as many frames of turbulence"),
        ({"disturbance": Weighted()}, TypeError, r"disturbance: .* found Weighted\(.*; write engine=... for an engine"),
        ({"disturbance": np.zeros((12, 52)), "frames": 13}, ValueError, "expected 13 frames at least, found 12; give frames=12"),
        ({"disturbance": np.zeros((12, 52)), "frames": 0}, ValueError, "frames: expected 1 to 100000, found 0"),
        ({"disturbance": np.zeros((12, 52)), "d_over_r0": 3}, ValueError, "d_over_r0: expected none beside a disturbance"),
        ({"noise": 1, "detector": Detector()}, ValueError, "noise: expected none beside a detector"),
        ({"engine": "weighted"}, TypeError, "engine: expected an object with a method compute"),
        ({"detector": 1}, TypeError, "detector: expected a Detector, found 1"),
        ({"sim": None}, TypeError, "sim: expected a Simulator, found None"),
    ],
)
def test_wrong_options_of_a_loop_are_refused(sim, options, error, message):
    with pytest.raises(error, match=message):
        run_loop(**{"sim": sim, **options})


@pytest.mark.parametrize("noise", [-1, float("nan"), float("inf")])
def test_no_bound_without_noise_that_can_be(noise):
    with pytest.raises(ValueError, match="noise"):
        error_bound(noise)
