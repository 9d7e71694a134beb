"""Pictures: those of the tool, and of what they claim to show."""

import copy
import dataclasses
import io
import pickle

import matplotlib.image
import numpy as np
import pytest
from astropy.io import fits

from quen_shs import (
    CentreOfGravity,
    Detector,
    GaussianFit,
    LoopRun,
    MaximumLikelihoodFit,
    Picture,
    Simulator,
    Weighted,
    check,
    error_curves,
    run_loop,
    score,
)

ZEROS = np.zeros(1089)


def pixels(picture):
    """[row, column, colour]."""
    return matplotlib.image.imread(io.BytesIO(picture))[..., :3]


def brightness_of_spots(sim, picture):
    """Mean of the picture where a frame has its spots, and between them. Its row 0 is at the bottom."""
    detector = pixels(picture)[44:860, 40:880].mean(axis=2)[::-1]
    rois = sim.rois[~sim.rois_used]  # of the others there are arrows on it
    x, y = rois["x_ref"].astype(int), rois["y_ref"].astype(int)
    return detector[y, x].mean(), detector[rois["y_low"] + 3, rois["x_low"] + 3].mean()


def test_a_picture_is_a_png_file_that_notebooks_show(sim, tmp_path):
    picture = sim.picture()
    assert isinstance(picture, Picture) and isinstance(picture, bytes)
    assert picture._repr_png_() == bytes(picture) and type(picture._repr_png_()) is bytes
    assert repr(picture) == str(picture) == "<Picture of 920 x 900 pixels>"
    assert pixels(picture).shape == (900, 920, 3)
    for again in (pickle.loads(pickle.dumps(picture)), copy.copy(picture), copy.deepcopy(picture)):
        assert type(again) is Picture and again == picture
    (tmp_path / "frame.png").write_bytes(b"an older one")
    picture.save(tmp_path / "frame.png")
    assert (tmp_path / "frame.png").read_bytes() == picture
    assert [file.name for file in tmp_path.iterdir()] == ["frame.png"]


def test_a_picture_that_cannot_be_saved_is_an_os_error(sim, tmp_path):
    (tmp_path / "file").write_text("in the way")
    with pytest.raises(OSError, match="file"):
        sim.picture().save(tmp_path / "file" / "frame.png")
    with pytest.raises(TypeError, match="file: expected a path, found 5"):
        sim.picture().save(5)


def test_a_picture_without_a_name_or_content_is_refused(sim):
    with pytest.raises(FileNotFoundError, match="file: expected a name, found none"):
        sim.picture().save("")
    with pytest.raises(ValueError, match="content: expected the bytes of a PNG file, found others"):
        Picture(b"junk")


def test_a_frame_is_drawn_as_it_is(sim):
    dark = sim.picture()
    assert brightness_of_spots(sim, dark) == (0, 0)
    sim.compute_frame(ZEROS, ZEROS, 10.0)  # half of the dark pixels are below 0
    spots, between = brightness_of_spots(sim, sim.picture())
    assert spots > 0.8 and between < 0.1


def test_a_frame_of_counts_is_drawn_as_counts(sim):
    sim.compute_frame(ZEROS, ZEROS)
    counts = np.where(sim.frame > 2000, np.uint16(60000), np.uint16(30000))
    sim.compute_slopes(CentreOfGravity(), frame=counts)
    spots, between = brightness_of_spots(sim, sim.picture())
    assert spots > 0.8 and between < 0.1


def test_displacements_are_drawn_as_they_were_measured(sim):
    sim.compute_frame(np.full(1089, 1.0), ZEROS)
    before = sim.picture()
    sim.compute_slopes(Weighted())
    assert sim.picture() != before
    assert (pixels(sim.picture()) != pixels(before)).any(axis=2).mean() < 0.05  # arrows, and words


def test_one_simulator_is_drawn_by_one_call(sim):
    class Drawing:
        def compute(self, frame, roi):
            sim.picture()

    with pytest.raises(RuntimeError, match="Simulator: is in use"):
        sim.compute_slopes(Drawing())


def test_a_loop_is_drawn_as_by_the_tool(sim, sensor, tool, tmp_path):
    tool("loop", sensor, "--frames", 20, "--folder", tmp_path)
    tool("view", tmp_path / "telemetry.fits", "--png", tmp_path / "telemetry.png")
    run = run_loop(sim, frames=20)
    assert run.picture() == (tmp_path / "telemetry.png").read_bytes()
    assert pickle.loads(pickle.dumps(run)).picture() == run.picture()


def test_a_loop_of_a_single_frame_is_a_dot():
    modes = np.ones((1, 52))
    history = pixels(LoopRun(modes, modes, modes, 0, False, 0.0, 0.0).picture())[46:520, 82:718]
    assert (history.max(axis=2) - history.min(axis=2) > 0.5).any()  # in colour, unlike the grid


def test_the_curves_of_a_loop_are_where_they_belong():
    """A residual of 1, a disturbance of 10: two lines, the lower one blue."""
    modes = np.zeros((50, 52))
    modes[:, 0] = 1.0
    run = LoopRun(10 * modes, 9 * modes, modes, 0, False, 1.0, 1.0)
    picture = pixels(run.picture())[44:524, 100:700]
    blue = (picture[..., 2] - picture[..., 0] > 0.3).any(axis=1)
    assert blue.any() and not blue[: np.flatnonzero(blue)[0]].any()
    assert np.flatnonzero(blue).min() > 240  # below the middle


@pytest.mark.parametrize(
    "disturbance, residual, message",
    [
        (np.zeros((5, 52)), np.zeros((4, 52)), r"residual: expected shape \(5, 52\), found \(4, 52\)"),
        (np.zeros((5, 51)), np.zeros((5, 51)), r"disturbance: expected shape \(any, 52\), found \(5, 51\)"),
        (np.zeros((0, 52)), np.zeros((0, 52)), "disturbance: expected a frame or more, found none"),
    ],
)
def test_a_loop_that_was_none_is_not_drawn(disturbance, residual, message):
    with pytest.raises(ValueError, match=message):
        LoopRun(disturbance, disturbance, residual, 0, False, 0.0, 0.0).picture()


def test_findings_are_drawn_as_by_the_tool(sensor, tool, tmp_path):
    findings = check(sensor)
    tool("check", sensor, "--png", tmp_path / "findings.png")
    assert findings.picture() == (tmp_path / "findings.png").read_bytes()
    assert isinstance(findings, list) and len(findings) == 14


def test_copies_of_findings_are_lists(sensor):
    findings = check(sensor)
    for again in (pickle.loads(pickle.dumps(findings)), copy.copy(findings), copy.deepcopy(findings)):
        assert type(again) is list and again == findings


def test_a_calibration_that_does_not_load_has_no_picture(sensor, tmp_path):
    (tmp_path / "data").mkdir()
    for file in (sensor / "data").iterdir():
        (tmp_path / "data" / file.name).write_bytes(file.read_bytes())
    fits.writeto(tmp_path / "data" / "CM.fits", np.zeros((3, 3)), overwrite=True)
    with pytest.raises(ValueError, match="no picture: the library does not load the calibration"):
        check(tmp_path).picture()


def test_errors_are_those_of_scores_and_drawn_as_by_the_tool(sim, sensor, tool, tmp_path):
    names = ["gaussian-fit", "weighted:fwhm=8"]
    options = ["--range", 1.5, "--frames", 2, "--seed", 5]
    tool("score", sensor, "--engine", names[0], "--engine", names[1], *options, "--png", tmp_path / "tool.png",
         "--output", tmp_path / "scores.fits")
    engines = [GaussianFit(), Weighted(fwhm=8)]
    curves = error_curves(sim, dict(zip(names, engines)), range=1.5, frames=2, seed=5)
    assert curves.picture() == (tmp_path / "tool.png").read_bytes()
    assert pickle.loads(pickle.dumps(curves)).picture() == curves.picture()
    table = fits.getdata(tmp_path / "scores.fits", "scores")
    assert np.array_equal(np.repeat(curves.places, 2), table["noise"])
    [alone] = score(sim, engines[:1], noise=curves.places[3], range=1.5, frames=2, seed=5)
    assert (curves.scores[3][0].x, curves.scores[3][0].y) == (alone.x, alone.y)
    assert [len(some) for some in curves.scores] == [2] * 10


def test_errors_along_the_light_are_drawn_as_by_the_tool(sim, sensor, tool, tmp_path):
    (tmp_path / "camera.json").write_text('{"read_noise": 3, "offset": 100}')
    name = "maximum-likelihood:pixels=unsigned,pedestal=100,gain=1,read-noise=3"
    tool("score", sensor, "--engine", name, "--detector", tmp_path / "camera.json", "--frames", 1,
         "--png", tmp_path / "tool.png")
    engines = {name: MaximumLikelihoodFit(pedestal=100, read_noise=3)}
    curves = error_curves(sim, engines, frames=1, detector=Detector(read_noise=3, offset=100))
    assert curves.along_light and curves.places[-1] == 1e6
    assert curves.picture() == (tmp_path / "tool.png").read_bytes()


@pytest.mark.parametrize(
    "change",
    [{"scores": []}, {"engines": ()}, {"places": np.zeros(0)}, {"least_rms": np.zeros(9)}, {"engines": ("one", "two")}],
    ids=repr,
)
def test_curves_with_holes_are_not_drawn(sim, change):
    curves = dataclasses.replace(error_curves(sim, [Weighted()], frames=1), **change)
    with pytest.raises(ValueError, match="scores: expected one of each engine at each place, found others"):
        curves.picture()


def test_engines_without_names_are_called_after_their_classes(sim):
    curves = error_curves(sim, (engine for engine in [Weighted(), GaussianFit()]), frames=1)
    assert curves.engines == ("Weighted", "GaussianFit")


def test_nothing_to_score_is_refused(sim):
    with pytest.raises(ValueError, match="engines: expected one or more, found none"):
        error_curves(sim, [])
    with pytest.raises(TypeError, match="engines: expected a list of engines, found 5"):
        error_curves(sim, 5)
    with pytest.raises(TypeError, match="name: expected a word, found 5"):
        error_curves(sim, {5: Weighted()})
    with pytest.raises(ValueError, match="range must be from 0 to 100, found 101"):
        error_curves(sim, [Weighted()], range=101)
