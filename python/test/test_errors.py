"""What fails says what was expected and what was found, and never ends the process."""

import os
import re
import shutil

import numpy as np
import pytest
from astropy.io import fits

from quen_shs import (
    CentreOfGravity,
    Correlation,
    Detector,
    Simulator,
    Weighted,
    Windowed,
    calibrate,
    campaign,
    check,
    draw_flat_map,
    gaussian_template,
    run_loop,
    score,
    turbulence,
)

ZEROS = np.zeros(1089)
FILES = ["M2S.fits", "CM.fits", "shs_rois.fits"]


@pytest.fixture
def damaged(sensor, tmp_path):
    """A copy of the calibration, to be damaged."""
    return shutil.copytree(sensor, tmp_path / "damaged")


def changed(file, change):
    with fits.open(file) as hdus:
        copied = fits.HDUList([hdu.copy() for hdu in hdus])
    change(copied)
    copied.writeto(file, overwrite=True)


# --- Loading


@pytest.mark.parametrize("file", FILES)
def test_a_missing_file_is_named(file, damaged):
    (damaged / "data" / file).unlink()
    with pytest.raises(FileNotFoundError, match=f"{file} is missing"):
        Simulator(damaged)


def test_the_folder_above_is_named(sensor, tmp_path, monkeypatch):
    monkeypatch.chdir(sensor)
    for name in (sensor / "data", f"{sensor}/data/", "data"):
        with pytest.raises(FileNotFoundError, match=f"give the folder above, {sensor}, which has one$"):
            Simulator(name)
    (tmp_path / "data").mkdir()
    with pytest.raises(FileNotFoundError, match="makes a synthetic one$"):
        Simulator(tmp_path / "data")


def test_a_missing_folder_is_named(tmp_path):
    with pytest.raises(FileNotFoundError, match="no calibration in .*nowhere"):
        Simulator(tmp_path / "nowhere")


@pytest.mark.parametrize("file", FILES)
def test_a_folder_in_place_of_a_file_is_an_os_error(file, damaged):
    (damaged / "data" / file).unlink()
    (damaged / "data" / file).mkdir()
    with pytest.raises(OSError, match=file):
        Simulator(damaged)


def test_a_file_in_place_of_a_folder_is_an_os_error(tmp_path):
    (tmp_path / "sensor").write_text("no folder")
    with pytest.raises(OSError, match="sensor"):
        Simulator(tmp_path / "sensor")


@pytest.mark.parametrize("file", FILES)
@pytest.mark.parametrize("length", [0, 100, 2880, 5760, 8641])
def test_a_truncated_file_is_a_value_error(file, length, damaged):
    content = (damaged / "data" / file).read_bytes()
    (damaged / "data" / file).write_bytes(content[:length])
    with pytest.raises(ValueError, match=file):
        Simulator(damaged)


@pytest.mark.parametrize("file", FILES)
def test_a_file_of_another_kind_is_a_value_error(file, damaged):
    (damaged / "data" / file).write_text("a letter " * 1000)
    with pytest.raises(ValueError, match=file):
        Simulator(damaged)


@pytest.mark.parametrize("file", FILES[:2])
@pytest.mark.parametrize(
    "change",
    [np.transpose, lambda data: data[:-1], lambda data: data[:, 1:], np.float32, np.ravel],
    ids=["transposed", "row less", "column less", "single precision", "vector"],
)
def test_a_matrix_of_another_form_is_a_value_error(file, change, damaged):
    name = damaged / "data" / file
    fits.writeto(name, np.ascontiguousarray(change(fits.getdata(name))), overwrite=True)
    with pytest.raises(ValueError, match="expected: .* ac{1,2}tual: "):
        Simulator(damaged)


def test_a_region_less_is_a_value_error(damaged):
    def shorten(hdus):
        hdus["rois"] = fits.BinTableHDU(hdus["rois"].data[:1088], name="rois")

    changed(damaged / "data" / "shs_rois.fits", shorten)
    with pytest.raises(ValueError, match="Misconfigured fits file: .*shs_rois.fits"):
        Simulator(damaged)


@pytest.mark.parametrize("column, value", [("x_up", 841), ("y_low", 900), ("x_ref", -1.0), ("y_ref", 817.0)])
def test_a_region_off_the_frame_is_a_value_error(column, value, damaged):
    def move(hdus):
        hdus["rois"].data[column][5] = value

    changed(damaged / "data" / "shs_rois.fits", move)
    with pytest.raises(ValueError):
        Simulator(damaged)


def test_a_missing_column_is_named(damaged):
    def rename(hdus):
        hdus["rois"].columns["x_ref"].name = "ref_x"

    changed(damaged / "data" / "shs_rois.fits", rename)
    with pytest.raises(ValueError, match="x_ref"):
        Simulator(damaged)


def with_flags(folder, rows, used):
    def shorten(hdus):
        flags = np.zeros(rows, [("is_used", np.uint8)])
        flags["is_used"][:used] = 1
        hdus["rois_used"] = fits.BinTableHDU(flags, name="rois_used")

    changed(folder / "data" / "shs_rois.fits", shorten)
    return folder


@pytest.mark.parametrize("rows, used", [(606, 606), (1000, 500), (1, 0)])
def test_flags_that_end_early_let_frames_be_rendered_but_not_measured(rows, used, damaged):
    """Measuring them would end the process."""
    sim = Simulator(with_flags(damaged, rows, used))
    assert sim.compute_frame(ZEROS, ZEROS).max() == 3847
    assert sim.rois_used.shape == (rows,)
    for measure in (
        lambda: sim.compute_slopes(CentreOfGravity()),
        lambda: run_loop(sim, frames=10),
        lambda: score(sim, [CentreOfGravity()], frames=1),
    ):
        with pytest.raises(ValueError, match=f"has {rows} usage flags, {used} of them set; expected 1089 and 607"):
            measure()


# --- Where a calibration is looked for

FOUND = """
import quen_shs
sim = quen_shs.Simulator()
assert sim.folder is None
print(sim.compute_frame([0.0] * 1089, [0.0] * 1089).max())
"""


def environment(**variables):
    return {"CFGPATH": "", "INTROOT": "", **{name: str(value) for name, value in variables.items()}}


def test_a_calibration_is_found_along_cfgpath(child, sensor, tmp_path):
    result = child(FOUND, environment=environment(CFGPATH=f"/nowhere:{sensor}"), cwd=tmp_path)
    assert result.stdout == "3847\n", result.stderr


def test_a_calibration_is_found_in_the_current_folder(child, sensor):
    assert child(FOUND, environment=environment(), cwd=sensor).stdout == "3847\n"


def test_a_calibration_is_found_below_introot(child, sensor, tmp_path):
    (tmp_path / "resource").symlink_to(sensor)
    result = child(FOUND, environment=environment(INTROOT=tmp_path), cwd="/")
    assert result.stdout == "3847\n", result.stderr


@pytest.mark.parametrize("unset", ["", "del os.environ['INTROOT'];"])
def test_a_calibration_that_is_nowhere_is_a_file_not_found(unset, child, tmp_path):
    script = f"import os; {unset} import quen_shs\ntry: quen_shs.Simulator()\nexcept FileNotFoundError as e: print(e)"
    result = child(script, environment=environment(), cwd=tmp_path)
    assert "data/M2S.fits" in result.stdout, result.stderr
    assert "basic_string" not in result.stdout


def test_a_variable_set_in_python_is_heeded(monkeypatch, sensor, tmp_path):
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("CFGPATH", str(sensor))
    assert Simulator().compute_frame(ZEROS, ZEROS).max() == 3847


def test_a_folder_that_is_given_comes_before_the_environment(monkeypatch, sensor, tmp_path):
    calibrate(tmp_path / "other", offset_x=5)
    monkeypatch.setenv("CFGPATH", str(tmp_path / "other"))
    here, there = Simulator(sensor).rois["x_ref"], Simulator().rois["x_ref"]
    assert np.array_equal(here + 5, there)


@pytest.mark.parametrize("along", ["", ".", "../sensor"])
def test_a_found_calibration_stays_found_when_the_folder_changes(along, monkeypatch, sensor, tmp_path):
    monkeypatch.setenv("CFGPATH", along)
    monkeypatch.chdir(sensor)
    found, relative = Simulator(), Simulator(".")
    expected = turbulence(found, 10)
    monkeypatch.chdir(tmp_path)
    assert np.array_equal(turbulence(found, 10), expected)
    assert np.array_equal(turbulence(relative, 10), expected)
    assert relative.folder == str(sensor)


def test_a_loaded_calibration_may_go(damaged):
    sim = Simulator(damaged)
    shutil.rmtree(damaged)
    assert sim.compute_frame(ZEROS, ZEROS).max() == 3847
    with pytest.raises(OSError, match="M2S.fits"):
        turbulence(sim, 10)


# --- Arguments

LONG = [0.0] * 1090
RAGGED = [[0.0], [0.0, 1.0]]


@pytest.mark.parametrize(
    "argument, value, error, found",
    [
        ("copy", "no", TypeError, "True or False, found 'no'"),
        ("dx", np.ma.masked_array(ZEROS, ZEROS == 0), ValueError, "an array without a mask"),
        ("dx", LONG, ValueError, r"shape \(1089,\), found \(1090,\)"),
        ("dx", np.zeros((33, 33)), ValueError, r"shape \(1089,\), found \(33, 33\)"),
        ("dx", 0.0, ValueError, r"shape \(1089,\), found \(\)"),
        ("dx", RAGGED, ValueError, "an array, found none"),
        ("dx", None, TypeError, "numbers that float64 holds without loss, found object"),
        ("dx", "zeros", TypeError, "numbers that float64 holds without loss, found <U5"),
        ("dx", [1j] * 1089, TypeError, "found complex128"),
        ("dx", np.zeros(1089, np.longdouble), TypeError, "found float128"),
        ("dy", [], ValueError, r"shape \(1089,\), found \(0,\)"),
        ("noise", -1, ValueError, "0 or more, found -1.0"),
        ("noise", float("nan"), ValueError, "0 or more, found nan"),
        ("noise", 10**400, ValueError, "a number that float64 holds"),
        ("noise", "10", TypeError, "a number, found '10'"),
        ("noise", None, TypeError, "a number, found None"),
    ],
)
def test_compute_frame_refuses(sim, argument, value, error, found):
    with pytest.raises(error, match=f"^{argument}: expected .*{found}"):
        sim.compute_frame(**{"dx": ZEROS, "dy": ZEROS, argument: value})
    assert not sim.frame.any()


@pytest.mark.parametrize(
    "argument, value, error, found",
    [
        ("limit", -0.5, ValueError, "0 or more, found -0.5"),
        ("limit", None, TypeError, "a number, found None"),
        ("frame", np.zeros((816, 840)), TypeError, "numbers that uint16 holds without loss, found float64; if they are whole numbers from 0 to 65535, give .astype.uint16."),
        ("frame", np.zeros((816, 840), np.int16), TypeError, "numbers that uint16 holds without loss, found int16; .view.uint16. has the same bits$"),
        ("frame", np.zeros((840, 816), np.uint16), ValueError, r"shape \(816, 840\), found \(840, 816\); give its transpose, .T$"),
        ("out", np.zeros(1214, np.float32), TypeError, "an array of float64, found an array of float32"),
        ("out", np.zeros(1213), ValueError, r"shape \(1214,\), found \(1213,\)"),
        ("out", [0.0] * 1214, TypeError, "an array of float64, found list"),
        ("out", np.zeros(2428)[::2], ValueError, "an array in C order"),
        ("engine", None, TypeError, "an object with a method compute"),
        ("engine", CentreOfGravity, TypeError, r"an object .*, found the class CentreOfGravity; write CentreOfGravity\(\)$"),
        ("copy", None, TypeError, "True or False, found None"),
        ("frame", np.ma.masked_all((816, 840), np.uint16), ValueError, "an array without a mask"),
    ],
)
def test_compute_slopes_refuses(sim, argument, value, error, found):
    with pytest.raises(error, match=f"^{argument}: expected {found}"):
        sim.compute_slopes(**{"engine": CentreOfGravity(), argument: value})
    assert not sim.slopes.any()
    sim.compute_slopes(CentreOfGravity())


@pytest.mark.parametrize("wrong", [5, 1.5, ["sensor"]])
def test_what_is_no_path_is_a_type_error(wrong):
    for call in (Simulator, calibrate, check):
        with pytest.raises(TypeError, match="folder: expected a path, found " + re.escape(repr(wrong))):
            call(wrong)


@pytest.mark.parametrize("name", ["zero\0byte", b"\xff\xfe", "\udcff"])
def test_a_path_that_no_file_has_is_a_value_error(name):
    for call in (Simulator, calibrate, check):
        with pytest.raises(ValueError, match="folder: expected a path in UTF-8 without zeros, found"):
            call(name)


@pytest.mark.parametrize("name", ["", b""])
def test_an_empty_path_is_a_file_not_found(name, sensor, monkeypatch):
    monkeypatch.chdir(sensor)
    for call in (Simulator, calibrate, check, Detector.from_file, campaign):
        with pytest.raises(FileNotFoundError, match="^[a-z]+: expected a name, found none$"):
            call(name)


def test_paths_may_be_bytes(sensor):
    assert Simulator(os.fsencode(sensor)).folder == str(sensor)


@pytest.mark.parametrize(
    "size, fwhm, name", [(4, 5, "size"), (65, 5, "size"), (-1, 5, "size"), (5, 0.5, "fwhm"), (5, float("nan"), "fwhm")]
)
def test_a_template_out_of_range_is_refused(size, fwhm, name):
    with pytest.raises(ValueError, match=name):
        gaussian_template(size, fwhm)


def test_turbulence_refuses(sim):
    with pytest.raises(ValueError, match="frames: expected 10 to 100000, found 0"):
        turbulence(sim, 0)
    with pytest.raises(ValueError, match="d_over_r0 must be from 0 to 1000, found nan"):
        turbulence(sim, 10, float("nan"))
    with pytest.raises(TypeError, match="sim: expected a Simulator, found 5"):
        turbulence(5, 10)


# --- What would end the process is tried in another one

RISKY = {
    "infinite noise": "sim.compute_frame(zeros, zeros, inf)",
    "largest noise": "sim.compute_frame(zeros, zeros, 1.7e308)",
    "no number as noise": "sim.compute_frame(zeros, zeros, nan)",
    "negative zero as noise": "sim.compute_frame(zeros, zeros, -0.0)",
    "infinite displacements": "sim.compute_frame([inf] * 1089, [-inf] * 1089, 1.0)",
    "infinite limit": "sim.compute_slopes(CentreOfGravity(), inf)",
    "no number as limit": "sim.compute_slopes(CentreOfGravity(), nan)",
    "negative limit": "sim.compute_slopes(CentreOfGravity(), -1e-300)",
    "a core without a simulator": "quen_shs._core.Simulator.__new__(quen_shs._core.Simulator).frame",
    "a core with another's engine": "quen_shs._core.score(None, [], 1.0, 1, quen_shs._core.Exposure(1.0, 1, None))",
    "a simulator that was not made": "Simulator.__new__(Simulator).frame",
    "a detector that was not made": "Detector.__new__(Detector).expose(numpy.zeros((816, 840)))",
    "an engine that was not made": "sim.compute_slopes(Weighted.__new__(Weighted))",
    "an empty region": "CentreOfGravity().compute(numpy.zeros((5, 5), 'u2'), Roi(2, 2, 2, 2, 5, 5, 1.0, 1.0))",
    "a region off its frame": "Roi(0, 6, 0, 5, 5, 5, 1.0, 1.0)",
    "a region with bounds exchanged": "Roi(4, 2, 0, 5, 5, 5, 1.0, 1.0)",
    "a negative region": "Roi(-1, 2, 0, 5, 5, 5, 1.0, 1.0)",
    "a region without a reference": "Weighted().compute(numpy.ones((5, 5), 'u2'), Roi(0, 5, 0, 5, 5, 5, nan, nan))",
    "maps beside a small frame": "MaximumLikelihoodFit(flat_map=numpy.ones((816, 840))).compute("
    "numpy.ones((20, 20), 'u2'), Roi(0, 20, 0, 20, 20, 20, 10.0, 10.0))",
    "maps of single regions": "sim.compute_slopes(LightEngine(engine=MaximumLikelihoodFit(flat_map=numpy.ones((816, 840)))))",
    "an engine made for a call": "sim.compute_slopes(type('E', (), {'_engine': property(lambda s: Weighted()._engine)})())",
    "an engine by every name": "sim.compute_slopes(type('E', (), {'__getattr__': lambda s, n: getattr(Weighted(), n)})())",
    "very many frames": "turbulence(sim, 10**5)",
    "a huge template": "Correlation(size=10**9)",
    "an engine within itself": "LightEngine(engine=LightEngine(engine=Weighted()))",
    "an engine without attributes": "sim.compute_slopes(type('E', (), {'__getattr__': lambda *a: 1 / 0})())",
    **{
        f"a pickle of {what}, protocol {protocol}": f"pickle.dumps({what}, {protocol})"
        for what in ("Roi(0, 5, 0, 5, 5, 5, 1.0, 1.0)", "sim._core", "Weighted()._measuring", "Detector()._core",
                     "check(sys.argv[1])._examination", "quen_shs._core.Exposure(1.0, 1, None)",
                     "MaximumLikelihoodFit()._reading()")
        for protocol in (0, 1, 5)
    },
    "an endless engine": "sim.compute_slopes(type('E', (), {'compute': lambda s, f, r: s.compute(f, r)})())",
    "an engine that leaves": "sim.compute_slopes(type('E', (), {'compute': lambda s, f, r: sys.exit(0)})())",
    "light without an engine": "LightEngine(engine=CentreOfGravity)",
    "a loop that is lost": "run_loop(sim, numpy.full((5, 52), 1e99))",
}
SCRIPT = """
import pickle, sys, numpy, quen_shs
from quen_shs import *
inf, nan, zeros = float("inf"), float("nan"), numpy.zeros(1089)
sim = Simulator(sys.argv[1], seed=1)
try:
    eval(sys.argv[2])
except (Exception, SystemExit) as error:
    text = str(error)
    assert "incompatible function arguments" not in text or "_core" in sys.argv[2], text
    assert text or isinstance(error, MemoryError), repr(error)
assert sim.compute_frame(zeros, zeros).max() == 3847
sim.compute_slopes(CentreOfGravity())
print("goes on")
"""


@pytest.mark.parametrize("name", RISKY)
def test_nothing_ends_the_process(name, child, sensor):
    result = child(SCRIPT, sensor, RISKY[name])
    assert (result.stdout, result.returncode) == ("goes on\n", 0), result.stderr


def test_refusals_name_no_class_of_the_library():
    for wrong in (
        lambda: Weighted(fwhm=-1), lambda: Windowed(half_width=0), lambda: Detector(gain=0),
        lambda: draw_flat_map(1, 2.0), lambda: gaussian_template(5, 0.5), lambda: Correlation(size=4),
    ):
        with pytest.raises(ValueError, match="^[a-z_]+ must be "):
            wrong()
