"""Detectors, against the tool's frames and against what is known of their numbers."""

import concurrent.futures
import copy
import json
import os
import pathlib
import pickle

import numpy as np
import pytest
from astropy.io import fits

from quen_shs import Detector, Simulator, draw_flat_map, draw_hot_pixels

ZEROS = np.zeros(1089)
FLAT = np.full((816, 840), 1000.0)

CAMERAS = {
    "photons": {"electrons_per_unit": 0.5},
    "reading": {"electrons_per_unit": 0.1, "photon_noise": False, "read_noise": 3, "gain": 0.5, "offset": 100},
    "multiplied": {
        "electrons_per_unit": 0.01,
        "background": 0.5,
        "dark": 0.1,
        "em_gain": 100,
        "read_noise": 30,
        "full_well": 80000,
        "gain": 0.05,
        "offset": 200.5,
        "bits": 14,
    },
}


@pytest.fixture(scope="module")
def values(sensor):
    sim = Simulator(sensor)
    sim.compute_frame(ZEROS, ZEROS)
    return sim.frame_values


# --- Against the tool


@pytest.mark.parametrize("name", CAMERAS)
def test_a_frame_is_that_of_the_tool(name, values, sensor, tool, tmp_path):
    (tmp_path / "camera.json").write_text(json.dumps(CAMERAS[name]))
    tool("frame", sensor, "--detector", tmp_path / "camera.json", "--seed", 21, "--output", tmp_path / "frame.fits")
    expected = fits.getdata(tmp_path / "frame.fits")
    assert np.array_equal(Detector(**CAMERAS[name], seed=21).expose(values), expected)
    assert np.array_equal(Detector.from_file(tmp_path / "camera.json", seed=21).expose(values), expected)


def test_maps_are_those_of_the_tool(values, sensor, tool, tmp_path):
    tool("detector", tmp_path / "camera.json", "--new", "--hot-pixels", 1000, "--seed", 4)
    tool("frame", sensor, "--detector", tmp_path / "camera.json", "--seed", 5, "--output", tmp_path / "frame.fits")
    camera = Detector.from_file(tmp_path / "camera.json", seed=5)
    assert np.array_equal(camera.expose(values), fits.getdata(tmp_path / "frame.fits"))
    maps = {"flat_map": "flat", "bad_pixels": "bad_pixels", "bad_pixel_levels": "bad_pixel_levels"}
    for member, file in maps.items():
        assert np.array_equal(getattr(camera, member), fits.getdata(tmp_path / f"camera_{file}.fits"))
    assert camera.dark_map is None and camera.offset_map is None
    assert np.array_equal(draw_flat_map(4, 0.01), fits.getdata(tmp_path / "camera_flat.fits"))
    states, levels = draw_hot_pixels(4, 1000, 1000)
    assert np.array_equal(states, fits.getdata(tmp_path / "camera_bad_pixels.fits"))
    assert np.array_equal(levels, fits.getdata(tmp_path / "camera_bad_pixel_levels.fits"))


# --- Frames


def test_a_frame_repeats_by_its_number_alone(values):
    camera = Detector(**CAMERAS["multiplied"], seed=2)
    first, second = camera.expose(values, 0), camera.expose(values, 1)
    assert not np.array_equal(first, second)
    assert np.array_equal(Detector(**CAMERAS["multiplied"], seed=2).expose(values, frame_number=1), second)
    assert not np.array_equal(Detector(**CAMERAS["multiplied"], seed=3).expose(values, 1), second)
    assert np.array_equal(camera.expose(values), first)


def test_seeds_and_numbers_have_64_bits(values):
    camera = Detector(read_noise=3, offset=100, seed=2**64 - 1)
    assert not np.array_equal(camera.expose(values, 2**64 - 1), camera.expose(values, 2**32 - 1))
    assert not np.array_equal(camera.expose(values), Detector(read_noise=3, offset=100, seed=2**32 - 1).expose(values))
    for wrong in (-1, 2**64):
        with pytest.raises(ValueError, match="frame_number: expected 0 to 18446744073709551615"):
            camera.expose(values, wrong)
        with pytest.raises(ValueError, match="seed: expected 0 to 18446744073709551615"):
            Detector(seed=wrong)


def test_any_number_of_threads_may_expose(values):
    camera = Detector(**CAMERAS["multiplied"])
    expected = [camera.expose(values, k) for k in range(8)]
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        found = list(threads.map(lambda k: camera.expose(values, k), list(range(8)) * 2))
    assert np.array_equal(found, expected * 2)


def test_out_takes_the_counts(values):
    camera = Detector(electrons_per_unit=0.5)
    cube = np.zeros((3, 816, 840), np.uint16)
    out = cube[1]
    assert camera.expose(values, 3, out=out) is out
    assert np.array_equal(cube[1], camera.expose(values, 3))
    assert not cube[0].any() and not cube[2].any()
    with pytest.raises(TypeError, match="out: expected an array of uint16"):
        camera.expose(values, out=np.zeros((816, 840)))
    with pytest.raises(ValueError, match=r"out: expected shape \(816, 840\)"):
        camera.expose(values, out=np.zeros((840, 816), np.uint16))


def test_values_may_have_any_layout():
    values = np.random.default_rng(1).uniform(0, 1000, (816, 840)).round()
    camera = Detector(electrons_per_unit=0.5)
    expected = camera.expose(values)
    for same in (values.tolist(), np.asfortranarray(values), values.astype(np.int32), values.astype(">f8")):
        assert np.array_equal(camera.expose(same), expected)
    with pytest.raises(ValueError, match=r"values: expected shape \(816, 840\), found \(816,\)"):
        camera.expose(values[:, 0])
    with pytest.raises(TypeError, match="values: expected numbers that float64 holds without loss, found complex128"):
        camera.expose(values * 1j)


def test_a_frame_of_pixels_is_no_light(sensor):
    """Its pixels below 0 would be the brightest of all."""
    sim = Simulator(sensor, seed=1)
    frame = sim.compute_frame(np.zeros(1089), np.zeros(1089), noise=10.0)
    with pytest.raises(TypeError, match="values: expected light, found uint16.*give frame_values of the simulator"):
        Detector().expose(frame)
    assert Detector().expose(frame.astype(float)).shape == frame.shape


def test_values_that_are_no_numbers_end_nothing():
    for value in (np.nan, np.inf, -np.inf, -1.0, 1e300):
        frame = Detector(read_noise=1, offset=50, em_gain=2).expose(np.full((816, 840), value))
        assert frame.shape == (816, 840)


# --- Statistics, of 685440 pixels: five standard errors are passed by chance once in two million draws

PIXELS = 816 * 840


def near(found, expected, standard_error):
    return abs(found - expected) < 5 * standard_error


def test_photons_are_poisson_distributed():
    counts = Detector(electrons_per_unit=0.5, seed=11).expose(FLAT).astype(float)
    assert near(counts.mean(), 500, np.sqrt(500 / PIXELS))
    assert near(counts.var(), 500, np.sqrt(2 * 500**2 / PIXELS))


def test_read_noise_is_gaussian_in_electrons():
    camera = Detector(photon_noise=False, read_noise=8, gain=2, offset=1000, seed=12)
    counts = camera.expose(np.zeros((816, 840))).astype(float)
    variance = (2 * 8) ** 2 + 1 / 12
    assert near(counts.mean(), 1000, np.sqrt(variance / PIXELS))
    assert near(counts.var(), variance, np.sqrt(2 * variance**2 / PIXELS))


def test_multiplication_doubles_the_variance_of_photons():
    camera = Detector(electrons_per_unit=0.1, em_gain=100, gain=0.1, seed=13)
    counts = camera.expose(FLAT).astype(float)
    assert near(counts.mean(), 1000, np.sqrt(2 * 100 * 100 / PIXELS))
    assert counts.var() / (2 * 100 * 10**2) == pytest.approx(1, abs=0.02)


def test_converter_and_well_saturate():
    assert (Detector(bits=12).expose(FLAT * 100) == 4095).all()
    assert (Detector(full_well=3000, photon_noise=False).expose(FLAT * 100) == 3000).all()


def test_maps_do_what_they_say():
    flat, dark, offset = np.ones((3, 816, 840))
    flat[10, 20], dark[30, 40], offset[50, 60] = 0.5, 700, 7
    states, levels = np.zeros((816, 840), np.uint8), np.zeros((816, 840))
    states[1, 2], states[3, 4], states[5, 6] = 1, 2, 3
    levels[3, 4], levels[5, 6] = 2000, 4321
    camera = Detector(
        photon_noise=False,
        offset=100,
        flat_map=flat,
        dark_map=dark - 1,
        offset_map=offset - 1,
        bad_pixels=states,
        bad_pixel_levels=levels,
    )
    counts = camera.expose(FLAT).astype(int)
    assert counts[0, 0] == 1100
    assert counts[10, 20] == 600
    assert counts[30, 40] == 1100 + 699
    assert counts[50, 60] == 1106
    assert counts[1, 2] < counts[0, 0]
    assert counts[3, 4] == 3100
    assert counts[5, 6] == 4321


def test_hot_pixels_are_as_many_and_as_bright_as_said():
    states, levels = draw_hot_pixels(1, 10000, 500)
    hot = states == 2
    assert near(hot.sum(), PIXELS / 100, np.sqrt(PIXELS / 100))
    assert near(levels[hot].mean(), 500, 500 / np.sqrt(hot.sum()))
    assert set(np.unique(states)) == {0, 2} and not levels[~hot].any()


# --- Copies and equality


def with_maps(**fields):
    states, levels = draw_hot_pixels(1, 1000, 500)
    return Detector(flat_map=draw_flat_map(1, 0.01), bad_pixels=states, bad_pixel_levels=levels, **fields)


@pytest.mark.parametrize("camera", [Detector(), Detector(**CAMERAS["multiplied"]), with_maps(seed=5)])
def test_copies_are_equal_and_expose_the_same(camera, values):
    expected = camera.expose(values, 9)
    for again in (pickle.loads(pickle.dumps(camera)), copy.copy(camera), copy.deepcopy(camera)):
        assert again == camera
        assert hash(again) == hash(camera)
        assert np.array_equal(again.expose(values, 9), expected)


def test_detectors_of_other_fields_are_others():
    assert eval(repr(Detector(**CAMERAS["multiplied"]))) == Detector(**CAMERAS["multiplied"])
    assert with_maps() == with_maps()
    assert with_maps() != with_maps(seed=2)
    assert with_maps() != Detector()
    assert Detector(flat_map=draw_flat_map(1, 0.01)) != Detector(flat_map=draw_flat_map(2, 0.01))
    assert Detector() != "Detector()"


def test_a_detector_does_not_change(values):
    flat = np.ones((816, 840))
    camera = Detector(flat_map=flat, photon_noise=False)
    expected = camera.expose(values)
    flat[:] = 0
    assert (camera.flat_map == 1).all()
    assert np.array_equal(pickle.loads(pickle.dumps(camera)).expose(values), expected)
    with pytest.raises(AttributeError):
        camera.gain = 2.0


# --- Wrong ones


@pytest.mark.parametrize(
    "fields, error, message",
    [
        ({"electrons_per_unit": -1}, ValueError, "electrons_per_unit must be from 0"),
        ({"background": np.nan}, ValueError, "background must be from 0"),
        ({"em_gain": 0.5}, ValueError, "em_gain must be from 1"),
        ({"read_noise": -1}, ValueError, "read_noise must be from 0"),
        ({"full_well": -1}, ValueError, "full_well must be"),
        ({"gain": 0}, ValueError, "gain must be above 0"),
        ({"bits": 17}, ValueError, "bits must be from 1 to 16, found 17"),
        ({"bits": 2**40}, ValueError, "bits: expected"),
        ({"flat_map": np.ones((840, 816))}, ValueError, r"flat_map: expected shape \(816, 840\), found \(840, 816\)"),
        ({"flat_map": np.full((816, 840), -1.0)}, ValueError, "flat_map"),
        ({"dark_map": np.full((816, 840), np.nan)}, ValueError, "dark_map"),
        ({"bad_pixels": np.full((816, 840), 4, np.uint8)}, ValueError, "bad_pixels"),
        ({"bad_pixels": np.full((816, 840), 2, np.uint8)}, ValueError, "bad_pixel"),
        ({"gain": "1"}, TypeError, "gain: expected a number, found '1'"),
        ({"bits": 12.5}, TypeError, "bits: expected a whole number, found 12.5"),
        ({"photon_noise": "no"}, TypeError, "photon_noise: expected True or False, found 'no'"),
        ({"flat_map": "flat.fits"}, TypeError, "flat_map: expected numbers"),
        ({"bad_pixels": np.zeros((816, 840))}, TypeError, "bad_pixels: expected numbers that uint8 holds"),
        ({"seed": None}, TypeError, "seed: expected a whole number, found None"),
    ],
)
def test_wrong_fields_are_refused_by_name(fields, error, message):
    with pytest.raises(error, match=message):
        Detector(**fields)


def test_wrong_draws_are_refused():
    for wrong in (-0.1, 1.1, np.nan):
        with pytest.raises(ValueError, match="rms"):
            draw_flat_map(1, wrong)
    with pytest.raises(ValueError, match="seed: expected"):
        draw_flat_map(-1, 0.1)
    with pytest.raises(ValueError, match="per_million"):
        draw_hot_pixels(1, -1, 500)
    with pytest.raises(ValueError, match="mean_level"):
        draw_hot_pixels(1, 1, np.nan)
    with pytest.raises(TypeError, match="mean_level: expected a number"):
        draw_hot_pixels(1, 1, "hot")


@pytest.mark.parametrize(
    "text, message",
    [
        ("{", "camera.json"),
        ("[]", "camera.json"),
        ('{"gian": 1}', "gian"),
        ('{"gain": "high"}', "gain"),
        ('{"gain": 0}', "gain"),
        ('{"flat_map": "missing.fits"}', "missing.fits"),
        ('{"flat_map": "camera.json"}', "camera.json"),
        ("", "camera.json"),
        ('{"gain": 1e999}', "camera.json"),
    ],
)
def test_a_file_that_is_no_description_is_an_os_error(text, message, tmp_path):
    (tmp_path / "camera.json").write_text(text)
    with pytest.raises(OSError, match=message):
        Detector.from_file(tmp_path / "camera.json")


def test_what_is_no_file_is_an_os_error(tmp_path):
    for name in (tmp_path / "missing.json", tmp_path, "", os.fsencode(tmp_path / "missing.json")):
        with pytest.raises(OSError):
            Detector.from_file(name)
    with pytest.raises(FileNotFoundError, match="missing.json"):
        Detector.from_file(tmp_path / "missing.json")
    with pytest.raises(TypeError, match="name: expected a path, found 5"):
        Detector.from_file(5)
    for name in ("zero\0byte", b"\xff\xfe", pathlib.PurePath("\udcff")):
        with pytest.raises(ValueError, match="name: expected a path in UTF-8 without zeros"):
            Detector.from_file(name)
