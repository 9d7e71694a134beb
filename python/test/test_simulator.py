"""Frames and slopes, against the tool's files and against the formula in plain Python."""

import math

import numpy as np
import pytest
from astropy.io import fits

from quen_shs import CentreOfGravity, Simulator, calibrate

VIEWS = {
    "frame": (816, 840),
    "frame_values": (816, 840),
    "slopes": (1214,),
    "flux": (1089,),
    "flux_used": (607,),
    "x_slopes": (1089,),
    "x_slopes_used": (607,),
    "y_slopes": (1089,),
    "y_slopes_used": (607,),
    "m2s": (1214, 52),
    "cm": (52, 1214),
}


# --- Against the tool


@pytest.mark.parametrize("noise", [0.0, 10.0, 333.25])
def test_a_frame_is_that_of_the_tool(sensor, tool, displacements, displacement_file, tmp_path, noise):
    file = tmp_path / "frame.fits"
    tool("frame", sensor, "--displacements", displacement_file, "--noise", noise, "--seed", 7, "--output", file)
    frame = Simulator(sensor, seed=7).compute_frame(*displacements, noise)
    assert np.array_equal(frame.view(np.int16), fits.getdata(file))


def test_slopes_are_those_of_the_tool(sim, sensor, tool, displacements, displacement_file, tmp_path):
    tool("frame", sensor, "--displacements", displacement_file, "--seed", 1, "--output", tmp_path / "frame.fits")
    tool("measure", sensor, tmp_path / "frame.fits", "--limit", 1.5, "--output", tmp_path / "slopes.fits")
    sim.compute_frame(*displacements, 10.0)
    sim.compute_slopes(CentreOfGravity(), 1.5)
    expected = fits.getdata(tmp_path / "slopes.fits", "slopes")
    assert np.array_equal(sim.flux, expected["flux"])
    assert np.array_equal(sim.x_slopes, expected["x"])
    assert np.array_equal(sim.y_slopes, expected["y"])
    assert abs(sim.slopes).max() == 1.5


def test_a_frame_from_elsewhere_is_measured_as_by_the_tool(sim, sensor, tool, tmp_path):
    tool("frame", sensor, "--shape", "defocus:2", "--output", tmp_path / "frame.fits")
    tool("measure", sensor, tmp_path / "frame.fits", "--output", tmp_path / "slopes.fits")
    frame = fits.getdata(tmp_path / "frame.fits").astype(np.int16).view(np.uint16)
    sim.compute_slopes(CentreOfGravity(), frame=frame)
    expected = fits.getdata(tmp_path / "slopes.fits", "slopes")
    assert np.array_equal(sim.x_slopes, expected["x"])
    assert np.array_equal(sim.y_slopes, expected["y"])
    assert np.array_equal(sim.frame, frame)


# --- Against the formula


def uniform_draws(seed):
    """What the standard library's distributions make of the generator, over and over."""
    generator = np.random.MT19937()
    generator._legacy_seeding(seed)
    while True:
        low, high = generator.random_raw(2).tolist()
        yield (float(low) + float(high) * 2.0**32) / 2.0**64


def frame_values_in_plain_python(sim, dx, dy, noise, seed):
    values = np.zeros((816, 840))
    draws = uniform_draws(seed)
    for i, roi in enumerate(sim.rois.tolist()):
        x_low, x_up, y_low, y_up, x_ref, y_ref = roi
        centre_x, centre_y = x_ref + dx[i], y_ref + dy[i]
        for y in range(y_low, y_up):
            for x in range(x_low, x_up):
                off_x, off_y = x - centre_x, y - centre_y
                spot = 4096.0 * math.exp(-(off_x * off_x + off_y * off_y) / 8.0)
                values[y, x] = spot + ((noise + noise) * next(draws) - noise if noise > 0 else 0.0)
    return values


def pixels_of(values):
    return values.astype(np.int32).astype(np.uint16)


@pytest.mark.parametrize("noise", [0.0, 10.0])
def test_a_frame_is_that_of_plain_python(sensor, displacements, noise):
    dx, dy = displacements
    sim = Simulator(sensor, seed=4711)
    frame = sim.compute_frame(dx, dy, noise)
    expected = frame_values_in_plain_python(sim, dx.tolist(), dy.tolist(), noise, 4711)
    assert np.array_equal(sim.frame_values, expected)
    assert np.array_equal(frame, pixels_of(expected))
    assert (frame.view(np.int16) < 0).any() == (noise > 0)


@pytest.fixture(scope="module")
def overlapping(tmp_path_factory):
    folder = tmp_path_factory.mktemp("overlapping")
    calibrate(folder, size=26)
    return folder


def test_where_regions_overlap_the_later_one_stands(overlapping):
    dx, dy = np.full(1089, 12.0), np.full(1089, 11.5)
    sim = Simulator(overlapping, seed=3)
    sim.compute_frame(dx, dy, 50.0)
    assert np.array_equal(sim.frame_values, frame_values_in_plain_python(sim, dx.tolist(), dy.tolist(), 50.0, 3))


def test_values_that_are_no_numbers_or_too_large_give_dark_pixels(sim):
    frame = sim.compute_frame(np.full(1089, np.nan), np.full(1089, np.inf))
    assert not frame.any()
    assert not sim.compute_frame(np.zeros(1089), np.zeros(1089), 1e300).any()


def test_slopes_are_those_of_plain_numpy(sim, displacements):
    frame = sim.compute_frame(*displacements, 10.0).view(np.int16)
    slopes = sim.compute_slopes(CentreOfGravity(), np.nan)
    used = [roi for roi, is_used in zip(sim.rois, sim.rois_used) if is_used]
    for k, roi in enumerate(used):
        y, x = np.mgrid[roi["y_low"] : roi["y_up"], roi["x_low"] : roi["x_up"]]
        light = frame[roi["y_low"] : roi["y_up"], roi["x_low"] : roi["x_up"]].astype(float)
        assert sim.flux_used[k] == light.sum()
        assert slopes[k] == pytest.approx((light * y).sum() / light.sum() - roi["y_ref"], abs=1e-9)
        assert slopes[607 + k] == pytest.approx((light * x).sum() / light.sum() - roi["x_ref"], abs=1e-9)


def test_a_frame_forgets_the_one_from_elsewhere_before_it(sensor):
    zeros = np.zeros(1089)
    expected = Simulator(sensor).compute_frame(zeros, zeros)
    sim = Simulator(sensor)
    sim.compute_slopes(CentreOfGravity(), frame=np.full((816, 840), 77, np.uint16))
    assert np.array_equal(sim.compute_frame(zeros, zeros), expected)


# --- The calibration, as astropy reads it


def test_matrices_are_those_of_the_files(sim, sensor):
    assert np.array_equal(sim.m2s, fits.getdata(sensor / "data" / "M2S.fits"))
    assert np.array_equal(sim.cm, fits.getdata(sensor / "data" / "CM.fits"))
    assert np.allclose(sim.cm @ sim.m2s, np.eye(52), atol=1e-6)


def test_regions_are_those_of_the_file(sim, sensor):
    rois = fits.getdata(sensor / "data" / "shs_rois.fits", "rois")
    assert sim.rois.dtype.names == ("x_low", "x_up", "y_low", "y_up", "x_ref", "y_ref")
    for name in sim.rois.dtype.names:
        assert np.array_equal(sim.rois[name], rois[name])
    flags = fits.getdata(sensor / "data" / "shs_rois.fits", "rois_used")["is_used"]
    assert sim.rois_used.dtype == bool
    assert np.array_equal(sim.rois_used, flags != 0)


# --- The order of results


def test_slopes_have_y_first(sim):
    sim.compute_frame(np.full(1089, 1.0), np.full(1089, -0.5))
    slopes = sim.compute_slopes(CentreOfGravity())
    assert np.allclose(slopes[:607], -0.5, atol=1e-3)
    assert np.allclose(slopes[607:], 1.0, atol=1e-3)
    assert np.array_equal(slopes, np.concatenate([sim.y_slopes_used, sim.x_slopes_used]))
    for name in ("flux", "x_slopes", "y_slopes"):
        everywhere = getattr(sim, name)
        assert np.array_equal(everywhere[sim.rois_used], getattr(sim, name + "_used"))
        assert not everywhere[~sim.rois_used].any()


def test_displacements_move_spots_to_higher_columns_and_rows(sim):
    frame = sim.compute_frame(np.full(1089, 3.0), np.full(1089, -2.0))
    roi = sim.rois[500]
    region = frame[roi["y_low"] : roi["y_up"], roi["x_low"] : roi["x_up"]].astype(float)
    y, x = np.unravel_index(region.argmax(), region.shape)
    assert abs(x + roi["x_low"] - roi["x_ref"] - 3.0) <= 0.5
    assert abs(y + roi["y_low"] - roi["y_ref"] + 2.0) <= 0.5


# --- Views and outputs


@pytest.mark.parametrize("name", VIEWS)
def test_a_view_is_no_copy_and_not_writeable(sim, name):
    view = getattr(sim, name)
    assert view.shape == VIEWS[name]
    assert np.shares_memory(view, getattr(sim, name))
    with pytest.raises(ValueError, match="read-only"):
        view[...] = 0
    with pytest.raises(ValueError, match="WRITEABLE"):
        view.flags.writeable = True
    with pytest.raises(AttributeError):
        setattr(sim, name, view)


def test_views_show_the_next_call(sim, displacements):
    frame, values, slopes, flux = sim.frame, sim.frame_values, sim.slopes, sim.flux
    first = sim.compute_frame(np.zeros(1089), np.zeros(1089))
    assert np.array_equal(frame, first)
    second = sim.compute_frame(*displacements, 5.0)
    assert not np.array_equal(first, second)
    assert np.array_equal(frame, second)
    assert np.array_equal(pixels_of(values), second)
    assert np.array_equal(slopes, sim.compute_slopes(CentreOfGravity()))
    assert flux.any()


def test_what_is_returned_is_the_callers_own(sim):
    frame = sim.compute_frame(np.zeros(1089), np.zeros(1089))
    slopes = sim.compute_slopes(CentreOfGravity())
    assert not np.shares_memory(frame, sim.frame)
    assert not np.shares_memory(slopes, sim.slopes)
    frame[:], slopes[:] = 0, 7.0
    assert sim.frame.any()
    assert (sim.slopes != 7.0).all()


def test_out_takes_the_result(sim, displacements):
    frame, slopes = np.empty((816, 840), np.uint16), np.empty(1214)
    assert sim.compute_frame(*displacements, out=frame) is frame
    assert sim.compute_slopes(CentreOfGravity(), out=slopes) is slopes
    assert np.array_equal(frame, sim.frame)
    assert np.array_equal(slopes, sim.slopes)


def test_out_may_be_a_part_of_an_array(sim, displacements):
    cube = np.zeros((3, 816, 840), np.uint16)
    sim.compute_frame(*displacements, out=cube[1])
    assert np.array_equal(cube[1], sim.frame)
    assert not cube[0].any() and not cube[2].any()


def unwriteable():
    array = np.zeros((816, 840), np.uint16)
    array.flags.writeable = False
    return array


WRONG_OUT = [
    (np.zeros((816, 840), np.int16), TypeError, "expected an array of uint16, found an array of int16"),
    (np.zeros((816, 840), ">u2"), TypeError, "expected an array of uint16, found an array of >u2"),
    ([[0] * 840] * 816, TypeError, "expected an array of uint16, found list"),
    (np.zeros((840, 816), np.uint16), ValueError, r"expected shape \(816, 840\), found \(840, 816\)"),
    (np.zeros(816 * 840, np.uint16), ValueError, r"expected shape \(816, 840\), found \(685440,\)"),
    (np.zeros((840, 816), np.uint16).T, ValueError, "expected an array in C order"),
    (np.zeros((816, 1680), np.uint16)[:, ::2], ValueError, "expected an array in C order"),
    (np.zeros(816 * 840 * 2 + 1, np.uint8)[1:].view(np.uint16).reshape(816, 840), ValueError, "C order"),
    (unwriteable(), ValueError, "expected an array that can be written to"),
]


@pytest.mark.parametrize("out, error, message", WRONG_OUT)
def test_a_wrong_out_is_refused_before_any_work(sim, out, error, message):
    state = sim.random_state
    with pytest.raises(error, match="out: .*" + message):
        sim.compute_frame(np.zeros(1089), np.zeros(1089), 10.0, out=out)
    assert not sim.frame.any()
    assert np.array_equal(sim.random_state["state"]["key"], state["state"]["key"])
    assert sim.random_state["state"]["pos"] == state["state"]["pos"]


def test_a_view_of_the_simulator_is_no_out(sim):
    with pytest.raises(ValueError, match="written"):
        sim.compute_frame(np.zeros(1089), np.zeros(1089), out=sim.frame)
    with pytest.raises(ValueError, match="written"):
        sim.compute_slopes(CentreOfGravity(), out=sim.slopes)


# --- Inputs


def test_displacements_may_have_any_layout_and_smaller_type(sim):
    whole = np.arange(1089) % 3 - 1
    expected = sim.compute_frame(whole.astype(np.float64), np.zeros(1089))
    strided = np.repeat(whole.astype(np.float64), 2)[::2]
    for dx in (whole, whole.tolist(), whole.astype(np.float32), whole.astype(np.int8), whole.astype(">f8"), strided):
        assert np.array_equal(sim.compute_frame(dx, [0.0] * 1089), expected)


def test_a_frame_may_have_any_layout(sim, displacements):
    frame = sim.compute_frame(*displacements)
    expected = sim.compute_slopes(CentreOfGravity())
    for same in (np.asfortranarray(frame), frame.astype(">u2"), np.repeat(frame, 2, axis=1)[:, ::2], sim.frame):
        assert np.array_equal(sim.compute_slopes(CentreOfGravity(), frame=same), expected)
