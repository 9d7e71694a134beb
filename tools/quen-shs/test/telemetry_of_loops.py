#!/usr/bin/env python3
"""The telemetry of 'quen-shs loop --aot', read by astropy alone: its tables, and what the numbers in them must be.

    telemetry_of_loops.py QUEN_SHS [TEST...]
"""

import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest
import warnings

import numpy as np
from astropy.io import fits

TOOL = ""
USED = 607
MODES = 52
NO_WHOLE = -32768

# Of each column the kind, and of references the table that they lead to, or the axes of the image: equal letters are
# equal lengths.
TEXT, WHOLE, NUMBER, LIST, IMAGE = "text", "whole", "number", "list", ("image", "")


def row(table):
    return ("row", table)


def image(axes):
    return ("image", axes)


TABLES = {
    "AOT_TIME": {"UID": TEXT, "TIMESTAMPS": LIST, "FRAME_NUMBERS": LIST},
    "AOT_ATMOSPHERIC_PARAMETERS": {
        "UID": TEXT, "WAVELENGTH": NUMBER, "TIME_UID": row("AOT_TIME"), "R0": LIST, "SEEING": LIST, "TAU0": LIST,
        "THETA0": LIST, "LAYERS_WEIGHT": IMAGE, "LAYERS_HEIGHT": IMAGE, "LAYERS_L0": IMAGE, "LAYERS_WIND_SPEED": IMAGE,
        "LAYERS_WIND_DIRECTION": IMAGE, "TRANSFORMATION_MATRIX": IMAGE},
    "AOT_ABERRATIONS": {"UID": TEXT, "MODES": IMAGE, "COEFFICIENTS": IMAGE, "X_OFFSETS": LIST, "Y_OFFSETS": LIST},
    "AOT_TELESCOPES": {
        "UID": TEXT, "TYPE": TEXT, "LATITUDE": NUMBER, "LONGITUDE": NUMBER, "ELEVATION": NUMBER, "AZIMUTH": NUMBER,
        "PARALLACTIC": NUMBER, "PUPIL_MASK": IMAGE, "PUPIL_ANGLE": NUMBER, "ENCLOSING_DIAMETER": NUMBER,
        "INSCRIBED_DIAMETER": NUMBER, "OBSTRUCTION_DIAMETER": NUMBER, "SEGMENT_TYPE": TEXT, "SEGMENT_SIZE": NUMBER,
        "SEGMENTS_X": LIST, "SEGMENTS_Y": LIST, "TRANSFORMATION_MATRIX": IMAGE,
        "ABERRATION_UID": row("AOT_ABERRATIONS")},
    "AOT_SOURCES": {
        "UID": TEXT, "TYPE": TEXT, "RIGHT_ASCENSION": NUMBER, "DECLINATION": NUMBER, "ELEVATION_OFFSET": NUMBER,
        "AZIMUTH_OFFSET": NUMBER, "WIDTH": NUMBER},
    "AOT_DETECTORS": {
        "UID": TEXT, "TYPE": TEXT, "SAMPLING_TECHNIQUE": TEXT, "SHUTTER_TYPE": TEXT, "FLAT_FIELD": IMAGE,
        "READOUT_NOISE": NUMBER, "PIXEL_INTENSITIES": image("thw"), "FIELD_CENTRE_X": NUMBER, "FIELD_CENTRE_Y": NUMBER,
        "INTEGRATION_TIME": NUMBER, "COADDS": WHOLE, "DARK": IMAGE, "WEIGHT_MAP": IMAGE, "QUANTUM_EFFICIENCY": NUMBER,
        "PIXEL_SCALE": NUMBER, "BINNING": WHOLE, "BANDWIDTH": NUMBER, "TRANSMISSION_WAVELENGTH": LIST,
        "TRANSMISSION": LIST, "SKY_BACKGROUND": IMAGE, "GAIN": NUMBER, "EXCESS_NOISE": NUMBER, "FILTER": TEXT,
        "BAD_PIXEL_MAP": IMAGE, "DYNAMIC_RANGE": NUMBER, "READOUT_RATE": NUMBER, "FRAME_RATE": NUMBER,
        "TRANSFORMATION_MATRIX": IMAGE},
    "AOT_SCORING_CAMERAS": {
        "UID": TEXT, "PUPIL_MASK": IMAGE, "WAVELENGTH": NUMBER, "TRANSFORMATION_MATRIX": IMAGE,
        "DETECTOR_UID": row("AOT_DETECTORS"), "ABERRATION_UID": row("AOT_ABERRATIONS")},
    "AOT_WAVEFRONT_SENSORS": {
        "UID": TEXT, "TYPE": TEXT, "SOURCE_UID": row("AOT_SOURCES"), "DIMENSIONS": WHOLE,
        "N_VALID_SUBAPERTURES": WHOLE, "MEASUREMENTS": image("tds"), "REF_MEASUREMENTS": image("ds"),
        "SUBAPERTURE_MASK": image("gg"), "MASK_X_OFFSETS": LIST, "MASK_Y_OFFSETS": LIST, "SUBAPERTURE_SIZE": NUMBER,
        "SUBAPERTURE_INTENSITIES": image("ts"), "WAVELENGTH": NUMBER, "OPTICAL_GAIN": IMAGE,
        "TRANSFORMATION_MATRIX": IMAGE, "DETECTOR_UID": row("AOT_DETECTORS"),
        "ABERRATION_UID": row("AOT_ABERRATIONS"), "NCPA_UID": row("AOT_ABERRATIONS")},
    "AOT_WAVEFRONT_SENSORS_SHACK_HARTMANN": {
        "UID": TEXT, "CENTROIDING_ALGORITHM": TEXT, "CENTROID_GAINS": IMAGE, "SPOT_FWHM": IMAGE},
    "AOT_WAVEFRONT_CORRECTORS": {
        "UID": TEXT, "TYPE": TEXT, "TELESCOPE_UID": row("AOT_TELESCOPES"), "N_VALID_ACTUATORS": WHOLE,
        "PUPIL_MASK": IMAGE, "TFZ_NUM": LIST, "TFZ_DEN": LIST, "TRANSFORMATION_MATRIX": IMAGE,
        "ABERRATION_UID": row("AOT_ABERRATIONS")},
    "AOT_LOOPS": {
        "UID": TEXT, "TYPE": TEXT, "COMMANDED_UID": row("AOT_WAVEFRONT_CORRECTORS"), "TIME_UID": row("AOT_TIME"),
        "STATUS": TEXT, "COMMANDS": image("ta"), "REF_COMMANDS": IMAGE, "FRAMERATE": NUMBER, "DELAY": NUMBER,
        "TIME_FILTER_NUM": image("mn"), "TIME_FILTER_DEN": image("mk")},
    "AOT_LOOPS_CONTROL": {
        "UID": TEXT, "INPUT_SENSOR_UID": row("AOT_WAVEFRONT_SENSORS"), "MODES": IMAGE,
        "MODAL_COEFFICIENTS": image("tm"), "CONTROL_MATRIX": IMAGE, "MEASUREMENTS_TO_MODES": image("mds"),
        "MODES_TO_COMMANDS": IMAGE, "INTERACTION_MATRIX": IMAGE, "COMMANDS_TO_MODES": IMAGE,
        "MODES_TO_MEASUREMENTS": image("sdm"), "RESIDUAL_COMMANDS": IMAGE}}
MORE_OF = {"AOT_WAVEFRONT_SENSORS_SHACK_HARTMANN": "AOT_WAVEFRONT_SENSORS", "AOT_LOOPS_CONTROL": "AOT_LOOPS"}
FORMATS = {"text": r"\d+A$", "row": r"\d+A$", "image": r"\d+A$", WHOLE: "I$", NUMBER: "D$", LIST: r"1PD(\(\d+\))?$"}


# --- The checker

def column_faults(hdu, name, kind):
    """What is wrong with a column, whatever its values refer to."""
    if name not in hdu.columns.names:
        yield f"{hdu.name}.{name} is missing"
        return
    word = kind[0] if isinstance(kind, tuple) else kind
    column = hdu.columns[name]
    if not re.match(FORMATS[word], str(column.format)):
        yield f"{hdu.name}.{name} is {column.format}, no {word}"
    if word == WHOLE and column.null != NO_WHOLE:
        yield f"{hdu.name}.{name} has TNULL {column.null}"


def reference_faults(opened, hdu, name, kind, lengths):
    """What is wrong with what the values of a column refer to."""
    for value in hdu.data[name]:
        form, where = ("ROWREF", kind[1]) if kind[0] == "row" else ("INTREF", "")
        if value == "":
            continue
        match = re.fullmatch(form + "<(.+)>", value)
        if match is None:
            yield f"{hdu.name}.{name}: {value} is no {form}"
        elif where:
            if where not in opened or match[1] not in opened[where].data["UID"]:
                yield f"{hdu.name}.{name}: {value} leads to no row of {where}"
        elif match[1] not in opened:
            yield f"{hdu.name}.{name}: {value} leads to no image"
        else:
            yield from axes_faults(f"{hdu.name}.{name}", opened[match[1]], kind[1], lengths)


def axes_faults(place, hdu, letters, lengths):
    shape = hdu.shape
    if letters and len(shape) != len(letters):
        yield f"{place} has {len(shape)} axes, not {len(letters)}"
        return
    for letter, length in zip(letters, shape):
        if lengths.setdefault(letter, length) != length:
            yield f"{place} has {length} along {letter}, not {lengths[letter]}"


def faults(path):
    """All that is wrong with a file, in words."""
    with fits.open(path, checksum=True) as opened:
        primary = opened[0].header
        for key, value in (("AOT-VERS", "2.0.0"), ("TIMESYS", "UTC"), ("AO-MODE", "SCAO"), ("NAXIS", 0)):
            if primary.get(key) != value:
                yield f"{key} is {primary.get(key)}"
        lengths = {"s": USED, "d": 2, "m": MODES, "a": MODES, "g": 33, "h": 816, "w": 840}
        if "AOT_TIME" in opened and len(opened["AOT_TIME"].data) > 0:
            lengths["t"] = len(opened["AOT_TIME"].data["TIMESTAMPS"][0])
        for name, columns in TABLES.items():
            if name not in opened:
                yield f"{name} is missing"
                continue
            hdu = opened[name]
            for column, kind in columns.items():
                wrong = list(column_faults(hdu, column, kind))
                yield from wrong
                if not wrong and isinstance(kind, tuple):
                    yield from reference_faults(opened, hdu, column, kind, lengths)
            for uid in hdu.data["UID"]:
                if name in MORE_OF and uid not in opened[MORE_OF[name]].data["UID"]:
                    yield f"{name} has a row {uid}, which {MORE_OF[name]} has not"


def referred(opened, table, column):
    """The image that the only row of a table refers to."""
    return opened[opened[table].data[column][0].removeprefix("INTREF<").removesuffix(">")].data


def number_faults(path, calibration, results):
    """What is wrong with the numbers of a file, by those of the calibration and of the loop's other files."""
    cm = fits.getdata(calibration / "data" / "CM.fits")  # slopes in y, then those in x
    m2s = fits.getdata(calibration / "data" / "M2S.fits")
    with fits.open(results / "slopes.fits") as last, fits.open(results / "telemetry.fits") as loop, \
            fits.open(path) as opened:
        used = np.flatnonzero(last["rois_use"].data.field(0))[:USED]
        measurements = referred(opened, "AOT_WAVEFRONT_SENSORS", "MEASUREMENTS")
        mask = referred(opened, "AOT_WAVEFRONT_SENSORS", "SUBAPERTURE_MASK")
        coefficients = referred(opened, "AOT_LOOPS_CONTROL", "MODAL_COEFFICIENTS")
        to_modes = referred(opened, "AOT_LOOPS_CONTROL", "MEASUREMENTS_TO_MODES")
        to_measurements = referred(opened, "AOT_LOOPS_CONTROL", "MODES_TO_MEASUREMENTS")
        commands = referred(opened, "AOT_LOOPS", "COMMANDS")
        gain = referred(opened, "AOT_LOOPS", "TIME_FILTER_NUM")[:, 0]
        kept = -referred(opened, "AOT_LOOPS", "TIME_FILTER_DEN")[:, 1]
        delay = int(opened["AOT_LOOPS"].data["DELAY"][0])
        times = opened["AOT_TIME"].data["TIMESTAMPS"][0]
        if mask.shape != (33, 33) or not np.array_equal(np.flatnonzero(mask.ravel() >= 0), used):
            yield "the mask has other sub-apertures than the calibration"
        elif not np.array_equal(mask.ravel()[used], np.arange(USED)) or mask.min() != -1:
            yield "the mask numbers sub-apertures otherwise"
        for axis, name in enumerate("xy"):
            if not np.array_equal(measurements[-1, axis], last["slopes"].data[name][used], equal_nan=True):
                yield f"the last measurements in {name} are not the loop's slopes"
            half = slice(USED, None) if name == "x" else slice(0, USED)
            if not np.array_equal(to_modes[:, axis], cm[:, half]):
                yield f"measurements to modes in {name} are not the calibration's"
            if not np.array_equal(to_measurements[:, axis], m2s[half]):
                yield f"modes to measurements in {name} are not the calibration's"
        found = np.where(np.isfinite(measurements).all(axis=1, keepdims=True), measurements, 0.0)
        if not np.allclose(np.einsum("tds,mds->tm", found, to_modes), coefficients, rtol=0.0, atol=1e-9):
            yield "measurements to modes give other coefficients"
        # The last correction that was made acts `delay` frames after the measurement that made it.
        state = np.zeros(MODES)
        expected = np.zeros_like(commands)
        for frame, measured in enumerate(coefficients[:-delay]):
            state = kept * state + gain * measured
            expected[frame + delay] = state
        if not np.allclose(expected, commands, rtol=0.0, atol=1e-9):
            yield "the commands are not those of the time filter"
        if not np.array_equal(commands, loop["telemetry"].data["correction"]):
            yield "the commands are not the loop's corrections"
        if not np.array_equal(opened["DISTURBANCE"].data, loop["telemetry"].data["disturbance"]):
            yield "the disturbance is not the loop's"
        if len(times) != len(measurements) or np.any(np.diff(times) < 0.0):
            yield "the times do not go with the frames"


# --- Damage, by which the checker is checked

def rewritten(source, target, change):
    """A copy of a file of which the list of its units has been changed."""
    with fits.open(source, memmap=False) as opened, warnings.catch_warnings():
        warnings.simplefilter("ignore")
        fits.HDUList(change(list(opened))).writeto(target, checksum=True, overwrite=True)


def without(name):
    return lambda units: [unit for unit in units if unit.name != name]


def with_image(name, change):
    def changed(units):
        for unit in units:
            if unit.name == name:
                unit.data = np.ascontiguousarray(change(unit.data))
        return units
    return changed


def with_cell(table, column, value):
    def changed(units):
        for unit in units:
            if unit.name == table:
                unit.data[column][0] = value
        return units
    return changed


class Telemetry(unittest.TestCase):
    """Loops on one calibration, and their files."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="quen_telemetry_"))
        cls.calibration = cls.folder / "sensor"
        cls.results = cls.calibration / "loop"
        cls.run_tool("calibrate", cls.calibration)
        cls.run_file = cls.folder / "run.fits"
        cls.run_tool("loop", cls.calibration, "--frames", "40", "--gain", "0.4", "--leak", "0.02", "--delay", "2",
                     "--aot", cls.run_file)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    @staticmethod
    def run_tool(*arguments, **options):
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, check=False, **options)
        if done.returncode != 0:
            raise AssertionError(f"{arguments}: {done.stderr}")
        return done.stdout

    def refused(self, *arguments, **options):
        """The one sentence with which a run ends."""
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, check=False, **options)
        self.assertEqual(done.returncode, 1, arguments)
        self.assertEqual(done.stdout, "", arguments)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        return done.stderr

    def assert_right(self, path):
        verified = subprocess.run(["fitsverify", "-q", path], capture_output=True, text=True, check=False).stdout
        self.assertTrue(verified.startswith("verification OK"), verified)
        self.assertEqual(list(faults(path)), [])
        self.assertEqual(list(number_faults(path, self.calibration, self.results)), [])

    def test_the_tables_and_the_numbers_are_right(self):
        results = self.folder / "first"
        self.run_tool("loop", self.calibration, "--frames", "40", "--gain", "0.4", "--leak", "0.02", "--delay", "2",
                      "--folder", results)
        self.assertEqual(list(faults(self.run_file)), [])
        self.assertEqual(list(number_faults(self.run_file, self.calibration, results)), [])
        with fits.open(self.run_file) as opened:
            self.assertNotIn("PIXEL_INTENSITIES", opened)
            control = opened["AOT_LOOPS_CONTROL"].header
            self.assertEqual((control["GAIN"], control["LEAK"], control["DELAY"], control["SEED"]), (0.4, 0.02, 2, 1))
            self.assertEqual(opened["AOT_DETECTORS"].header["NOISE"], 10.0)

    def test_frames_are_there_where_they_are_asked_for(self):
        """Spots in them are where the measurements say, x along rows."""
        path = self.folder / "frames.fits"
        for detector in ([], ["--photons", "20000", "--read-noise", "3"]):
            self.run_tool("loop", self.calibration, "--frames", "10", "--aot", path, "--aot-frames", *detector)
            self.assert_right(path)
            with fits.open(path) as opened:
                frames = referred(opened, "AOT_DETECTORS", "PIXEL_INTENSITIES")
                self.assertTrue(np.array_equal(frames[-1], fits.getdata(self.results / "frame.fits")))
                self.assertEqual(opened["AOT_DETECTORS"].data["READOUT_NOISE"][0] == 3.0, bool(detector))
                measurements = referred(opened, "AOT_WAVEFRONT_SENSORS", "MEASUREMENTS")
                mask = referred(opened, "AOT_WAVEFRONT_SENSORS", "SUBAPERTURE_MASK")
                light = np.maximum(frames[0].astype(float) - np.median(frames[0]) - 60.0, 0.0)
            rows, columns = np.nonzero(mask >= 0)
            errors = []
            for grid_row, grid_column in zip(rows, columns):
                top, left = 12 + 24 * grid_row, 24 + 24 * grid_column
                region = light[top:top + 24, left:left + 24]
                y, x = np.indices(region.shape)
                number = mask[grid_row, grid_column]
                centre = np.array([(region * x).sum(), (region * y).sum()]) / region.sum()
                errors.append(centre - 11.5 - measurements[0, :, number])
            self.assertLess(np.abs(np.median(errors, axis=0)).max(), 0.6)
            self.assertLess(np.std(errors), 0.6)

    def test_spots_that_are_not_found_have_no_measurement(self):
        path = self.folder / "dark.fits"
        self.run_tool("loop", self.calibration, "--frames", "10", "--aot", path, "--photons", "200", "--gain", "0.2",
                      "--engine", "maximum-likelihood")
        self.assert_right(path)
        with fits.open(path) as opened:
            self.assertTrue(np.isnan(referred(opened, "AOT_WAVEFRONT_SENSORS", "MEASUREMENTS")).any())
            self.assertTrue(np.isfinite(referred(opened, "AOT_LOOPS_CONTROL", "MODAL_COEFFICIENTS")).all())

    def test_a_loop_that_diverges_ends_its_file(self):
        path = self.folder / "diverged.fits"
        self.refused_but_written("loop", self.calibration, "--frames", "200", "--gain", "2", "--delay", "5", "--aot",
                                 path)
        self.assert_right(path)
        with fits.open(path) as opened:
            self.assertLess(len(opened["MEASUREMENTS"].data), 200)

    def refused_but_written(self, *arguments):
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn("diverges", done.stderr)

    def test_planted_damage_is_named(self):
        """By the checker here, and by 'check'."""
        path = self.folder / "damaged.fits"
        sensors, loops = "AOT_WAVEFRONT_SENSORS", "AOT_LOOPS"
        cases = [
            (without("AOT_ABERRATIONS"), "AOT_ABERRATIONS is missing", 'a table "AOT_ABERRATIONS", found none'),
            (without("COMMANDS"), "AOT_LOOPS.COMMANDS: INTREF<COMMANDS> leads to no image", 'the image "COMMANDS"'),
            (with_cell(loops, "TIME_UID", "ROWREF<OTHER>"), "AOT_LOOPS.TIME_UID: ROWREF<OTHER> leads to no row of "
             "AOT_TIME", 'refers to the row "OTHER" of "AOT_TIME"'),
            (with_cell(loops, "TIME_UID", "FRAMES"), "AOT_LOOPS.TIME_UID: FRAMES is no ROWREF",
             "FRAMES is no such reference"),
            (with_cell("AOT_LOOPS_CONTROL", "UID", "LOO"), "AOT_LOOPS_CONTROL has a row LOO, which AOT_LOOPS has not",
             'has a row "LOO", which "AOT_LOOPS" has not'),
            (with_image("MEASUREMENTS", lambda data: data.swapaxes(0, 1)),
             "AOT_WAVEFRONT_SENSORS.MEASUREMENTS has 2 along t, not 40", "along axis"),
            (with_image("MEASUREMENTS_TO_MODES", lambda data: data.transpose(2, 1, 0)),
             "AOT_LOOPS_CONTROL.MEASUREMENTS_TO_MODES has 607 along m, not 52", "along axis 0 of its image"),
            (with_image("COMMANDS", lambda data: data[np.newaxis]), "AOT_LOOPS.COMMANDS has 3 axes, not 2",
             "expected an image of 2 axes, found 3")]
        for change, words, sentence in cases:
            with self.subTest(words):
                rewritten(self.run_file, path, change)
                self.assertIn(words, list(faults(path)))
                self.assertIn(sentence, self.refused("check", path))
                self.assertIn(sentence, self.refused("view", path))
        rewritten(self.run_file, path, lambda units: units)
        self.assertEqual(list(faults(path)), [])
        self.assertIn("all 14 references hold", self.run_tool("check", path))
        self.assertIn(sensors, TABLES)

    def test_planted_damage_of_numbers_is_named(self):
        path = self.folder / "damaged.fits"
        results = self.folder / "numbers"
        self.run_tool("loop", self.calibration, "--frames", "12", "--folder", results, "--aot", self.folder / "n.fits")
        cases = [
            (with_image("MEASUREMENTS", lambda data: data[:, ::-1]), "the last measurements in x are not the loop's slopes"),
            (with_image("MEASUREMENTS_TO_MODES", lambda data: data[:, ::-1]),
             "measurements to modes give other coefficients"),
            (with_image("MODES_TO_MEASUREMENTS", lambda data: data[:, ::-1]),
             "modes to measurements in y are not the calibration's"),
            (with_image("SUBAPERTURE_MASK", lambda data: np.where(data == 5, 6, data)),
             "the mask numbers sub-apertures otherwise"),
            (with_image("SUBAPERTURE_MASK", lambda data: np.roll(data, 1, axis=1)),
             "the mask has other sub-apertures than the calibration"),
            (with_image("TIME_FILTER_NUM", lambda data: 2.0 * data), "the commands are not those of the time filter"),
            (with_image("COMMANDS", lambda data: -data), "the commands are not the loop's corrections"),
            (with_image("DISTURBANCE", lambda data: data[::-1]), "the disturbance is not the loop's")]
        for change, words in cases:
            with self.subTest(words):
                rewritten(self.folder / "n.fits", path, change)
                self.assertIn(words, list(number_faults(path, self.calibration, results)))

    def test_a_file_that_is_cut_ends_in_a_sentence(self):
        whole = self.run_file.read_bytes()
        path = self.folder / "cut.fits"
        for size in [0, 100, 2880, 2881, 20000, *range(5760, len(whole), len(whole) // 15), len(whole) - 2880]:
            path.write_bytes(whole[:size])
            with self.subTest(size):
                self.refused("check", path)
                self.refused("view", path)

    def test_a_picture_of_it_is_that_of_the_loop(self):
        results = self.folder / "same"
        self.run_tool("loop", self.calibration, "--frames", "15", "--folder", results, "--aot", results / "aot.fits")
        self.run_tool("view", results / "aot.fits", "--png", results / "a.png")
        self.run_tool("view", results / "telemetry.fits", "--png", results / "t.png")
        self.assertEqual((results / "a.png").read_bytes(), (results / "t.png").read_bytes())

    def test_the_file_is_written_whole_or_not_at_all(self):
        path = self.folder / "kept" / "run.fits"
        path.parent.mkdir()
        path.write_text("what was there")
        for limit in (300_000, 1_200_000):
            error = self.refused("loop", self.calibration, "--frames", "60", "--aot", path,
                                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
            self.assertIn("cannot write", error)
            self.assertEqual(path.read_text(), "what was there")
            self.assertEqual([file.name for file in path.parent.iterdir()], ["run.fits"])

    def test_memory_does_not_grow_with_frames_of_the_detector(self):
        with open(TOOL, "rb") as file:
            if b"__asan" in file.read():
                self.skipTest("the address sanitizer keeps what was freed")

        def most(*arguments):
            with subprocess.Popen([TOOL, "loop", str(self.calibration), *map(str, arguments)],
                                  stdout=subprocess.DEVNULL) as process:
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = status
            self.assertEqual(status, 0)
            return usage.ru_maxrss / 1024
        without_file = most("--frames", "100")
        with_file = most("--frames", "100", "--aot", self.folder / "long.fits", "--aot-frames")
        self.assertGreater((self.folder / "long.fits").stat().st_size, 138_000_000)
        self.assertLess(with_file, without_file + 30.0)

    def test_what_cannot_be_is_refused(self):
        zipped = self.refused("loop", self.calibration, "--aot", self.folder / "run.fits.gz")
        self.assertIn("does not end in .gz", zipped)
        other = self.refused("check", self.results / "slopes.fits")
        self.assertIn("a file of Adaptive Optics Telemetry, found another file", other)
        self.assertIn("are for calibrations", self.refused("check", self.run_file, "--fix", self.folder / "mended"))


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
